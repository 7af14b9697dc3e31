// SPDX-License-Identifier: BSD-3-Clause
// Level 2: matrix-vector product, rank-1 update, triangular product, for the other rooms. Matrices column-major;
// everything by address, integers signed 64-bit. Dispatchers take the hidden character lengths behind the arguments and
// read none.
#pragma once
#include "frame/tesh_types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef void tesh_blas_sgemv_fn(const char *trans, const int64_t *m, const int64_t *n, const float *alpha,
                                const float *a, const int64_t *lda, const float *x, const int64_t *incx,
                                const float *beta, float *y, const int64_t *incy, int64_t trans_length);
typedef void tesh_blas_sger_fn(const int64_t *m, const int64_t *n, const float *alpha, const float *x,
                               const int64_t *incx, const float *y, const int64_t *incy, float *a, const int64_t *lda);
typedef void tesh_blas_strmv_fn(const char *uplo, const char *trans, const char *diag, const int64_t *n, const float *a,
                                const int64_t *lda, float *x, const int64_t *incx, int64_t uplo_length,
                                int64_t trans_length, int64_t diag_length);

// Fronts.
TESH_API void tesh_blas_sgemv(const char *trans, const int64_t *m, const int64_t *n, const float *alpha, const float *a,
                              const int64_t *lda, const float *x, const int64_t *incx, const float *beta, float *y,
                              const int64_t *incy);
TESH_API tesh_blas_sger_fn tesh_blas_sger;
TESH_API void tesh_blas_strmv(const char *uplo, const char *trans, const char *diag, const int64_t *n, const float *a,
                              const int64_t *lda, float *x, const int64_t *incx);

// Dispatchers.
TESH_API tesh_blas_sgemv_fn tesh_blas_xsgemv;
TESH_API tesh_blas_sger_fn tesh_blas_xsger;
TESH_API tesh_blas_strmv_fn tesh_blas_xstrmv;

#ifdef __cplusplus
}
#endif
