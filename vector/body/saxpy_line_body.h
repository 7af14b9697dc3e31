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

template <class v, bool fours> struct axpy_line_op {
    static constexpr bool in_fours = fours;
    typename v::reg alpha;
    template <class access> void at(const access &a, const float *x, float *y) const
    {
        a.store(y, v::mul_add(a.keep(alpha), a.load(x), a.load(y)));
    }
    // All loads before all stores.
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

// Registers of 16 from an x that crosses lines are loaded four at a time, as loads that take turns with stores fall
// behind there, most where x follows y closely in the low twelve bits of its address (n = 4000: 112 ns instead of 151).
// Whole lines lose by it (77 ns instead of 69), and so do vectors past the first-level cache and registers of 8, of
// which two stores fill a line.
template <class v> [[gnu::always_inline]] inline void axpy_line(float alpha, int64_t n, const float *x, float *y)
{
    constexpr int64_t most_in_first_cache = 5 * 1024; // elements, with as many of the other vector
    const axpy_line_op<v, false> f = {v::set1(alpha)};
    peel_line<v>(f, n, x, y);
    if (v::width == 16 && !on_boundary<4 * v::width>(x) && n <= most_in_first_cache)
        line_loop<v, 64>(axpy_line_op<v, true>{f.alpha}, n, x, y);
    else
        line_loop<v, 64>(f, n, x, y);
}

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
        axpy_line<v>(alpha, n, x, y);
    else
        strided_by_bits<16>(axpy_single{alpha}, n, x, incx, y, incy);
}
} // namespace
