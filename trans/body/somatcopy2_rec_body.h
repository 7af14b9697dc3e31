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

// What stays the same on the way down.
struct rec_lines {
    uint64_t lda, stridea, ldb, strideb; // [elements]
    float alpha;
};

// Line by line, elements of a line from low to high. unit: both strides are 1.
template <bool scaled, bool unit>
[[gnu::always_inline]] inline void rec_t_leaf(uint64_t n_outer, uint64_t n_inner, const float *a, float *b,
                                              const rec_lines &by)
{
    const uint64_t stridea = unit ? 1 : by.stridea, strideb = unit ? 1 : by.strideb;
#pragma GCC unroll 4
    for (uint64_t i = 0; i < n_outer; ++i) {
        const float *const from = a + i * by.lda;
        float *const to = b + i * strideb;
        if (unit && n_inner == rec_leaf) { // a line comes in at once
            const __m128 line = _mm_loadu_ps(from);
            const __m128 value = scaled ? _mm_mul_ps(_mm_set1_ps(by.alpha), line) : line;
            _mm_store_ss(to, value);
            _mm_store_ss(to + by.ldb, _mm_shuffle_ps(value, value, 1));
            _mm_store_ss(to + 2 * by.ldb, _mm_shuffle_ps(value, value, 2));
            _mm_store_ss(to + 3 * by.ldb, _mm_shuffle_ps(value, value, 3));
            continue;
        }
#pragma GCC unroll 4
        for (uint64_t j = 0; j < n_inner; ++j)
            move_element<scaled>(from + j * stridea, to + j * by.ldb, by.alpha);
    }
}

// The sizes that halving leads to have code of their own.
template <bool scaled, bool unit>
[[gnu::always_inline]] inline void rec_t_leaf_of(uint64_t n_outer, uint64_t n_inner, const float *a, float *b,
                                                 const rec_lines &by)
{
    if (n_outer == 4 && n_inner == 4)
        rec_t_leaf<scaled, unit>(4, 4, a, b, by);
    else if (n_outer == 3 && n_inner == 4)
        rec_t_leaf<scaled, unit>(3, 4, a, b, by);
    else if (n_outer == 4 && n_inner == 3)
        rec_t_leaf<scaled, unit>(4, 3, a, b, by);
    else if (n_outer == 3 && n_inner == 3)
        rec_t_leaf<scaled, unit>(3, 3, a, b, by);
    else
        rec_t_leaf<scaled, unit>(n_outer, n_inner, a, b, by);
}

template <bool scaled, bool unit>
void rec_t_body(uint64_t n_outer, uint64_t n_inner, const float *a, float *b, const rec_lines &by)
{
    while (n_outer > rec_leaf || n_inner > rec_leaf) {
        if (n_outer <= n_inner) {
            const uint64_t half = n_inner / 2;
            if (n_outer <= rec_leaf && half <= rec_leaf)
                rec_t_leaf_of<scaled, unit>(n_outer, half, a, b, by);
            else
                rec_t_body<scaled, unit>(n_outer, half, a, b, by);
            a += half * (unit ? 1 : by.stridea);
            b += half * by.ldb;
            n_inner -= half;
        } else {
            const uint64_t half = n_outer / 2;
            if (half <= rec_leaf && n_inner <= rec_leaf)
                rec_t_leaf_of<scaled, unit>(half, n_inner, a, b, by);
            else
                rec_t_body<scaled, unit>(half, n_inner, a, b, by);
            a += half * by.lda;
            b += half * (unit ? 1 : by.strideb);
            n_outer -= half;
        }
    }
    rec_t_leaf_of<scaled, unit>(n_outer, n_inner, a, b, by);
}

inline void tesh_xomatcopy2_rec_t(uint64_t n_outer, uint64_t n_inner, const float *a, uint64_t lda, uint64_t stridea,
                                  float *b, uint64_t ldb, uint64_t strideb, float alpha)
{
    trans_took(trans_route_rec_t);
    (stridea == 1 && strideb == 1
         ? rec_t_body<true, true>
         : rec_t_body<true, false>)(n_outer, n_inner, a, b, {lda, stridea, ldb, strideb, alpha});
}

// alpha = 1: values are moved, not multiplied.
inline void tesh_xomatcopy2_rec_t_1(uint64_t n_outer, uint64_t n_inner, const float *a, uint64_t lda, uint64_t stridea,
                                    float *b, uint64_t ldb, uint64_t strideb)
{
    trans_took(trans_route_rec_t_1);
    (stridea == 1 && strideb == 1
         ? rec_t_body<false, true>
         : rec_t_body<false, false>)(n_outer, n_inner, a, b, {lda, stridea, ldb, strideb, 1.0f});
}
} // namespace
