// SPDX-License-Identifier: BSD-3-Clause
// y += A * t for a contiguous y and a few columns, on the paths whose traits have masks (v is masked_avx2 or
// masked_avx512). Each element of y takes one fused
// multiply-add a column, in the order of the columns: how columns are grouped and rows are cut changes no bit.
#pragma once
#include "vector/body/element.h"

namespace
{
// Rows in front of the first register boundary of the operand that has most to gain: A where its columns share their
// alignment, else y. Short columns are not worth a masked piece of their own.
template <class v> inline int64_t rows_to_register_boundary(int64_t m, const float *a, int64_t lda, const float *y)
{
    constexpr int64_t shortest = 8 * v::width; // [elements]
    constexpr uintptr_t bytes = v::width * sizeof(float);
    const uintptr_t address = reinterpret_cast<uintptr_t>(lda % v::width == 0 ? a : y);
    if (m < shortest || address % sizeof(float) != 0)
        return 0;
    return static_cast<int64_t>((bytes - address % bytes) % bytes / sizeof(float));
}

// One register of y and a mask of its rows.
template <class v, int columns>
inline void add_columns_masked(const float *const *column, const typename v::reg *factor, int64_t i,
                               typename v::mask rows, float *y)
{
    typename v::reg sum = v::load(y + i, rows);
#pragma GCC unroll 8
    for (int c = 0; c < columns; ++c)
        sum = v::mul_add(v::load(column[c] + i, rows), factor[c], sum, rows);
    v::store(y + i, sum, rows);
}

// head: rows of the first, masked piece, below a register's width, and at most m.
template <class v, int columns>
inline void add_columns(int64_t m, int64_t head, const float *a, int64_t lda, const float *t, float *y)
{
    constexpr int pieces = 4; // registers of y in a round: enough chains to hide the latency of the multiply-add
    constexpr int64_t step = pieces * v::width;
    const float *column[columns];
    typename v::reg factor[columns];
#pragma GCC unroll 8
    for (int c = 0; c < columns; ++c) {
        column[c] = a + c * lda;
        factor[c] = v::set1(t[c]);
    }
    if (head > 0)
        add_columns_masked<v, columns>(column, factor, 0, v::first(head), y);
    int64_t i = head;
#pragma GCC unroll 1
    for (; i + step <= m; i += step) {
        typename v::reg sum[pieces];
#pragma GCC unroll 4
        for (int p = 0; p < pieces; ++p)
            sum[p] = v::load(y + i + p * v::width);
#pragma GCC unroll 8
        for (int c = 0; c < columns; ++c) {
#pragma GCC unroll 4
            for (int p = 0; p < pieces; ++p)
                sum[p] = v::mul_add(v::load(column[c] + i + p * v::width), factor[c], sum[p]);
        }
#pragma GCC unroll 4
        for (int p = 0; p < pieces; ++p)
            v::store(y + i + p * v::width, sum[p]);
    }
#pragma GCC unroll 1
    for (; i + v::width <= m; i += v::width) {
        typename v::reg sum = v::load(y + i);
#pragma GCC unroll 8
        for (int c = 0; c < columns; ++c)
            sum = v::mul_add(v::load(column[c] + i), factor[c], sum);
        v::store(y + i, sum);
    }
    if (i < m)
        add_columns_masked<v, columns>(column, factor, i, v::first(m - i), y);
}

// The next columns of the product, if so many are left: j moves behind them.
template <class v, int columns>
inline bool add_next_columns(int64_t &j, int64_t m, int64_t n, int64_t head, float alpha, const float *a, int64_t lda,
                             const float *x, int64_t incx, float *y)
{
    if (n - j < columns)
        return false;
    float t[columns];
    for (int64_t c = 0; c < columns; ++c)
        t[c] = alpha * load_one(x + (j + c) * incx);
    add_columns<v, columns>(m, head, a + j * lda, lda, t, y);
    j += columns;
    return true;
}

// y += alpha * A * x in rounds of 4 columns, two rounds in one pass over y where there are so many.
template <class v>
inline void add_product(int64_t m, int64_t n, float alpha, const float *a, int64_t lda, const float *x, int64_t incx,
                        float *y)
{
    const int64_t head = rows_to_register_boundary<v>(m, a, lda, y);
    int64_t j = 0;
    while (add_next_columns<v, 8>(j, m, n, head, alpha, a, lda, x, incx, y)) {
    }
    add_next_columns<v, 4>(j, m, n, head, alpha, a, lda, x, incx, y);
    add_next_columns<v, 2>(j, m, n, head, alpha, a, lda, x, incx, y);
    add_next_columns<v, 1>(j, m, n, head, alpha, a, lda, x, incx, y);
}
} // namespace
