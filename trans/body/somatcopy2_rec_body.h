// SPDX-License-Identifier: BSD-3-Clause
// b[j*ldb + i*strideb] := alpha*a[i*lda + j*stridea] by halving the larger side (cache-oblivious transposition: Frigo,
// Leiserson, Prokop, Ramachandran 1999). A tie cuts the columns; the first part is floor of the half; blocks of at most
// 4 x 4 are leaves.
//
// With unit strides a subtree of at most block::side elements each way is done at once by block::transpose: the same
// elements as its leaves would move, each with the same single product.
#pragma once
#include "trans/body/transpose_tile.h"
#include "trans/routes.h"

namespace
{
constexpr uint64_t rec_leaf = 4; // [elements] each side

// def and mc3: the leaf in 128-bit registers.
struct block_of_4 {
    static constexpr uint64_t side = rec_leaf;
    template <bool scaled>
    static inline void transpose(uint64_t lines, uint64_t columns, const float *a, uint64_t lda, float *b, uint64_t ldb,
                                 float alpha)
    {
        transpose_block<tile_4, scaled>(lines, columns, a, lda, b, ldb, alpha);
    }
};

template <class block, bool scaled, bool unit>
void rec_t_body(uint64_t n_outer, uint64_t n_inner, const float *a, uint64_t lda, uint64_t stridea, float *b,
                uint64_t ldb, uint64_t strideb, float alpha)
{
    constexpr uint64_t least = unit ? block::side : rec_leaf;
    const uint64_t step_a = unit ? 1 : stridea, step_b = unit ? 1 : strideb;
    while (n_outer > least || n_inner > least) {
        if (n_outer <= n_inner) {
            const uint64_t half = n_inner / 2;
            rec_t_body<block, scaled, unit>(n_outer, half, a, lda, stridea, b, ldb, strideb, alpha);
            a += half * step_a;
            b += half * ldb;
            n_inner -= half;
        } else {
            const uint64_t half = n_outer / 2;
            rec_t_body<block, scaled, unit>(half, n_inner, a, lda, stridea, b, ldb, strideb, alpha);
            a += half * lda;
            b += half * step_b;
            n_outer -= half;
        }
    }
    if constexpr (unit) {
        block::template transpose<scaled>(n_outer, n_inner, a, lda, b, ldb, alpha);
    } else {
        for (uint64_t i = 0; i < n_outer; ++i)
            for (uint64_t j = 0; j < n_inner; ++j)
                tile_1::move<scaled>(a + i * lda + j * step_a, lda, b + j * ldb + i * step_b, ldb, alpha);
    }
}

template <class block>
void tesh_xomatcopy2_rec_t(uint64_t n_outer, uint64_t n_inner, const float *a, uint64_t lda, uint64_t stridea, float *b,
                           uint64_t ldb, uint64_t strideb, float alpha)
{
    trans_took(trans_route_rec_t);
    if (stridea == 1 && strideb == 1)
        rec_t_body<block, true, true>(n_outer, n_inner, a, lda, stridea, b, ldb, strideb, alpha);
    else
        rec_t_body<block, true, false>(n_outer, n_inner, a, lda, stridea, b, ldb, strideb, alpha);
}

// alpha = 1: values are moved, not multiplied.
template <class block>
void tesh_xomatcopy2_rec_t_1(uint64_t n_outer, uint64_t n_inner, const float *a, uint64_t lda, uint64_t stridea,
                             float *b, uint64_t ldb, uint64_t strideb)
{
    trans_took(trans_route_rec_t_1);
    if (stridea == 1 && strideb == 1)
        rec_t_body<block, false, true>(n_outer, n_inner, a, lda, stridea, b, ldb, strideb, 1.0f);
    else
        rec_t_body<block, false, false>(n_outer, n_inner, a, lda, stridea, b, ldb, strideb, 1.0f);
}
} // namespace
