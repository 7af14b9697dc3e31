// SPDX-License-Identifier: BSD-3-Clause
// x and y exchanged, on the paths with masks.
#pragma once
#include "vector/body/line_loops.h"

namespace
{
struct swap_single {
    void one(float *x, float *y) const
    {
        const float x_1 = load_one(x), y_1 = load_one(y);
        store_one(x, y_1);
        store_one(y, x_1);
    }
};

template <class v> struct swap_line_op {
    static constexpr bool in_fours = false;
    template <class access> void at(const access &a, float *x, float *y) const
    {
        const typename v::reg x_v = a.load(x), y_v = a.load(y);
        a.store(x, y_v);
        a.store(y, x_v);
    }
};

// round: elements of a round of the main loop.
template <class v, int round>
[[gnu::always_inline]] inline void sswap_line_body(const int64_t *pn, float *x, const int64_t *pincx, float *y,
                                                   const int64_t *pincy)
{
    int64_t n = *pn;
    if (n <= 0)
        return;
    const int64_t incx = *pincx, incy = *pincy;
    const swap_line_op<v> f;
    if (same_unit(incx, incy) && word_aligned(x) && word_aligned(y)) {
        peel_line<v>(f, n, x, y);
        line_loop<v, round>(f, n, x, y);
        return;
    }
    strided_by_bits<16>(swap_single(), n, x, incx, y, incy);
}
} // namespace
