// SPDX-License-Identifier: BSD-3-Clause
// computes   C[m x n] := beta*C + alpha*op(A)*op(B), operands where they lie; b0 does not read C, b1 adds, bn scales it
// registers  full tile 16 x 6: 12 accumulators + 2 of A + 1 broadcast of B, 15 of 16
// layout     A, B, C column-major, any alignment; A transposed goes through a panel of 16 floats a depth step
// loop       depth unrolled by 8, remainder by 1
// prefetch   none
// edges      rest rows by 8, then 4, 2, 1, each with registers of its width; a branch for each count of columns
// measured   bench/gemm/bench_sgemm.cpp, groups tiny and small
#include "gemm/avx2/sgemm_path_avx2.h"
#include "gemm/body/sgemm_nocopy_kernel_body.h"
#include "gemm/sgemm_paths.h"

namespace
{
template <class v_, int vecs_> struct whole_rows {
    using v = v_;
    static constexpr int vecs = vecs_;
    inline typename v::reg load(const float *x, int i) const { return v::load(x + i * v::width); }
    inline void store(float *x, int i, typename v::reg value) const { v::store(x + i * v::width, value); }
    inline void accumulate(typename v::reg &z, typename v::reg x, typename v::reg y, int) const
    {
        v::accumulate(z, x, y);
    }
};

// 8 rows by 8 depth steps. Steps beyond valid come out as zeros: the panel has room for them. Rows beyond the last one
// repeat it.
inline void transpose_8(const float *a, int64_t lda, int64_t last_row, int64_t valid, float *panel)
{
    const __m256i mask = vec_avx2::first(valid);
    __m256 x[8], y[8];
#pragma GCC unroll 8
    for (int i = 0; i < 8; ++i)
        x[i] = vec_avx2::load(a + min_of(i, last_row) * lda, mask);
        // y[4*g + q]: in half r, step 4*r + q of rows 4*g .. 4*g + 3.
#pragma GCC unroll 2
    for (int i = 0; i < 8; i += 4) {
        const __m256 t0 = _mm256_unpacklo_ps(x[i], x[i + 1]), t1 = _mm256_unpackhi_ps(x[i], x[i + 1]);
        const __m256 t2 = _mm256_unpacklo_ps(x[i + 2], x[i + 3]), t3 = _mm256_unpackhi_ps(x[i + 2], x[i + 3]);
        y[i] = _mm256_shuffle_ps(t0, t2, 0x44);
        y[i + 1] = _mm256_shuffle_ps(t0, t2, 0xee);
        y[i + 2] = _mm256_shuffle_ps(t1, t3, 0x44);
        y[i + 3] = _mm256_shuffle_ps(t1, t3, 0xee);
    }
#pragma GCC unroll 4
    for (int q = 0; q < 4; ++q) {
        vec_avx2::store(panel + q * 16, _mm256_permute2f128_ps(y[q], y[4 + q], 0x20));
        vec_avx2::store(panel + (q + 4) * 16, _mm256_permute2f128_ps(y[q], y[4 + q], 0x31));
    }
}

struct nocopy_avx2 {
    static constexpr int tile_n = 6;
    static constexpr int64_t panel_m = 16, whole_columns = 18;

    static inline void copy(int64_t rows, int64_t k, const float *a, int64_t lda, float *panel)
    {
        const __m256i m0 = vec_avx2::first(min_of(rows, 8)), m1 = vec_avx2::first(max_of(rows - 8, 0));
        for (int64_t l = 0; l < k; ++l, a += lda, panel += panel_m) {
            vec_avx2::store(panel, vec_avx2::load(a, m0));
            vec_avx2::store(panel + 8, vec_avx2::load(a + 8, m1));
        }
    }
    static inline void transpose(int64_t rows, int64_t k, const float *a, int64_t lda, float *panel)
    {
        for (int64_t i = 0; i < rows; i += 8) {
            const int64_t last_row = min_of(rows - i, 8) - 1;
            for (int64_t l = 0; l < k; l += 8)
                transpose_8(a + i * lda + l, lda, last_row, min_of(k - l, 8), panel + l * panel_m + i);
        }
    }

    template <class v, int vecs, beta_form form>
    static inline void tile(const nocopy_block &x, const float *&a, int64_t a_depth, float *&c)
    {
        row_tile<nocopy_avx2, whole_rows<v, vecs>, form>(x, {}, a, a_depth, c);
        a += vecs * v::width;
        c += vecs * v::width;
    }
    template <beta_form form, class source>
    static inline void row_tiles(const nocopy_block &x, int64_t m, const source &s, float *c)
    {
        int64_t i = 0;
        for (; i + 16 <= m; i += 16) {
            const float *a = s.tile(i, 16);
            tile<lanes<8>, 2, form>(x, a, s.depth_stride, c);
        }
        if (i == m)
            return;
        const int64_t rest = m - i;
        const float *a = s.tile(i, rest);
        if (rest & 8)
            tile<lanes<8>, 1, form>(x, a, s.depth_stride, c);
        if (rest & 4)
            tile<lanes<4>, 1, form>(x, a, s.depth_stride, c);
        if (rest & 2)
            tile<lanes<2>, 1, form>(x, a, s.depth_stride, c);
        if (rest & 1)
            tile<lanes<1>, 1, form>(x, a, s.depth_stride, c);
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
