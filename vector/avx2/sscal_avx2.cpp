// SPDX-License-Identifier: BSD-3-Clause
// x := alpha*x on the avx2 path.
#include "frame/path/vec_avx2.h"
#include "vector/body/sscal_line_body.h"
#include "vector/vector_paths.h"

extern "C" void tesh_blas_avx2_xsscal(const int64_t *n, const float *alpha, float *x, const int64_t *incx)
{
    sscal_line_body<vec_avx2>(n, alpha, x, incx);
}
