// SPDX-License-Identifier: BSD-3-Clause
// C := beta*C + alpha*A^T*B for 4, 2 or 1 rows of op(A), without packing. Rows of A and columns of B are runs of depth, so
// that a register takes several steps at once: the rows of step l in its lower half and those of step l + 4 in its upper
// one. The panel holds eight steps as `rows` registers, and a column of B is spread to match by a shuffle within halves.
#pragma once
#include "frame/path/vec_avx2.h"
#include "gemm/avx2/sgemm_path_avx2.h"
#include "gemm/body/sgemm_nocopy_kernel_body.h"

namespace
{
template <class v_, int vecs_> struct whole_rows {
    using v = v_;
    static constexpr int vecs = vecs_, tile_n = 6, widest = tile_n;
    int64_t ahead; // distance of the next row tile, or 0 [elements]
    inline explicit whole_rows(int64_t m) : ahead(m > 16 ? 16 : 0) {}
    // Only a full tile has another behind it in memory.
    [[gnu::always_inline]] inline void fetch_next_rows(const float *a) const
    {
        if constexpr (vecs == 2)
            fetch_read(a + ahead);
    }
    inline typename v::reg load(const float *x, int i) const { return v::load(x + i * v::width); }
    inline void store(float *x, int i, typename v::reg value) const { v::store(x + i * v::width, value); }
    inline typename v::reg factor(float x, int) const { return v::set1(x); }
    inline void accumulate(typename v::reg (&z)[vecs], const typename v::reg (&x)[vecs], const float *y) const
    {
        const typename v::reg element = v::broadcast(y);
#pragma GCC unroll 2
        for (int i = 0; i < vecs; ++i)
            v::accumulate(z[i], x[i], element);
    }
};

// Register q of eight steps of a column: for 4 rows step q and q + 4, for 2 rows steps 2q, 2q + 1 and those four behind.
template <int rows, int q> inline __m256 spread_steps(__m256 b)
{
    if constexpr (rows == 4)
        return _mm256_permute_ps(b, q * 0x55);
    else if constexpr (rows == 2)
        return _mm256_permute_ps(b, q == 0 ? 0x50 : 0xfa);
    else
        return b;
}

template <int rows> inline void pair_steps(const __m256 (&x)[rows], float *panel)
{
    if constexpr (rows == 1) {
        vec_avx2::store(panel, x[0]);
    } else if constexpr (rows == 2) {
        vec_avx2::store(panel, _mm256_unpacklo_ps(x[0], x[1]));
        vec_avx2::store(panel + 8, _mm256_unpackhi_ps(x[0], x[1]));
    } else {
        const __m256 t0 = _mm256_unpacklo_ps(x[0], x[1]), t1 = _mm256_unpackhi_ps(x[0], x[1]);
        const __m256 t2 = _mm256_unpacklo_ps(x[2], x[3]), t3 = _mm256_unpackhi_ps(x[2], x[3]);
        vec_avx2::store(panel, _mm256_shuffle_ps(t0, t2, 0x44));
        vec_avx2::store(panel + 8, _mm256_shuffle_ps(t0, t2, 0xee));
        vec_avx2::store(panel + 16, _mm256_shuffle_ps(t1, t3, 0x44));
        vec_avx2::store(panel + 24, _mm256_shuffle_ps(t1, t3, 0xee));
    }
}

// Steps beyond k come out as zeros.
template <int rows> inline void pair_rows(int64_t k, const float *a, int64_t lda, float *panel)
{
    __m256 x[rows];
    for (; k >= 8; k -= 8, a += 8, panel += 8 * rows) {
#pragma GCC unroll 4
        for (int i = 0; i < rows; ++i)
            x[i] = vec_avx2::load(a + i * lda);
        pair_steps<rows>(x, panel);
    }
    if (k > 0) {
        const __m256i valid = vec_avx2::first(k);
#pragma GCC unroll 4
        for (int i = 0; i < rows; ++i)
            x[i] = vec_avx2::load(a + i * lda, valid);
        pair_steps<rows>(x, panel);
    }
}

// The sums of the halves, and of the runs of rows in them.
template <int rows> inline typename lanes<rows>::reg add_steps(__m256 x)
{
    const __m128 four = _mm_add_ps(_mm256_castps256_ps128(x), _mm256_extractf128_ps(x, 1));
    if constexpr (rows == 4)
        return four;
    const __m128 two = _mm_add_ps(four, _mm_movehl_ps(four, four));
    if constexpr (rows == 2)
        return _mm_movelh_ps(two, _mm_setzero_ps()); // an infinity beside the two would meet a zero of alpha
    else if constexpr (rows == 1)
        return _mm_cvtss_f32(_mm_add_ss(two, _mm_movehdup_ps(two)));
}

// cols columns against the panel; the sums of neighbouring registers add up apart in two sets, in four where three columns
// of 4 rows leave the registers for it, in one for a single row.
template <int rows, int cols> struct paired_tile {
    static constexpr int sets = rows == 4 && cols <= 3 ? 4 : rows >= 2 ? 2 : 1;
    __m256 acc[sets][cols];

    template <int q, class column> [[gnu::always_inline]] inline void multiply(const float *panel, column b)
    {
        const __m256 a = vec_avx2::load(panel + q * 8);
#pragma GCC unroll 6
        for (int j = 0; j < cols; ++j)
            lanes<8>::accumulate(acc[q % sets][j], a, spread_steps<rows, q>(b(j)));
        if constexpr (q + 1 < rows)
            multiply<q + 1>(panel, b);
    }
};

template <int rows, int cols, beta_form form>
[[gnu::noinline]] void paired_columns(int64_t k, const float *alpha, const float *panel, const float *b, int64_t ldb,
                                      const float *beta, float *c, int64_t ldc)
{
    paired_tile<rows, cols> t;
#pragma GCC unroll 4
    for (auto &set : t.acc)
#pragma GCC unroll 6
        for (__m256 &sum : set)
            sum = vec_avx2::zero();
    for (; k >= 8; k -= 8, panel += 8 * rows, b += 8)
        t.template multiply<0>(
            panel, [&](int j) __attribute__((always_inline)) { return vec_avx2::load(b + j * ldb); });
    if (k > 0) {
        const __m256i valid = vec_avx2::first(k);
        t.template multiply<0>(
            panel, [&](int j) __attribute__((always_inline)) { return vec_avx2::load(b + j * ldb, valid); });
    }
    const whole_rows<lanes<rows>, 1> r(rows);
#pragma GCC unroll 6
    for (int j = 0; j < cols; ++j) {
        __m256 sum = t.acc[0][j];
#pragma GCC unroll 3
        for (int s = 1; s < t.sets; ++s)
            sum = _mm256_add_ps(sum, t.acc[s][j]);
        r.store(c + j * ldc, 0, updated<form>(r, 0, *alpha, add_steps<rows>(sum), beta, c + j * ldc));
    }
}

// rows rows of op(A), the runs of depth at a, against all columns.
template <int rows, beta_form form>
inline void paired_row_tile(int64_t n, int64_t k, const float *alpha, const float *a, int64_t lda, float *panel,
                            const float *b, int64_t ldb, const float *beta, float *c, int64_t ldc)
{
    pair_rows<rows>(k, a, lda, panel);
    for (; n >= 6; n -= 6, b += 6 * ldb, c += 6 * ldc)
        paired_columns<rows, 6, form>(k, alpha, panel, b, ldb, beta, c, ldc);
    static constexpr decltype(&paired_columns<rows, 1, form>) rest[] = {
        paired_columns<rows, 1, form>, paired_columns<rows, 2, form>, paired_columns<rows, 3, form>,
        paired_columns<rows, 4, form>, paired_columns<rows, 5, form>};
    if (n > 0)
        rest[n - 1](k, alpha, panel, b, ldb, beta, c, ldc);
}
} // namespace
