// SPDX-License-Identifier: BSD-3-Clause
// y := x on the paths with masks; no store bypasses the caches.
#pragma once
#include "vector/body/line_loops.h"

namespace
{
// Up to here a copy or a fill lives in the first cache level, and unrolling and alignment pay [elements]. Beyond, the plain
// loop of one register a round is as fast as memory. n*4 bytes of it are compared with 15000.
constexpr int64_t scopy_small = 15000 / 4;

struct copy_single {
    void one(const float *x, float *y) const { store_one(y, load_one(x)); }
};

template <class v> struct copy_line_op {
    void whole(const float *x, float *y) const { v::store(y, v::load(x)); }
    void some(const float *x, float *y, typename v::mask m) const { v::store(y, v::load(x, m), m); }
};

template <class v> struct fill_line_op {
    typename v::reg value;
    void whole(const float *, float *y) const { v::store(y, value); }
    void some(const float *, float *y, typename v::mask m) const { v::store(y, value, m); }
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

// One register a round, and a masked rest.
template <class v, class op> inline void plain_rounds(const op &f, int64_t &n, const float *&x, float *&y)
{
#pragma GCC unroll 1
    for (; n >= v::width; n -= v::width) {
        f.whole(x, y);
        x += v::width;
        y += v::width;
    }
}

template <class v> inline void sfill(int64_t n, float value, float *y)
{
    const fill_line_op<v> f = {v::set1(value)};
    const float *none = nullptr;
    if (n <= scopy_small)
        for (; n >= 4 * v::width; n -= 4 * v::width)
#pragma GCC unroll 4
            for (int u = 0; u < 4; ++u, y += v::width)
                f.whole(none, y);
#pragma GCC unroll 1
    for (; n >= v::width; n -= v::width, y += v::width)
        f.whole(none, y);
    if (n < 5) {
        for (; n > 0; --n, ++y)
            store_one(y, value);
    } else {
        f.some(none, y, v::first(n));
    }
}

template <class v>
[[gnu::always_inline]] inline void scopy_line_body(const int64_t *pn, const float *x, const int64_t *pincx, float *y,
                                                   const int64_t *pincy)
{
    int64_t n = *pn;
    if (n <= 0)
        return;
    const int64_t incx = *pincx, incy = *pincy;
    if (incy == 1 && incx == 1) {
        if (n <= scopy_small) {
            scopy_unrolled<v>(n, x, y);
            return;
        }
        const copy_line_op<v> f;
        plain_rounds<v>(f, n, x, y);
        if (n != 0)
            f.some(x, y, v::first(n));
    } else if (incy == 1 && incx == 0) {
        sfill<v>(n, load_one(x), y);
    } else {
        strided_by_bits<8>(copy_single(), n, x, incx, y, incy);
    }
}
} // namespace
