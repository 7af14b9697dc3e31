// SPDX-License-Identifier: BSD-3-Clause
// Fronts of level 1: quick returns, then the dispatcher. Nothing is read before the count has been seen to be positive.
#include "vector/vector.h"

extern "C" void tesh_blas_saxpby(const int64_t *n, const float *alpha, const float *x, const int64_t *incx,
                                 const float *beta, float *y, const int64_t *incy)
{
    if (*n <= 0 || (*alpha == 0.0f && *beta == 1.0f))
        return;
    tesh_blas_xsaxpby(n, alpha, x, incx, beta, y, incy);
}

extern "C" void tesh_blas_saxpy(const int64_t *n, const float *alpha, const float *x, const int64_t *incx, float *y,
                                const int64_t *incy)
{
    if (*n <= 0 || *alpha == 0.0f)
        return;
    tesh_blas_xsaxpy(n, alpha, x, incx, y, incy);
}

extern "C" void tesh_blas_scopy(const int64_t *n, const float *x, const int64_t *incx, float *y, const int64_t *incy)
{
    if (*n <= 0)
        return;
    tesh_blas_xscopy(n, x, incx, y, incy);
}

extern "C" void tesh_blas_sscal(const int64_t *n, const float *alpha, float *x, const int64_t *incx)
{
    if (*n <= 0)
        return;
    tesh_blas_xsscal(n, alpha, x, incx);
}
