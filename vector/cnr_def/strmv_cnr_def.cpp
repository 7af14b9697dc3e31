// SPDX-License-Identifier: BSD-3-Clause
// STRMV on the cnr_def path: x := op(A)*x for a triangular A.
#include "frame/path/vec_def.h"
#include "vector/body/strmv_body.h"
#include "vector/body/strmv_in_body.h"
#include "vector/matrix_vector_paths.h"

extern "C" void tesh_blas_cnr_def_strmv_in(const char *uplo, const char *trans, const char *diag, const int64_t *n,
                                           const float *a, const int64_t *lda, float *x, const int64_t *incx)
{
    strmv_in_by_lanes<vec_def>(strmv_in_read(uplo, trans, diag, n, a, lda, x, incx));
}

extern "C" void tesh_blas_cnr_def_xstrmv(const char *uplo, const char *trans, const char *diag, const int64_t *n,
                                         const float *a, const int64_t *lda, float *x, const int64_t *incx, int64_t,
                                         int64_t, int64_t)
{
    strmv_body<tesh_blas_cnr_def_xsgemv, tesh_blas_cnr_def_strmv_in>(uplo, trans, diag, n, a, lda, x, incx);
}
