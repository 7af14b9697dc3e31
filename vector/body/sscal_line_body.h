// SPDX-License-Identifier: BSD-3-Clause
// x := alpha*x on the paths with masks. No value of alpha is special: 0 times NaN or infinity is NaN.
#pragma once
#include "vector/body/line_loops.h"
#include "vector/body/scale_line_op.h"

namespace
{
template <class v>
[[gnu::always_inline]] inline void sscal_line_body(const int64_t *pn, const float *palpha, float *x,
                                                   const int64_t *pincx)
{
    const int64_t n = *pn;
    if (n <= 0)
        return;
    const float alpha = *palpha;
    const int64_t step = magnitude(*pincx);
    const float *source = x;
    if (dense(source, step, x, step))
        dense_line<v>(scale_line_op<v>{v::set1(alpha)}, n, source, x);
    else
        strided_by_bits<16>(scale_single{alpha}, n, source, step, x, step);
}
} // namespace
