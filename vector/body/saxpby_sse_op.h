// SPDX-License-Identifier: BSD-3-Clause
// alpha*x and alpha*x + beta*y as operations of the 4-lane loops: product and sum rounded apart.
//   vector(x, y)   a register of results; y is not looked at where reads_y is false
//   one(x, y)      the element at x and y
#pragma once
#include "vector/body/element.h"
#include <immintrin.h>

namespace
{
struct scale_sse_op {
    static constexpr bool reads_y = false;
    float alpha;
    __m128 alpha_v;
    explicit scale_sse_op(float a) : alpha(a), alpha_v(_mm_set1_ps(a)) {}
    __m128 vector(__m128 x, __m128) const { return _mm_mul_ps(x, alpha_v); }
    void one(const float *x, float *y) const { store_one(y, load_one(x) * alpha); }
};

struct axpby_sse_op {
    static constexpr bool reads_y = true;
    __m128 alpha_v, beta_v;
    __m128 pair; // beta, alpha, 0, 0
    axpby_sse_op(float a, float b) : alpha_v(_mm_set1_ps(a)), beta_v(_mm_set1_ps(b))
    {
        pair = _mm_unpacklo_ps(_mm_set_ss(b), _mm_set_ss(a));
    }
    __m128 vector(__m128 x, __m128 y) const { return _mm_add_ps(_mm_mul_ps(y, beta_v), _mm_mul_ps(x, alpha_v)); }
    // Both products at once: beta*y in lane 0, alpha*x in lane 1.
    void one(const float *x, float *y) const
    {
        const __m128 both = _mm_unpacklo_ps(_mm_set_ss(load_one(y)), _mm_set_ss(load_one(x)));
        const __m128 products = _mm_mul_ps(both, pair);
        store_one(y, _mm_cvtss_f32(_mm_add_ss(products, _mm_shuffle_ps(products, products, 1))));
    }
};

struct axpy_sse_op {
    static constexpr bool reads_y = true;
    float alpha;
    __m128 alpha_v;
    explicit axpy_sse_op(float a) : alpha(a), alpha_v(_mm_set1_ps(a)) {}
    __m128 vector(__m128 x, __m128 y) const { return _mm_add_ps(y, _mm_mul_ps(x, alpha_v)); }
    void one(const float *x, float *y) const { store_one(y, load_one(y) + load_one(x) * alpha); }
};

struct copy_sse_op {
    static constexpr bool reads_y = false;
    __m128 vector(__m128 x, __m128) const { return x; }
    void one(const float *x, float *y) const { store_one(y, load_one(x)); }
};
} // namespace
