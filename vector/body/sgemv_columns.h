// SPDX-License-Identifier: BSD-3-Clause
// y += alpha * A * x on the paths whose traits have masks (v is masked_avx2 or masked_avx512), in rounds of 4 columns.
//
// short y   stays in registers over all columns, 8 registers at a time; A alone is read. A register of y has one chain of
//           multiply-adds, or as many as hide their latency: then they are added at the end.
// long y    two rounds of columns in one pass over y, so that A is read in long runs. Each element takes one fused
//           multiply-add a column, in the order of the columns.
#pragma once
#include "vector/body/element.h"

namespace
{
// Masked loads do not start the processor's own prefetching, and columns of few rows give it little to see: they are asked
// for 128 columns ahead, about the latency of memory, where there are so many.
constexpr int64_t most_brief = 64; // rows of such a column
inline int64_t prefetch_distance(int64_t n, int64_t lda)
{
    constexpr int64_t columns = 128;
    return n > columns ? columns * lda : 0; // [elements]
}

// Rows in front of the first register boundary of the operand that has most to gain: A where its columns share their
// alignment, else y. Few rows are not worth a masked piece of their own.
template <class v> inline int64_t rows_to_register_boundary(int64_t m, const float *a, int64_t lda, const float *y)
{
    constexpr int64_t fewest = 4 * v::width; // [elements]
    constexpr int bytes = v::width * sizeof(float);
    const float *const leading = lda % v::width == 0 ? a : y;
    return m < fewest || !word_aligned(leading) ? 0 : elements_to<bytes>(leading, m);
}

// pieces registers of y over all columns, of which the last one holds last_rows rows and is masked if those are fewer than
// its width. Elements of x stand incx apart; y is reached by access.
template <class v, int pieces, bool masked, class access_type>
inline void add_rows(int64_t n, float alpha, const float *a, int64_t lda, const float *x, int64_t incx, float *y,
                     const access_type &access, int64_t last_rows)
{
    constexpr int round_columns = 4;
    constexpr int whole = masked ? pieces - 1 : pieces;
    constexpr int chains = pieces <= 3 ? 4 : pieces <= v::pieces_of_two_chains ? 2 : 1; // 8 in all hide the latency
    constexpr int end = pieces - 1, end_offset = end * v::width;
    const typename v::mask last = v::first(last_rows);
    const int64_t piece_span = v::width * access.inc, ahead = prefetch_distance(n, lda);
    typename v::reg sum[chains][pieces];
#pragma GCC unroll 8
    for (int p = 0; p < whole; ++p)
        sum[0][p] = access.load(y + p * piece_span);
    if (masked)
        sum[0][end] = access.load(y + end * piece_span, last);
#pragma GCC unroll 4
    for (int chain = 1; chain < chains; ++chain) {
#pragma GCC unroll 8
        for (int p = 0; p < pieces; ++p)
            sum[chain][p] = v::zero();
    }
    const auto add_column = [&](int chain) {
        const typename v::reg t = v::set1(alpha * load_one(x));
#pragma GCC unroll 8
        for (int p = 0; p < whole; ++p)
            sum[chain][p] = v::mul_add(v::load(a + p * v::width), t, sum[chain][p]);
        if (masked) {
            v::prefetch(a + end_offset + ahead);
            sum[chain][end] = v::mul_add(v::load(a + end_offset, last), t, sum[chain][end], last);
        }
        a += lda;
        x += incx;
    };
#pragma GCC unroll 1
    for (; n >= round_columns; n -= round_columns) {
#pragma GCC unroll 4
        for (int c = 0; c < round_columns; ++c)
            add_column(c % chains);
    }
#pragma GCC unroll 1
    for (; n > 0; --n)
        add_column(0);
#pragma GCC unroll 8
    for (int p = 0; p < pieces; ++p) {
#pragma GCC unroll 4
        for (int chain = chains - 1; chain > 0; --chain) // the chain that began with y comes last: it is the longest
            sum[chain - 1][p] = v::add(sum[chain - 1][p], sum[chain][p]);
    }
#pragma GCC unroll 8
    for (int p = 0; p < whole; ++p)
        access.store(y + p * piece_span, sum[0][p]);
    if (masked)
        access.store(y + end * piece_span, sum[0][end], last);
}

// Rows of a contiguous y that fill pieces registers, the last one perhaps in part.
template <class v, int pieces>
inline void add_rows_of(int64_t rows, int64_t n, float alpha, const float *a, int64_t lda, const float *x, int64_t incx,
                        float *y)
{
    const int64_t last_rows = rows - (pieces - 1) * v::width;
    const typename v::contiguous access(1);
    if (last_rows == v::width)
        add_rows<v, pieces, false>(n, alpha, a, lda, x, incx, y, access, last_rows);
    else
        add_rows<v, pieces, true>(n, alpha, a, lda, x, incx, y, access, last_rows);
}

// y += alpha * A * x with y in registers.
template <class v>
inline void add_product_by_rows(int64_t m, int64_t n, float alpha, const float *a, int64_t lda, const float *x,
                                int64_t incx, float *y, int64_t head)
{
    constexpr int64_t most = 8 * v::width; // rows of one panel
    for (int64_t rows = head > 0 ? head : min_of(m, most); m > 0; rows = min_of(m, most)) {
        switch ((rows + v::width - 1) / v::width) {
        case 1:
            add_rows_of<v, 1>(rows, n, alpha, a, lda, x, incx, y);
            break;
        case 2:
            add_rows_of<v, 2>(rows, n, alpha, a, lda, x, incx, y);
            break;
        case 3:
            add_rows_of<v, 3>(rows, n, alpha, a, lda, x, incx, y);
            break;
        case 4:
            add_rows_of<v, 4>(rows, n, alpha, a, lda, x, incx, y);
            break;
        case 5:
            add_rows_of<v, 5>(rows, n, alpha, a, lda, x, incx, y);
            break;
        case 6:
            add_rows_of<v, 6>(rows, n, alpha, a, lda, x, incx, y);
            break;
        case 7:
            add_rows_of<v, 7>(rows, n, alpha, a, lda, x, incx, y);
            break;
        default:
            add_rows_of<v, 8>(rows, n, alpha, a, lda, x, incx, y);
        }
        a += rows;
        y += rows;
        m -= rows;
    }
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
    constexpr int pieces = 2; // registers of y in a round
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

// y += alpha * A * x for a contiguous y.
template <class v>
inline void add_product(int64_t m, int64_t n, float alpha, const float *a, int64_t lda, const float *x, int64_t incx,
                        float *y)
{
    constexpr int64_t panel = 8 * v::width; // rows
    constexpr int64_t small = 40 * 1024;    // [bytes] of A, read in short runs at no cost: the first cache
    constexpr int64_t fewest = 16;          // columns that repay the loads and stores of a panel's registers
    const int64_t head = rows_to_register_boundary<v>(m, a, lda, y);
    if (m <= panel || (n > fewest && m * n <= small / static_cast<int64_t>(sizeof(float)))) {
        add_product_by_rows<v>(m, n, alpha, a, lda, x, incx, y, head);
        return;
    }
    int64_t j = 0;
    while (add_next_columns<v, 8>(j, m, n, head, alpha, a, lda, x, incx, y)) {
    }
    add_next_columns<v, 4>(j, m, n, head, alpha, a, lda, x, incx, y);
    add_next_columns<v, 2>(j, m, n, head, alpha, a, lda, x, incx, y);
    add_next_columns<v, 1>(j, m, n, head, alpha, a, lda, x, incx, y);
}
} // namespace
