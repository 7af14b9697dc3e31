// SPDX-License-Identifier: BSD-3-Clause
// 16 x 16 tile in 512-bit registers, for avx512 files. Every line of the tile is one load and every line of the result
// one store: with aligned arrays whole cache lines, touched once, even where many lines share a cache set.
#pragma once
#include "trans/body/tile_8.h"

namespace
{
struct tile_16 {
    static constexpr uint64_t size = 16;
    using smaller = tile_8;
    template <bool scaled>
    [[gnu::always_inline]] static inline void move(const float *a, uint64_t lda, float *b, uint64_t ldb, float alpha)
    {
        // The unmasked forms merge into an undefined register, which GCC 12 warns of; the code is the same.
        constexpr __mmask16 all = 0xffff;
        __m512 quad[4][4]; // [lines / 4][column]: 128-bit piece p holds lines 4q .. 4q+3 of column 4p + c
#pragma GCC unroll 4
        for (int q = 0; q < 4; ++q) {
            const float *line = a + 4 * static_cast<uint64_t>(q) * lda;
            const __m512 r0 = _mm512_loadu_ps(line), r1 = _mm512_loadu_ps(line + lda);
            const __m512 r2 = _mm512_loadu_ps(line + 2 * lda), r3 = _mm512_loadu_ps(line + 3 * lda);
            const __m512 low01 = _mm512_maskz_unpacklo_ps(all, r0, r1), high01 = _mm512_maskz_unpackhi_ps(all, r0, r1);
            const __m512 low23 = _mm512_maskz_unpacklo_ps(all, r2, r3), high23 = _mm512_maskz_unpackhi_ps(all, r2, r3);
            quad[q][0] = _mm512_maskz_shuffle_ps(all, low01, low23, 0x44);
            quad[q][1] = _mm512_maskz_shuffle_ps(all, low01, low23, 0xee);
            quad[q][2] = _mm512_maskz_shuffle_ps(all, high01, high23, 0x44);
            quad[q][3] = _mm512_maskz_shuffle_ps(all, high01, high23, 0xee);
        }
#pragma GCC unroll 4
        for (int c = 0; c < 4; ++c) { // a 4 x 4 transposition of 128-bit pieces
            const __m512 even01 = _mm512_maskz_shuffle_f32x4(all, quad[0][c], quad[1][c], 0x88);
            const __m512 odd01 = _mm512_maskz_shuffle_f32x4(all, quad[0][c], quad[1][c], 0xdd);
            const __m512 even23 = _mm512_maskz_shuffle_f32x4(all, quad[2][c], quad[3][c], 0x88);
            const __m512 odd23 = _mm512_maskz_shuffle_f32x4(all, quad[2][c], quad[3][c], 0xdd);
            float *line = b + static_cast<uint64_t>(c) * ldb;
            store<scaled>(line, _mm512_maskz_shuffle_f32x4(all, even01, even23, 0x88), alpha);
            store<scaled>(line + 4 * ldb, _mm512_maskz_shuffle_f32x4(all, odd01, odd23, 0x88), alpha);
            store<scaled>(line + 8 * ldb, _mm512_maskz_shuffle_f32x4(all, even01, even23, 0xdd), alpha);
            store<scaled>(line + 12 * ldb, _mm512_maskz_shuffle_f32x4(all, odd01, odd23, 0xdd), alpha);
        }
    }

private:
    template <bool scaled> [[gnu::always_inline]] static inline void store(float *p, __m512 x, float alpha)
    {
        _mm512_storeu_ps(p, scaled ? _mm512_mul_ps(_mm512_set1_ps(alpha), x) : x);
    }
};
} // namespace
