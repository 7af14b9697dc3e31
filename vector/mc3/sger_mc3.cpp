// SPDX-License-Identifier: BSD-3-Clause
// SGER on the mc3 path: A := alpha*x*y^T + A.
#include "vector/body/sger_body.h"
#include "vector/matrix_vector_paths.h"
#include "vector/vector_paths.h"

extern "C" void tesh_blas_mc3_xsger(const int64_t *m, const int64_t *n, const float *alpha, const float *x,
                                    const int64_t *incx, const float *y, const int64_t *incy, float *a,
                                    const int64_t *lda)
{
    sger_body<tesh_blas_mc3_xsaxpy>(m, n, alpha, x, incx, y, incy, a, lda);
}
