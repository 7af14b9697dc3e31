// SPDX-License-Identifier: BSD-3-Clause
// x := alpha*x on the mc3 path.
#include "vector/body/phase_loops.h"
#include "vector/body/saxpby_sse_op.h"
#include "vector/vector_paths.h"

extern "C" void tesh_blas_mc3_xsscal(const int64_t *n, const float *alpha, float *x, const int64_t *incx)
{
    const int64_t count = *n;
    if (count <= 0)
        return;
    const int64_t step = magnitude(*incx);
    phase_or_strided<32, 8>(scale_sse_op(*alpha), count, x, step, x, step);
}
