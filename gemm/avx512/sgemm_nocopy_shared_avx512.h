// SPDX-License-Identifier: BSD-3-Clause
// Row tiles of the no-copy kernels whose last register is half empty. With a register of its own for each column half
// of its lanes or more would be idle: here it holds eight rows of two columns or four rows of four, so that a tile of
// 36 x 8 takes 18 products a step instead of 24. The rows are masked in loads, sums and stores as everywhere, and every
// element of C is the same chain of sums.
#pragma once
#include "gemm/avx512/sgemm_path_avx512.h"
#include "gemm/body/sgemm_nocopy_kernel_body.h"

namespace
{
// full registers of rows, and up to each rows more, 4 or 8.
template <int full_, int each_> struct shared_rows {
    using v = lanes<16>;
    static constexpr int full = full_, each = each_, vecs = full + 1, panel_m = 48, tile_n = 8, columns_ahead = 16;
    static constexpr int columns = 16 / each; // that share a register
    __mmask8 rest;
    __mmask16 lanes_of_rest; // of all columns
    inline explicit shared_rows(int64_t m)
        : rest(static_cast<__mmask8>(v::first(m - 16 * full))),
          lanes_of_rest(static_cast<__mmask16>(rest * (each == 4 ? 0x1111 : 0x0101)))
    {
    }
    [[gnu::always_inline]] inline void fetch_next_rows(const float *) const {} // no rows are behind these
    // The rows of register i; the last ones stand there once for each column.
    inline __m512 load(const float *x, int i) const
    {
        x += i * 16;
        if (i < full)
            return v::load(x);
        if constexpr (each == 4)
            return _mm512_maskz_broadcast_f32x4(0xffff, _mm_maskz_loadu_ps(rest, x));
        else
            return _mm512_maskz_broadcast_f32x8(0xffff, _mm256_maskz_loadu_ps(rest, x));
    }
    inline __m512 factor(float x, int) const { return v::set1(x); } // of a full register
    // Elements of the columns, each for the rows of its own.
    inline __m512 joined(const __m512 (&element)[columns]) const
    {
        if constexpr (each == 8)
            return _mm512_mask_mov_ps(element[0], 0xff00, element[1]);
        else
            return _mm512_mask_mov_ps(_mm512_mask_mov_ps(element[0], 0x00f0, element[1]), 0xff00,
                                      _mm512_mask_mov_ps(element[2], 0xf000, element[3]));
    }
    // z += x * y in the lanes of the rest.
    inline void accumulate_rest(__m512 &z, __m512 x, __m512 y) const
    {
        __asm__("vfmadd231ps %2, %1, %0%{%3%}" : "+v"(z) : "v"(x), "v"(y), "Yk"(lanes_of_rest));
    }
    // The rows of a column, of those in x.
    inline __m256 column_of(__m512 x, int column) const
    {
        if constexpr (each == 8)
            return column == 0 ? _mm512_maskz_extractf32x8_ps(0xff, x, 0) : _mm512_maskz_extractf32x8_ps(0xff, x, 1);
        else
            return _mm256_zextps128_ps256(column == 0   ? _mm512_maskz_extractf32x4_ps(0xf, x, 0)
                                          : column == 1 ? _mm512_maskz_extractf32x4_ps(0xf, x, 1)
                                          : column == 2 ? _mm512_maskz_extractf32x4_ps(0xf, x, 2)
                                                        : _mm512_maskz_extractf32x4_ps(0xf, x, 3));
    }
    // The rest of a column of C, as it is to be, and its place there.
    template <beta_form form> inline __m256 updated_rest(float alpha, __m256 x, const float *beta, const float *c) const
    {
        const __m256 factor_of_x = _mm256_maskz_mov_ps(rest, _mm256_set1_ps(alpha));
        if constexpr (form == beta_form::zero)
            return _mm256_mul_ps(factor_of_x, x);
        __m256 sum = _mm256_maskz_loadu_ps(rest, c + full * 16);
        if constexpr (form == beta_form::other)
            sum = _mm256_mul_ps(_mm256_maskz_mov_ps(rest, _mm256_set1_ps(*beta)), sum);
        return _mm256_fmadd_ps(factor_of_x, x, sum);
    }
    inline void store_rest(float *c, __m256 value) const { _mm256_mask_storeu_ps(c + full * 16, rest, value); }
};

// cols columns of a row tile, as nocopy_tile.
template <class rows, int cols, bool b_transposed, beta_form form, class fetcher>
[[gnu::always_inline]] inline void shared_tile(const rows &r, fetcher fetch, int64_t k, float alpha, const float *a,
                                               int64_t a_depth, const float *b, int64_t ldb, const float *beta,
                                               float *c, int64_t ldc)
{
    using v = lanes<16>;
    constexpr int full = rows::full, columns = rows::columns, groups = (cols + columns - 1) / columns;
    __asm__ volatile("" : "+r"(k), "+r"(a_depth), "+r"(ldb), "+r"(ldc));
    __m512 acc[cols][full], rest[groups];
#pragma GCC unroll 8
    for (int j = 0; j < cols; ++j)
#pragma GCC unroll 2
        for (int i = 0; i < full; ++i)
            acc[j][i] = v::zero();
#pragma GCC unroll 4
    for (int g = 0; g < groups; ++g)
        rest[g] = v::zero();

    b_cursor<b_transposed, cols> y(b, ldb);
    const auto step = [&]() __attribute__((always_inline))
    {
        __m512 av[full + 1];
#pragma GCC unroll 3
        for (int i = 0; i <= full; ++i)
            av[i] = r.load(a, i);
        keep(fetch, av);
#pragma GCC unroll 4
        for (int g = 0; g < groups; ++g) {
            __m512 element[columns]; // the last column stands for those that are not there
#pragma GCC unroll 4
            for (int e = 0; e < columns; ++e) {
                const int j = g * columns + e;
                if (j >= cols) {
                    element[e] = element[e - 1];
                    continue;
                }
                element[e] = v::broadcast(y.column(j));
#pragma GCC unroll 2
                for (int i = 0; i < full; ++i)
                    v::accumulate(acc[j][i], av[i], element[e]);
            }
            r.accumulate_rest(rest[g], av[full], r.joined(element));
        }
        a += a_depth;
        __asm__("" : "+r"(a));
        y.advance();
    };
#pragma GCC unroll 1
    for (; k >= 8; k -= 8) {
#pragma GCC unroll 8
        for (int l = 0; l < 8; ++l) {
            fetch.step(l, a);
            step();
        }
        fetch.group();
    }
#pragma GCC unroll 1
    for (; k > 0; --k)
        step();

    // C is read before any of it is written, as in finish_tile.
    __m256 rest_of[cols];
#pragma GCC unroll 8
    for (int j = 0; j < cols; ++j) {
        const float *const column = c + j * ldc;
#pragma GCC unroll 2
        for (int i = 0; i < full; ++i)
            acc[j][i] = updated<form>(r, i, alpha, acc[j][i], beta, column);
        rest_of[j] = r.template updated_rest<form>(alpha, r.column_of(rest[j / columns], j % columns), beta, column);
    }
#pragma GCC unroll 8
    for (int j = 0; j < cols; ++j, c += ldc) {
#pragma GCC unroll 2
        for (int i = 0; i < full; ++i)
            v::store(c + i * 16, acc[j][i]);
        r.store_rest(c, rest_of[j]);
    }
}

template <class rows, int cols, bool b_transposed, beta_form form>
[[gnu::noinline, gnu::aligned(64)]] void single_shared_tile(int64_t m, int64_t k, float alpha, const float *a,
                                                            int64_t a_depth, const float *b, int64_t ldb,
                                                            const float *beta, float *c, int64_t ldc)
{
    shared_tile<rows, cols, b_transposed, form>(rows(m), no_fetch(), k, alpha, a, a_depth, b, ldb, beta, c, ldc);
}

constexpr int64_t shared_least_columns = 4; // of a tile

// The m rows of a tile against n columns, 8 at least. With a panel A lies badly, and columns are more than 12: the
// first tile copies it.
template <class rows, bool b_transposed, beta_form form>
[[gnu::noinline]] void shared_columns(int64_t m, int64_t n, int64_t k, float alpha, const float *a, int64_t a_depth,
                                      float *panel, const float *b, int64_t ldb, const float *beta, float *c,
                                      int64_t ldc)
{
    constexpr int tile_n = rows::tile_n;
    using fetch = fetch_in_place<rows, b_transposed>;
    const rows r(m);
    const bool large = max_of(m, n) * k > fetched_elements;
    const int64_t b_columns = tile_n * (b_transposed ? 1 : ldb), c_columns = tile_n * ldc;
    if (panel != nullptr) {
        shared_tile<rows, tile_n, b_transposed, form>(r, copy_aside<rows, fetch>{{r, {b, ldb}}, panel}, k, alpha, a,
                                                      a_depth, b, ldb, beta, c, ldc);
        a = panel;
        a_depth = rows::panel_m;
        n -= tile_n;
        b += b_columns;
        c += c_columns;
    }
    for (; n >= tile_n + shared_least_columns; n -= tile_n, b += b_columns, c += c_columns)
        if (large)
            shared_tile<rows, tile_n, b_transposed, form>(r, fetch{r, {b, ldb}}, k, alpha, a, a_depth, b, ldb, beta, c,
                                                          ldc);
        else
            shared_tile<rows, tile_n, b_transposed, form>(r, no_fetch(), k, alpha, a, a_depth, b, ldb, beta, c, ldc);
    // One tile, or two halves.
    static constexpr decltype(&single_shared_tile<rows, tile_n, b_transposed, form>) last[] = {
        single_shared_tile<rows, 4, b_transposed, form>, single_shared_tile<rows, 5, b_transposed, form>,
        single_shared_tile<rows, 6, b_transposed, form>, single_shared_tile<rows, 7, b_transposed, form>,
        single_shared_tile<rows, 8, b_transposed, form>};
    for (int64_t cols; n > 0; n -= cols, b += cols * (b_transposed ? 1 : ldb), c += cols * ldc) {
        cols = n <= tile_n ? n : (n + 1) / 2;
        last[cols - shared_least_columns](m, k, alpha, a, a_depth, b, ldb, beta, c, ldc);
    }
}

// Rows of the next tile: 48 at a time; where 49 to 64 are left, 32 and the rest, for a tile of one register has too few
// sums to keep the multipliers busy. Where 65 to 72 or 97 to 104 are left, 32, once or twice, and then 33 to 40: 17 to
// 24 would have as many products in all, but half as many for each element of B.
constexpr int64_t next_rows(int64_t left)
{
    if (left <= 48)
        return left;
    return left <= 72 || (left > 96 && left <= 104) ? 32 : 48;
}

// The last rows of a block, 17 to 24 or 33 to 40, from row i of a source on (sgemm_nocopy_kernel_body.h).
constexpr bool takes_shared_columns(int64_t rows, int64_t n)
{
    return rows > 16 && (rows - 1) % 16 < 8 && n >= 8;
}
template <bool b_transposed, beta_form form, class source>
[[gnu::always_inline]] inline void last_rows(int64_t i, int64_t rows, int64_t n, int64_t k, float alpha,
                                             const source &s, const float *b, int64_t ldb, const float *beta, float *c,
                                             int64_t ldc)
{
    const auto columns = rows > 36   ? shared_columns<shared_rows<2, 8>, b_transposed, form>
                         : rows > 32 ? shared_columns<shared_rows<2, 4>, b_transposed, form>
                         : rows > 20 ? shared_columns<shared_rows<1, 8>, b_transposed, form>
                                     : shared_columns<shared_rows<1, 4>, b_transposed, form>;
    if constexpr (source::in_place || source::transposed)
        columns(rows, n, k, alpha, s.tile(i, rows, false), s.depth_stride, nullptr, b, ldb, beta, c, ldc);
    else
        columns(rows, n, k, alpha, s.a + i, s.lda, s.panel, b, ldb, beta, c, ldc);
}
} // namespace
