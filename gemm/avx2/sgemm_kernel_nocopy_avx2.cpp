// SPDX-License-Identifier: BSD-3-Clause
// computes   C[m x n] := beta*C + alpha*op(A)*op(B), operands where they lie; b0 does not read C, b1 adds, bn scales it
// registers  full tile 16 x 6: 12 accumulators + 2 of A + 1 broadcast of B, 15 of 16
// layout     A, B, C column-major, any alignment; A transposed goes through a panel of 16 floats a depth step, full
//            tiles while the first six columns are multiplied (sgemm_nocopy_transpose_avx2.h)
// loop       depth unrolled by 8, remainder by 1; from depth 16 on tiles of few sums add two to eight sets of steps
//            apart
// prefetch   the next tile's columns of B, every line once, and the next 16 rows of A, also where they go through the
//            panel; small blocks nothing
// edges      rest rows by 8, then 4, 2, 1, these with several columns or several steps in a full register from depth 16
//            on (sgemm_nocopy_rests_avx2.h), TN always with several steps (sgemm_nocopy_narrow_avx2.h), as are all rows
//            where the columns are few and the depth is not small; a branch for each count of columns
// measured   96 % of the multiply-add peak at 32 x 32 x 32 and at 64 x 64 x 64, NN (bench_sgemm --group small)
#include "gemm/avx2/sgemm_nocopy_narrow_avx2.h"
#include "gemm/avx2/sgemm_nocopy_rests_avx2.h"
#include "gemm/avx2/sgemm_nocopy_transpose_avx2.h"
#include "gemm/avx2/sgemm_path_avx2.h"
#include "gemm/body/sgemm_nocopy_kernel_body.h"
#include "gemm/sgemm_paths.h"

namespace
{
struct nocopy_avx2 {
    static constexpr int64_t panel_m = 16, whole_columns = 18;

    static inline void copy(int64_t rows, int64_t k, const float *a, int64_t lda, float *panel)
    {
        const __m256i m0 = vec_avx2::first(min_of(rows, 8)), m1 = vec_avx2::first(max_of(rows - 8, 0));
        for (int64_t l = 0; l < k; ++l, a += lda, panel += panel_m) {
            vec_avx2::store(panel, vec_avx2::load(a, m0));
            vec_avx2::store(panel + 8, vec_avx2::load(a + 8, m1));
        }
    }
    template <bool fetches>
    static inline void transpose(int64_t rows, int64_t k, const float *a, int64_t lda, float *panel, int64_t ahead)
    {
        for (; rows >= 8; rows -= 8, a += 8 * lda, panel += 8)
            transpose_rows<true, fetches>(8, k, a, lda, panel, ahead);
        if (rows > 0)
            transpose_rows<false, fetches>(rows, k, a, lda, panel, ahead);
    }

    template <bool b_transposed, beta_form form, class source>
    static inline void row_tiles(int64_t m, int64_t n, int64_t k, const float *alpha, const source &s, const float *b,
                                 int64_t ldb, const float *beta, float *c, int64_t ldc)
    {
        constexpr bool dots = source::transposed && !b_transposed; // both operands are runs of depth
        if constexpr (dots)
            if (k >= deep && (n <= few_columns || m < 8))
                return paired_rows<form>(m, n, k, alpha, s.a, s.lda, s.panel, b, ldb, beta, c, ldc);
        int64_t i = 0;
        using full = whole_rows<lanes<8>, 2>;
        for (; m >= 16; i += 16, m -= 16, c += 16) {
            if constexpr (source::transposed)
                if (n >= full::tile_n && k >= copying_depth) {
                    copied_row_tile<b_transposed, form>(s, i, n, k, alpha, b, ldb, beta, c, ldc);
                    continue;
                }
            const float *const a = s.tile(i, 16, true);
            all_columns<full, b_transposed, form>(source::in_place ? m : 16, n, k, alpha, a, s.depth_stride, b, ldb,
                                                  beta, c, ldc);
        }
        if (m == 0)
            return;
        const float *a = dots && m < 8 ? nullptr : s.tile(i, dots ? 8 : m, true);
        if (m & 8) {
            row_tile<whole_rows<lanes<8>, 1>, b_transposed, form>(8, n, k, alpha, a, s.depth_stride, b, ldb, beta, c,
                                                                  ldc);
            a += 8;
            c += 8;
            i += 8;
        }
        if constexpr (dots) {
            if (m & 7)
                (k >= deep ? paired_rows<form> : shallow_rows<form>)(m & 7, n, k, alpha, s.a + i * s.lda, s.lda,
                                                                     s.panel, b, ldb, beta, c, ldc);
            return;
        }
        if (m & 4) {
            rest_of_rows<4, b_transposed, form>(n, k, alpha, a, s.depth_stride, b, ldb, beta, c, ldc);
            a += 4;
            c += 4;
        }
        if (m & 2) {
            rest_of_rows<2, b_transposed, form>(n, k, alpha, a, s.depth_stride, b, ldb, beta, c, ldc);
            a += 2;
            c += 2;
        }
        if (m & 1)
            rest_of_rows<1, b_transposed, form>(n, k, alpha, a, s.depth_stride, b, ldb, beta, c, ldc);
    }
    template <bool b_transposed, beta_form form>
    [[gnu::always_inline]] static inline void rows_as_they_lie(int64_t m, int64_t n, int64_t k, const float *alpha,
                                                               const float *a, int64_t lda, const float *b, int64_t ldb,
                                                               const float *beta, float *c, int64_t ldc)
    {
        if (lies_badly(a, lda) && n > whole_columns)
            return product_by_panel<nocopy_avx2, false, b_transposed, form>(m, n, k, alpha, a, lda, b, ldb, beta, c,
                                                                            ldc);
        row_tiles<b_transposed, form>(m, n, k, alpha, rows_in_place{a, lda}, b, ldb, beta, c, ldc);
    }
};
} // namespace

