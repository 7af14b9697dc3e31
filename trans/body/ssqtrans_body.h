// SPDX-License-Identifier: BSD-3-Clause
// a := a^T in place, n x n, alpha = 1: tiles of 16 x 16, then strips and a corner for what is left of n. t brings the
// tile kernels: strans(tile, lda) at the diagonal, sswap(p, q, lda) for a pair.
#pragma once
#include <immintrin.h>
#include <stdint.h>

#include "trans/routes.h"

namespace
{
constexpr uint64_t square_tile = 16;                  // [elements]
constexpr uint64_t square_round = 8;                  // [tiles] or pairs of them in a round
constexpr uint64_t shell_round = 4;                   // [steps] of two pairs each
constexpr uint64_t pair_round = 4;                    // [pairs of elements]
constexpr uint64_t square_large_above_bytes = 262144; // [bytes] of the square, above which pairs go in shells

constexpr uint64_t square_ahead = 2;                                // [tiles] of prefetch
constexpr uint64_t square_prefetch_least_bytes = uint64_t(6) << 20; // [bytes] of the square; it costs below

// [elements] of which lda is a multiple where the lines of a tile share one set of the first cache, which holds fewer.
constexpr uint64_t square_settled_multiple = 1024;

// step(0), step(1), .. step(count - 1), in rounds of round and the rest singly.
template <uint64_t round, class Step> [[gnu::always_inline]] inline void in_rounds(uint64_t count, Step step)
{
    uint64_t k = 0;
    for (; k + round <= count; k += round) {
#pragma GCC unroll 8
        for (uint64_t u = 0; u < round; ++u)
            step(k + u);
    }
    for (; k < count; ++k)
        step(k);
}

[[gnu::always_inline]] inline void exchange(float *x, float *y)
{
    uint32_t xbits, ybits; // as integers: no arithmetic touches the values
    __builtin_memcpy(&xbits, x, sizeof xbits);
    __builtin_memcpy(&ybits, y, sizeof ybits);
    __builtin_memcpy(x, &ybits, sizeof ybits);
    __builtin_memcpy(y, &xbits, sizeof xbits);
}

// count elements of a row against as many of a column.
inline void exchange_line(uint64_t count, float *row, float *column, uint64_t lda)
{
    in_rounds<pair_round>(count, [=](uint64_t k) { exchange(row + k, column + k * lda); });
}

// Rows first .. below, columns corner .. corner + width - 1, against the mirrored strip.
inline void exchange_strip(float *a, uint64_t lda, uint64_t first, uint64_t below, uint64_t corner, uint64_t width)
{
    for (uint64_t i = first; i < below; ++i)
        exchange_line(width, a + i * lda + corner, a + corner * lda + i, lda);
}

// The width x width corner at the diagonal.
inline void transpose_corner(float *a, uint64_t lda, uint64_t corner, uint64_t width)
{
    for (uint64_t i = corner; i < corner + width; ++i)
        exchange_line(corner + width - i - 1, a + i * lda + i + 1, a + (i + 1) * lda + i, lda);
}

template <class t> struct square_tiles {
    float *a;
    uint64_t lda;

    float *tile(uint64_t i, uint64_t j) const { return a + square_tile * (i * lda + j); }
    void transpose(uint64_t k) const { t::strans(tile(k, k), lda); }
    void swap(uint64_t i, uint64_t j) const { t::sswap(tile(i, j), tile(j, i), lda); }

    // Row by row over the upper triangle.
    void swap_rows(uint64_t tiles) const
    {
        for (uint64_t i = 0; i + 1 < tiles; ++i)
            in_rounds<square_round>(tiles - i - 1, [=](uint64_t k) { swap(i, i + 1 + k); });
    }

    // The anti-diagonal, then shells from the outside in: each walks its upper row strip and its right column strip
    // from the diagonal towards the anti-diagonal, so that a strip's lines stay in cache while the mirrored strip is
    // walked. ahead: tiles by which prefetches run ahead of the walk, to the cache that hint names; 0 for none.
    template <uint64_t ahead, auto hint> void swap_shells(uint64_t tiles) const
    {
        in_rounds<square_round>(tiles / 2, [=](uint64_t k) { swap(k, tiles - 1 - k); });
        for (uint64_t k = 0; k + 1 + k + 1 < tiles; ++k) {
            const uint64_t last = tiles - 1 - k, steps = tiles - 2 - 2 * k;
            in_rounds<shell_round>(steps, [=](uint64_t s) {
                if constexpr (ahead > 0) {
                    if (s + ahead < steps) {
                        fetch<hint>(k, k + 1 + s + ahead);
                        fetch<hint>(k + 1 + s + ahead, k);
                        fetch<hint>(last - 1 - s - ahead, last);
                        fetch<hint>(last, last - 1 - s - ahead);
                    }
                }
                swap(k, k + 1 + s);
                swap(last - 1 - s, last);
            });
        }
    }

private:
    // The lines of a tile. Inlined by force: GCC deletes calls of a function that does nothing but prefetch.
    template <auto hint> [[gnu::always_inline]] void fetch(uint64_t i, uint64_t j) const
    {
        const float *const first = tile(i, j);
#pragma GCC unroll 16
        for (uint64_t line = 0; line < square_tile; ++line)
            _mm_prefetch(reinterpret_cast<const char *>(first + line * lda), hint);
    }
};

template <class t> void ssqtrans_fit_64_body(float *a, uint64_t n, uint64_t lda)
{
    trans_took(trans_route_fit_64);
    const square_tiles<t> square{a, lda};
    const uint64_t tiles = n / square_tile, rest = n % square_tile;
    in_rounds<square_round>(tiles, [=](uint64_t k) { square.transpose(k); });
    if (n * n * sizeof *a > square_large_above_bytes) {
        trans_took(trans_route_fit_64_large);
        if (n * n * sizeof *a < square_prefetch_least_bytes)
            square.template swap_shells<0, _MM_HINT_T0>(tiles);
        else if (lda % square_settled_multiple == 0) // the first cache would not keep them
            square.template swap_shells<square_ahead, _MM_HINT_T1>(tiles);
        else
            square.template swap_shells<square_ahead, _MM_HINT_T0>(tiles);
    } else {
        square.swap_rows(tiles);
    }
    exchange_strip(a, lda, 0, n - rest, n - rest, rest);
    transpose_corner(a, lda, n - rest, rest);
}

// fit is the path's ssqtrans_fit_64.
template <auto fit> int32_t ssqtrans_body(float *a, uint64_t n, uint64_t lda)
{
    trans_took(trans_route_ssqtrans);
    const uint64_t rest = n % square_tile;
    if (lda % square_tile == 0 || rest == 0) {
        fit(a, n, lda);
        return 0;
    }
    const uint64_t whole = n - rest;
    fit(a, whole, lda);
    exchange_strip(a, lda, 0, whole, whole, rest);
    transpose_corner(a, lda, whole, rest);
    return 0;
}
} // namespace
