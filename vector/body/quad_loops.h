// SPDX-License-Identifier: BSD-3-Clause
// Unit-stride loops of 4-lane registers, for operations as in saxpby_sse_op.h.
#pragma once
#include "vector/body/element.h"
#include <immintrin.h>

namespace
{
template <bool aligned> inline __m128 quad_load(const float *p)
{
    return aligned ? _mm_load_ps(p) : _mm_loadu_ps(p);
}
template <bool aligned> inline void quad_store(float *p, __m128 x)
{
    if (aligned)
        _mm_store_ps(p, x);
    else
        _mm_storeu_ps(p, x);
}

template <bool x_aligned, bool y_aligned, class op> inline void quad(const op &f, const float *x, float *y)
{
    __m128 y_v = _mm_setzero_ps();
    if constexpr (op::reads_y)
        y_v = quad_load<y_aligned>(y);
    quad_store<y_aligned>(y, f.vector(quad_load<x_aligned>(x), y_v));
}

// Rounds of round elements while as many are left.
template <int round, bool x_aligned, bool y_aligned, class op>
inline void quad_rounds(const op &f, int64_t &n, const float *&x, float *&y)
{
    for (; n >= round; n -= round, x += round, y += round)
#pragma GCC unroll 16
        for (int u = 0; u < round; u += 4)
            quad<x_aligned, y_aligned>(f, x + u, y + u);
}

template <class op> inline void singles(const op &f, int64_t n, const float *x, float *y)
{
    for (; n > 0; --n, ++x, ++y)
        f.one(x, y);
}

// Up to y's 16-byte boundary: 0 to 3 elements.
template <class op> inline void peel_quad(const op &f, int64_t &n, const float *&x, float *&y)
{
    const int64_t k = elements_to<16>(y, n);
    switch (k) {
    case 3:
        some_elements<1>(f, x, 1, y, 1);
        [[fallthrough]];
    case 2:
        some_elements<1>(f, x, 1, y, 1);
        [[fallthrough]];
    case 1:
        some_elements<1>(f, x, 1, y, 1);
        [[fallthrough]];
    default:
        n -= k;
    }
}
} // namespace
