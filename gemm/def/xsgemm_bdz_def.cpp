// SPDX-License-Identifier: BSD-3-Clause
// C := alpha*op(A)*op(B) + beta*C on the def path of processors with 256-bit fused multiply-add.
#include "gemm/body/sgemm_bdz_body.h"

namespace
{
struct bdz_def {
    static constexpr tesh_blas_sgemm_fn *pst = tesh_blas_def_sgemm_pst;
    static constexpr tesh_blas_sgemm_scalm_fn *mscale = tesh_blas_def_sgemm_mscale;
    static constexpr tesh_blas_sgemm_blk_info_fn *blk_info = tesh_blas_def_sgemm_blk_info_bdz;
    static constexpr tesh_blas_sgemm_getbufs_bdz_fn *getbufs = tesh_blas_def_sgemm_getbufs_bdz;
    static constexpr tesh_blas_sgemm_freebufs_fn *freebufs = tesh_blas_def_sgemm_freebufs_bdz;
    static constexpr tesh_blas_sgemm_scopy_bdz_fn *right4 = tesh_blas_def_sgemm_scopy_right4_bdz,
                                                  *down4 = tesh_blas_def_sgemm_scopy_down4_bdz;
    static constexpr tesh_blas_sgemm_scopy_bdz_fn *right16 = tesh_blas_def_sgemm_scopy_right16_bdz,
                                                  *down16 = tesh_blas_def_sgemm_scopy_down16_bdz;
    static constexpr tesh_blas_sgemm_kernel_16x4_fn *kernel_zen = tesh_blas_def_sgemm_kernel_0_zen,
                                                    *kernel_bdz = tesh_blas_def_sgemm_kernel_0_bdz;
};
} // namespace

extern "C" void tesh_blas_def_xsgemm_bdz(const char *transa, const char *transb, const int64_t *m, const int64_t *n,
                                         const int64_t *k, const float *alpha, const float *a, const int64_t *lda,
                                         const float *b, const int64_t *ldb, const float *beta, float *c,
                                         const int64_t *ldc)
{
    bdz_product<bdz_def>({transa, transb, *m, *n, *k, *alpha, a, *lda, b, *ldb, *beta, c, *ldc});
}
