// SPDX-License-Identifier: BSD-3-Clause
// b[i*ldb + j*strideb] := alpha*a[i*lda + j*stridea], line by line, elements from low to high: rounds of one register
// (unit strides) or of 8 elements, then the rest singly.
#pragma once
#include <stdint.h>

#include "trans/routes.h"

namespace
{
constexpr uint64_t strided_round = 8; // [elements] of a round with strides

// Whether both arrays are one block each and are the same bytes afterwards.
constexpr bool is_block_copy(uint64_t n_inner, uint64_t lda, uint64_t stridea, uint64_t ldb, uint64_t strideb,
                             float alpha)
{
    return stridea == 1 && strideb == 1 && lda == n_inner && ldb == lda && alpha == 1.0f;
}

template <class v> inline void scale_line(uint64_t n, const float *x, float *y, float alpha)
{
    const typename v::reg av = v::set1(alpha);
    uint64_t j = 0;
    for (; j + 4 * v::width <= n; j += 4 * v::width) {
#pragma GCC unroll 4
        for (uint64_t u = 0; u < 4; ++u)
            v::store(y + j + u * v::width, v::mul(av, v::load(x + j + u * v::width)));
    }
    for (; j + v::width <= n; j += v::width)
        v::store(y + j, v::mul(av, v::load(x + j)));
    for (; j < n; ++j)
        y[j] = alpha * x[j];
}

inline void scale_strided_line(uint64_t n, const float *x, uint64_t stridex, float *y, uint64_t stridey, float alpha)
{
    uint64_t j = 0;
    for (; j + strided_round <= n; j += strided_round) {
#pragma GCC unroll 8
        for (uint64_t u = 0; u < strided_round; ++u)
            y[(j + u) * stridey] = alpha * x[(j + u) * stridex];
    }
    for (; j < n; ++j)
        y[j * stridey] = alpha * x[j * stridex];
}

template <class v, auto unrollcopy>
void somatcopy2_n_body(uint64_t n_outer, uint64_t n_inner, const float *a, uint64_t lda, uint64_t stridea, float *b,
                       uint64_t ldb, uint64_t strideb, float alpha)
{
    trans_took(trans_route_somatcopy2_n);
    if (is_block_copy(n_inner, lda, stridea, ldb, strideb, alpha)) {
        unrollcopy(b, n_outer * lda * sizeof *b, a, n_outer * lda * sizeof *b);
        return;
    }
    for (uint64_t i = 0; i < n_outer; ++i) {
        if (stridea == 1 && strideb == 1)
            scale_line<v>(n_inner, a + i * lda, b + i * ldb, alpha);
        else
            scale_strided_line(n_inner, a + i * lda, stridea, b + i * ldb, strideb, alpha);
    }
}
} // namespace
