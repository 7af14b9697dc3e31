// SPDX-License-Identifier: BSD-3-Clause
// Moves of 8 x 8, 16 x 16, 16 x 4 and 4 x 16 elements in 256-bit registers, for avx2 and avx512 files (lines x columns of
// a). The exchange of 128-bit halves is done by the loads, so that only shuffles within halves are left.
#pragma once
#include "trans/body/transpose_area.h"

namespace
{
// 8 lines of 4 elements become 4 lines of 8.
[[gnu::always_inline]] inline void turn_8_lines(__m256 *column, const float *a, uint64_t lda)
{
    __m256 r[4];
#pragma GCC unroll 4
    for (uint64_t i = 0; i < 4; ++i)
        r[i] =
            _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_loadu_ps(a + i * lda)), _mm_loadu_ps(a + (i + 4) * lda), 1);
    const __m256 low01 = _mm256_unpacklo_ps(r[0], r[1]), high01 = _mm256_unpackhi_ps(r[0], r[1]);
    const __m256 low23 = _mm256_unpacklo_ps(r[2], r[3]), high23 = _mm256_unpackhi_ps(r[2], r[3]);
    column[0] = _mm256_shuffle_ps(low01, low23, 0x44);
    column[1] = _mm256_shuffle_ps(low01, low23, 0xee);
    column[2] = _mm256_shuffle_ps(high01, high23, 0x44);
    column[3] = _mm256_shuffle_ps(high01, high23, 0xee);
}

template <bool scaled, bool stream> [[gnu::always_inline]] inline void put_8(float *p, __m256 x, float alpha)
{
    const __m256 value = scaled ? _mm256_mul_ps(_mm256_set1_ps(alpha), x) : x;
    if constexpr (stream)
        _mm256_stream_ps(p, value);
    else
        _mm256_storeu_ps(p, value);
}

struct tile_8 {
    static constexpr uint64_t size = 8;
    using smaller = tile_4;
    template <bool scaled>
    [[gnu::always_inline]] static inline void move(const float *a, uint64_t lda, float *b, uint64_t ldb, float alpha)
    {
#pragma GCC unroll 2
        for (uint64_t j = 0; j < 8; j += 4) {
            __m256 column[4];
            turn_8_lines(column, a + j, lda);
#pragma GCC unroll 4
            for (uint64_t c = 0; c < 4; ++c)
                put_8<scaled, false>(b + (j + c) * ldb, column[c], alpha);
        }
    }
};

struct wide_8 {
    using smaller = tile_8;

    template <bool scaled, bool stream, bool>
    [[gnu::always_inline]] static inline void move_16x16(const float *a, uint64_t lda, float *b, uint64_t ldb,
                                                         float alpha)
    {
#pragma GCC unroll 4
        for (uint64_t j = 0; j < 16; j += 4)
            move_16x4<scaled, stream>(a + j, lda, b + j * ldb, ldb, alpha);
    }

    // Both halves of a line of b are stored together.
    template <bool scaled, bool stream>
    [[gnu::always_inline]] static inline void move_16x4(const float *a, uint64_t lda, float *b, uint64_t ldb,
                                                        float alpha)
    {
        __m256 upper[4], lower[4];
        turn_8_lines(upper, a, lda);
        turn_8_lines(lower, a + 8 * lda, lda);
#pragma GCC unroll 4
        for (uint64_t c = 0; c < 4; ++c) {
            put_8<scaled, stream>(b + c * ldb, upper[c], alpha);
            put_8<scaled, stream>(b + c * ldb + 8, lower[c], alpha);
        }
    }

    template <bool scaled>
    [[gnu::always_inline]] static inline void move_4x16(const float *a, uint64_t lda, float *b, uint64_t ldb,
                                                        float alpha)
    {
#pragma GCC unroll 4
        for (uint64_t j = 0; j < 16; j += 4)
            tile_4::move<scaled>(a + j, lda, b + j * ldb, ldb, alpha);
    }
};
} // namespace
