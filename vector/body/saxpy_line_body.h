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
    static constexpr bool in_fours = v::width == 16; // 8 lanes fill a line with two stores, and lose
    typename v::reg alpha;
    template <class access> void at(const access &a, const float *x, float *y) const
    {
        a.store(y, v::mul_add(a.keep(alpha), a.load(x), a.load(y)));
    }
    // All loads before all stores: loads that take turns with stores fall behind, most where they cross lines.
    void four(const float *x, float *y) const
    {
        typename v::reg sum[4];
#pragma GCC unroll 4
        for (int r = 0; r < 4; ++r) {
            sum[r] = v::load(x + r * v::width);
            __asm__("" : "+x"(sum[r])); // kept from becoming the operand in memory instead of y
        }
#pragma GCC unroll 4
        for (int r = 0; r < 4; ++r)
            sum[r] = v::mul_add(sum[r], alpha, v::load(y + r * v::width));
        __asm__("" : "+x"(sum[0]), "+x"(sum[1]), "+x"(sum[2]), "+x"(sum[3]));
#pragma GCC unroll 4
        for (int r = 0; r < 4; ++r)
            v::store(y + r * v::width, sum[r]);
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
