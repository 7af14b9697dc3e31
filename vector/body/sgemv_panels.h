// SPDX-License-Identifier: BSD-3-Clause
// y := alpha*op(A)*x + beta*y in panels of 512 rows and rounds of 4 columns, for the paths of 4 lanes, which round
// product and sum apart. Every element of A is read once; the panel of the vector on the row side stays in the first
// cache, and a strided one is packed on the stack.
//
// A: y(i) takes its products column by column, y(i) + A(i,j)*(alpha*x(j)). A^T: y(j) + alpha*dot for each panel.
//
// peeled: rows up to a 16-byte boundary run one by one, so that no access crosses a line; the order of a dot product
// then follows the address. fixed: no peeling, and the bits of the result do not depend on any address.
#pragma once
#include "vector/body/sgemv_frame.h"

namespace
{
enum class sgemv_form { peeled, fixed };

constexpr int64_t panel_rows = 512; // [elements]
constexpr int64_t round_columns = 4;

// Rows in front of the first 16-byte boundary; none where no row lies on one.
template <sgemv_form form> inline int64_t rows_to_boundary(const float *p, int64_t rows)
{
    const uintptr_t address = reinterpret_cast<uintptr_t>(p);
    if (form == sgemv_form::fixed || address % 4 != 0)
        return 0;
    return min_of(static_cast<int64_t>((16 - address % 16) / 4 % 4), rows);
}

// y += A * t over the rows of a panel and a round of columns.
template <class v, int columns>
inline void panel_add(int64_t rows, int64_t peel, const float *a, int64_t lda, const float *t, float *y)
{
    typename v::reg factor[columns];
    for (int c = 0; c < columns; ++c)
        factor[c] = v::set1(t[c]);
    const auto add_row = [=](int64_t i) {
        float sum = load_one(y + i);
        for (int c = 0; c < columns; ++c)
            sum += load_one(a + c * lda + i) * t[c];
        store_one(y + i, sum);
    };
    int64_t i = 0;
    for (; i < peel; ++i)
        add_row(i);
    for (; i + 2 * v::width <= rows; i += 2 * v::width) {
        typename v::reg low = v::load(y + i), high = v::load(y + i + v::width);
#pragma GCC unroll 4
        for (int c = 0; c < columns; ++c) {
            low = v::mul_add(v::load(a + c * lda + i), factor[c], low);
            high = v::mul_add(v::load(a + c * lda + i + v::width), factor[c], high);
        }
        v::store(y + i, low);
        v::store(y + i + v::width, high);
    }
    for (; i < rows; ++i)
        add_row(i);
}

// dot[c] = column c times x over the rows of a panel. A column's order of summation is the same in every round width.
template <class v, int columns>
inline void panel_dots(int64_t rows, int64_t peel, const float *a, int64_t lda, const float *x, float *dot)
{
    typename v::reg low[columns], high[columns];
    float single[columns];
    for (int c = 0; c < columns; ++c) {
        low[c] = high[c] = v::zero();
        single[c] = 0.0f;
    }
    int64_t i = 0;
    for (; i < peel; ++i) {
        for (int c = 0; c < columns; ++c)
            single[c] += load_one(a + c * lda + i) * load_one(x + i);
    }
    for (; i + 2 * v::width <= rows; i += 2 * v::width) {
        const typename v::reg x_low = v::load(x + i), x_high = v::load(x + i + v::width);
#pragma GCC unroll 4
        for (int c = 0; c < columns; ++c) {
            low[c] = v::mul_add(v::load(a + c * lda + i), x_low, low[c]);
            high[c] = v::mul_add(v::load(a + c * lda + i + v::width), x_high, high[c]);
        }
    }
    for (; i < rows; ++i) {
        for (int c = 0; c < columns; ++c)
            single[c] += load_one(a + c * lda + i) * load_one(x + i);
    }
    for (int c = 0; c < columns; ++c) {
        float lane[v::width];
        v::store(lane, v::add(low[c], high[c]));
        dot[c] = ((lane[0] + lane[2]) + (lane[1] + lane[3])) + single[c];
    }
}

// Panel of y += alpha * A * x. Where all elements of y are one, the panel starts at zero and is summed into it.
template <class v, sgemv_form form> inline void panel_product(const sgemv_call &call, int64_t first_row, int64_t rows)
{
    alignas(64) float packed[panel_rows];
    float *y = call.y + first_row * call.incy, *panel = call.incy == 1 ? y : packed;
    for (int64_t i = 0; panel == packed && i < rows; ++i)
        packed[i] = call.incy == 0 ? 0.0f : load_one(y + i * call.incy);
    const int64_t peel = rows_to_boundary<form>(panel, rows);
    const float *a = call.a + first_row, *x = call.x;
    int64_t j = 0;
    float t[round_columns];
    for (; j + round_columns <= call.n; j += round_columns) {
        for (int64_t c = 0; c < round_columns; ++c)
            t[c] = call.alpha * load_one(x + (j + c) * call.incx);
        panel_add<v, round_columns>(rows, peel, a + j * call.lda, call.lda, t, panel);
    }
    for (; j < call.n; ++j) {
        t[0] = call.alpha * load_one(x + j * call.incx);
        panel_add<v, 1>(rows, peel, a + j * call.lda, call.lda, t, panel);
    }
    for (int64_t i = 0; panel == packed && i < rows; ++i)
        store_one(y + i * call.incy, call.incy == 0 ? load_one(y) + packed[i] : packed[i]);
}

// Panel of y += alpha * A^T * x.
template <class v, sgemv_form form>
inline void panel_product_transposed(const sgemv_call &call, int64_t first_row, int64_t rows)
{
    alignas(64) float packed[panel_rows];
    const float *x = call.x + first_row * call.incx, *panel = call.incx == 1 ? x : packed;
    for (int64_t i = 0; panel == packed && i < rows; ++i)
        packed[i] = load_one(x + i * call.incx);
    const float *a = call.a + first_row;
    int64_t j = 0;
    float dot[round_columns];
    const auto add_dots = [&](int64_t columns) {
        for (int64_t c = 0; c < columns; ++c) {
            float *y = call.y + (j + c) * call.incy;
            store_one(y, load_one(y) + call.alpha * dot[c]);
        }
    };
    for (; j + round_columns <= call.n; j += round_columns) {
        const float *column = a + j * call.lda;
        panel_dots<v, round_columns>(rows, rows_to_boundary<form>(column, rows), column, call.lda, panel, dot);
        add_dots(round_columns);
    }
    for (; j < call.n; ++j) {
        const float *column = a + j * call.lda;
        panel_dots<v, 1>(rows, rows_to_boundary<form>(column, rows), column, call.lda, panel, dot);
        add_dots(1);
    }
}

// The call behind the quick returns.
template <class v, sgemv_form form> inline void sgemv_by_panels(const sgemv_call &call)
{
    sgemv_scale_y<v>(call);
    if (call.alpha == 0.0f)
        return;
    for (int64_t first_row = 0; first_row < call.m; first_row += panel_rows) {
        const int64_t rows = min_of(call.m - first_row, panel_rows);
        if (call.transposed)
            panel_product_transposed<v, form>(call, first_row, rows);
        else
            panel_product<v, form>(call, first_row, rows);
    }
}
} // namespace
