// SPDX-License-Identifier: BSD-3-Clause
// x := c*x + s*y, y := c*y - s*x on the mc3 path.
#include "vector/body/srot_sse_body.h"
#include "vector/vector_paths.h"

extern "C" void tesh_blas_mc3_xsrot(const int64_t *n, float *x, const int64_t *incx, float *y, const int64_t *incy,
                                    const float *c, const float *s)
{
    srot_sse_body(n, x, incx, y, incy, c, s);
}