extern "C" {
void tesh_blas_avx2_sgemm_kernel_nocopy_NN_b0(int64_t m, int64_t n, int64_t k, const float *alpha, const float *a,
                                              int64_t lda, const float *b, int64_t ldb, const float *beta, float *c,
                                              int64_t ldc)
{
    nocopy_kernel<nocopy_avx2, false, false, beta_form::zero>(m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
void tesh_blas_avx2_sgemm_kernel_nocopy_NN_b1(int64_t m, int64_t n, int64_t k, const float *alpha, const float *a,
                                              int64_t lda, const float *b, int64_t ldb, const float *beta, float *c,
                                              int64_t ldc)
{
    nocopy_kernel<nocopy_avx2, false, false, beta_form::one>(m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
void tesh_blas_avx2_sgemm_kernel_nocopy_NN_bn(int64_t m, int64_t n, int64_t k, const float *alpha, const float *a,
                                              int64_t lda, const float *b, int64_t ldb, const float *beta, float *c,
                                              int64_t ldc)
{
    nocopy_kernel<nocopy_avx2, false, false, beta_form::other>(m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
void tesh_blas_avx2_sgemm_kernel_nocopy_NT_b0(int64_t m, int64_t n, int64_t k, const float *alpha, const float *a,
                                              int64_t lda, const float *b, int64_t ldb, const float *beta, float *c,
                                              int64_t ldc)
{
    nocopy_kernel<nocopy_avx2, false, true, beta_form::zero>(m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
void tesh_blas_avx2_sgemm_kernel_nocopy_NT_b1(int64_t m, int64_t n, int64_t k, const float *alpha, const float *a,
                                              int64_t lda, const float *b, int64_t ldb, const float *beta, float *c,
                                              int64_t ldc)
{
    nocopy_kernel<nocopy_avx2, false, true, beta_form::one>(m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
void tesh_blas_avx2_sgemm_kernel_nocopy_NT_bn(int64_t m, int64_t n, int64_t k, const float *alpha, const float *a,
                                              int64_t lda, const float *b, int64_t ldb, const float *beta, float *c,
                                              int64_t ldc)
{
    nocopy_kernel<nocopy_avx2, false, true, beta_form::other>(m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
void tesh_blas_avx2_sgemm_kernel_nocopy_TN_b0(int64_t m, int64_t n, int64_t k, const float *alpha, const float *a,
                                              int64_t lda, const float *b, int64_t ldb, const float *beta, float *c,
                                              int64_t ldc)
{
    nocopy_kernel<nocopy_avx2, true, false, beta_form::zero>(m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
void tesh_blas_avx2_sgemm_kernel_nocopy_TN_b1(int64_t m, int64_t n, int64_t k, const float *alpha, const float *a,
                                              int64_t lda, const float *b, int64_t ldb, const float *beta, float *c,
                                              int64_t ldc)
{
    nocopy_kernel<nocopy_avx2, true, false, beta_form::one>(m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
void tesh_blas_avx2_sgemm_kernel_nocopy_TN_bn(int64_t m, int64_t n, int64_t k, const float *alpha, const float *a,
                                              int64_t lda, const float *b, int64_t ldb, const float *beta, float *c,
                                              int64_t ldc)
{
    nocopy_kernel<nocopy_avx2, true, false, beta_form::other>(m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
void tesh_blas_avx2_sgemm_kernel_nocopy_TT_b0(int64_t m, int64_t n, int64_t k, const float *alpha, const float *a,
                                              int64_t lda, const float *b, int64_t ldb, const float *beta, float *c,
                                              int64_t ldc)
{
    nocopy_kernel<nocopy_avx2, true, true, beta_form::zero>(m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
void tesh_blas_avx2_sgemm_kernel_nocopy_TT_b1(int64_t m, int64_t n, int64_t k, const float *alpha, const float *a,
                                              int64_t lda, const float *b, int64_t ldb, const float *beta, float *c,
                                              int64_t ldc)
{
    nocopy_kernel<nocopy_avx2, true, true, beta_form::one>(m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
void tesh_blas_avx2_sgemm_kernel_nocopy_TT_bn(int64_t m, int64_t n, int64_t k, const float *alpha, const float *a,
                                              int64_t lda, const float *b, int64_t ldb, const float *beta, float *c,
                                              int64_t ldc)
{
    nocopy_kernel<nocopy_avx2, true, true, beta_form::other>(m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
}
