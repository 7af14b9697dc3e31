// SPDX-License-Identifier: BSD-3-Clause
// Blocks of the square transposition, avx2: 8 x 8 in 256-bit registers. Each 128-bit piece of a line is broadcast by
// its load and blended into its half; the rest are permutations within halves and blends, by two patterns of lanes.
#pragma once
#include "trans/body/square_tile.h"

namespace
{
// Lines i and i + 4 of four columns: low half, high half.
[[gnu::always_inline]] inline __m256 two_pieces(const float *low, const float *high)
{
    return _mm256_blend_ps(_mm256_broadcast_ps(reinterpret_cast<const __m128 *>(low)),
                           _mm256_broadcast_ps(reinterpret_cast<const __m128 *>(high)), 0xf0);
}

// A 2 x 2 exchange in every half: lanes upper of x against the others of y. permuted brings each lane to its partner's
// place.
template <int permuted, int upper> [[gnu::always_inline]] inline void exchange_lanes(__m256 &x, __m256 &y)
{
    const __m256 turned_x = _mm256_permute_ps(x, permuted), turned_y = _mm256_permute_ps(y, permuted);
    x = _mm256_blend_ps(x, turned_y, upper);
    y = _mm256_blend_ps(turned_x, y, upper);
}

// 8 lines of 4 elements become 4 lines of 8.
[[gnu::always_inline]] inline void turn_8x4(__m256 *r, const float *a, uint64_t lda)
{
    r[0] = two_pieces(a, a + 4 * lda);
    r[1] = two_pieces(a + lda, a + 5 * lda);
    r[2] = two_pieces(a + 2 * lda, a + 6 * lda);
    r[3] = two_pieces(a + 3 * lda, a + 7 * lda);
    exchange_lanes<0xb1, 0xaa>(r[0], r[1]); // neighbours
    exchange_lanes<0xb1, 0xaa>(r[2], r[3]);
    exchange_lanes<0x4e, 0xcc>(r[0], r[2]); // pairs
    exchange_lanes<0x4e, 0xcc>(r[1], r[3]);
}

[[gnu::always_inline]] inline void store_lines(const __m256 *r, uint64_t lines, float *a, uint64_t lda)
{
#pragma GCC unroll 8
    for (uint64_t i = 0; i < lines; ++i)
        _mm256_storeu_ps(a + i * lda, r[i]);
}

[[gnu::always_inline]] inline void strans_8x8(float *a, uint64_t lda)
{
    __m256 r[8];
    turn_8x4(r, a, lda);
    turn_8x4(r + 4, a + 4, lda);
    store_lines(r, 8, a, lda);
}

// p waits in 8 registers while q goes over in halves.
[[gnu::always_inline]] inline void sswap_8x8(float *p, float *q, uint64_t lda)
{
    __m256 x[8], y[4];
    turn_8x4(x, p, lda);
    turn_8x4(x + 4, p + 4, lda);
    turn_8x4(y, q, lda);
    store_lines(y, 4, p, lda);
    turn_8x4(y, q + 4, lda);
    store_lines(y, 4, p + 4 * lda, lda);
    store_lines(x, 8, q, lda);
}
} // namespace
