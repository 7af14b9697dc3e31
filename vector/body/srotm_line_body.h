// SPDX-License-Identifier: BSD-3-Clause
// Modified rotation on the paths with masks. param holds a flag and h11, h21, h12, h22:
//   flag < 0   x' = fma(y, h12, h11*x), y' = fma(h22, y, h21*x)
//   flag = 0   h11 = h22 = 1:           x' = fma(y, h12, x), y' = y + h21*x
//   flag > 0   h12 = 1, h21 = -1:       x' = y + h11*x,      y' = fma(h22, y, -x)
// The product with x is rounded under every flag, so that a unit entry gives the bits of a full matrix that holds it.
//   flag = -2  nothing
#pragma once
#include "vector/body/line_loops.h"

namespace
{
enum class rotation { full, unit_diagonal, unit_off_diagonal };

template <rotation form> struct rotate_single {
    float h11, h21, h12, h22;
    void one(float *x, float *y) const
    {
        const float w = load_one(x), z = load_one(y);
        if constexpr (form == rotation::full) {
            store_one(x, __builtin_fmaf(z, h12, h11 * w));
            store_one(y, __builtin_fmaf(h22, z, h21 * w));
        } else if constexpr (form == rotation::unit_diagonal) {
            store_one(x, __builtin_fmaf(z, h12, w));
            store_one(y, z + h21 * w);
        } else {
            store_one(x, z + h11 * w);
            store_one(y, __builtin_fmaf(h22, z, -w));
        }
    }
};

// fours: four registers are loaded before any is stored. Loads of 16 lanes that cross lines gain by it, others lose.
template <class v, rotation form, bool fours> struct rotate_line_op {
    static constexpr bool in_fours = fours;
    typename v::reg h11, h21, h12, h22;
    // The new x into x, the new y into y.
    template <class access> void turn(const access &a, typename v::reg &x, typename v::reg &y) const
    {
        const typename v::reg old = x;
        if constexpr (form == rotation::full) {
            x = v::mul_add(y, a.keep(h12), v::mul(a.keep(h11), old));
            y = v::mul_add(a.keep(h22), y, v::mul(a.keep(h21), old));
        } else if constexpr (form == rotation::unit_diagonal) {
            x = v::mul_add(y, a.keep(h12), old);
            y = v::add(y, v::mul(a.keep(h21), old));
        } else {
            x = v::add(y, v::mul(a.keep(h11), old));
            y = v::mul_sub(a.keep(h22), y, old);
        }
    }
    template <class access> void at(const access &a, float *x, float *y) const
    {
        typename v::reg x_v = a.load(x), y_v = a.load(y);
        // Each is used twice: kept from being loaded once for each use.
        __asm__("" : "+x"(x_v), "+x"(y_v));
        turn(a, x_v, y_v);
        a.store(x, x_v);
        a.store(y, y_v);
    }
    void four(float *x, float *y) const
    {
        typename v::reg x_v[4], y_v[4];
#pragma GCC unroll 4
        for (int r = 0; r < 4; ++r) {
            x_v[r] = v::load(x + r * v::width);
            y_v[r] = v::load(y + r * v::width);
            __asm__("" : "+x"(x_v[r]), "+x"(y_v[r]));
        }
#pragma GCC unroll 4
        for (int r = 0; r < 4; ++r) {
            turn(whole_access<v>(), x_v[r], y_v[r]);
            v::store(x + r * v::width, x_v[r]);
            v::store(y + r * v::width, y_v[r]);
        }
    }
};

template <rotation form>
[[gnu::noinline]] void rotate_strided(int64_t n, float *x, int64_t incx, float *y, int64_t incy, const float *h)
{
    strided_by_bits<16>(rotate_single<form>{h[0], h[1], h[2], h[3]}, n, x, incx, y, incy);
}

// Out of line, as three copies in one function would share its registers and its frame. The entries are read one by
// one: the caller has often just stored them one by one.
template <class v, rotation form>
[[gnu::noinline]] void rotate_line(int64_t n, float *x, int64_t incx, float *y, int64_t incy, const float *h)
{
    if (__builtin_expect(incx != 1 || incy != 1, 0)) {
        rotate_strided<form>(n, x, incx, y, incy, h);
        return;
    }
    const typename v::reg h11 = v::broadcast(h), h21 = v::broadcast(h + 1), h12 = v::broadcast(h + 2),
                          h22 = v::broadcast(h + 3);
    const rotate_line_op<v, form, false> f = {h11, h21, h12, h22};
    if (!on_boundary<4 * v::width>(y) && word_aligned(y))
        peel_line<v>(f, n, x, y);
    if (v::width == 16 && !on_boundary<4 * v::width>(x))
        line_loop<v, 64>(rotate_line_op<v, form, true>{h11, h21, h12, h22}, n, x, y);
    else
        line_loop<v, 64>(f, n, x, y);
}

template <class v>
[[gnu::always_inline]] inline void srotm_line_body(const int64_t *pn, float *x, const int64_t *pincx, float *y,
                                                   const int64_t *pincy, const float *param)
{
    const int64_t n = *pn;
    if (n <= 0)
        return;
    const float flag = param[0];
    if (flag + 2.0f == 0.0f)
        return;
    const int64_t incx = *pincx, incy = *pincy;
    if (flag < 0.0f)
        rotate_line<v, rotation::full>(n, x, incx, y, incy, param + 1);
    else if (flag == 0.0f)
        rotate_line<v, rotation::unit_diagonal>(n, x, incx, y, incy, param + 1);
    else
        rotate_line<v, rotation::unit_off_diagonal>(n, x, incx, y, incy, param + 1);
}
} // namespace
