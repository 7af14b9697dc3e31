// SPDX-License-Identifier: BSD-3-Clause
// y := alpha*x + y on the paths with masks: fma(alpha, x, y).
#pragma once
#include "vector/body/line_loops.h"

namespace
{
struct axpy_single {
    float alpha;
    void one(const float *x, float *y) const { store_one(y, __builtin_fmaf(alpha, load_one(x), load_one(y))); }
};

template <class v> struct axpy_line_op {
    typename v::reg alpha;
    template <class access> void at(const access &a, const float *x, float *y) const
    {
        a.store(y, v::mul_add(a.keep(alpha), a.load(x), a.load(y)));
    }
};

template <class v>
[[gnu::always_inline]] inline void saxpy_line_body(const int64_t *pn, const float *palpha, const float *x,
                                                   const int64_t *pincx, float *y, const int64_t *pincy)
{
    const int64_t n = *pn;
    if (n <= 0)
        return;
    const float alpha = *palpha;
    if (alpha == 0.0f)
        return;
    const int64_t incx = *pincx, incy = *pincy;
    if (dense(x, incx, y, incy))
        dense_line<v>(axpy_line_op<v>{v::set1(alpha)}, n, x, y);
    else
        strided_by_bits<16>(axpy_single{alpha}, n, x, incx, y, incy);
}
} // namespace
