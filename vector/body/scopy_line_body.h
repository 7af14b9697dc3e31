// SPDX-License-Identifier: BSD-3-Clause
// y := x on the paths with masks; no store bypasses the caches.
#pragma once
#include "vector/body/line_loops.h"

namespace
{
// Up to here a copy or a fill lives in the first cache level, and unrolling and alignment pay [elements]. Beyond, the
// plain loop of one register a round is as fast as memory. n*4 bytes of it are compared with 15000.
constexpr int64_t scopy_small = 15000 / 4;

struct copy_single {
    void one(const float *x, float *y) const { store_one(y, load_one(x)); }
};

template <class v> struct copy_line_op {
    static constexpr bool in_fours = false;
    template <class access> void at(const access &a, const float *x, float *y) const { a.store(y, a.load(x)); }
};

template <class v> inline void scopy_unrolled(int64_t n, const float *x, float *y)
{
    const copy_line_op<v> f;
    if (!word_aligned(x) || !word_aligned(y)) {
        line_loop<v, 128>(f, n, x, y);
        return;
    }
    peel_line<v>(f, n, x, y);
    line_loop<v, 64>(f, n, x, y);
}

// One register a round, and a masked rest. One index serves both arrays and the end, so that a round is four
// instructions.
template <class v> inline void scopy_plain(int64_t n, const float *x, float *y)
{
    const int64_t whole = n & -v::width;
    int64_t i = 0;
#pragma GCC unroll 1
    do {
        v::store(y + i, v::load(x + i));
        i += v::width;
    } while (i != whole);
    if (i != n)
        copy_line_op<v>().at(masked_access<v>{v::first(n - i)}, x + i, y + i);
}

template <class v> inline void sfill(int64_t n, float value, float *y)
{
    const typename v::reg value_v = v::set1(value);
    if (n <= scopy_small)
        for (; n >= 4 * v::width; n -= 4 * v::width)
#pragma GCC unroll 4
            for (int u = 0; u < 4; ++u, y += v::width)
                v::store(y, value_v);
#pragma GCC unroll 1
    for (; n >= v::width; n -= v::width, y += v::width)
        v::store(y, value_v);
    if (n >= 5) {
        v::store(y, value_v, v::first(n));
        return;
    }
    for (; n > 0; --n, ++y)
        store_one(y, value);
}

template <class v>
[[gnu::always_inline]] inline void scopy_line_body(const int64_t *pn, const float *x, const int64_t *pincx, float *y,
                                                   const int64_t *pincy)
{
    const int64_t n = *pn;
    if (n <= 0)
        return;
    const int64_t incx = *pincx, incy = *pincy;
    if (__builtin_expect(incx == 1 && incy == 1, 1)) {
        if (n <= scopy_small) {
            scopy_unrolled<v>(n, x, y);
            return;
        }
        scopy_plain<v>(n, x, y);
    } else if (incy == 1 && incx == 0) {
        sfill<v>(n, load_one(x), y);
    } else {
        strided_by_bits<8>(copy_single(), n, x, incx, y, incy);
    }
}
} // namespace
