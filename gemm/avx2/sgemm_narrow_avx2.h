// SPDX-License-Identifier: BSD-3-Clause
// A packed row panel of 4, 2 or 1 rows against the full column panels: a register holds a step of two panels of four
// columns. Each element of C is one chain of sums in the order of depth.
#pragma once
#include "gemm/avx2/sgemm_across_avx2.h"
#include "gemm/body/sgemm_kernel_body.h"

namespace
{
// Registers of columns in a tile. Four rows by three of them would take every register, and GCC 12 spills a sum. By two
// a step has as many loads as products, and no column takes longer.
template <int rows> constexpr int widest_narrow = rows == 4 ? 2 : widest_across<rows>;

// The steps of vecs pairs of panels, next apart, four panels reached from one address. Of the last pair the second may
// be missing, the first stands for it.
template <int vecs> struct panel_pairs {
    static constexpr int fours = (vecs + 1) / 2;
    const float *four[fours], *last;
    int64_t next, three;
    [[gnu::always_inline]] inline panel_pairs(const float *b, int64_t next_, bool whole) : next(next_), three(3 * next_)
    {
#pragma GCC unroll 3
        for (int i = 0; i < fours; ++i)
            four[i] = b + 4 * i * next;
        last = b + (2 * vecs - (whole ? 1 : 2)) * next;
    }
    inline const float *panel(int g) const
    {
        return four[g / 4] + (g % 4 == 0 ? 0 : g % 4 == 1 ? next : g % 4 == 2 ? 2 * next : three);
    }
    [[gnu::always_inline]] inline __m256 load(int i) const
    {
        return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_loadu_ps(panel(2 * i))),
                                    _mm_loadu_ps(i + 1 < vecs ? panel(2 * i + 1) : last), 1);
    }
    [[gnu::always_inline]] inline void advance()
    {
#pragma GCC unroll 3
        for (int i = 0; i < fours; ++i) {
            four[i] += 4;
            __asm__("" : "+r"(four[i]));
        }
        last += 4;
        __asm__("" : "+r"(last));
    }
};

template <int rows, int vecs, bool read_c>
[[gnu::noinline, gnu::aligned(64)]] void narrow_tile(int64_t depth, const float *a, const float *b, bool whole,
                                                     float *c, int64_t ldc)
{
    using w = lanes<rows>;
    panel_pairs<vecs> pairs(b, 4 * depth, whole);
    __m256 acc[vecs][rows];
    clear<rows, vecs>(acc);
#pragma GCC unroll 1
    for (; depth >= 4; depth -= 4)
#pragma GCC unroll 4
        for (int l = 0; l < 4; ++l, a += rows) {
            step_across<rows, vecs>(acc, a, pairs);
            pairs.advance();
            __asm__ volatile("" ::: "memory"); // what comes behind would only take registers from the sums
        }
#pragma GCC unroll 1
    for (; depth > 0; --depth, a += rows) {
        step_across<rows, vecs>(acc, a, pairs);
        pairs.advance();
    }
#pragma GCC unroll 6
    for (int i = 0; i < vecs; ++i)
        each_column<rows>(
            acc[i], [&](int j, typename w::reg column) __attribute__((always_inline)) {
                if (i + 1 < vecs || j < 4 || whole)
                    w::store(c, read_c ? w::add(w::load(c), column) : column);
                c += ldc;
            });
}
template <int rows, bool read_c> struct narrow_tiles {
    static constexpr int widest = widest_narrow<rows>;
    using function = decltype(narrow_tile<rows, 1, read_c>);
    template <int vecs> static constexpr function *tile = narrow_tile<rows, vecs, read_c>;
};

// One narrow row panel against all column panels, in tiles as even as they come; the narrow column panels by the plain
// tile.
template <class p, int rows, bool read_c>
[[gnu::noinline]] void narrow_panel(int64_t n, int64_t depth, const float *a, const float *b, float *c, int64_t ldc)
{
    static_assert(p::panel_n == 4, "a pair of panels fills a register");
    int64_t panels = n / 4, vecs = (panels + 1) / 2;
    int64_t tiles = (vecs + widest_narrow<rows> - 1) / widest_narrow<rows>;
#pragma GCC unroll 1
    for (; tiles > 0; --tiles) {
        const int64_t now = (vecs + tiles - 1) / tiles;
        const bool whole = 2 * now <= panels;
        tiles_across<narrow_tiles<rows, read_c>>[now - 1](depth, a, b, whole, c, ldc);
        vecs -= now;
        panels -= 2 * now;
        b += 8 * now * depth;
        c += 8 * now * ldc;
    }
    n &= 3;
    if (n > 0)
        row_panel<p, lanes<rows>, 1, read_c>(n, depth, a, panels < 0 ? b - 4 * depth : b, panels < 0 ? c - 4 * ldc : c,
                                             ldc);
}

template <class p, int rows, bool read_c> inline void narrow_rows(packed_pair &pair)
{
    narrow_panel<p, rows, read_c>(pair.n, pair.depth, pair.a, pair.b, pair.c, pair.ldc);
    pair.a += rows * pair.depth;
    pair.c += rows;
}
} // namespace
