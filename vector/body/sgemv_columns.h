// SPDX-License-Identifier: BSD-3-Clause
// y += alpha * A * x on the paths whose traits have masks (v is masked_avx2 or masked_avx512), in rounds of 4 columns.
//
// short y   stays in registers over all columns, 12 registers at a time; A alone is read.
// long y    two or four rounds of columns in one pass over y, so that A is read in long runs.
//
// The loops over an A that lies in the second-level cache are long: 128 and more load instructions. Where each of few
// goes through memory at a stride of its own, the processor's stride prefetcher follows them and asks that cache for
// lines that it holds, one for each that is read, which takes a third of its bandwidth or half of it. It loses track of
// so many (256 x 256: 2.0 cycles a line in loops of 16 loads, 1.35 in one of 256 and in a plain walk).
//
// Each element of y takes one fused multiply-add a column, in the order of the columns: its bits depend on nothing
// else. Where v::chains allows it, a short y of few registers has more chains of them, which are added at the end and
// hide the latency; then the order depends on m alone.
#pragma once
#include "vector/body/element.h"

namespace
{
constexpr int64_t most_brief = 64; // rows of a column that gives the processor's own prefetching little to see

constexpr int64_t first_cache = 40 * 1024 / 4;        // elements of A that the first cache holds, and x and y with them
constexpr int64_t second_cache = 2 * 1024 * 1024 / 4; // and of which the second one holds a good part
constexpr int64_t third_cache = 16 * 1024 * 1024 / 4; // and the third one
inline bool reads_second_cache(int64_t m, int64_t n)
{
    return m * n > first_cache && m * n <= second_cache;
}

// Over the third-level cache a pass over four columns asks for rows a kilobyte ahead: further down the columns, and
// from their ends at the heads of the next ones, where the processor's own prefetching begins anew and late. Long
// columns go faster eight at a time and do without.
inline bool asks_ahead(int64_t m, int64_t n)
{
    constexpr int64_t longest = 2048; // [elements]
    return m * n > second_cache && m * n <= third_cache && m > most_brief && m <= longest;
}
constexpr int columns_asked_for = 4;
struct rows_ahead {
    int64_t near; // how far ahead [elements]
    int64_t late; // the same for the last near rows of a column
    inline rows_ahead(int64_t m, int64_t lda) : near(min_of(256, m)), late(columns_asked_for * lda + near - m) {}
};

// Masked loads do not start the processor's own prefetching, and columns of few rows give it little to see: they are
// asked for 128 columns ahead, about the latency of memory, where there are so many.
inline int64_t prefetch_distance(int64_t n, int64_t lda)
{
    constexpr int64_t columns = 128;
    return n > columns ? columns * lda : 0; // [elements]
}

// Whether the columns of A share their alignment.
template <class v> inline bool is_level(int64_t lda)
{
    return lda % v::width == 0;
}

// Rows in front of the first register boundary of p. Few rows are not worth a masked piece of their own, and their
// chains may not depend on it.
template <class v> inline int64_t rows_to_register_boundary(int64_t m, const float *p)
{
    constexpr int64_t fewest = 6 * v::width + 1; // [elements]
    return m < fewest || !word_aligned(p) ? 0 : elements_to<v::width * sizeof(float)>(p, m);
}

// A panel of y += alpha * A * x: rows that stay in registers over all n columns.
struct row_panel {
    int64_t n; // columns
    float alpha;
    const float *a;
    int64_t lda;
    const float *x;
    int64_t incx;
    float *y;          // contiguous
    int64_t head_rows; // in the first register
    int64_t last_rows; // in the last one
};
enum class masked { none, last, both_ends }; // registers of a panel that may not be full

constexpr int long_panel = 7; // registers of a panel that is worth a long loop

// pieces registers of y. All but the masked ones are full.
template <class v, int pieces, masked ends> [[gnu::noinline]] void add_rows(const row_panel &panel)
{
    constexpr int round_columns = pieces >= long_panel ? 16 : 4;
    constexpr int chains = v::chains(pieces);
    constexpr int begin = ends == masked::both_ends ? 1 : 0, end = ends == masked::none ? pieces : pieces - 1;
    constexpr bool brief = ends != masked::none && pieces * v::width <= most_brief;
    const typename v::mask first = v::first(begin == 1 ? panel.head_rows : v::width), last = v::first(panel.last_rows);
    // Of the first register at the front, and of all that follow it.
    const int64_t shift = begin == 1 ? panel.head_rows - v::width : 0;
    const float *a = panel.a, *x = panel.x;
    float *const y = panel.y;
    const int64_t lda = panel.lda, incx = panel.incx, ahead = brief ? prefetch_distance(panel.n, lda) : 0;
    typename v::reg sum[chains][pieces];
    if (begin == 1)
        sum[0][0] = v::load(y, first);
#pragma GCC unroll 12
    for (int p = begin; p < end; ++p)
        sum[0][p] = v::load(y + shift + p * v::width);
    if (end < pieces)
        sum[0][end] = v::load_rows(y + shift + end * v::width, panel.last_rows);
#pragma GCC unroll 4
    for (int chain = 1; chain < chains; ++chain) {
#pragma GCC unroll 12
        for (int p = 0; p < pieces; ++p)
            sum[chain][p] = v::set1(-0.0f); // which changes no sum, where 0 would take the sign off -0
    }
    const auto add_column = [&](int chain, typename v::reg t) __attribute__((always_inline))
    {
        if (begin == 1)
            sum[chain][0] = v::mul_add(v::load(a, first), t, sum[chain][0], first);
#pragma GCC unroll 12
        for (int p = begin; p < end; ++p)
            sum[chain][p] = v::mul_add(v::load(a + shift + p * v::width), t, sum[chain][p]);
        if (end < pieces) {
            if (brief)
                v::prefetch(a + end * v::width + ahead);
            sum[chain][end] = v::mul_add(v::load(a + shift + end * v::width, last), t, sum[chain][end], last);
        }
        a += lda;
    };
    const typename v::reg alpha = v::set1(panel.alpha);
    const auto add_four = [&]() __attribute__((always_inline))
    {
        const typename v::reg t = v::mul(v::four(x, incx), alpha);
        add_column(0, v::template one_of_four<0>(t));
        add_column(1 % chains, v::template one_of_four<1>(t));
        add_column(2 % chains, v::template one_of_four<2>(t));
        add_column(3 % chains, v::template one_of_four<3>(t));
        x += 4 * incx;
    };
    int64_t n = panel.n;
#pragma GCC unroll 1
    for (; n >= round_columns; n -= round_columns) {
#pragma GCC unroll 4
        for (int c = 0; c < round_columns; c += 4)
            add_four();
    }
    if constexpr (round_columns > 4) {
#pragma GCC unroll 1
        for (; n >= 4; n -= 4)
            add_four();
    }
#pragma GCC unroll 1
    for (; n > 0; --n, x += incx)
        add_column(0, v::set1(panel.alpha * load_one(x)));
#pragma GCC unroll 12
    for (int p = 0; p < pieces; ++p) {
#pragma GCC unroll 4
        for (int chain = chains - 1; chain > 0; --chain) // the chain that began with y comes last: it is the longest
            sum[chain - 1][p] = v::add(sum[chain - 1][p], sum[chain][p]);
    }
    if (begin == 1)
        v::store(y, sum[0][0], first);
#pragma GCC unroll 12
    for (int p = begin; p < end; ++p)
        v::store(y + shift + p * v::width, sum[0][p]);
    if (end < pieces)
        v::store_rows(y + shift + end * v::width, sum[0][end], panel.last_rows);
}

constexpr int most_pieces = 12; // of a panel: the most that avx2 has registers for

template <class v, int pieces = most_pieces>
[[gnu::always_inline]] inline void add_panel(int64_t count, masked ends, const row_panel &panel)
{
    if (count == pieces) {
        if (ends == masked::none)
            add_rows<v, pieces, masked::none>(panel);
        else if (ends == masked::last)
            add_rows<v, pieces, masked::last>(panel);
        else if constexpr (pieces > 4) // behind a masked piece there are more
            add_rows<v, pieces, masked::both_ends>(panel);
        return;
    }
    if constexpr (pieces > 1)
        add_panel<v, pieces - 1>(count, ends, panel);
}

// y += alpha * A * x for a y of one register, without the questions that longer ones raise.
template <class v>
inline void add_product_of_one_register(int64_t m, int64_t n, float alpha, const float *a, int64_t lda, const float *x,
                                        int64_t incx, float *y)
{
    const row_panel panel = {n, alpha, a, lda, x, incx, y, 0, m};
    if (m == v::width)
        add_rows<v, 1, masked::none>(panel);
    else
        add_rows<v, 1, masked::last>(panel);
}

// y += alpha * A * x in as few panels as there can be, all about the same size.
template <class v>
inline void add_product_by_rows(int64_t m, int64_t n, float alpha, const float *a, int64_t lda, const float *x,
                                int64_t incx, float *y)
{
    int64_t head = is_level<v>(lda) ? rows_to_register_boundary<v>(m, a) : 0;
    int64_t pieces = (m - head + v::width - 1) / v::width + (head > 0 ? 1 : 0);
    for (int64_t panels = (pieces + most_pieces - 1) / most_pieces; panels > 0; --panels) {
        const int64_t count = (pieces + panels - 1) / panels;
        const int64_t behind = head > 0 ? head + (count - 1) * v::width : count * v::width; // rows, if all are full
        const int64_t rows = min_of(behind, m);
        const row_panel panel = {n, alpha, a, lda, x, incx, y, head, v::width - (behind - rows)};
        add_panel<v>(count, head > 0 ? masked::both_ends : rows < behind ? masked::last : masked::none, panel);
        a += rows;
        y += rows;
        m -= rows;
        pieces -= count;
        head = 0;
    }
}

// Columns side by side, reached from every fourth of them by two strides: pointers to all would not leave registers.
template <int columns> struct column_pointers {
    static constexpr int groups = (columns + 3) / 4;
    const char *group[groups];
    int64_t stride, stride_3; // to the next column and the third one [bytes]

    inline column_pointers(const float *a, int64_t lda) : stride(4 * lda), stride_3(12 * lda)
    {
#pragma GCC unroll 4
        for (int g = 0; g < groups; ++g)
            group[g] = reinterpret_cast<const char *>(a) + g * 4 * stride;
    }
    // Keeps the compiler from carrying one pointer for every column from one use to the next.
    inline void hold()
    {
#pragma GCC unroll 4
        for (int g = 0; g < groups; ++g)
            __asm__("" : "+r"(group[g]));
        __asm__("" : "+r"(stride), "+r"(stride_3));
    }
    inline void advance(int64_t rows)
    {
#pragma GCC unroll 4
        for (int g = 0; g < groups; ++g)
            group[g] += 4 * rows;
    }
    // To the columns behind these.
    inline void next()
    {
#pragma GCC unroll 4
        for (int g = 0; g < groups; ++g)
            group[g] += columns * stride;
    }
    // Column c, some rows behind the one that the pointers stand at.
    inline const float *at(int c, int rows = 0) const
    {
        return reinterpret_cast<const float *>(group[c / 4] + (c % 4 == 3 ? stride_3 : c % 4 * stride)) + rows;
    }
};

template <class v, int columns> struct column_block {
    column_pointers<columns> column;
    typename v::reg factor[columns];

    inline column_block(const float *a, int64_t lda, const float *t) : column(a, lda)
    {
#pragma GCC unroll 16
        for (int c = 0; c < columns; ++c)
            factor[c] = v::set1(t[c]);
    }
};

// One register of y and a mask of its rows.
template <class v, int columns>
inline void add_columns_masked(column_block<v, columns> &block, typename v::mask rows, float *y)
{
    typename v::reg sum = v::load(y, rows);
    block.column.hold();
#pragma GCC unroll 16
    for (int c = 0; c < columns; ++c)
        sum = v::mul_add(v::load(block.column.at(c), rows), block.factor[c], sum, rows);
    v::store(y, sum, rows);
}

// The next whole registers of y, so many at a time as there is room for: block and y move behind them. asks: for what
// stands ahead elements behind them in A.
template <class v, int columns, int registers, bool asks = false>
[[gnu::always_inline]] inline void add_registers(column_block<v, columns> &block, float *&y, int64_t ahead = 0)
{
    constexpr int most = v::width == 16 ? 8 : 4, pieces = registers < most ? registers : most;
#pragma GCC unroll 16
    for (int r = 0; r < registers; r += pieces) {
        typename v::reg sum[pieces];
#pragma GCC unroll 8
        for (int p = 0; p < pieces; ++p)
            sum[p] = v::load(y + (r + p) * v::width);
        block.column.hold();
        if (asks) {
#pragma GCC unroll 16
            for (int c = 0; c < columns; ++c)
                v::prefetch(block.column.at(c) + ahead);
        }
#pragma GCC unroll 16
        for (int c = 0; c < columns; ++c) {
#pragma GCC unroll 8
            for (int p = 0; p < pieces; ++p)
                sum[p] = v::mul_add(v::load(block.column.at(c, (r + p) * v::width)), block.factor[c], sum[p]);
        }
#pragma GCC unroll 8
        for (int p = 0; p < pieces; ++p)
            v::store(y + (r + p) * v::width, sum[p]);
    }
    block.column.advance(registers * v::width);
    y += registers * v::width;
}

// Fewer than 2 * registers of them, by the bits of their count.
template <class v, int columns, int registers>
[[gnu::always_inline]] inline void add_rest(column_block<v, columns> &block, int64_t count, float *&y)
{
    if ((count & registers) != 0)
        add_registers<v, columns, registers>(block, y);
    if constexpr (registers > 1)
        add_rest<v, columns, registers / 2>(block, count, y);
}

// head: rows of the first, masked piece, below a register's width, and at most m. registers: of y, in a round. asks:
// for rows ahead; a round is a cache line then.
template <class v, int columns, int registers, bool asks = false>
inline void add_columns(int64_t m, int64_t head, const float *a, int64_t lda, const float *t, float *y)
{
    column_block<v, columns> block(a, lda, t);
    if (head > 0) {
        add_columns_masked(block, v::first(head), y);
        block.column.advance(head);
        y += head;
    }
    int64_t left = (m - head) / v::width; // registers
    if constexpr (asks) {
        const rows_ahead ahead(m, lda);
#pragma GCC unroll 1
        for (; left * v::width >= ahead.near + registers * v::width; left -= registers)
            add_registers<v, columns, registers, true>(block, y, ahead.near);
#pragma GCC unroll 1
        for (; left >= registers; left -= registers)
            add_registers<v, columns, registers, true>(block, y, ahead.late);
    }
#pragma GCC unroll 1
    for (; left >= registers; left -= registers)
        add_registers<v, columns, registers>(block, y);
    if constexpr (registers > 1)
        add_rest<v, columns, registers / 2>(block, left, y);
    if (const int64_t rest = (m - head) % v::width; rest > 0)
        add_columns_masked(block, v::first(rest), y);
}

// The next columns of the product, if so many are left: j moves behind them.
template <class v, int columns, int registers, bool asks = false>
inline bool add_next_columns(int64_t &j, int64_t m, int64_t n, int64_t head, float alpha, const float *a, int64_t lda,
                             const float *x, int64_t incx, float *y)
{
    if (n - j < columns)
        return false;
    float t[columns];
    for (int64_t c = 0; c < columns; ++c)
        t[c] = alpha * load_one(x + (j + c) * incx);
    add_columns<v, columns, registers, asks>(m, head, a + j * lda, lda, t, y);
    j += columns;
    return true;
}

// Rows from which on 8 columns of whole registers make a loop long enough.
template <class v> constexpr int64_t rows_of_long_loop = 24 * v::width;

// y += alpha * A * x in passes over y.
template <class v>
[[gnu::noinline]] void add_product_by_columns(int64_t m, int64_t n, float alpha, const float *a, int64_t lda,
                                              const float *x, int64_t incx, float *y)
{
    const int64_t head = rows_to_register_boundary<v>(m, is_level<v>(lda) ? a : y);
    int64_t j = 0;
    if (reads_second_cache(m, n)) {
        constexpr int registers = v::width == 16 ? 16 : 32;
        if constexpr (v::width == 16) {
            while (m < rows_of_long_loop<v> && add_next_columns<v, 16, 16>(j, m, n, head, alpha, a, lda, x, incx, y)) {
            }
        }
        while (add_next_columns<v, 8, registers>(j, m, n, head, alpha, a, lda, x, incx, y)) {
        }
    }
    if (asks_ahead(m, n)) {
        constexpr int line = 16 / v::width; // registers
        while (add_next_columns<v, columns_asked_for, line, true>(j, m, n, head, alpha, a, lda, x, incx, y)) {
        }
    }
    while (add_next_columns<v, 8, 2>(j, m, n, head, alpha, a, lda, x, incx, y)) {
    }
    add_next_columns<v, 6, 2>(j, m, n, head, alpha, a, lda, x, incx, y);
    add_next_columns<v, 4, 2>(j, m, n, head, alpha, a, lda, x, incx, y);
    add_next_columns<v, 3, 2>(j, m, n, head, alpha, a, lda, x, incx, y);
    add_next_columns<v, 2, 2>(j, m, n, head, alpha, a, lda, x, incx, y);
    add_next_columns<v, 1, 2>(j, m, n, head, alpha, a, lda, x, incx, y);
}

// y += alpha * A * x for a contiguous y.
template <class v>
inline void add_product(int64_t m, int64_t n, float alpha, const float *a, int64_t lda, const float *x, int64_t incx,
                        float *y)
{
    constexpr int64_t panel = most_pieces * v::width; // rows
    constexpr int64_t most_rows = 192; // of two panels in the second-level cache, which are ahead of long runs so far
    constexpr int64_t fewest = 16;     // columns that repay the loads and stores of a panel's registers
    if (m <= panel || (m <= most_rows && reads_second_cache(m, n)) || (n > fewest && m * n <= first_cache))
        add_product_by_rows<v>(m, n, alpha, a, lda, x, incx, y);
    else
        add_product_by_columns<v>(m, n, alpha, a, lda, x, incx, y);
}
} // namespace
