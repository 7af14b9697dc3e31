// SPDX-License-Identifier: BSD-3-Clause
// a := alpha*a in one block, and a[i*ldb + j] := alpha*a[i*lda + j] in the same array. v brings the register, and
// scale_rest, which does less than a register of elements.
#pragma once
#include <stdint.h>

#include "trans/routes.h"

namespace
{
// y[j] := alpha*x[j], j rising; y is not above x where they overlap, so that nothing unread is overwritten.
template <class v> inline void scale_rising(uint64_t n, const float *x, float *y, float alpha)
{
    const typename v::reg av = v::set1(alpha);
    uint64_t j = 0;
#pragma GCC unroll 4
    for (; j + v::width <= n; j += v::width)
        v::store(y + j, v::mul(av, v::load(x + j)));
    v::scale_rest(n - j, x + j, y + j, alpha);
}

// The same with j falling, in blocks of 8 elements and the rest singly; y is not below x where they overlap.
inline void scale_falling(uint64_t n, const float *x, float *y, float alpha)
{
    constexpr uint64_t round = 8; // [elements]
    uint64_t j = n;
    for (; j >= round; j -= round) {
#pragma GCC unroll 8
        for (uint64_t u = 1; u <= round; ++u)
            y[j - u] = alpha * x[j - u];
    }
    while (j-- > 0)
        y[j] = alpha * x[j];
}

template <class v> void simatcopy_square_n_body(uint64_t n, float *a, float alpha)
{
    trans_took(trans_route_square_n);
    scale_rising<v>(n * n, a, a, alpha);
}

// Lines that come closer together move from the first to the last, lines that part from the last to the first: a line
// never lands on one that is still to be read.
template <class v>
void simatcopy_mipt_n_body(uint64_t n_outer, uint64_t n_inner, float *a, uint64_t lda, uint64_t ldb, float alpha)
{
    trans_took(trans_route_mipt_n);
    if (n_outer == 0 || n_inner == 0)
        return;
    if (lda >= ldb) {
        for (uint64_t i = 0; i < n_outer; ++i)
            scale_rising<v>(n_inner, a + i * lda, a + i * ldb, alpha);
    } else {
        for (uint64_t i = n_outer; i-- > 0;)
            scale_falling(n_inner, a + i * lda, a + i * ldb, alpha);
    }
}
} // namespace
