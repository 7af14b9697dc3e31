// SPDX-License-Identifier: BSD-3-Clause
// Tile kernels of the square transposition, avx512: a tile's 16 lines in 16 registers, a pair of tiles in all 32. Every line
// is loaded once and stored once, so that it does not matter how many of them share a cache set.
#pragma once
#include "trans/body/ssqtrans_body.h"

namespace
{
struct square_tile_16 {
    [[gnu::always_inline]] static inline void strans(float *a, uint64_t lda)
    {
        __m512 x[16];
        load_turned(x, a, lda);
        store(x, a, lda);
    }
    [[gnu::always_inline]] static inline void sswap(float *p, float *q, uint64_t lda)
    {
        __m512 x[16], y[16];
        load_turned(x, p, lda);
        load_turned(y, q, lda);
        store(y, p, lda);
        store(x, q, lda);
    }

private:
    static constexpr __mmask16 all =
        0xffff; // GCC 12 warns of the undefined register that the unmasked forms merge into

    template <int order> [[gnu::always_inline]] static inline __m512 pieces(__m512 x, __m512 y)
    {
        return _mm512_maskz_shuffle_f32x4(all, x, y, order);
    }
    // t[j] := column j of the tile.
    [[gnu::always_inline]] static inline void load_turned(__m512 (&t)[16], const float *a, uint64_t lda)
    {
        __m512 quad[4][4]; // [lines / 4][column]: 128-bit piece p holds lines 4q .. 4q+3 of column 4p + c
#pragma GCC unroll 4
        for (uint64_t q = 0; q < 4; ++q) {
            const float *line = a + 4 * q * lda;
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
        for (uint64_t c = 0; c < 4; ++c) { // a 4 x 4 transposition of 128-bit pieces
            const __m512 even01 = pieces<0x88>(quad[0][c], quad[1][c]), odd01 = pieces<0xdd>(quad[0][c], quad[1][c]);
            const __m512 even23 = pieces<0x88>(quad[2][c], quad[3][c]), odd23 = pieces<0xdd>(quad[2][c], quad[3][c]);
            t[c] = pieces<0x88>(even01, even23);
            t[4 + c] = pieces<0x88>(odd01, odd23);
            t[8 + c] = pieces<0xdd>(even01, even23);
            t[12 + c] = pieces<0xdd>(odd01, odd23);
        }
    }
    [[gnu::always_inline]] static inline void store(const __m512 (&x)[16], float *a, uint64_t lda)
    {
#pragma GCC unroll 16
        for (uint64_t i = 0; i < 16; ++i)
            _mm512_storeu_ps(a + i * lda, x[i]);
    }
};
} // namespace
