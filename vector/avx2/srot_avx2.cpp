// SPDX-License-Identifier: BSD-3-Clause
// x := c*x + s*y, y := c*y - s*x on the avx2 path.
#include "vector/body/srot_array.h"
#include "vector/vector_paths.h"

extern "C" void tesh_blas_avx2_xsrot(const int64_t *n, float *x, const int64_t *incx, float *y, const int64_t *incy,
                                     const float *c, const float *s)
{
    if (*n <= 0)
        return;
    const rotation_array param(c, s);
    tesh_blas_avx2_xsrotm(n, x, incx, y, incy, param.entry);
}
