// SPDX-License-Identifier: BSD-3-Clause
// C := alpha*op(A)*op(B) + beta*C on the cnr_def path in blocks of 256 x 256.
#include "gemm/body/sgemm_brc_body.h"

namespace
{
struct brc_cnr_def {
    static constexpr tesh_blas_sgemm_fn *pst = tesh_blas_cnr_def_sgemm_pst;
    static constexpr tesh_blas_sgemm_scalm_fn *mscale = tesh_blas_cnr_def_sgemm_mscale;
    static constexpr tesh_blas_sgemm_blk_info_fn *blk_info = tesh_blas_cnr_def_sgemm_blk_info_1_brc;
    static constexpr tesh_blas_sgemm_getbufs_brc_fn *getbufs = tesh_blas_cnr_def_sgemm_getbufs_brc;
    static constexpr tesh_blas_sgemm_freebufs_fn *freebufs = tesh_blas_cnr_def_sgemm_freebufs_brc;
    static constexpr tesh_blas_sgemm_copya_fn *copyan = tesh_blas_cnr_def_sgemm_copyan_1_brc,
                                              *copyat = tesh_blas_cnr_def_sgemm_copyat_1_brc;
    static constexpr tesh_blas_sgemm_copyb_fn *copybn = tesh_blas_cnr_def_sgemm_copybn_brc,
                                              *copybt = tesh_blas_cnr_def_sgemm_copybt_brc;
    static constexpr tesh_blas_sgemm_inner_fn *inner_roll = tesh_blas_cnr_def_sgemm_inner_roll,
                                              *inner_z_roll = tesh_blas_cnr_def_sgemm_inner_z_roll;
};
} // namespace

extern "C" void tesh_blas_cnr_def_xsgemm1_brc(const char *transa, const char *transb, const int64_t *m,
                                              const int64_t *n, const int64_t *k, const float *alpha, const float *a,
                                              const int64_t *lda, const float *b, const int64_t *ldb, const float *beta,
                                              float *c, const int64_t *ldc)
{
    tesh_blas_cnr_def_xsgemm1_0_brc(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

extern "C" void tesh_blas_cnr_def_xsgemm1_0_brc(const char *transa, const char *transb, const int64_t *m,
                                                const int64_t *n, const int64_t *k, const float *alpha, const float *a,
                                                const int64_t *lda, const float *b, const int64_t *ldb,
                                                const float *beta, float *c, const int64_t *ldc)
{
    brc_product<brc_cnr_def>({transa, transb, *m, *n, *k, *alpha, a, *lda, b, *ldb, *beta, c, *ldc});
}
