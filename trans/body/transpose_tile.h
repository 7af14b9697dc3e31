// SPDX-License-Identifier: BSD-3-Clause
// Moves of single elements and of 4 x 4 tiles between unit-stride lines: b[j*ldb + i] := a[i*lda + j].
#pragma once
#include <immintrin.h>
#include <stdint.h>

namespace
{
// *b := alpha * *a, or the bits of *a.
template <bool scaled> [[gnu::always_inline]] inline void move_element(const float *a, float *b, float alpha)
{
    if constexpr (scaled)
        *b = alpha * *a;
    else // as an integer: no arithmetic touches the value
        __builtin_memcpy(b, a, sizeof *b);
}

// 4 x 4 in 128-bit registers; SSE2, so that every path has it.
[[gnu::always_inline]] inline void move_4x4(const float *a, uint64_t lda, float *b, uint64_t ldb)
{
    const __m128 r0 = _mm_loadu_ps(a), r1 = _mm_loadu_ps(a + lda);
    const __m128 r2 = _mm_loadu_ps(a + 2 * lda), r3 = _mm_loadu_ps(a + 3 * lda);
    const __m128 low01 = _mm_unpacklo_ps(r0, r1), high01 = _mm_unpackhi_ps(r0, r1);
    const __m128 low23 = _mm_unpacklo_ps(r2, r3), high23 = _mm_unpackhi_ps(r2, r3);
    _mm_storeu_ps(b, _mm_movelh_ps(low01, low23));
    _mm_storeu_ps(b + ldb, _mm_movehl_ps(low23, low01));
    _mm_storeu_ps(b + 2 * ldb, _mm_movelh_ps(high01, high23));
    _mm_storeu_ps(b + 3 * ldb, _mm_movehl_ps(high23, high01));
}

// Element by element, column after column.
inline void move_elements(uint64_t lines, uint64_t columns, const float *a, uint64_t lda, float *b, uint64_t ldb)
{
    for (uint64_t j = 0; j < columns; ++j)
        for (uint64_t i = 0; i < lines; ++i)
            move_element<false>(a + i * lda + j, b + j * ldb + i, 1.0f);
}

// lines lines, at most 16, column after column, scalar: two elements meet in a general register and are stored at
// once. A column's stores follow each other, for then they go to the cache together.
template <uint64_t lines>
[[gnu::always_inline]] inline void move_scalars(uint64_t columns, const float *a, uint64_t lda, float *b, uint64_t ldb)
{
    const float *a4 = lines > 4 ? a + 4 * lda : a, *a8 = lines > 8 ? a + 8 * lda : a;
    const float *a12 = lines > 12 ? a + 12 * lda : a;
    for (; columns > 0; --columns, ++a, ++a4, ++a8, ++a12, b += ldb) {
#pragma GCC unroll 8
        for (uint64_t i = 0; i + 2 <= lines; i += 2) {
            const float *const from = (i < 4 ? a : i < 8 ? a4 : i < 12 ? a8 : a12) + i % 4 * lda;
            uint32_t low, high;
            __builtin_memcpy(&low, from, sizeof low);
            __builtin_memcpy(&high, from + lda, sizeof high);
            const uint64_t pair = uint64_t(high) << 32 | low;
            __builtin_memcpy(b + i, &pair, sizeof pair);
        }
        if constexpr (lines % 2 == 1)
            move_element<false>(a + (lines - 1) * lda, b + lines - 1, 1.0f);
    }
}
} // namespace
