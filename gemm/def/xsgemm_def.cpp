// SPDX-License-Identifier: BSD-3-Clause
// C := alpha*op(A)*op(B) + beta*C on the def path: the model's own form, or the generic one.
#include "gemm/body/sgemm_generic_body.h"
#include "vector/matrix_vector.h"
#include "vector/matrix_vector_paths.h"

namespace
{
struct generic_def {
    static constexpr tesh_blas_sgemm_fn *pst = tesh_blas_def_sgemm_pst, *barcelona = tesh_blas_def_xsgemm1_brc,
                                        *bulldozer = tesh_blas_def_xsgemm_bdz;
    static constexpr tesh_blas_sgemv_fn *gemv = tesh_blas_def_xsgemv;
    static constexpr tesh_blas_sgemm_zerom_fn *zerom = tesh_blas_def_sgemm_zerom;
    static constexpr tesh_blas_sgemm_scalm_fn *scalm = tesh_blas_def_sgemm_scalm;
    static constexpr tesh_blas_sgemm_copya_fn *copyan = tesh_blas_def_sgemm_copyan,
                                              *copyat = tesh_blas_def_sgemm_copyat;
    static constexpr tesh_blas_sgemm_copyb_fn *copybn = tesh_blas_def_sgemm_copybn,
                                              *copybt = tesh_blas_def_sgemm_copybt;
    static constexpr tesh_blas_sgemm_inner_fn *inner = tesh_blas_def_sgemm_inner,
                                              *inner_roll = tesh_blas_def_sgemm_inner_roll;
    static constexpr tesh_blas_sgemm_inner_fn *inner_z_roll = tesh_blas_def_sgemm_inner_z_roll,
                                              *inner_b_roll = tesh_blas_def_sgemm_inner_b_roll;
};
} // namespace

extern "C" void tesh_blas_def_xsgemm(const char *transa, const char *transb, const int64_t *m, const int64_t *n,
                                     const int64_t *k, const float *alpha, const float *a, const int64_t *lda,
                                     const float *b, const int64_t *ldb, const float *beta, float *c,
                                     const int64_t *ldc)
{
    portable_product<generic_def>({transa, transb, *m, *n, *k, *alpha, a, *lda, b, *ldb, *beta, c, *ldc});
}
