// SPDX-License-Identifier: BSD-3-Clause
// Tile kernels of the square transposition from 4 x 4 exchanges in 128-bit registers.
#pragma once
#include "trans/body/ssqtrans_body.h"

namespace
{
// The side x side tile at the diagonal.
template <uint64_t side> [[gnu::always_inline]] inline void strans_by_4(float *a, uint64_t lda)
{
#pragma GCC unroll 4
    for (uint64_t i = 0; i < side; i += 4) {
        __m128 r[4];
        load_4(r, a + i * lda + i, lda);
        transpose_4(r);
        store_4(r, a + i * lda + i, lda);
#pragma GCC unroll 4
        for (uint64_t j = i + 4; j < side; j += 4)
            swap_4x4(a + i * lda + j, a + j * lda + i, lda);
    }
}

// p, q := q^T, p^T, 8 x 8 each.
[[gnu::always_inline]] inline void sswap_8_by_4(float *p, float *q, uint64_t lda)
{
#pragma GCC unroll 2
    for (uint64_t i = 0; i < 8; i += 4) {
#pragma GCC unroll 2
        for (uint64_t j = 0; j < 8; j += 4)
            swap_4x4(p + i * lda + j, q + j * lda + i, lda);
    }
}

// The 16 x 16 tiles of def and mc3: 8 x 8 blocks, those of p crosswise with those of q.
template <auto strans_8, auto sswap_8> struct square_tile_of_8 {
    static inline void strans(float *a, uint64_t lda)
    {
        strans_8(a, lda);
        sswap_8(a + 8, a + 8 * lda, lda);
        strans_8(a + 8 * lda + 8, lda);
    }
    static inline void sswap(float *p, float *q, uint64_t lda) { sswap_16<sswap_8>(p, q, lda); }
};
} // namespace
