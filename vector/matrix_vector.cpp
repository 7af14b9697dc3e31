// SPDX-License-Identifier: BSD-3-Clause
// Fronts of level 2: they add the hidden lengths of the character arguments and jump on.
#include "vector/matrix_vector.h"

extern "C" void tesh_blas_sgemv(const char *trans, const int64_t *m, const int64_t *n, const float *alpha,
                                const float *a, const int64_t *lda, const float *x, const int64_t *incx,
                                const float *beta, float *y, const int64_t *incy)
{
    tesh_blas_xsgemv(trans, m, n, alpha, a, lda, x, incx, beta, y, incy, 1);
}

extern "C" void tesh_blas_sger(const int64_t *m, const int64_t *n, const float *alpha, const float *x,
                               const int64_t *incx, const float *y, const int64_t *incy, float *a, const int64_t *lda)
{
    tesh_blas_xsger(m, n, alpha, x, incx, y, incy, a, lda);
}

extern "C" void tesh_blas_strmv(const char *uplo, const char *trans, const char *diag, const int64_t *n, const float *a,
                                const int64_t *lda, float *x, const int64_t *incx)
{
    tesh_blas_xstrmv(uplo, trans, diag, n, a, lda, x, incx, 1, 1, 1);
}
