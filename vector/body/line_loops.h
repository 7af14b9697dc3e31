// SPDX-License-Identifier: BSD-3-Clause
// Unit-stride loops of the paths with masks. Their operations have a member at(access, x, y) that loads a register of
// elements at x and y, and stores the results, through one of the accesses below; with in_fours, four(x, y) does so for
// four whole registers. Loads and stores are unaligned in form. The written vector y is brought to a register boundary
// first, because a store that crosses a line costs more than a load that does. Lanes that an access leaves out are
// loaded as zero; factors go through its keep, which makes them zero there too,
// as an infinite factor would raise a flag.
#pragma once
#include "vector/body/element.h"

namespace
{
// A whole register.
template <class v> struct whole_access {
    typename v::reg load(const float *p) const { return v::load(p); }
    void store(float *p, typename v::reg x) const { v::store(p, x); }
    typename v::reg keep(typename v::reg x) const { return x; }
};
// The lanes of a mask.
template <class v> struct masked_access {
    typename v::mask lanes;
    typename v::reg load(const float *p) const { return v::load(p, lanes); }
    void store(float *p, typename v::reg x) const { v::store(p, x, lanes); }
    typename v::reg keep(typename v::reg x) const { return v::keep(x, lanes); }
};
// The lower half of a register of 16. A load that follows a store under a mask waits until the store is through; behind
// this one it does not, and a rest of just 8 is frequent.
template <class v> struct half_access {
    typename v::reg load(const float *p) const { return v::load_half(p); }
    void store(float *p, typename v::reg x) const { v::store_half(p, x); }
    typename v::reg keep(typename v::reg x) const { return v::keep_half(x); }
};

// Up to y's next register boundary, with one masked operation.
template <class v, class op, class element> inline void peel_line(const op &f, int64_t &n, element *&x, float *&y)
{
    if (on_boundary<4 * v::width>(y))
        return;
    const int64_t k = elements_to<4 * v::width>(y, n);
    f.at(masked_access<v>{v::first(k)}, x, y);
    x += k;
    y += k;
    n -= k;
}

// Four registers at a time where the operation has a form for them.
template <class v, int count, class op, class element> inline void whole_elements(const op &f, element *&x, float *&y)
{
    if constexpr (op::in_fours && count >= 4 * v::width) {
#pragma GCC unroll 4
        for (int u = 0; u < count; u += 4 * v::width)
            f.four(x + u, y + u);
    } else {
#pragma GCC unroll 16
        for (int u = 0; u < count; u += v::width)
            f.at(whole_access<v>(), x + u, y + u);
    }
    x += count;
    y += count;
}

// The rest of fewer than 2*count elements, by the bits of its count; the last ones with one masked operation. Set bits
// are expected, so that what is done is done in line and what is not costs one jump.
template <class v, int count, class op, class element>
inline void rest_of_line(const op &f, int64_t n, element *x, float *y)
{
    if constexpr (count >= v::width) {
        if (__builtin_expect((n & count) != 0, 1))
            whole_elements<v, count>(f, x, y);
        rest_of_line<v, count / 2>(f, n, x, y);
    } else {
        n &= v::width - 1;
        if (n == 0)
            return;
        if constexpr (v::width == 16)
            if (n == 8) {
                f.at(half_access<v>(), x, y);
                return;
            }
        f.at(masked_access<v>{v::first(n)}, x, y);
    }
}

// round elements a round, then the rest.
template <class v, int round, class op, class element>
inline void line_loop(const op &f, int64_t n, element *x, float *y)
{
    for (; n >= round; n -= round)
        whole_elements<v, round>(f, x, y);
    if (n != 0)
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
