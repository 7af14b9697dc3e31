// SPDX-License-Identifier: BSD-3-Clause
// y := alpha*x + beta*y on the mc3 path.
#include "vector/body/phase_loops.h"
#include "vector/body/saxpby_sse_op.h"
#include "vector/vector_paths.h"

extern "C" void tesh_blas_mc3_xsaxpby(const int64_t *n, const float *alpha, const float *x, const int64_t *incx,
                                      const float *beta, float *y, const int64_t *incy)
{
    const int64_t count = *n;
    if (count <= 0)
        return;
    const float a = *alpha, b = *beta;
    if (a == 0.0f && b == 1.0f)
        return;
    if (b == 0.0f) // of either sign: y is not read
        phase_or_strided<64, 8>(scale_sse_op(a), count, x, *incx, y, *incy);
    else
        phase_or_strided<64, 4>(axpby_sse_op(a, b), count, x, *incx, y, *incy);
}
