// SPDX-License-Identifier: BSD-3-Clause
// b[i*ldb + j*strideb] := alpha*a[i*lda + j*stridea], line by line, elements from low to high: rounds of 8 elements,
// then the rest singly. alpha = 1 moves the elements as they are.
#pragma once
#include "trans/body/transpose_tile.h"
#include "trans/routes.h"

namespace
{
constexpr uint64_t scale_round = 8; // [elements]

// Whether both arrays are one block each and are the same bytes afterwards.
constexpr bool is_block_copy(uint64_t n_inner, uint64_t lda, uint64_t stridea, uint64_t ldb, uint64_t strideb,
                             float alpha)
{
    return stridea == 1 && strideb == 1 && lda == n_inner && ldb == lda && alpha == 1.0f;
}

template <bool scaled>
inline void scale_line(uint64_t n, const float *x, uint64_t stridex, float *y, uint64_t stridey, float alpha)
{
    uint64_t j = 0;
    for (; j + scale_round <= n; j += scale_round) {
#pragma GCC unroll 8
        for (uint64_t u = 0; u < scale_round; ++u)
            move_element<scaled>(x + (j + u) * stridex, y + (j + u) * stridey, alpha);
    }
    for (; j < n; ++j)
        move_element<scaled>(x + j * stridex, y + j * stridey, alpha);
}

template <auto unrollcopy>
void somatcopy2_n_body(uint64_t n_outer, uint64_t n_inner, const float *a, uint64_t lda, uint64_t stridea, float *b,
                       uint64_t ldb, uint64_t strideb, float alpha)
{
    trans_took(trans_route_somatcopy2_n);
    if (is_block_copy(n_inner, lda, stridea, ldb, strideb, alpha)) {
        unrollcopy(b, n_outer * lda * sizeof *b, a, n_outer * lda * sizeof *b);
        return;
    }
    if (n_inner == 0) // however many lines there are
        return;
    if (alpha == 1.0f)
        for (uint64_t i = 0; i < n_outer; ++i)
            scale_line<false>(n_inner, a + i * lda, stridea, b + i * ldb, strideb, alpha);
    else
        for (uint64_t i = 0; i < n_outer; ++i)
            scale_line<true>(n_inner, a + i * lda, stridea, b + i * ldb, strideb, alpha);
}
} // namespace
