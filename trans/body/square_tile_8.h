// SPDX-License-Identifier: BSD-3-Clause
// Tile kernels of the square transposition, avx2: 8 x 8 blocks in 256-bit registers. Each 128-bit piece of a line is
// broadcast by its load and blended into its half; the rest are shuffles within halves.
#pragma once
#include "trans/body/ssqtrans_body.h"

namespace
{
// Lines i and i + 4 of four columns: low half, high half.
[[gnu::always_inline]] inline __m256 two_pieces(const float *low, const float *high)
{
    return _mm256_blend_ps(_mm256_broadcast_ps(reinterpret_cast<const __m128 *>(low)),
                           _mm256_broadcast_ps(reinterpret_cast<const __m128 *>(high)), 0xf0);
}

// 8 lines of 4 elements become 4 lines of 8.
[[gnu::always_inline]] inline void turn_8x4(__m256 *r, const float *a, uint64_t lda)
{
    const __m256 r0 = two_pieces(a, a + 4 * lda), r1 = two_pieces(a + lda, a + 5 * lda);
    const __m256 r2 = two_pieces(a + 2 * lda, a + 6 * lda), r3 = two_pieces(a + 3 * lda, a + 7 * lda);
    const __m256 low01 = _mm256_unpacklo_ps(r0, r1), high01 = _mm256_unpackhi_ps(r0, r1);
    const __m256 low23 = _mm256_unpacklo_ps(r2, r3), high23 = _mm256_unpackhi_ps(r2, r3);
    r[0] = _mm256_shuffle_ps(low01, low23, 0x44);
    r[1] = _mm256_shuffle_ps(low01, low23, 0xee);
    r[2] = _mm256_shuffle_ps(high01, high23, 0x44);
    r[3] = _mm256_shuffle_ps(high01, high23, 0xee);
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

struct square_tile_8 {
    [[gnu::always_inline]] static inline void strans(float *a, uint64_t lda)
    {
        strans_8x8(a, lda);
        sswap_8x8(a + 8, a + 8 * lda, lda);
        strans_8x8(a + 8 * lda + 8, lda);
    }
    [[gnu::always_inline]] static inline void sswap(float *p, float *q, uint64_t lda)
    {
        sswap_16<sswap_8x8>(p, q, lda);
    }
};
} // namespace
