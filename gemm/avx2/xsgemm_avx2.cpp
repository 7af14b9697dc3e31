// SPDX-License-Identifier: BSD-3-Clause
// C := alpha*op(A)*op(B) + beta*C on the avx2 path: the road is chosen by shape.
#include "gemm/avx2/sgemm_nocopy_path_avx2.h"
#include "gemm/avx2/sgemm_path_avx2.h"
#include "gemm/body/xsgemm_body.h"

namespace
{
struct path : sgemm_path_avx2 {
    static constexpr auto &initialize_strategy = tesh_blas_avx2_sgemm_initialize_strategy;
    static constexpr auto &initialize_kernel_info = tesh_blas_avx2_sgemm_initialize_kernel_info;
    static constexpr auto &copyan = tesh_blas_avx2_sgemm_copyan;
    static constexpr auto &copyat = tesh_blas_avx2_sgemm_copyat;
    static constexpr auto &copybn = tesh_blas_avx2_sgemm_copybn;
    static constexpr auto &copybt = tesh_blas_avx2_sgemm_copybt;
    static constexpr auto &ker0 = tesh_blas_avx2_sgemm_ker0;
    static constexpr auto &ker0_cnr = tesh_blas_avx2_sgemm_ker0_cnr;
    static constexpr auto &mscale_wrapper = tesh_blas_avx2_sgemm_mscale_wrapper;
    static constexpr auto &packed_driver = tesh_blas_avx2_s_generic_fullacopybcopy;
    static constexpr auto &acopied_driver = tesh_blas_avx2_xsgemm_acopiedbcopy;
    static constexpr auto &nocopy_driver = tesh_blas_avx2_xsgemm_nocopy_driver;
    static constexpr auto &pst_wrapper = tesh_blas_avx2_s_pst_wrapper;
    static constexpr auto &pst = tesh_blas_avx2_sgemm_pst;
};

int32_t check_strategy(gemm_strategy *strategy)
{
    return normalise<path>(strategy);
}

// Thresholds in elements. Below them packing does not pay.
constexpr int64_t packed_least_n = 72; // m and n for A as it lies
constexpr int64_t packed_least_t = 56; // m and n for A transposed

inline bool takes_packed(char transa, int64_t m, int64_t n, float alpha)
{
    const int64_t least = is_letter(transa, 'N') ? packed_least_n : packed_least_t;
    return alpha == 0.0f || (m >= least && n >= least);
}

inline bool takes_meq6_keq6(char transa, char transb, int64_t m, int64_t k)
{
    return m == 6 && k == 6 && is_letter(transa, 'N') && is_letter(transb, 'N');
}

// Apart from the path routine, so that the smallest products save no registers for it.
[[gnu::noinline]] void by_shape(const char *transa, const char *transb, const int64_t *m, const int64_t *n,
                                const int64_t *k, const float *alpha, const float *a, const int64_t *lda,
                                const float *b, const int64_t *ldb, const float *beta, float *c, const int64_t *ldc)
{
    if (strict_reproducibility())
        return packed_route<path>(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
    if (takes_packed(*transa, *m, *n, *alpha))
        return packed_route<path>(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
    if (takes_meq6_keq6(*transa, *transb, *m, *k))
        return (*beta == 0.0f ? tesh_blas_avx2_sgemm_nocopy_anbn_meq6_keq6_b0
                              : tesh_blas_avx2_sgemm_nocopy_anbn_meq6_keq6)(transa, transb, m, n, k, alpha, a, lda, b,
                                                                            ldb, beta, c, ldc);
    nocopy_route<path>(transa, transb, *m, *n, *k, *alpha, a, *lda, b, *ldb, *beta, c, *ldc);
}
} // namespace

extern "C" {
void tesh_blas_avx2_sgemm_initialize_strategy(gemm_strategy *strategy)
{
    initialize_strategy<path>(strategy, check_strategy);
}

void tesh_blas_avx2_sgemm_initialize_kernel_info(const blas_op_record *op, const blas_matrix_view *a,
                                                 const blas_matrix_view *b, const blas_matrix_view *,
                                                 const gemm_strategy *strategy, gemm_kernel_info *info)
{
    initialize_kernel_info<path>(op, a, b, strategy, info);
}

void tesh_blas_avx2_xsgemm(const char *transa, const char *transb, const int64_t *m, const int64_t *n, const int64_t *k,
                           const float *alpha, const float *a, const int64_t *lda, const float *b, const int64_t *ldb,
                           const float *beta, float *c, const int64_t *ldc)
{
    if (*m <= 0 || *n <= 0)
        return;
    if (!may_be_strict() && is_tiny(*m, *n, *k, *alpha) && !takes_meq6_keq6(*transa, *transb, *m, *k))
        return nocopy_one_block<nocopy_path>(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
    by_shape(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
}
