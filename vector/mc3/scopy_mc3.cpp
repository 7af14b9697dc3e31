// SPDX-License-Identifier: BSD-3-Clause
// y := x on the mc3 path.
#include "vector/body/phase_loops.h"
#include "vector/body/saxpby_sse_op.h"
#include "vector/vector_paths.h"

extern "C" void tesh_blas_mc3_xscopy(const int64_t *n, const float *x, const int64_t *incx, float *y,
                                     const int64_t *incy)
{
    const int64_t count = *n;
    if (count <= 0)
        return;
    phase_or_strided<32, 8>(copy_sse_op(), count, x, *incx, y, *incy);
}
