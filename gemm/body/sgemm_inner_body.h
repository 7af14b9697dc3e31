// SPDX-License-Identifier: BSD-3-Clause
// computes   C[8 x 4] := beta*C + A[8 x k]*B[k x 4] over all tiles of a packed pair; alpha is in A
// registers  8 accumulators + 2 of A + 2 of products = 12 of 16
// layout     A in panels of 8 rows, B in panels of 4 columns, both 16-byte aligned; C column-major, any alignment
// loop       gemm/body/sgemm_spread_body.h, one step a round: A runs in vectors along its 8 rows, and the 4 columns at
//            work are spread beforehand (64 bytes a depth step)
// prefetch   the C tile at its start: it is read k steps later
// edges      none: rows are a multiple of 8, columns of 4
// measured   96 % of bench/peak at 4 lanes, a packed pair of 640 x 64 x 112 (Zen 5)
#pragma once
#include "gemm/body/sgemm_spread_body.h"

namespace
{
enum class inner_beta { one, zero, any };

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
    add_products<v>(depth, a, work, acc);
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
        spread_elements(depth, b_panel, work);
        for (int64_t i = 0; i < rows; i += 8)
            inner_tile<v, mode>(depth, a_panel + i * depth, work, beta, c + i + j * ldc, ldc);
    }
}
} // namespace
