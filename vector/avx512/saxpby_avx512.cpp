// SPDX-License-Identifier: BSD-3-Clause
// y := alpha*x + beta*y on the avx512 path.
#include "frame/path/vec_avx512.h"
#include "vector/body/saxpby_line_body.h"
#include "vector/vector_paths.h"

extern "C" void tesh_blas_avx512_xsaxpby(const int64_t *n, const float *alpha, const float *x, const int64_t *incx,
                                         const float *beta, float *y, const int64_t *incy)
{
    saxpby_line_body<vec_avx512>(n, alpha, x, incx, beta, y, incy);
}
