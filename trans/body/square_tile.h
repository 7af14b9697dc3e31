// SPDX-License-Identifier: BSD-3-Clause
// Tile kernels of the square transposition: 16 x 16 tiles of 8 x 8 blocks. The kernels of a path bring swap_8(p, q,
// lda), which turns a pair of blocks p, q into q^T, p^T.
#pragma once
#include "trans/body/settled.h"
#include "trans/body/ssqtrans_body.h"

namespace
{
constexpr uint64_t square_block = 8; // [elements]

// On to the next pair of blocks. settled: not before the stores of this one have left the queue. The last of them, to a
// line of q, begins behind q_last or ends with it.
template <bool settled>
[[gnu::always_inline]] inline void pass_blocks(float *&p, int64_t by_p, float *&q, int64_t by_q, const float *q_last)
{
    int64_t zero = 0;
    if constexpr (settled)
        zero = static_cast<int64_t>(settled_zero(q_last));
    else
        __asm__("" : "+r"(zero)); // or GCC works out the addresses of all blocks in front, and spills them
    p += by_p + zero;
    q += by_q + zero;
}

// p, q := q^T, p^T, 16 x 16 each, the blocks of p crosswise with those of q. The order goes there and back: with lines
// at multiples of 4096 bytes the 16 lines of a tile share one set of the first cache, which holds fewer, and so 8 of
// them come in twice, not 16. Not inlined: side by side the two forms would share addresses and spill.
template <auto swap_8, bool settled> [[gnu::noinline]] void sswap_16(float *p, float *q, uint64_t lda)
{
    constexpr int64_t across = square_block;
    const int64_t down = across * static_cast<int64_t>(lda);
    swap_8(p, q, lda);
    pass_blocks<settled>(p, across, q, down, q + 7 * lda + 7);
    swap_8(p, q, lda);
    pass_blocks<settled>(p, down, q, across, q + 7 * lda + 7);
    swap_8(p, q, lda);
    pass_blocks<settled>(p, -across, q, -down, q + 7 * lda - 1);
    swap_8(p, q, lda);
}

// Waits where the lines share sets of the first cache.
template <auto swap_8> [[gnu::always_inline]] inline void sswap_16_as_lda_asks(float *p, float *q, uint64_t lda)
{
    (lda % square_settled_multiple == 0 ? sswap_16<swap_8, true> : sswap_16<swap_8, false>)(p, q, lda);
}

template <auto strans_8, auto swap_8> [[gnu::always_inline]] inline void strans_16(float *a, uint64_t lda)
{
    strans_8(a, lda);
    swap_8(a + 8, a + 8 * lda, lda);
    strans_8(a + 8 * lda + 8, lda);
}

// The tiles of a path whose kernels are those of a whole tile.
template <auto strans_tile, auto sswap_tile> struct square_tile_of_16 {
    static inline void strans(float *a, uint64_t lda) { strans_tile(a, lda); }
    static inline void sswap(float *p, float *q, uint64_t lda) { sswap_tile(p, q, lda); }
};

// The tiles of a path whose kernels are those of a block.
template <auto strans_8, auto sswap_8> struct square_tile_of_8 {
    static inline void strans(float *a, uint64_t lda) { strans_16<strans_8, sswap_8>(a, lda); }
    static inline void sswap(float *p, float *q, uint64_t lda) { sswap_16<sswap_8, false>(p, q, lda); }
};

// def and mc3: element by element.
[[gnu::always_inline]] inline void strans_8_by_elements(float *a, uint64_t lda)
{
#pragma GCC unroll 8
    for (uint64_t i = 0; i < square_block; ++i) {
#pragma GCC unroll 8
        for (uint64_t j = i + 1; j < square_block; ++j)
            exchange(a + i * lda + j, a + j * lda + i);
    }
}

[[gnu::always_inline]] inline void sswap_8_by_elements(float *p, float *q, uint64_t lda)
{
#pragma GCC unroll 8
    for (uint64_t i = 0; i < square_block; ++i) {
#pragma GCC unroll 8
        for (uint64_t j = 0; j < square_block; ++j)
            exchange(p + i * lda + j, q + j * lda + i);
    }
}
} // namespace
