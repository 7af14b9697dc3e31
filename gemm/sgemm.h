// SPDX-License-Identifier: BSD-3-Clause
// SGEMM for the entry layer and the other rooms: C := alpha*op(A)*op(B) + beta*C. Arguments are right; nothing is
// reported.
#pragma once
#include "frame/tesh_types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef void tesh_blas_sgemm_fn(const char *transa, const char *transb, const int64_t *m, const int64_t *n,
                                const int64_t *k, const float *alpha, const float *a, const int64_t *lda,
                                const float *b, const int64_t *ldb, const float *beta, float *c, const int64_t *ldc);
// C := alpha*x*y^T + beta*C. The characters are passed on and steer nothing: the increments carry what they meant.
typedef void tesh_blas_sgemmger_fn(const char *transa, const char *transb, const int64_t *m, const int64_t *n,
                                   const float *alpha, const float *x, const int64_t *incx, const float *y,
                                   const int64_t *incy, const float *beta, float *c, const int64_t *ldc);

// Front: peels off the shapes that are a matrix-vector product or a rank-1 update. The hidden character lengths are not
// passed down: with thirteen arguments the entry reaches it by a jump.
TESH_API tesh_blas_sgemm_fn tesh_blas_sgemm;
TESH_API tesh_blas_sgemmger_fn tesh_blas_sgemmger;

// Dispatchers.
TESH_API tesh_blas_sgemm_fn tesh_blas_xsgemm;
TESH_API tesh_blas_sgemmger_fn tesh_blas_xsgemmger;

#ifdef __cplusplus
}
#endif
