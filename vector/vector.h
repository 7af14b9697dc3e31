// SPDX-License-Identifier: BSD-3-Clause
// Level 1: y := alpha*x + beta*y and its relatives, for the entry layer and the other rooms. Everything by address,
// integers signed 64-bit; a negative increment starts at index (1 - n)*inc. No routine allocates, locks or reports.
#pragma once
#include "frame/tesh_types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef void tesh_blas_saxpby_fn(const int64_t *n, const float *alpha, const float *x, const int64_t *incx,
                                 const float *beta, float *y, const int64_t *incy);
typedef void tesh_blas_saxpy_fn(const int64_t *n, const float *alpha, const float *x, const int64_t *incx, float *y,
                                const int64_t *incy);
typedef void tesh_blas_scopy_fn(const int64_t *n, const float *x, const int64_t *incx, float *y, const int64_t *incy);
typedef void tesh_blas_sscal_fn(const int64_t *n, const float *alpha, float *x, const int64_t *incx);
typedef void tesh_blas_sswap_fn(const int64_t *n, float *x, const int64_t *incx, float *y, const int64_t *incy);
typedef void tesh_blas_srot_fn(const int64_t *n, float *x, const int64_t *incx, float *y, const int64_t *incy,
                               const float *c, const float *s);
typedef void tesh_blas_srotm_fn(const int64_t *n, float *x, const int64_t *incx, float *y, const int64_t *incy,
                                const float *param);
typedef float tesh_blas_snrm2_fn(const int64_t *n, const float *x, const int64_t *incx);

// Fronts: quick returns, then the dispatcher.
TESH_API tesh_blas_saxpby_fn tesh_blas_saxpby;
TESH_API tesh_blas_saxpy_fn tesh_blas_saxpy;
TESH_API tesh_blas_scopy_fn tesh_blas_scopy;
TESH_API tesh_blas_sscal_fn tesh_blas_sscal;

// Dispatchers.
TESH_API tesh_blas_saxpby_fn tesh_blas_xsaxpby;
TESH_API tesh_blas_saxpy_fn tesh_blas_xsaxpy;
TESH_API tesh_blas_scopy_fn tesh_blas_xscopy;
TESH_API tesh_blas_sscal_fn tesh_blas_xsscal;
TESH_API tesh_blas_sswap_fn tesh_blas_xsswap;
TESH_API tesh_blas_srot_fn tesh_blas_xsrot;
TESH_API tesh_blas_snrm2_fn tesh_blas_xsnrm2;

// The norm by a running scale, for the factorizations; 0 where n or incx is below 1, |x(0)| where n is 1.
TESH_API tesh_blas_snrm2_fn tesh_lapack_snrm20;

#ifdef __cplusplus
}
#endif
