// SPDX-License-Identifier: BSD-3-Clause
// computes   C[8 x 4] := beta*C + A[8 x k]*B[k x 4] over all tiles of a packed pair; alpha is in A
// registers  8 accumulators + 2 of A + 6 for products = 16 of 16
// layout     A in panels of 8 rows, B in panels of 4 columns, both 16-byte aligned; C column-major, any alignment
// loop       one step a round. Vector instructions of all kinds, copies and loads among them, share six slots a cycle
//            where multiplies and adds alone take four: a step is 24 of them for 16 multiplies and adds. The last column
//            multiplies A in place, from memory; the others load b once and copy it
// splat      the 4 columns at work are spread beforehand, each element four times side by side (64 bytes a depth step):
//            a step is then two loads of A, four of B and no shuffle, which would take the adder's port
// prefetch   the C tile at its start: it is read k steps later
// edges      none: rows are a multiple of 8, columns of 4
// measured   91 % of bench/peak at 4 lanes, a packed pair of 640 x 64 x 112 (Zen 5)
#include <immintrin.h>
#include <stdint.h>

namespace
{
enum class inner_beta { one, zero, any };

inline void splat_columns(int64_t depth, const float *b, float *work)
{
#pragma GCC unroll 2
    for (int64_t l = 0; l < depth; ++l, b += 4, work += 16) {
        const __m128i x = _mm_castps_si128(_mm_load_ps(b)); // the integer shuffle needs no copy of its operand
        _mm_store_ps(work, _mm_castsi128_ps(_mm_shuffle_epi32(x, 0x00)));
        _mm_store_ps(work + 4, _mm_castsi128_ps(_mm_shuffle_epi32(x, 0x55)));
        _mm_store_ps(work + 8, _mm_castsi128_ps(_mm_shuffle_epi32(x, 0xaa)));
        _mm_store_ps(work + 12, _mm_castsi128_ps(_mm_shuffle_epi32(x, 0xff)));
    }
}

// Keeps a loaded value in a register: left alone, compilers load it again for its second use.
template <class reg> inline reg in_register(reg x)
{
    __asm__("" : "+x"(x));
    return x;
}

template <class v, inner_beta mode>
inline void inner_tile(int64_t depth, const float *a, const float *work, float beta, float *c, int64_t ldc)
{
    typename v::reg acc[4][2];
#pragma GCC unroll 4
    for (int j = 0; j < 4; ++j) {
        acc[j][0] = acc[j][1] = v::zero();
        if constexpr (mode != inner_beta::zero)
            _mm_prefetch(reinterpret_cast<const char *>(c + j * ldc + 7), _MM_HINT_T0);
    }
#pragma GCC unroll 1
    for (int64_t l = 0; l < depth; ++l, a += 8, work += 16) {
        typename v::reg a0 = v::load_aligned(a), a1 = v::load_aligned(a + 4);
#pragma GCC unroll 3
        for (int j = 0; j < 3; ++j) {
            const typename v::reg bj = in_register(v::load_aligned(work + 4 * j));
            acc[j][0] = v::mul_add(bj, a0, acc[j][0]);
            acc[j][1] = v::mul_add(bj, a1, acc[j][1]);
        }
        a0 = v::mul(a0, v::load_aligned(work + 12));
        a1 = v::mul(a1, v::load_aligned(work + 12));
        acc[3][0] = v::add(acc[3][0], a0);
        acc[3][1] = v::add(acc[3][1], a1);
    }
    const typename v::reg factor = v::set1(beta);
#pragma GCC unroll 8
    for (int t = 0; t < 8; ++t) {
        float *x = c + t / 2 * ldc + t % 2 * 4;
        if constexpr (mode == inner_beta::zero)
            v::store(x, acc[t / 2][t % 2]);
        else if constexpr (mode == inner_beta::one)
            v::store(x, v::add(v::load(x), acc[t / 2][t % 2]));
        else
            v::store(x, v::mul_add(factor, v::load(x), acc[t / 2][t % 2]));
    }
}

// work: 16 floats a depth step.
template <class v, inner_beta mode>
inline void inner_product(int64_t rows, int64_t columns, int64_t depth, const float *a_panel, const float *b_panel,
                          float *work, float beta, float *c, int64_t ldc)
{
    for (int64_t j = 0; j < columns; j += 4, b_panel += 4 * depth) {
        splat_columns(depth, b_panel, work);
        for (int64_t i = 0; i < rows; i += 8)
            inner_tile<v, mode>(depth, a_panel + i * depth, work, beta, c + i + j * ldc, ldc);
    }
}
} // namespace
