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
    r[0] = _mm_shuffle_ps(low01, low23, 0x44);
    r[1] = _mm_shuffle_ps(low01, low23, 0xee);
    r[2] = _mm_shuffle_ps(high01, high23, 0x44);
    r[3] = _mm_shuffle_ps(high01, high23, 0xee);
}

[[gnu::always_inline]] inline void store_4(const __m128 *r, float *a, uint64_t lda)
{
#pragma GCC unroll 4
    for (uint64_t i = 0; i < 4; ++i)
        _mm_storeu_ps(a + i * lda, r[i]);
}

// 4 lines of 8: r[i] and r[4 + i].
[[gnu::always_inline]] inline void store_lines_8(const __m128 *r, float *a, uint64_t lda)
{
#pragma GCC unroll 4
    for (uint64_t i = 0; i < 4; ++i) {
        _mm_storeu_ps(a + i * lda, r[i]);
        _mm_storeu_ps(a + i * lda + 4, r[4 + i]);
    }
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

// p, q := q^T, p^T, 8 x 8 each: p waits in 16 registers while q goes over, and the two pieces of a line are stored one
// after the other.
[[gnu::always_inline]] inline void sswap_8x8(float *p, float *q, uint64_t lda)
{
    __m128 x[16], y[8];
    float *p4 = p + 4 * lda, *q4 = q + 4 * lda;
    const auto forget = [&] { // or GCC keeps the addresses of all lines, and spills them
        __asm__("" : "+r"(p), "+r"(p4), "+r"(q), "+r"(q4));
    };
    forget();
    load_turned_4(x, p, lda);
    load_turned_4(x + 8, p + 4, lda);
    forget();
    load_turned_4(x + 4, p4, lda);
    load_turned_4(x + 12, p4 + 4, lda);
    forget();
    load_turned_4(y, q, lda);
    load_turned_4(y + 4, q4, lda);
    store_lines_8(y, p, lda);
    forget();
    load_turned_4(y, q + 4, lda);
    load_turned_4(y + 4, q4 + 4, lda);
    store_lines_8(y, p4, lda);
    forget();
    store_lines_8(x, q, lda);
    store_lines_8(x + 8, q4, lda);
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
