// SPDX-License-Identifier: BSD-3-Clause
// Rows of op(A) that are runs of depth, into a panel of 16 floats a depth step: by themselves, or while the first tile
// of columns is multiplied.
#pragma once
#include "frame/path/vec_avx2.h"
#include "gemm/avx2/sgemm_nocopy_narrow_avx2.h"
#include "gemm/body/sgemm_nocopy_kernel_body.h"

namespace
{
// Four depth steps from l on, of 8 rows, into a panel of 16: fours of rows, two of them side by side in a register.
template <class load> [[gnu::always_inline]] inline void transpose_steps(load four, float *panel)
{
    __m256 x[4];
#pragma GCC unroll 4
    for (int i = 0; i < 4; ++i)
        x[i] = _mm256_insertf128_ps(_mm256_castps128_ps256(four(i)), four(i + 4), 1);
    const __m256 t0 = _mm256_unpacklo_ps(x[0], x[1]), t1 = _mm256_unpackhi_ps(x[0], x[1]);
    const __m256 t2 = _mm256_unpacklo_ps(x[2], x[3]), t3 = _mm256_unpackhi_ps(x[2], x[3]);
    vec_avx2::store(panel, _mm256_shuffle_ps(t0, t2, 0x44));
    vec_avx2::store(panel + 16, _mm256_shuffle_ps(t0, t2, 0xee));
    vec_avx2::store(panel + 32, _mm256_shuffle_ps(t1, t3, 0x44));
    vec_avx2::store(panel + 48, _mm256_shuffle_ps(t1, t3, 0xee));
}
// Steps beyond k come out as zeros: the panel has room for them. While it goes, a line of each of the rows that lie
// ahead can be fetched in sixteen steps.
template <bool whole, bool fetches>
inline void transpose_rows(int64_t count, int64_t k, const float *a, int64_t lda, float *panel, int64_t ahead)
{
    const row_pointers<8, whole> p(a, lda, count);
    int64_t l = 0;
    for (; l + 4 <= k; l += 4) {
        if (fetches && l % 16 == 0)
#pragma GCC unroll 8
            for (int i = 0; i < 8; ++i)
                fetch_read(p.at(i, l) + ahead);
        transpose_steps(
            [&](int i) __attribute__((always_inline)) { return _mm_loadu_ps(p.at(i, l)); }, panel + l * 16);
    }
    if (l < k) {
        const __m128i valid = _mm256_castsi256_si128(vec_avx2::first(k - l));
        transpose_steps(
            [&](int i) __attribute__((always_inline)) { return _mm_maskload_ps(p.at(i, l), valid); }, panel + l * 16);
    }
}

// Eight depth steps of 16 rows, lda apart, into the panel, while twelve registers hold sums: the four that are left do
// for four rows at a time, all but the first of which are loaded twice. Half a register is stored at a time.
[[gnu::always_inline]] inline void transpose_beside_sums(const float *rows, int64_t lda, int64_t three, float *panel)
{
    const auto put = [&](__m256 x, int step) __attribute__((always_inline))
    {
        _mm_storeu_ps(panel + step * 16, _mm256_castps256_ps128(x));
        _mm_storeu_ps(panel + (step + 4) * 16, _mm256_extractf128_ps(x, 1));
    };
#pragma GCC unroll 4
    for (int group = 0; group < 4; ++group, rows += 4 * lda, panel += 4) {
        __asm__ volatile("" : "+r"(rows) : : "memory");
        const __m256 first = vec_avx2::load(rows);
        __m256 x = _mm256_unpacklo_ps(first, vec_avx2::load(rows + lda));
        __m256 y = _mm256_unpacklo_ps(vec_avx2::load(rows + 2 * lda), vec_avx2::load(rows + three));
        put(_mm256_shuffle_ps(x, y, 0x44), 0);
        put(_mm256_shuffle_ps(x, y, 0xee), 1);
        __asm__ volatile("" : "+r"(rows) : : "memory"); // rows 1 to 3 are loaded again, not kept
        x = _mm256_unpackhi_ps(first, vec_avx2::load(rows + lda));
        y = _mm256_unpackhi_ps(vec_avx2::load(rows + 2 * lda), vec_avx2::load(rows + three));
        put(_mm256_shuffle_ps(x, y, 0x44), 2);
        put(_mm256_shuffle_ps(x, y, 0xee), 3);
    }
    __asm__ volatile("" : : : "memory");
}

// Fetches lines of 16 rows that are runs of depth, one of each at a time: those of a row tile from some step on, then
// the rows behind it.
struct rows_fetch {
    const float *now, *behind;
    int64_t left; // steps of the tile itself that remain to be fetched
    [[gnu::always_inline]] inline void step(int64_t lda, int64_t three)
    {
        const float *line = now;
#pragma GCC unroll 4
        for (int i = 0; i < 4; ++i, line += 4 * lda) {
            fetch_read(line);
            fetch_read(line + lda);
            fetch_read(line + 2 * lda);
            fetch_read(line + three);
        }
        now += 16;
        left -= 16;
        if (left <= 0 && left > -16)
            now = behind;
    }
};
struct no_rows_fetch {
    [[gnu::always_inline]] inline void step(int64_t, int64_t) {}
};

// Six columns against 16 rows of op(A), which go into the panel eight steps before they are multiplied: their
// transposition takes little of the multipliers' time, and what is stored by halves has left for the cache when it is
// loaded.
template <bool b_transposed, beta_form form, class fetcher>
[[gnu::noinline, gnu::aligned(64)]] void copying_tile(fetcher fetch, const float *a, int64_t lda, float *panel,
                                                      int64_t k, const float *alpha, const float *b, int64_t ldb,
                                                      const float *beta, float *c, int64_t ldc)
{
    using rows = whole_rows<lanes<8>, 2>;
    constexpr int cols = rows::tile_n;
    constexpr int64_t width = 16;
    const int64_t rest = k & 7, whole = k - rest;
    if (rest > 0)
        for (int half = 0; half < 2; ++half)
            transpose_rows<true, false>(8, rest, a + half * 8 * lda + whole, lda, panel + whole * width + half * 8, 0);
    int64_t three = 3 * lda;
    __asm__("" : "+r"(three));
    fetch.step(lda, three);
    if (whole > 0)
        transpose_beside_sums(a, lda, three, panel);

    __m256 acc[cols][2];
#pragma GCC unroll 6
    for (int j = 0; j < cols; ++j)
        acc[j][0] = acc[j][1] = vec_avx2::zero();
    b_cursor<b_transposed, cols> y(b, ldb);
    const rows r(0);
    const auto step = [&](int64_t at) __attribute__((always_inline))
    {
        const __m256 x[2] = {vec_avx2::load(panel + at), vec_avx2::load(panel + at + 8)};
#pragma GCC unroll 6
        for (int j = 0; j < cols; ++j)
            r.accumulate(acc[j], x, y.column(j));
        y.advance();
    };
#pragma GCC unroll 1
    for (; k >= 8; k -= 8) {
        if ((k & 8) == 0)
            fetch.step(lda, three);
        a += 8;
        if (k >= 16)
            transpose_beside_sums(a, lda, three, panel + 8 * width);
#pragma GCC unroll 8
        for (int l = 0; l < 8; ++l)
            step(l * width);
        panel += 8 * width;
        __asm__("" : "+r"(panel));
    }
#pragma GCC unroll 1
    for (; k > 0; --k, panel += width)
        step(0);
    finish_tile<form>(r, *alpha, acc, beta, c, ldc);
}

constexpr int64_t copying_depth = 32; // from which on it pays: the first and the last steps are copied by themselves

// Lines come this many steps before their use; where op(A) is too large for the second-level cache,
// a whole tile before.
constexpr int64_t fetched_steps = 128, far_elements = 131072;

// 16 rows from i on against n columns, six at least.
template <bool b_transposed, beta_form form, class source>
inline void copied_row_tile(const source &s, int64_t i, int64_t n, int64_t k, const float *alpha, const float *b,
                            int64_t ldb, const float *beta, float *c, int64_t ldc)
{
    using rows = whole_rows<lanes<8>, 2>;
    const float *const a = s.a + i * s.lda, *const behind = s.behind(i, 16);
    if (!s.large()) {
        copying_tile<b_transposed, form>(no_rows_fetch(), a, s.lda, s.panel, k, alpha, b, ldb, beta, c, ldc);
    } else {
        const bool own = k > fetched_steps && s.m * k <= far_elements;
        constexpr int64_t from = fetched_steps - 16;
        const rows_fetch fetch = own ? rows_fetch{a + from, behind, k - from} : rows_fetch{behind, behind, 0};
        copying_tile<b_transposed, form>(fetch, a, s.lda, s.panel, k, alpha, b, ldb, beta, c, ldc);
    }
    constexpr int done = rows::tile_n;
    if (n > done)
        row_tile<rows, b_transposed, form>(16, n - done, k, alpha, s.panel, 16, b + done * (b_transposed ? 1 : ldb),
                                           ldb, beta, c + done * ldc, ldc);
}
} // namespace
