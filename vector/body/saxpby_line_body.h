// SPDX-License-Identifier: BSD-3-Clause
// y := alpha*x + beta*y on the paths with masks: fma(alpha, x, beta*y), the product beta*y rounded first. beta = 0 (of
// either sign): y := alpha*x, and y is not read.
#pragma once
#include "vector/body/line_loops.h"
#include "vector/body/scale_line_op.h"

namespace
{
struct axpby_single {
    float alpha, beta;
    void one(const float *x, float *y) const { store_one(y, __builtin_fmaf(alpha, load_one(x), beta * load_one(y))); }
};

template <class v> struct axpby_line_op {
    static constexpr bool in_fours = false;
    typename v::reg alpha, beta;
    template <class access> void at(const access &a, const float *x, float *y) const
    {
        a.store(y, v::mul_add(a.keep(alpha), a.load(x), v::mul(a.keep(beta), a.load(y))));
    }
};

template <class v>
[[gnu::always_inline]] inline void saxpby_line_body(const int64_t *pn, const float *palpha, const float *x,
                                                    const int64_t *pincx, const float *pbeta, float *y,
                                                    const int64_t *pincy)
{
    const int64_t n = *pn;
    if (n <= 0)
        return;
    const int64_t incx = *pincx, incy = *pincy;
    const float alpha = *palpha, beta = *pbeta;
    if (beta == 0.0f) {
        if (dense(x, incx, y, incy))
            dense_line<v>(scale_line_op<v>{v::set1(alpha)}, n, x, y);
        else
            strided_by_bits<16>(scale_single{alpha}, n, x, incx, y, incy);
        return;
    }
    if (alpha == 0.0f && beta == 1.0f)
        return;
    if (dense(x, incx, y, incy))
        dense_line<v>(axpby_line_op<v>{v::set1(alpha), v::set1(beta)}, n, x, y);
    else
        strided_by_bits<16>(axpby_single{alpha, beta}, n, x, incx, y, incy);
}
} // namespace
