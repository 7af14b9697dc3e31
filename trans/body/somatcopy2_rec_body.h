// SPDX-License-Identifier: BSD-3-Clause
// b[j*ldb + i*strideb] := alpha*a[i*lda + j*stridea] by halving the larger side (cache-oblivious transposition: Frigo,
// Leiserson, Prokop, Ramachandran 1999). A tie cuts the columns; the first part is floor of the half; blocks of at most
// 4 x 4 are leaves.
#pragma once
#include "trans/body/transpose_tile.h"
#include "trans/routes.h"

namespace
{
constexpr uint64_t rec_leaf = 4; // [elements] each side

template <bool scaled>
void rec_t_body(uint64_t n_outer, uint64_t n_inner, const float *a, uint64_t lda, uint64_t stridea, float *b,
                uint64_t ldb, uint64_t strideb, float alpha)
{
    while (n_outer > rec_leaf || n_inner > rec_leaf) {
        if (n_outer <= n_inner) {
            const uint64_t half = n_inner / 2;
            rec_t_body<scaled>(n_outer, half, a, lda, stridea, b, ldb, strideb, alpha);
            a += half * stridea;
            b += half * ldb;
            n_inner -= half;
        } else {
            const uint64_t half = n_outer / 2;
            rec_t_body<scaled>(half, n_inner, a, lda, stridea, b, ldb, strideb, alpha);
            a += half * lda;
            b += half * strideb;
            n_outer -= half;
        }
    }
    for (uint64_t i = 0; i < n_outer; ++i)
        for (uint64_t j = 0; j < n_inner; ++j)
            move_element<scaled>(a + i * lda + j * stridea, b + j * ldb + i * strideb, alpha);
}

inline void tesh_xomatcopy2_rec_t(uint64_t n_outer, uint64_t n_inner, const float *a, uint64_t lda, uint64_t stridea,
                                  float *b, uint64_t ldb, uint64_t strideb, float alpha)
{
    trans_took(trans_route_rec_t);
    rec_t_body<true>(n_outer, n_inner, a, lda, stridea, b, ldb, strideb, alpha);
}

// alpha = 1: values are moved, not multiplied.
inline void tesh_xomatcopy2_rec_t_1(uint64_t n_outer, uint64_t n_inner, const float *a, uint64_t lda, uint64_t stridea,
                                    float *b, uint64_t ldb, uint64_t strideb)
{
    trans_took(trans_route_rec_t_1);
    rec_t_body<false>(n_outer, n_inner, a, lda, stridea, b, ldb, strideb, 1.0f);
}
} // namespace
