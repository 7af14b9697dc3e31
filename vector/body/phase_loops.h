// SPDX-License-Identifier: BSD-3-Clause
// Unit-stride loops of the mc3 path, for operations as in saxpby_sse_op.h: y is brought to a 16-byte boundary; where x
// lies off it, x is read as aligned blocks of 16 bytes, and a shuffle over two neighbours forms each register.
#pragma once
#include "vector/body/quad_loops.h"

namespace
{
// x lies phase bytes behind a 16-byte boundary; y is aligned. No byte before x or behind its end is read: the first
// block comes from an unaligned load, and a round begins only where the block behind its last register is x's own.
template <int phase, int round, class op> inline void phase_rounds(const op &f, int64_t &n, const float *&x, float *&y)
{
    if (n < round + 4)
        return;
    const float *block = x + (16 - phase) / 4;
    __m128i low = _mm_slli_si128(_mm_castps_si128(_mm_loadu_ps(x)), phase);
    const int64_t rounds = (n - 4) / round;
    for (int64_t r = rounds; r > 0; --r, block += round, y += round)
#pragma GCC unroll 16
        for (int u = 0; u < round; u += 4) {
            const __m128i high = _mm_castps_si128(_mm_load_ps(block + u));
            const __m128 x_v = _mm_castsi128_ps(_mm_alignr_epi8(high, low, phase));
            low = high;
            __m128 y_v = _mm_setzero_ps();
            if constexpr (op::reads_y)
                y_v = _mm_load_ps(y + u);
            _mm_store_ps(y + u, f.vector(x_v, y_v));
        }
    n -= rounds * round;
    x += rounds * round;
}

// round elements a round, then registers of 4, then 0 to 3 single elements. Both vectors are word aligned.
template <int round, class op> inline void phase_loop(const op &f, int64_t n, const float *x, float *y)
{
    peel_quad(f, n, x, y);
    switch (reinterpret_cast<uintptr_t>(x) & 15) {
    case 0:
        quad_rounds<round, true, true>(f, n, x, y);
        break;
    case 4:
        phase_rounds<4, round>(f, n, x, y);
        break;
    case 8:
        phase_rounds<8, round>(f, n, x, y);
        break;
    default:
        phase_rounds<12, round>(f, n, x, y);
    }
    quad_rounds<4, false, true>(f, n, x, y);
    singles(f, n, x, y);
}

// The whole way of an operation that writes y. strided_round: elements of a round where registers do not serve.
template <int round, int strided_round, class op>
inline void phase_or_strided(const op &f, int64_t n, const float *x, int64_t incx, float *y, int64_t incy)
{
    if (incx == 1 && incy == 1 && word_aligned(x) && word_aligned(y))
        phase_loop<round>(f, n, x, y);
    else
        strided<strided_round>(f, n, x, incx, y, incy);
}
} // namespace
