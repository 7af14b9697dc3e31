// SPDX-License-Identifier: BSD-3-Clause
// Plane rotation: x := c*x + s*y, y := c*y - s*x, from the old values; each product and sum rounded apart.
#pragma once
#include "vector/body/quad_loops.h"

namespace
{
struct rotate_sse_op {
    float c, s;
    __m128 c_v, s_v;
    rotate_sse_op(float cosine, float sine) : c(cosine), s(sine), c_v(_mm_set1_ps(cosine)), s_v(_mm_set1_ps(sine)) {}
    void one(float *x, float *y) const
    {
        const float w = load_one(x), z = load_one(y);
        store_one(y, c * z - s * w);
        store_one(x, w * c + z * s);
    }
    // y is aligned.
    template <bool x_aligned> void quads(int64_t &n, float *&x, float *&y) const
    {
        for (; n >= 4; n -= 4, x += 4, y += 4) {
            const __m128 w = quad_load<x_aligned>(x), z = _mm_load_ps(y);
            _mm_store_ps(y, _mm_sub_ps(_mm_mul_ps(c_v, z), _mm_mul_ps(s_v, w)));
            quad_store<x_aligned>(x, _mm_add_ps(_mm_mul_ps(w, c_v), _mm_mul_ps(z, s_v)));
        }
    }
};

[[gnu::always_inline]] inline void srot_sse_body(const int64_t *pn, float *x, const int64_t *pincx, float *y,
                                                 const int64_t *pincy, const float *pc, const float *ps)
{
    int64_t n = *pn;
    if (n <= 0)
        return;
    const int64_t incx = *pincx, incy = *pincy;
    const rotate_sse_op f(*pc, *ps);
    if (incx != 1 || incy != 1) {
        strided<1>(f, n, x, incx, y, incy);
        return;
    }
    if (n >= 4 && word_aligned(y)) {
        const int64_t k = elements_to<16>(y, n);
        strided<1>(f, k, x, 1, y, 1);
        x += k;
        y += k;
        n -= k;
        if (on_boundary<16>(x))
            f.quads<true>(n, x, y);
        else
            f.quads<false>(n, x, y);
    }
    strided<1>(f, n, x, 1, y, 1);
}
} // namespace
