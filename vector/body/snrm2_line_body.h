// SPDX-License-Identifier: BSD-3-Clause
// sqrt(sum x(i)^2) on the paths with masks. Squares of single-precision numbers are exact in double precision and their
// sum cannot overflow there, so nothing is scaled; the root is rounded to single precision once.
//
// d holds the double-precision registers of a path: reg, width, accumulators (all lanes together take 32 elements),
//   squares(p, acc)     acc + the squares of the width elements at p
//   squares_4(p, acc), squares_2(p, acc)   the same of 4 and of 2 elements, in the lowest lanes
//   add(x, y), sum(x)   the sum of two registers and of the lanes of one
#pragma once
#include "vector/body/element.h"
#include "vector/body/square_root.h"

namespace
{
constexpr int snrm2_near_bytes = 512, snrm2_far_bytes = 576; // prefetched ahead of the loads: the two lines of a round

template <class d, int count> inline void add_squares(const float *&x, typename d::reg *acc)
{
#pragma GCC unroll 8
    for (int u = 0; u < count / d::width; ++u)
        acc[u] = d::squares(x + u * d::width, acc[u]);
    x += count;
}

template <class d, int count> inline typename d::reg add_pairwise(const typename d::reg *acc)
{
    if constexpr (count == 1)
        return acc[0];
    else
        return d::add(add_pairwise<d, count / 2>(acc), add_pairwise<d, count / 2>(acc + count / 2));
}

template <class d> inline double sum_of_squares_unit(int64_t n, const float *x)
{
    // Tails of 16 elements and fewer need half of the accumulators of the rounds.
    constexpr int count = 32 / d::width, half = count / 2;
    typename d::reg acc[count];
#pragma GCC unroll 8
    for (int i = 0; i < count; ++i)
        acc[i] = d::zero();
    if (n >= 32) {
        for (int64_t r = n / 32; r > 0; --r) {
            _mm_prefetch(reinterpret_cast<const char *>(x) + snrm2_near_bytes, _MM_HINT_T0);
            _mm_prefetch(reinterpret_cast<const char *>(x) + snrm2_far_bytes, _MM_HINT_T0);
            add_squares<d, 32>(x, acc);
        }
#pragma GCC unroll 4
        for (int i = 0; i < half; ++i)
            acc[i] = d::add(acc[i], acc[i + half]);
    }
    if ((n & 16) != 0)
        add_squares<d, 16>(x, acc);
    if ((n & 8) != 0)
        add_squares<d, 8>(x, acc);
    if ((n & 4) != 0) {
        acc[0] = d::squares_4(x, acc[0]);
        x += 4;
    }
    if ((n & 2) != 0) {
        acc[1] = d::squares_2(x, acc[1]);
        x += 2;
    }
    double sum = d::sum(add_pairwise<d, half>(acc));
    if ((n & 1) != 0) {
        const double last = static_cast<double>(load_one(x));
        sum = __builtin_fma(last, last, sum);
    }
    return sum;
}

template <int count> inline double chain_squares(const float *&x, int64_t incx, double sum)
{
#pragma GCC unroll 16
    for (int u = 0; u < count; ++u, x += incx) {
        const double value = static_cast<double>(load_one(x));
        sum = __builtin_fma(value, value, sum);
    }
    return sum;
}

inline double sum_of_squares_strided(int64_t n, const float *x, int64_t incx)
{
    double sum = 0.0;
    for (int64_t r = n / 16; r > 0; --r)
        sum = chain_squares<16>(x, incx, sum);
    if ((n & 8) != 0)
        sum = chain_squares<8>(x, incx, sum);
    if ((n & 4) != 0)
        sum = chain_squares<4>(x, incx, sum);
    if ((n & 2) != 0)
        sum = chain_squares<2>(x, incx, sum);
    if ((n & 1) != 0)
        sum = chain_squares<1>(x, 0, sum);
    return sum;
}

template <class d>
[[gnu::always_inline]] inline float snrm2_line_body(const int64_t *pn, const float *x, const int64_t *pincx)
{
    const int64_t n = *pn;
    if (n <= 0)
        return 0.0f;
    const int64_t incx = magnitude(*pincx);
    return square_root(incx == 1 ? sum_of_squares_unit<d>(n, x) : sum_of_squares_strided(n, x, incx));
}
} // namespace
