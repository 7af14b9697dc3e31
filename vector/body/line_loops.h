// SPDX-License-Identifier: BSD-3-Clause
// Unit-stride loops of the paths with masks. Their operations have
//   whole(x, y)        a whole register of elements at x and y
//   some(x, y, mask)   the elements of the mask
// Loads and stores are unaligned in form. The written vector y is brought to a register boundary first, because a store
// that crosses a line costs more than a load that does.
#pragma once
#include "vector/body/element.h"

namespace
{
// Up to y's next register boundary, with one masked operation.
template <class v, class op, class element> inline void peel_line(const op &f, int64_t &n, element *&x, float *&y)
{
    const int64_t k = elements_to<4 * v::width>(y, n);
    if (k == 0)
        return;
    f.some(x, y, v::first(k));
    x += k;
    y += k;
    n -= k;
}

template <class v, int count, class op, class element> inline void whole_elements(const op &f, element *&x, float *&y)
{
#pragma GCC unroll 16
    for (int u = 0; u < count; u += v::width)
        f.whole(x + u, y + u);
    x += count;
    y += count;
}

// The rest of fewer than 2*count elements, by the bits of its count; the last ones with one masked operation.
template <class v, int count, class op, class element>
inline void rest_of_line(const op &f, int64_t n, element *x, float *y)
{
    if constexpr (count >= v::width) {
        if ((n & count) != 0)
            whole_elements<v, count>(f, x, y);
        rest_of_line<v, count / 2>(f, n, x, y);
    } else {
        n &= v::width - 1;
        if (n != 0)
            f.some(x, y, v::first(n));
    }
}

// round elements a round, then the rest.
template <class v, int round, class op, class element>
inline void line_loop(const op &f, int64_t n, element *x, float *y)
{
    for (; n >= round; n -= round)
        whole_elements<v, round>(f, x, y);
    rest_of_line<v, round / 2>(f, n, x, y);
}

// Unit stride with whole elements at both addresses: what the loops above are for.
inline bool dense(const float *x, int64_t incx, const float *y, int64_t incy)
{
    return __builtin_expect(incx == 1 && incy == 1 && word_aligned(x) && word_aligned(y), 1);
}

// All of a dense vector.
template <class v, class op, class element> inline void dense_line(const op &f, int64_t n, element *x, float *y)
{
    peel_line<v>(f, n, x, y);
    line_loop<v, 64>(f, n, x, y);
}
} // namespace
