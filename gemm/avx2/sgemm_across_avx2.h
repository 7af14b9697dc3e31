// SPDX-License-Identifier: BSD-3-Clause
// Four rows, two or one against columns that lie beside each other in B: a register holds eight columns, each row has
// sums of its own, and its element of A is broadcast. So every product fills its register, and rows meet columns only
// in C.
#pragma once
#include "gemm/body/sgemm_lanes.h"

namespace
{
constexpr int most_vecs = 6;
template <int rows> constexpr int widest_across = 12 / rows < most_vecs ? 12 / rows : most_vecs; // registers of columns

template <int rows, int vecs> [[gnu::always_inline]] inline void clear(__m256 (&acc)[vecs][rows])
{
#pragma GCC unroll 6
    for (int i = 0; i < vecs; ++i)
#pragma GCC unroll 4
        for (int r = 0; r < rows; ++r)
            acc[i][r] = _mm256_setzero_ps();
}

// One depth step: rows elements of A, vecs registers of B. What is fewer stays in registers.
template <int rows, int vecs, class columns>
[[gnu::always_inline]] inline void step_across(__m256 (&acc)[vecs][rows], const float *a, const columns &b)
{
    if constexpr (rows == 4) {
        __m256 y[vecs];
#pragma GCC unroll 3
        for (int i = 0; i < vecs; ++i)
            y[i] = b.load(i);
#pragma GCC unroll 4
        for (int r = 0; r < rows; ++r) {
            const __m256 element = _mm256_broadcast_ss(a + r);
#pragma GCC unroll 3
            for (int i = 0; i < vecs; ++i)
                lanes<8>::accumulate(acc[i][r], y[i], element);
        }
    } else {
        __m256 element[rows];
#pragma GCC unroll 2
        for (int r = 0; r < rows; ++r)
            element[r] = _mm256_broadcast_ss(a + r);
#pragma GCC unroll 6
        for (int i = 0; i < vecs; ++i) {
            const __m256 y = b.load(i);
#pragma GCC unroll 2
            for (int r = 0; r < rows; ++r)
                lanes<8>::accumulate(acc[i][r], y, element[r]);
        }
    }
}

// Hands over columns of rows floats out of eight columns of each row: column j goes to put(j, column). One is taken out
// after the other, not all at once, which would take registers from the sums that wait.
template <int rows, class taker>
[[gnu::always_inline]] inline void each_column(const __m256 (&row)[rows], const taker &put)
{
    if constexpr (rows == 4) {
        const __m256 t0 = _mm256_unpacklo_ps(row[0], row[1]), t1 = _mm256_unpackhi_ps(row[0], row[1]);
        const __m256 t2 = _mm256_unpacklo_ps(row[2], row[3]), t3 = _mm256_unpackhi_ps(row[2], row[3]);
        __m256 pair[4] = {_mm256_shuffle_ps(t0, t2, 0x44), _mm256_shuffle_ps(t0, t2, 0xee),
                          _mm256_shuffle_ps(t1, t3, 0x44), _mm256_shuffle_ps(t1, t3, 0xee)};
#pragma GCC unroll 8
        for (int j = 0; j < 8; ++j) {
            __asm__ volatile("" : "+x"(pair[j % 4]));
            put(j, j < 4 ? lanes<8>::low(pair[j % 4]) : lanes<8>::high(pair[j % 4]));
        }
    } else if constexpr (rows == 2) {
        __m256 four[2] = {_mm256_unpacklo_ps(row[0], row[1]), _mm256_unpackhi_ps(row[0], row[1])};
        const __m128 zero = _mm_setzero_ps(); // an infinity beside the two would meet a zero of alpha
#pragma GCC unroll 8
        for (int j = 0; j < 8; ++j) {
            __m256 &from = four[j / 2 % 2];
            __asm__ volatile("" : "+x"(from));
            const __m128 half = j < 4 ? lanes<8>::low(from) : lanes<8>::high(from);
            put(j, as_written(j % 2 == 0 ? _mm_movelh_ps(half, zero) : _mm_movehl_ps(zero, half)));
        }
    } else {
        __m256 x = row[0];
#pragma GCC unroll 8
        for (int j = 0; j < 8; ++j) {
            __asm__ volatile("" : "+x"(x));
            const __m128 half = j < 4 ? lanes<8>::low(x) : lanes<8>::high(x);
            put(j, j % 4 == 0   ? _mm_cvtss_f32(half)
                   : j % 4 == 1 ? _mm_cvtss_f32(_mm_movehdup_ps(half))
                   : j % 4 == 2 ? _mm_cvtss_f32(_mm_movehl_ps(half, half))
                                : _mm_cvtss_f32(_mm_permute_ps(half, 3)));
        }
    }
}

// The tiles of a family, each count of registers at its index; beyond family::widest there are none.
template <class family, int vecs> constexpr typename family::function *tile_across()
{
    if constexpr (vecs <= family::widest)
        return family::template tile<vecs>;
    else
        return nullptr;
}
template <class family>
constexpr typename family::function *tiles_across[most_vecs] = {tile_across<family, 1>(), tile_across<family, 2>(),
                                                                tile_across<family, 3>(), tile_across<family, 4>(),
                                                                tile_across<family, 5>(), tile_across<family, 6>()};
} // namespace
