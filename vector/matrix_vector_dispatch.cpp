// SPDX-License-Identifier: BSD-3-Clause
// Dispatchers of level 2.
#include "frame/service/dispatch.h"
#include "vector/matrix_vector_paths.h"

namespace
{
tesh_blas_sgemv_fn *sgemv_address;
tesh_blas_sger_fn *sger_address;
tesh_blas_strmv_fn *strmv_address;

constexpr tesh_blas_sgemv_fn *sgemv_members[dispatch_path_count] = {
    tesh_blas_def_xsgemv,  tesh_blas_cnr_def_xsgemv, tesh_blas_mc3_xsgemv,
    tesh_blas_avx2_xsgemv, tesh_blas_avx512_xsgemv,
};
constexpr tesh_blas_sger_fn *sger_members[dispatch_path_count] = {
    tesh_blas_def_xsger, tesh_blas_cnr_def_xsger, tesh_blas_mc3_xsger, tesh_blas_avx2_xsger, tesh_blas_avx512_xsger,
};
constexpr tesh_blas_strmv_fn *strmv_members[dispatch_path_count] = {
    tesh_blas_def_xstrmv,  tesh_blas_cnr_def_xstrmv, tesh_blas_mc3_xstrmv,
    tesh_blas_avx2_xstrmv, tesh_blas_avx512_xstrmv,
};
} // namespace

extern "C" void tesh_blas_xsgemv(const char *trans, const int64_t *m, const int64_t *n, const float *alpha,
                                 const float *a, const int64_t *lda, const float *x, const int64_t *incx,
                                 const float *beta, float *y, const int64_t *incy, int64_t trans_length)
{
    dispatch<sgemv_address, sgemv_members>(trans, m, n, alpha, a, lda, x, incx, beta, y, incy, trans_length);
}

extern "C" void tesh_blas_xsger(const int64_t *m, const int64_t *n, const float *alpha, const float *x,
                                const int64_t *incx, const float *y, const int64_t *incy, float *a, const int64_t *lda)
{
    dispatch<sger_address, sger_members>(m, n, alpha, x, incx, y, incy, a, lda);
}

extern "C" void tesh_blas_xstrmv(const char *uplo, const char *trans, const char *diag, const int64_t *n,
                                 const float *a, const int64_t *lda, float *x, const int64_t *incx, int64_t uplo_length,
                                 int64_t trans_length, int64_t diag_length)
{
    dispatch<strmv_address, strmv_members>(uplo, trans, diag, n, a, lda, x, incx, uplo_length, trans_length,
                                           diag_length);
}
