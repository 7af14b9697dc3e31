// SPDX-License-Identifier: BSD-3-Clause
// C := alpha*x*y^T + beta*C, column by column: with t = y(j)*alpha, rounded once a column,
//   beta = 0      C(i, j) := x(i)*t                  C is not read
//   beta = 1      C(i, j) := C(i, j) + x(i)*t
//   otherwise     C(i, j) := beta*C(i, j) + x(i)*t
// Product and sum are rounded as the path's mul_add does. The rest of a column goes by one masked register where the
// path has masks (v::first), one by one where it has not.
#pragma once
#include "frame/path/path_util.h"

namespace
{
enum class ger_form { fresh, add, blend }; // beta of 0, of 1, any other

template <class v> struct ger_factors {
    typename v::reg t, beta;
    float t_1, beta_1;
};

template <class v, ger_form form>
inline typename v::reg ger_value(const ger_factors<v> &f, typename v::reg x, typename v::reg c)
{
    if constexpr (form == ger_form::fresh)
        return v::mul(x, f.t);
    else if constexpr (form == ger_form::add)
        return v::mul_add(x, f.t, c);
    else
        return v::mul_add(x, f.t, v::mul(f.beta, c));
}

template <class v, ger_form form> inline void ger_register(const ger_factors<v> &f, typename v::reg x, float *c)
{
    typename v::reg old = x;
    if constexpr (form != ger_form::fresh)
        old = v::load(c);
    v::store(c, ger_value<v, form>(f, x, old));
}

// The last count elements of a column, fewer than a register holds. Lanes beyond them multiply zero by zero: an
// infinite factor raises no flag there.
template <class v, ger_form form> inline void ger_rest(const ger_factors<v> &f, int64_t count, const float *x, float *c)
{
    if constexpr (v::width == 4) {
        for (int64_t i = 0; i < count; ++i) {
            const float product = x[i] * f.t_1;
            if constexpr (form == ger_form::fresh)
                c[i] = product;
            else if constexpr (form == ger_form::add)
                c[i] += product;
            else
                c[i] = f.beta_1 * c[i] + product;
        }
    } else {
        if constexpr (v::width == 16)
            if (count == 8) { // without a mask nothing waits for the store
                const typename v::reg x_v = v::load_half(x);
                const ger_factors<v> inside = {v::keep_half(f.t), v::keep_half(f.beta), f.t_1, f.beta_1};
                typename v::reg old = x_v;
                if constexpr (form != ger_form::fresh)
                    old = v::load_half(c);
                v::store_half(c, ger_value<v, form>(inside, x_v, old));
                return;
            }
        const typename v::mask m = v::first(count);
        const typename v::reg x_v = v::load(x, m);
        const ger_factors<v> inside = {v::keep(f.t, m), v::keep(f.beta, m), f.t_1, f.beta_1};
        typename v::reg old = x_v;
        if constexpr (form != ger_form::fresh)
            old = v::load(c, m);
        v::store(c, ger_value<v, form>(inside, x_v, old), m);
    }
}

template <class v, ger_form form> inline void ger_column(const ger_factors<v> &f, int64_t m, const float *x, float *c)
{
    constexpr int round = 4 * v::width;
    for (; m >= round; m -= round, x += round, c += round)
#pragma GCC unroll 4
        for (int u = 0; u < round; u += v::width)
            ger_register<v, form>(f, v::load(x + u), c + u);
    for (; m >= v::width; m -= v::width, x += v::width, c += v::width)
        ger_register<v, form>(f, v::load(x), c);
    if (m != 0)
        ger_rest<v, form>(f, m, x, c);
}

// Shorter columns are done from the last to the first: the masked rest of a column reaches, in lanes that are off, into
// the column behind it, and a load from there would wait until the store is through. [rows]
constexpr int64_t ger_short_column = 512;

// All columns for m rows; x lies densely, y stands at its first logical element.
template <class v, ger_form form>
inline void ger_columns(int64_t m, int64_t n, float alpha, const float *x, const float *y, int64_t incy, float beta,
                        float *c, int64_t ldc)
{
    ger_factors<v> f;
    f.beta_1 = beta;
    f.beta = v::set1(beta);
    if (m < ger_short_column) {
        y += (n - 1) * incy;
        c += (n - 1) * ldc;
        incy = -incy;
        ldc = -ldc;
    }
    for (int64_t j = 0; j < n; ++j, y += incy, c += ldc) {
        f.t_1 = *y * alpha;
        f.t = v::set1(f.t_1);
        ger_column<v, form>(f, m, x, c);
    }
}

constexpr int64_t ger_gather_rows = 512; // [rows] of a strided x that are read at a time: 2 KiB of stack

// rows elements of x, incx apart, into a dense array: eight pointers, eight elements a round, the rest one by one.
inline void ger_gather(int64_t rows, const float *x, int64_t incx, float *dense)
{
    const float *x0 = x, *x1 = x + incx, *x2 = x + 2 * incx, *x3 = x + 3 * incx;
    const float *x4 = x + 4 * incx, *x5 = x + 5 * incx, *x6 = x + 6 * incx, *x7 = x + 7 * incx;
    const int64_t rest = rows & 7, step = 8 * incx;
    int64_t at = 0;
    for (int64_t r = rows >> 3; r > 0; --r, at += step, dense += 8) {
        dense[0] = x0[at];
        dense[1] = x1[at];
        dense[2] = x2[at];
        dense[3] = x3[at];
        dense[4] = x4[at];
        dense[5] = x5[at];
        dense[6] = x6[at];
        dense[7] = x7[at];
    }
    for (int64_t i = 0; i < rest; ++i, at += incx)
        dense[i] = x0[at];
}

template <class v, ger_form form>
inline void ger_update(int64_t m, int64_t n, float alpha, const float *x, int64_t incx, const float *y, int64_t incy,
                       float beta, float *c, int64_t ldc)
{
    if (incx == 1) {
        ger_columns<v, form>(m, n, alpha, x, y, incy, beta, c, ldc);
        return;
    }
    x += first_index(m, incx);
    for (int64_t rows; m > 0; m -= rows, x += rows * incx, c += rows) {
        float dense[ger_gather_rows];
        rows = min_of(m, ger_gather_rows);
        ger_gather(rows, x, incx, dense);
        ger_columns<v, form>(rows, n, alpha, dense, y, incy, beta, c, ldc);
    }
}

constexpr int64_t ger_fill_rows = 25; // [rows] from here on a column is cleared by a fill

inline void ger_clear(int64_t m, int64_t n, float *c, int64_t ldc)
{
    for (int64_t j = 0; j < n; ++j, c += ldc) {
        if (m >= ger_fill_rows) {
            __builtin_memset(c, 0, static_cast<uint64_t>(m) * sizeof(float));
            continue;
        }
        int64_t i = 0;
        for (; i + 8 <= m; i += 8)
            __builtin_memset(c + i, 0, 8 * sizeof(float)); // one store of 32 bytes, or two of 16
        for (; i < m; ++i)
            c[i] = 0.0f;
    }
}

template <class v> inline void ger_scale(int64_t m, int64_t n, float beta, float *c, int64_t ldc)
{
    // beta*C is the fresh form with C itself in the place of x.
    ger_factors<v> f;
    f.t_1 = f.beta_1 = beta;
    f.t = f.beta = v::set1(beta);
    for (int64_t j = 0; j < n; ++j, c += ldc)
        ger_column<v, ger_form::fresh>(f, m, c, c);
}

template <class v>
[[gnu::always_inline]] inline void
sgemmger_body(const int64_t *pm, const int64_t *pn, const float *palpha, const float *x, const int64_t *pincx,
              const float *y, const int64_t *pincy, const float *pbeta, float *c, const int64_t *pldc)
{
    const int64_t m = *pm, n = *pn;
    if (m < 1 || n < 1)
        return;
    const float alpha = *palpha, beta = *pbeta;
    const int64_t ldc = *pldc;
    if (alpha == 0.0f) {
        if (beta == 0.0f)
            ger_clear(m, n, c, ldc);
        else if (beta != 1.0f)
            ger_scale<v>(m, n, beta, c, ldc);
        return;
    }
    const int64_t incx = *pincx, incy = *pincy;
    y += first_index(n, incy);
    if (beta == 0.0f)
        ger_update<v, ger_form::fresh>(m, n, alpha, x, incx, y, incy, beta, c, ldc);
    else if (beta == 1.0f)
        ger_update<v, ger_form::add>(m, n, alpha, x, incx, y, incy, beta, c, ldc);
    else
        ger_update<v, ger_form::blend>(m, n, alpha, x, incx, y, incy, beta, c, ldc);
}
} // namespace
