// SPDX-License-Identifier: BSD-3-Clause
// Moves of 16 x 16, 16 x 4 and 4 x 16 elements in 512-bit registers, for avx512 files (lines x columns of a). Every line of
// a square tile is one load and every line of the result one store: with aligned arrays whole cache lines, touched once.
#pragma once
#include "trans/body/tile_8.h"
#include "trans/body/transpose_area.h"

namespace
{
struct wide_16 {
    using smaller = tile_8;

    // whole: every line of a tile is one load, a cache line. Otherwise its quarters are loaded, of which few or none
    // straddle two cache lines, and put together by the loads.
    template <bool scaled, bool stream, bool whole>
    [[gnu::always_inline]] static inline void move_16x16(const float *a, uint64_t lda, float *b, uint64_t ldb,
                                                         float alpha)
    {
        if constexpr (whole) {
            move_whole<scaled, stream>(a, lda, b, ldb, alpha);
        } else {
#pragma GCC unroll 4
            for (uint64_t j = 0; j < 16; j += 4)
                move_16x4<scaled, stream>(a + j, lda, b + j * ldb, ldb, alpha);
        }
    }

    template <bool scaled, bool stream>
    [[gnu::always_inline]] static inline void move_16x4(const float *a, uint64_t lda, float *b, uint64_t ldb,
                                                        float alpha)
    {
        __m512 column[4];
        turn_pieces(column, lines_4_apart(a, lda), lines_4_apart(a + lda, lda), lines_4_apart(a + 2 * lda, lda),
                    lines_4_apart(a + 3 * lda, lda));
#pragma GCC unroll 4
        for (uint64_t c = 0; c < 4; ++c)
            put<scaled, stream>(b + c * ldb, column[c], alpha);
    }

    template <bool scaled>
    [[gnu::always_inline]] static inline void move_4x16(const float *a, uint64_t lda, float *b, uint64_t ldb,
                                                        float alpha)
    {
        __m512 column[4];
        turn_pieces(column, _mm512_loadu_ps(a), _mm512_loadu_ps(a + lda), _mm512_loadu_ps(a + 2 * lda),
                    _mm512_loadu_ps(a + 3 * lda));
#pragma GCC unroll 4
        for (uint64_t c = 0; c < 4; ++c) {
            const __m512 x = scaled ? _mm512_mul_ps(_mm512_set1_ps(alpha), column[c]) : column[c];
            _mm_storeu_ps(b + c * ldb, _mm512_maskz_extractf32x4_ps(0xff, x, 0));
            _mm_storeu_ps(b + (4 + c) * ldb, _mm512_maskz_extractf32x4_ps(0xff, x, 1));
            _mm_storeu_ps(b + (8 + c) * ldb, _mm512_maskz_extractf32x4_ps(0xff, x, 2));
            _mm_storeu_ps(b + (12 + c) * ldb, _mm512_maskz_extractf32x4_ps(0xff, x, 3));
        }
    }

private:
    template <bool scaled, bool stream>
    [[gnu::always_inline]] static inline void move_whole(const float *a, uint64_t lda, float *b, uint64_t ldb,
                                                         float alpha)
    {
        __m512 quad[4][4]; // [lines / 4][column]: 128-bit piece p holds lines 4q .. 4q+3 of column 4p + c
#pragma GCC unroll 4
        for (uint64_t q = 0; q < 4; ++q) {
            const float *line = a + 4 * q * lda;
            turn_pieces(quad[q], _mm512_loadu_ps(line), _mm512_loadu_ps(line + lda), _mm512_loadu_ps(line + 2 * lda),
                        _mm512_loadu_ps(line + 3 * lda));
        }
#pragma GCC unroll 4
        for (uint64_t c = 0; c < 4; ++c) { // a 4 x 4 transposition of 128-bit pieces
            const __m512 even01 = pieces<0x88>(quad[0][c], quad[1][c]), odd01 = pieces<0xdd>(quad[0][c], quad[1][c]);
            const __m512 even23 = pieces<0x88>(quad[2][c], quad[3][c]), odd23 = pieces<0xdd>(quad[2][c], quad[3][c]);
            put<scaled, stream>(b + c * ldb, pieces<0x88>(even01, even23), alpha);
            put<scaled, stream>(b + (4 + c) * ldb, pieces<0x88>(odd01, odd23), alpha);
            put<scaled, stream>(b + (8 + c) * ldb, pieces<0xdd>(even01, even23), alpha);
            put<scaled, stream>(b + (12 + c) * ldb, pieces<0xdd>(odd01, odd23), alpha);
        }
    }

    static constexpr __mmask16 all =
        0xffff; // GCC 12 warns of the undefined register that the unmasked forms merge into

    // In each 128-bit piece, the 4 x 4 block whose lines are r0 .. r3.
    [[gnu::always_inline]] static inline void turn_pieces(__m512 *column, __m512 r0, __m512 r1, __m512 r2, __m512 r3)
    {
        const __m512 low01 = _mm512_maskz_unpacklo_ps(all, r0, r1), high01 = _mm512_maskz_unpackhi_ps(all, r0, r1);
        const __m512 low23 = _mm512_maskz_unpacklo_ps(all, r2, r3), high23 = _mm512_maskz_unpackhi_ps(all, r2, r3);
        column[0] = _mm512_maskz_shuffle_ps(all, low01, low23, 0x44);
        column[1] = _mm512_maskz_shuffle_ps(all, low01, low23, 0xee);
        column[2] = _mm512_maskz_shuffle_ps(all, high01, high23, 0x44);
        column[3] = _mm512_maskz_shuffle_ps(all, high01, high23, 0xee);
    }
    // Four elements each of lines 0, 4, 8, 12.
    [[gnu::always_inline]] static inline __m512 lines_4_apart(const float *a, uint64_t lda)
    {
        const __m256 low = _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_loadu_ps(a)), _mm_loadu_ps(a + 4 * lda), 1);
        const __m512 three = _mm512_maskz_insertf32x4(all, _mm512_castps256_ps512(low), _mm_loadu_ps(a + 8 * lda), 2);
        return _mm512_maskz_insertf32x4(all, three, _mm_loadu_ps(a + 12 * lda), 3);
    }
    template <int order> [[gnu::always_inline]] static inline __m512 pieces(__m512 x, __m512 y)
    {
        return _mm512_maskz_shuffle_f32x4(all, x, y, order);
    }
    template <bool scaled, bool stream> [[gnu::always_inline]] static inline void put(float *p, __m512 x, float alpha)
    {
        const __m512 value = scaled ? _mm512_mul_ps(_mm512_set1_ps(alpha), x) : x;
        if constexpr (stream)
            _mm512_stream_ps(p, value);
        else
            _mm512_storeu_ps(p, value);
    }
};
} // namespace
