// SPDX-License-Identifier: BSD-3-Clause
// Single elements, at addresses of any alignment, and the loop over them for strides and for what no register loop
// takes.
#pragma once
#include "frame/path/path_util.h"

namespace
{
inline float load_one(const float *p)
{
    float x;
    __builtin_memcpy(&x, p, sizeof x);
    return x;
}
inline void store_one(float *p, float x)
{
    __builtin_memcpy(p, &x, sizeof x);
}

// A vector whose address is no multiple of 4 never meets a register boundary.
inline bool word_aligned(const void *p)
{
    return (reinterpret_cast<uintptr_t>(p) & 3) == 0;
}
template <int boundary> inline bool on_boundary(const void *p)
{
    return (reinterpret_cast<uintptr_t>(p) & (boundary - 1)) == 0;
}
// Elements from p to the next multiple of boundary bytes, at most n; p is word aligned.
template <int boundary> inline int64_t elements_to(const float *p, int64_t n)
{
    const int64_t k = static_cast<int64_t>((0 - reinterpret_cast<uintptr_t>(p)) & (boundary - 1)) / 4;
    return k < n ? k : n;
}
// |inc|, defined for every value.
inline int64_t magnitude(int64_t inc)
{
    return inc < 0 ? static_cast<int64_t>(0 - static_cast<uint64_t>(inc)) : inc;
}
// Both vectors lie densely and their elements meet in the order of memory.
inline bool same_unit(int64_t incx, int64_t incy)
{
    return incx == incy && (incx == 1 || incx == -1);
}

// An operation on the elements of x and y has a member one(x, y) for the element at x and y. Elements are done strictly
// in order, each after the stores of the one before: increments of 0 and overlapping vectors rest on it.
template <int count, class op, class element>
inline void some_elements(const op &f, element *&x, int64_t incx, float *&y, int64_t incy)
{
#pragma GCC unroll 16
    for (int u = 0; u < count; ++u) {
        f.one(x, y);
        x += incx;
        y += incy;
    }
}

// round elements a round, then the rest by the bits of its count. x and y are the arrays as
// the caller gave them. Out of line, as the unit-stride loops are the ones to be kept short.
template <int round, class op, class element>
[[gnu::noinline]] void strided_by_bits(op f, int64_t n, element *x, int64_t incx, float *y, int64_t incy)
{
    x += first_index(n, incx);
    y += first_index(n, incy);
    for (int64_t r = n / round; r > 0; --r)
        some_elements<round>(f, x, incx, y, incy);
    if (round > 8 && (n & 8) != 0)
        some_elements<8>(f, x, incx, y, incy);
    if (round > 4 && (n & 4) != 0)
        some_elements<4>(f, x, incx, y, incy);
    if ((n & 2) != 0)
        some_elements<2>(f, x, incx, y, incy);
    if ((n & 1) != 0)
        f.one(x, y);
}

// round elements a round, then one at a time.
template <int round, class op, class element>
[[gnu::noinline]] void strided(op f, int64_t n, element *x, int64_t incx, float *y, int64_t incy)
{
    x += first_index(n, incx);
    y += first_index(n, incy);
    for (; n >= round; n -= round)
        some_elements<round>(f, x, incx, y, incy);
    for (; n > 0; --n)
        some_elements<1>(f, x, incx, y, incy);
}
} // namespace
