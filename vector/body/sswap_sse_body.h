// SPDX-License-Identifier: BSD-3-Clause
// x and y exchanged, with 4-lane registers.
#pragma once
#include "vector/body/quad_loops.h"

namespace
{
struct swap_sse_op {
    void one(float *x, float *y) const
    {
        const float x_1 = load_one(x), y_1 = load_one(y);
        store_one(x, y_1);
        store_one(y, x_1);
    }
};

// y is aligned.
template <bool x_aligned> inline void swap_quads(int64_t &n, float *&x, float *&y)
{
    for (; n >= 4; n -= 4, x += 4, y += 4) {
        const __m128 x_v = quad_load<x_aligned>(x), y_v = _mm_load_ps(y);
        quad_store<x_aligned>(x, y_v);
        _mm_store_ps(y, x_v);
    }
}

[[gnu::always_inline]] inline void sswap_sse_body(const int64_t *pn, float *x, const int64_t *pincx, float *y,
                                                  const int64_t *pincy)
{
    int64_t n = *pn;
    if (n <= 0)
        return;
    const int64_t incx = *pincx, incy = *pincy;
    const swap_sse_op f;
    if (same_unit(incx, incy) && word_aligned(x) && word_aligned(y)) {
        const int64_t k = elements_to<16>(y, n);
        strided<1>(f, k, x, 1, y, 1);
        x += k;
        y += k;
        n -= k;
        if (on_boundary<16>(x))
            swap_quads<true>(n, x, y);
        else
            swap_quads<false>(n, x, y);
        strided<1>(f, n, x, 1, y, 1);
        return;
    }
    strided<5>(f, n, x, incx, y, incy);
}
} // namespace
