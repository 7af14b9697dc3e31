// SPDX-License-Identifier: BSD-3-Clause
// Level 2 by code path. Arguments as in matrix_vector.h, all by address; every routine repeats the quick returns, so it
// can be entered directly. strmv_in multiplies one triangular block in place, without blocking.
#pragma once
#include "vector/matrix_vector.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef void tesh_blas_strmv_in_fn(const char *uplo, const char *trans, const char *diag, const int64_t *n,
                                   const float *a, const int64_t *lda, float *x, const int64_t *incx);

TESH_API tesh_blas_sgemv_fn tesh_blas_def_xsgemv;
TESH_API tesh_blas_sgemv_fn tesh_blas_cnr_def_xsgemv;
TESH_API tesh_blas_sgemv_fn tesh_blas_mc3_xsgemv;
TESH_API tesh_blas_sgemv_fn tesh_blas_avx2_xsgemv;
TESH_API tesh_blas_sgemv_fn tesh_blas_avx512_xsgemv;

TESH_API tesh_blas_sger_fn tesh_blas_def_xsger;
TESH_API tesh_blas_sger_fn tesh_blas_cnr_def_xsger;
TESH_API tesh_blas_sger_fn tesh_blas_mc3_xsger;
TESH_API tesh_blas_sger_fn tesh_blas_avx2_xsger;
TESH_API tesh_blas_sger_fn tesh_blas_avx512_xsger;

TESH_API tesh_blas_strmv_fn tesh_blas_def_xstrmv;
TESH_API tesh_blas_strmv_fn tesh_blas_cnr_def_xstrmv;
TESH_API tesh_blas_strmv_fn tesh_blas_mc3_xstrmv;
TESH_API tesh_blas_strmv_fn tesh_blas_avx2_xstrmv;
TESH_API tesh_blas_strmv_fn tesh_blas_avx512_xstrmv;

TESH_API tesh_blas_strmv_in_fn tesh_blas_def_strmv_in;
TESH_API tesh_blas_strmv_in_fn tesh_blas_cnr_def_strmv_in;
TESH_API tesh_blas_strmv_in_fn tesh_blas_mc3_strmv_in;
TESH_API tesh_blas_strmv_in_fn tesh_blas_avx2_strmv_in;
TESH_API tesh_blas_strmv_in_fn tesh_blas_avx512_strmv_in;

// The reproducible form of the mc3 routine: its result does not depend on the alignment of any operand.
TESH_API tesh_blas_sgemv_fn tesh_blas_mc3_xsgemv_cnr;

// Kernels of avx2 for a contiguous side of m rows and n columns; the vectors at their first logical elements.
// _n: y += alpha*A*x, y contiguous, incx apart the elements of x.
TESH_API void tesh_blas_avx2_xsgemv_n(const int64_t *m, const int64_t *n, const float *alpha, const float *a,
                                      const int64_t *lda, const float *x, const int64_t *incx, float *y);
// _t: y += alpha*A^T*x, x contiguous, incy apart the elements of y.
TESH_API void tesh_blas_avx2_xsgemv_t(const int64_t *m, const int64_t *n, const float *alpha, const float *a,
                                      const int64_t *lda, const float *x, const int64_t *incy, float *y);

#ifdef __cplusplus
}
#endif
