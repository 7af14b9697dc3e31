// SPDX-License-Identifier: BSD-3-Clause
// sqrt(sum x(i)^2) with 2-lane double registers, product and sum rounded apart (the product is exact).
//
// Element i is always added to chain i mod 16 of sixteen, in order, whatever the address of x: the peel to a 16-byte
// boundary turns the lanes against the chains, and the last step turns them back.
// So the bits do not depend on alignment.
#pragma once
#include "vector/body/element.h"
#include "vector/body/square_root.h"

namespace
{
constexpr int snrm2_chains = 16;

inline double square_of(const float *x)
{
    const double value = static_cast<double>(load_one(x));
    return value * value;
}

inline __m128d add_two_squares(const float *x, __m128d acc)
{
    const __m128d value = _mm_cvtps_pd(_mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(x))));
    return _mm_add_pd(acc, _mm_mul_pd(value, value));
}

inline void add_sixteen_squares(const float *x, __m128d *acc)
{
#pragma GCC unroll 8
    for (int u = 0; u < 8; ++u)
        acc[u] = add_two_squares(x + 2 * u, acc[u]);
}

// The chains added pairwise: as eight registers of two lanes, neighbours first, the two lanes last.
inline double sum_chains(const double *sums, int64_t peeled)
{
    double chain[snrm2_chains];
    for (int c = 0; c < snrm2_chains; ++c)
        chain[c] = sums[(c - peeled) & (snrm2_chains - 1)];
    for (int step = 2; step < snrm2_chains; step *= 2)
        for (int c = 0; c < snrm2_chains; c += 2 * step) {
            chain[c] += chain[c + step];
            chain[c + 1] += chain[c + step + 1];
        }
    return chain[0] + chain[1];
}

inline double sum_of_squares_unit(int64_t n, const float *x)
{
    double sums[snrm2_chains] = {};
    const int64_t peeled = word_aligned(x) ? elements_to<16>(x, n) : 0;
    for (int64_t i = 0; i < peeled; ++i)
        sums[snrm2_chains - peeled + i] = square_of(x + i);
    x += peeled;
    n -= peeled;
    if (n >= 16) {
        __m128d acc[8];
#pragma GCC unroll 8
        for (int u = 0; u < 8; ++u)
            acc[u] = _mm_loadu_pd(sums + 2 * u);
        for (; n >= 32; n -= 32, x += 32) {
            add_sixteen_squares(x, acc);
            add_sixteen_squares(x + 16, acc);
        }
        if ((n & 16) != 0) {
            add_sixteen_squares(x, acc);
            n -= 16;
            x += 16;
        }
#pragma GCC unroll 8
        for (int u = 0; u < 8; ++u)
            _mm_storeu_pd(sums + 2 * u, acc[u]);
    }
    for (int64_t i = 0; i < n; ++i)
        sums[i] += square_of(x + i);
    return sum_chains(sums, peeled);
}

// Two sums, of the even and of the odd elements; a single left-over goes to the first.
inline double sum_of_squares_strided(int64_t n, const float *x, int64_t incx)
{
    double even = 0.0, odd = 0.0;
    for (; n >= 2; n -= 2, x += 2 * incx) {
        even += square_of(x);
        odd += square_of(x + incx);
    }
    if (n == 1)
        even += square_of(x);
    return even + odd;
}

[[gnu::always_inline]] inline float snrm2_sse_body(const int64_t *pn, const float *x, const int64_t *pincx)
{
    const int64_t n = *pn;
    if (n <= 0)
        return 0.0f;
    const int64_t incx = magnitude(*pincx);
    return square_root(incx == 1 ? sum_of_squares_unit(n, x) : sum_of_squares_strided(n, x, incx));
}
} // namespace
