// SPDX-License-Identifier: BSD-3-Clause
// Blocks of the square transposition, avx512: 4 x 4 pieces in 128-bit registers, and no wider ones.
#pragma once
#include "trans/body/square_tile.h"

namespace
{
// r := 4 lines of 4 elements, transposed.
[[gnu::always_inline]] inline void load_turned_4(__m128 *r, const float *a, uint64_t lda)
{
    const __m128 r0 = _mm_loadu_ps(a), r1 = _mm_loadu_ps(a + lda);
    const __m128 r2 = _mm_loadu_ps(a + 2 * lda), r3 = _mm_loadu_ps(a + 3 * lda);
    const __m128 low01 = _mm_unpacklo_ps(r0, r1), high01 = _mm_unpackhi_ps(r0, r1);
    const __m128 low23 = _mm_unpacklo_ps(r2, r3), high23 = _mm_unpackhi_ps(r2, r3);
    const __m128 low = _mm_shuffle_ps(low01, low23, 0x4e), high = _mm_shuffle_ps(high01, high23, 0x4e);
    r[0] = _mm_blend_ps(low01, low, 0xc); // half the shuffles that four of them would take: blends have more units
    r[1] = _mm_blend_ps(low, low23, 0xc);
    r[2] = _mm_blend_ps(high01, high, 0xc);
    r[3] = _mm_blend_ps(high, high23, 0xc);
}

[[gnu::always_inline]] inline void store_4(const __m128 *r, float *a, uint64_t lda)
{
#pragma GCC unroll 4
    for (uint64_t i = 0; i < 4; ++i)
        _mm_storeu_ps(a + i * lda, r[i]);
}

// p, q := q^T, p^T, 4 x 4 each.
[[gnu::always_inline]] inline void swap_4x4(float *p, float *q, uint64_t lda)
{
    __m128 x[4], y[4];
    load_turned_4(x, p, lda);
    load_turned_4(y, q, lda);
    store_4(y, p, lda);
    store_4(x, q, lda);
}

[[gnu::always_inline]] inline void sswap_8x8(float *p, float *q, uint64_t lda)
{
    swap_4x4(p, q, lda);
    swap_4x4(p + 4, q + 4 * lda, lda);
    swap_4x4(p + 4 * lda, q + 4, lda);
    swap_4x4(p + 4 * lda + 4, q + 4 * lda + 4, lda);
}

[[gnu::always_inline]] inline void strans_8x8(float *a, uint64_t lda)
{
    __m128 r[4];
    load_turned_4(r, a, lda);
    store_4(r, a, lda);
    swap_4x4(a + 4, a + 4 * lda, lda);
    float *const last = a + 4 * lda + 4;
    load_turned_4(r, last, lda);
    store_4(r, last, lda);
}
} // namespace
