// SPDX-License-Identifier: BSD-3-Clause
// The loop of the 4-lane tiles: two registers of one operand, four elements of the other, each spread over a register.
//
//   sum[r][v] += spread[r] * x[v]   for every depth step;  r = 0..3, v = 0..1
//
// x holds 8 floats a step, spread 16: every element four times side by side, made beforehand, so that the loop shuffles
// nothing, which would take a pipe of the multiplies or the adds.
//
// Vector instructions of all kinds, copies and loads among them, share six slots a cycle where multiplies and adds
// alone take four. A product overwrites one operand, so each needs a load or a copy of its own: 24 instructions for 16
// multiplies and adds are the least there is. The last element multiplies the two registers in place, from memory; the
// others are loaded once and copied. One instruction more, or more than two of other kinds together, costs up to a
// cycle a step. Hence one index for both operands, and its step behind the last sum. The loop is not unrolled: no
// longer one kept its place in the slots (4.05 to 4.2 cycles a step as it is, 4.25 to 5.0 by two or four; Zen 5).
#pragma once
#include <immintrin.h>
#include <stdint.h>

namespace
{
// spread is aligned to 16 bytes, the panel of 4 elements a step lies anywhere.
inline void spread_elements(int64_t depth, const float *panel, float *spread)
{
#pragma GCC unroll 2
    for (int64_t l = 0; l < depth; ++l, panel += 4, spread += 16) {
        const __m128i x = _mm_castps_si128(_mm_loadu_ps(panel)); // the integer shuffle needs no copy of its operand
        _mm_store_ps(spread, _mm_castsi128_ps(_mm_shuffle_epi32(x, 0x00)));
        _mm_store_ps(spread + 4, _mm_castsi128_ps(_mm_shuffle_epi32(x, 0x55)));
        _mm_store_ps(spread + 8, _mm_castsi128_ps(_mm_shuffle_epi32(x, 0xaa)));
        _mm_store_ps(spread + 12, _mm_castsi128_ps(_mm_shuffle_epi32(x, 0xff)));
    }
}

// Keeps a loaded value in a register: left alone, compilers load it again for its second use.
template <class reg> inline reg in_register(reg x)
{
    __asm__("" : "+x"(x));
    return x;
}

// The opposite: compilers load the operand of two products once, which costs an instruction.
inline __m128 times_memory(__m128 x, const float *p)
{
    __asm__("mulps %1, %0" : "+x"(x) : "m"(*reinterpret_cast<const __m128 *>(p)));
    return x;
}

template <class v>
inline void add_products(int64_t depth, const float *x, const float *spread, typename v::reg (&sum)[4][2])
{
    const float *const x_end = x + 8 * depth, *spread_end = spread + 16 * depth;
    __asm__("" : "+r"(spread_end)); // one register, not a sum of two in every step
#pragma GCC unroll 1
    for (int64_t at = -8 * depth; at != 0; at += 8) {
        typename v::reg x0 = v::load(x_end + at), x1 = v::load(x_end + at + 4);
        const float *elements = spread_end + 2 * at;
        __asm__("" : "+r"(elements));
#pragma GCC unroll 3
        for (int r = 0; r < 3; ++r) {
            const typename v::reg element = in_register(v::load_aligned(elements + 4 * r));
            sum[r][0] = v::mul_add(element, x0, sum[r][0]);
            sum[r][1] = v::mul_add(element, x1, sum[r][1]);
        }
        x0 = times_memory(x0, elements + 12);
        x1 = times_memory(x1, elements + 12);
        sum[3][0] = v::add(sum[3][0], x0);
        sum[3][1] = v::add(sum[3][1], x1);
        __asm__("" : "+r"(at) : "x"(sum[3][1])); // the index is stepped after that sum
    }
}
} // namespace
