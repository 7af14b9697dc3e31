// SPDX-License-Identifier: BSD-3-Clause
// y := x on the avx2 path.
#include "frame/path/vec_avx2.h"
#include "vector/body/scopy_line_body.h"
#include "vector/vector_paths.h"

extern "C" void tesh_blas_avx2_xscopy(const int64_t *n, const float *x, const int64_t *incx, float *y,
                                      const int64_t *incy)
{
    scopy_line_body<vec_avx2>(n, x, incx, y, incy);
}
