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
constexpr uint64_t square_large_above_bytes = 262144; // [bytes] of the square, above which pairs go in shells

constexpr uint64_t square_ahead = 6;                                 // [tiles] of prefetch
constexpr uint64_t square_prefetch_least_bytes = uint64_t(12) << 20; // [bytes] of the square; it costs below

inline void exchange(float *x, float *y)
{
    uint32_t xbits, ybits; // as integers: no arithmetic touches the values
    __builtin_memcpy(&xbits, x, sizeof xbits);
    __builtin_memcpy(&ybits, y, sizeof ybits);
    __builtin_memcpy(x, &ybits, sizeof ybits);
    __builtin_memcpy(y, &xbits, sizeof xbits);
}

// r := r^T for 4 registers.
[[gnu::always_inline]] inline void transpose_4(__m128 (&r)[4])
{
    const __m128 low01 = _mm_unpacklo_ps(r[0], r[1]), high01 = _mm_unpackhi_ps(r[0], r[1]);
    const __m128 low23 = _mm_unpacklo_ps(r[2], r[3]), high23 = _mm_unpackhi_ps(r[2], r[3]);
    r[0] = _mm_movelh_ps(low01, low23);
    r[1] = _mm_movehl_ps(low23, low01);
    r[2] = _mm_movelh_ps(high01, high23);
    r[3] = _mm_movehl_ps(high23, high01);
}

[[gnu::always_inline]] inline void load_4(__m128 (&r)[4], const float *a, uint64_t lda)
{
#pragma GCC unroll 4
    for (uint64_t i = 0; i < 4; ++i)
        r[i] = _mm_loadu_ps(a + i * lda);
}

[[gnu::always_inline]] inline void store_4(const __m128 (&r)[4], float *a, uint64_t lda)
{
#pragma GCC unroll 4
    for (uint64_t i = 0; i < 4; ++i)
        _mm_storeu_ps(a + i * lda, r[i]);
}

// p, q := q^T, p^T, 4 x 4 each; p = q transposes the one block.
[[gnu::always_inline]] inline void swap_4x4(float *p, float *q, uint64_t lda)
{
    __m128 x[4], y[4];
    load_4(x, p, lda);
    load_4(y, q, lda);
    transpose_4(x);
    transpose_4(y);
    store_4(y, p, lda);
    store_4(x, q, lda);
}

// p, q := q^T, p^T, 16 x 16 each, from swaps of 8 x 8 blocks. The order goes there and back: with lines at multiples of
// 4096 bytes the 16 lines of a tile share one set of the first cache, which holds fewer, and so 8 of them come in twice,
// not 16.
template <auto swap_8> [[gnu::always_inline]] inline void sswap_16(float *p, float *q, uint64_t lda)
{
    swap_8(p, q, lda);
    swap_8(p + 8, q + 8 * lda, lda);
    swap_8(p + 8 * lda + 8, q + 8 * lda + 8, lda);
    swap_8(p + 8 * lda, q + 8, lda);
}

// Rows first .. below, columns corner .. corner + width - 1, against the mirrored strip.
inline void exchange_strip(float *a, uint64_t lda, uint64_t first, uint64_t below, uint64_t corner, uint64_t width)
{
    uint64_t i = first;
    for (; i + 4 <= below; i += 4) {
        uint64_t k = corner;
        for (; k + 4 <= corner + width; k += 4)
            swap_4x4(a + i * lda + k, a + k * lda + i, lda);
        for (; k < corner + width; ++k)
            for (uint64_t row = i; row < i + 4; ++row)
                exchange(a + row * lda + k, a + k * lda + row);
    }
    for (; i < below; ++i)
        for (uint64_t k = corner; k < corner + width; ++k)
            exchange(a + i * lda + k, a + k * lda + i);
}

// The width x width corner at the diagonal.
inline void transpose_corner(float *a, uint64_t lda, uint64_t corner, uint64_t width)
{
    for (uint64_t i = corner; i < corner + width; ++i)
        for (uint64_t k = i + 1; k < corner + width; ++k)
            exchange(a + i * lda + k, a + k * lda + i);
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
            for (uint64_t j = i + 1; j < tiles; ++j)
                swap(i, j);
    }

    // The anti-diagonal, then shells from the outside in: each walks its upper row strip and its right column strip from
    // the diagonal towards the anti-diagonal, so that a strip's lines stay in cache while the mirrored strip is walked.
    // ahead: tiles by which the walk is run ahead of with prefetches; past a strip's end they fetch what is not needed.
    template <uint64_t ahead> void swap_shells(uint64_t tiles) const
    {
        for (uint64_t k = 0; k < tiles / 2; ++k)
            swap(k, tiles - 1 - k);
        for (uint64_t k = 0; k + 1 + k + 1 < tiles; ++k) {
            const uint64_t last = tiles - 1 - k;
            for (uint64_t s = 0; k + 1 + s < last; ++s) {
                if constexpr (ahead > 0) {
                    fetch(k, k + 1 + s + ahead);
                    fetch(k + 1 + s + ahead, k);
                    fetch(last - 1 - s - ahead, last);
                    fetch(last, last - 1 - s - ahead);
                }
                swap(k, k + 1 + s);
                swap(last - 1 - s, last);
            }
        }
    }

private:
    // Inlined by force: GCC deletes calls of a function that does nothing but prefetch.
    [[gnu::always_inline]] void fetch(uint64_t i, uint64_t j) const
    {
        const uintptr_t first = reinterpret_cast<uintptr_t>(a) + sizeof *a * square_tile * (i * lda + j);
#pragma GCC unroll 16
        for (uint64_t line = 0; line < square_tile; ++line)
            _mm_prefetch(reinterpret_cast<const char *>(first + line * lda * sizeof *a), _MM_HINT_T1);
    }
};

template <class t> void ssqtrans_fit_64_body(float *a, uint64_t n, uint64_t lda)
{
    trans_took(trans_route_fit_64);
    const square_tiles<t> square{a, lda};
    const uint64_t tiles = n / square_tile, rest = n % square_tile;
    for (uint64_t k = 0; k < tiles; ++k)
        square.transpose(k);
    if (n * n * sizeof *a > square_large_above_bytes) {
        trans_took(trans_route_fit_64_large);
        if (n * n * sizeof *a >= square_prefetch_least_bytes)
            square.template swap_shells<square_ahead>(tiles);
        else
            square.template swap_shells<0>(tiles);
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
