// SPDX-License-Identifier: BSD-3-Clause
// y := alpha*x + y on the mc3 path.
#include "vector/body/phase_loops.h"
#include "vector/body/saxpby_sse_op.h"
#include "vector/vector_paths.h"

extern "C" void tesh_blas_mc3_xsaxpy(const int64_t *n, const float *alpha, const float *x, const int64_t *incx,
                                     float *y, const int64_t *incy)
{
    const int64_t count = *n;
    if (count <= 0 || *alpha == 0.0f)
        return;
    phase_or_strided<64, 4>(axpy_sse_op(*alpha), count, x, *incx, y, *incy);
}
