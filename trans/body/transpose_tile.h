// SPDX-License-Identifier: BSD-3-Clause
// b[j*ldb + i] := alpha*a[i*lda + j] for a block of unit-stride lines, in register tiles.
//
// A tile type t moves t::size x t::size elements and names the next smaller one. A block that is no multiple of the size
// ends with a tile that is moved back inside: the elements under two tiles are written twice with the same value, and
// nothing outside the block is read or written. a and b do not overlap.
#pragma once
#include <immintrin.h>
#include <stdint.h>

namespace
{
struct tile_1 {
    static constexpr uint64_t size = 1;
    template <bool scaled> static inline void move(const float *a, uint64_t, float *b, uint64_t, float alpha)
    {
        if constexpr (scaled)
            *b = alpha * *a;
        else // as an integer: no arithmetic touches the value
            __builtin_memcpy(b, a, sizeof *b);
    }
};

// 4 x 4 in 128-bit registers; SSE2, so that every path has it.
struct tile_4 {
    static constexpr uint64_t size = 4;
    using smaller = tile_1;
    template <bool scaled>
    [[gnu::always_inline]] static inline void move(const float *a, uint64_t lda, float *b, uint64_t ldb, float alpha)
    {
        const __m128 r0 = _mm_loadu_ps(a), r1 = _mm_loadu_ps(a + lda);
        const __m128 r2 = _mm_loadu_ps(a + 2 * lda), r3 = _mm_loadu_ps(a + 3 * lda);
        const __m128 low01 = _mm_unpacklo_ps(r0, r1), high01 = _mm_unpackhi_ps(r0, r1);
        const __m128 low23 = _mm_unpacklo_ps(r2, r3), high23 = _mm_unpackhi_ps(r2, r3);
        store<scaled>(b, _mm_movelh_ps(low01, low23), alpha);
        store<scaled>(b + ldb, _mm_movehl_ps(low23, low01), alpha);
        store<scaled>(b + 2 * ldb, _mm_movelh_ps(high01, high23), alpha);
        store<scaled>(b + 3 * ldb, _mm_movehl_ps(high23, high01), alpha);
    }
    template <bool scaled> [[gnu::always_inline]] static inline void store(float *p, __m128 x, float alpha)
    {
        _mm_storeu_ps(p, scaled ? _mm_mul_ps(_mm_set1_ps(alpha), x) : x);
    }
};

// The start of the tile behind the one at x: the last tile ends with the block.
template <class t> inline uint64_t next_tile(uint64_t x, uint64_t extent)
{
    return x + 2 * t::size <= extent || x + t::size == extent ? x + t::size : extent - t::size;
}

// lines and columns of a. Columns outside, lines inside: a line of b is written from left to right.
template <class t, bool scaled>
inline void transpose_block(uint64_t lines, uint64_t columns, const float *a, uint64_t lda, float *b, uint64_t ldb,
                            float alpha)
{
    if constexpr (t::size > 1) {
        if (lines < t::size || columns < t::size) {
            transpose_block<typename t::smaller, scaled>(lines, columns, a, lda, b, ldb, alpha);
            return;
        }
    }
    for (uint64_t j = 0; j < columns; j = next_tile<t>(j, columns))
        for (uint64_t i = 0; i < lines; i = next_tile<t>(i, lines))
            t::template move<scaled>(a + i * lda + j, lda, b + j * ldb + i, ldb, alpha);
}
} // namespace
