// SPDX-License-Identifier: BSD-3-Clause
// C := beta*C + alpha*op(A)*op(B) on one block, read where it lies: row tiles outside, column tiles inside, one
// register tile of accumulators per pair. alpha comes in at the end of a tile.
//
// Rows of a tile must be neighbours: A transposed, and A that lies badly for many column tiles, goes through a private
// panel on the stack, one row tile at a time. A row tile takes the arguments of a kernel, so that a kernel with one row
// tile is a jump to it.
//
// p is the path (gemm/<path>/sgemm_kernel_nocopy_<path>.cpp):
//   panel_m             rows of a full tile, and the panel's width [elements]
//   whole_columns       columns up to which badly lying A is still read in place
//   row_tiles           the rows of a block, tile by tile
//   copy                a row tile into the panel; not asked for where copied_columns is taken
//   transpose<fetches>  rows of op(A) that are runs of depth into the panel; fetches those that lie ahead
// rows is a row tile:
//   tile_n, widest      columns of its tiles, of the last one at most
//   columns_ahead       distance at which a row of B is fetched [elements], a whole number of lines
//   steps_ahead         depth steps at which A is fetched for the first tile of a small block, 0 where it is not; with
//                       them panel_m, the stride of the panel, which is not fetched
//   v, vecs             its registers
#pragma once
#include "frame/path/path_util.h"
#include "gemm/body/sgemm_lanes.h"
#include "gemm/sgemm_paths.h"

namespace
{
enum class beta_form { zero, one, other };

// One depth step of op(B), from some column on. The address moves from step to step and the strides stay in registers:
// hidden from the compiler, which would rather keep an address for each column and each of eight steps.
template <bool transposed, int columns> struct b_cursor;
// Columns ldb apart, four of them reached from one address.
template <int columns> struct b_cursor<false, columns> {
    static constexpr int fours = (columns + 3) / 4;
    const float *four[fours];
    int64_t one, two, three;
    inline b_cursor(const float *b, int64_t ldb) : one(ldb), two(2 * ldb), three(3 * ldb)
    {
#pragma GCC unroll 4
        for (int i = 0; i < fours; ++i)
            four[i] = b + 4 * i * ldb;
        if constexpr (columns > 1)
            __asm__("" : "+r"(one));
        if constexpr (columns > 2)
            __asm__("" : "+r"(two));
        if constexpr (columns > 3)
            __asm__("" : "+r"(three));
    }
    inline const float *column(int j) const
    {
        return j % 4 == 0 ? four[j / 4] : four[j / 4] + (j % 4 == 1 ? one : j % 4 == 2 ? two : three);
    }
    inline void advance()
    {
#pragma GCC unroll 4
        for (int i = 0; i < fours; ++i) {
            ++four[i];
            __asm__("" : "+r"(four[i]));
        }
    }
};
// A step is a row of B.
template <int columns> struct b_cursor<true, columns> {
    const float *b;
    int64_t ldb;
    inline b_cursor(const float *b_, int64_t ldb_) : b(b_), ldb(ldb_) {}
    inline const float *column(int j) const { return b + j; }
    inline void advance()
    {
        b += ldb;
        __asm__("" : "+r"(b));
    }
};

// All that only fetches is inlined by force: the compiler drops calls of a function that changes nothing.

// Fetches columns of op(B) that are due next while a tile goes over its own: every line once, half of them in each
// group of eight steps. Beyond the last column this asks for what is not there, which a prefetch may.
template <int tile_n, bool transposed, int ahead> struct b_fetch;
// A line holds 16 steps of a column: half of the columns in one group, the others in the next.
template <int tile_n, int ahead> struct b_fetch<tile_n, false, ahead> {
    const float *now, *next;
    int64_t ldb;
    inline b_fetch(const float *b, int64_t ldb_) : now(b + tile_n * ldb_), next(now + tile_n / 2 * ldb_), ldb(ldb_) {}
    [[gnu::always_inline]] inline void step(int l) const
    {
        if (l < tile_n / 2)
            fetch_read(now + l * ldb);
    }
    inline void group()
    {
        const float *const done = now;
        now = next + 8;
        next = done + 8;
    }
};
// A line holds 16 columns of a step: of two tiles that share a line one asks for the even steps, the other for the odd.
template <int tile_n, int ahead> struct b_fetch<tile_n, true, ahead> {
    const float *now;
    int64_t ldb;
    inline b_fetch(const float *b, int64_t ldb_)
        : now(b + ahead + (reinterpret_cast<uintptr_t>(b) & 32 ? ldb_ : 0)), ldb(ldb_)
    {
    }
    [[gnu::always_inline]] inline void step(int l)
    {
        if (l % 2 == 0) {
            fetch_read(now);
            now += 2 * ldb;
        }
    }
    inline void group() {}
};

// Fetches the rows behind a row tile that stands in the panel, where they lie in the matrix as runs of depth: one line
// of each in sixteen steps, half of the rows in each group of eight. So they come while the tile is multiplied, and not
// all at once when they are transposed.
template <int count> struct row_fetch {
    const float *now, *next;
    int64_t ld, back;
    inline row_fetch(const float *a, int64_t lda)
        : now(a), next(a + count / 2 * lda), ld(lda), back(16 - count / 2 * lda)
    {
    }
    [[gnu::always_inline]] inline void step()
    {
#pragma GCC unroll 3
        for (int i = 0; i < count / 16; ++i, now += ld)
            fetch_read(now);
    }
    inline void group()
    {
        const float *const done = now + back;
        now = next;
        next = done;
    }
};

// What a tile fetches in each of its steps, at a in A, and after each group of eight.
struct no_fetch {
    [[gnu::always_inline]] inline void step(int, const float *) {}
    inline void group() {}
};
// The columns of A a few steps on: what a small block waits for where it comes from beyond the first-level cache.
template <class rows> struct fetch_steps {
    int64_t ahead;
    inline explicit fetch_steps(int64_t a_depth) : ahead(rows::steps_ahead * a_depth) {}
    [[gnu::always_inline]] inline void step(int, const float *a) const
    {
#pragma GCC unroll 3
        for (int i = 0; i < rows::vecs; ++i)
            fetch_read(a + ahead + i * rows::v::width);
    }
    inline void group() {}
};
template <class rows, bool b_transposed> struct fetch_in_place {
    const rows &r;
    b_fetch<rows::tile_n, b_transposed, rows::columns_ahead> columns;
    [[gnu::always_inline]] inline void step(int l, const float *a)
    {
        columns.step(l);
        r.fetch_next_rows(a);
    }
    inline void group() { columns.group(); }
};
template <class rows, bool b_transposed> struct fetch_beside_panel {
    row_fetch<rows::vecs * rows::v::width> next_rows;
    b_fetch<rows::tile_n, b_transposed, rows::columns_ahead> columns;
    [[gnu::always_inline]] inline void step(int l, const float *)
    {
        columns.step(l);
        next_rows.step();
    }
    inline void group()
    {
        columns.group();
        next_rows.group();
    }
};

// Copies the rows into the panel while a tile reads them where they lie.
template <class rows, class fetcher> struct copy_aside {
    fetcher fetch;
    float *panel;
    [[gnu::always_inline]] inline void step(int l, const float *a) { fetch.step(l, a); }
    inline void group() { fetch.group(); }
};

// What else is done with the registers of a step.
template <class fetcher, class registers> inline void keep(const fetcher &, const registers &) {}
template <class rows, class fetcher>
inline void keep(copy_aside<rows, fetcher> &copy, const typename rows::v::reg (&step)[rows::vecs])
{
#pragma GCC unroll 4
    for (int i = 0; i < rows::vecs; ++i)
        rows::v::store(copy.panel + i * rows::v::width, step[i]);
    copy.panel += rows::panel_m;
}

// Register i of the rows of a column of C, as it is to be: beta*C + alpha*x.
template <beta_form form, class rows>
[[gnu::always_inline]] inline typename rows::v::reg updated(const rows &r, int i, float alpha, typename rows::v::reg x,
                                                            const float *beta, const float *c)
{
    using v = typename rows::v;
    if constexpr (form == beta_form::zero)
        return v::mul(r.factor(alpha, i), x);
    typename v::reg sum = r.load(c, i);
    if constexpr (form == beta_form::other)
        sum = v::mul(r.factor(*beta, i), sum);
    v::accumulate(sum, r.factor(alpha, i), x);
    return sum;
}

// The sums of a tile go to C.
template <beta_form form, class rows, int cols>
[[gnu::always_inline]] inline void finish_tile(const rows &r, float alpha,
                                               typename rows::v::reg (&acc)[cols][rows::vecs], const float *beta,
                                               float *c, int64_t ldc)
{
    constexpr int vecs = rows::vecs;
    // C is read before any of it is written: in memory a store under a mask has its full width, and would make the load
    // of the next column wait for it. A product with 1 changes nothing and takes the multipliers' time.
    if (form != beta_form::zero || alpha != 1.0f)
#pragma GCC unroll 16
        for (int j = 0; j < cols; ++j)
#pragma GCC unroll 4
            for (int i = 0; i < vecs; ++i)
                acc[j][i] = updated<form>(r, i, alpha, acc[j][i], beta, c + j * ldc);
#pragma GCC unroll 16
    for (int j = 0; j < cols; ++j, c += ldc)
#pragma GCC unroll 4
        for (int i = 0; i < vecs; ++i)
            r.store(c, i, acc[j][i]);
}

constexpr int sums_in_flight = 8; // that keep two multipliers busy, of four cycles each

// cols columns of a row tile; a_depth is the stride of a step. rows loads, accumulates and stores its registers.
template <class rows, int cols, bool b_transposed, beta_form form, class fetcher>
[[gnu::always_inline]] inline void nocopy_tile(const rows &r, fetcher fetch, int64_t k, float alpha, const float *a,
                                               int64_t a_depth, const float *b, int64_t ldb, const float *beta,
                                               float *c, int64_t ldc)
{
    using v = typename rows::v;
    constexpr int vecs = rows::vecs;
    // What a tile derives from these is worked out in the tile: in front of a column loop it would only be spilled.
    __asm__ volatile("" : "+r"(k), "+r"(a_depth), "+r"(ldb), "+r"(ldc));
    typename v::reg acc[cols][vecs];
#pragma GCC unroll 16
    for (int j = 0; j < cols; ++j)
#pragma GCC unroll 4
        for (int i = 0; i < vecs; ++i)
            acc[j][i] = v::zero();

    b_cursor<b_transposed, cols> y(b, ldb);
    const auto step = [&](typename v::reg(&sums)[cols][vecs]) __attribute__((always_inline))
    {
        typename v::reg av[vecs];
#pragma GCC unroll 4
        for (int i = 0; i < vecs; ++i)
            av[i] = r.load(a, i);
        keep(fetch, av);
#pragma GCC unroll 16
        for (int j = 0; j < cols; ++j)
            r.accumulate(sums[j], av, y.column(j));
        a += a_depth;
        __asm__("" : "+r"(a));
        y.advance();
    };
    const auto eight_steps = [&](auto &&sums_of) __attribute__((always_inline))
    {
#pragma GCC unroll 8
        for (int l = 0; l < 8; ++l) {
            fetch.step(l, a);
            step(sums_of(l));
        }
        fetch.group();
    };
    constexpr int sums = cols * vecs;
    if constexpr (sums < sums_in_flight) {
        // Too few sums to wait for each other: two, four or eight sets of them take turns.
        constexpr int sets = sums >= sums_in_flight / 2 ? 2 : sums > 1 ? 4 : 8;
        if (k >= 16) {
            typename v::reg more[sets - 1][cols][vecs];
#pragma GCC unroll 8
            for (int s = 0; s < sets - 1; ++s)
#pragma GCC unroll 8
                for (int j = 0; j < cols; ++j)
#pragma GCC unroll 4
                    for (int i = 0; i < vecs; ++i)
                        more[s][j][i] = v::zero();
#pragma GCC unroll 1
            for (; k >= 8; k -= 8)
                eight_steps([&](int l) __attribute__((always_inline))->auto & {
                    return l % sets == 0 ? acc : more[l % sets - 1];
                });
#pragma GCC unroll 8
            for (int s = 0; s < sets - 1; ++s)
#pragma GCC unroll 8
                for (int j = 0; j < cols; ++j)
#pragma GCC unroll 4
                    for (int i = 0; i < vecs; ++i)
                        acc[j][i] = v::add(acc[j][i], more[s][j][i]);
        }
    } else {
#pragma GCC unroll 1
        for (; k >= 8; k -= 8)
            eight_steps([&](int) __attribute__((always_inline))->auto & { return acc; });
    }
#pragma GCC unroll 1
    for (; k > 0; --k)
        step(acc);

    finish_tile<form>(r, alpha, acc, beta, c, ldc);
}

constexpr int64_t fetched_elements = 4096; // of what is left of op(A), or of op(B), for them to be fetched ahead

// One tile of the first row tile of m rows. n is not read: with the arguments of a kernel a single tile is a jump.
// Functions with loops over depth begin with a line of code: where this one did not, 8 x 8 x 8 took a tenth longer.
template <class rows, int cols, bool b_transposed, beta_form form>
[[gnu::noinline, gnu::aligned(64)]] void single_tile(int64_t m, int64_t, int64_t k, const float *alpha, const float *a,
                                                     int64_t a_depth, const float *b, int64_t ldb, const float *beta,
                                                     float *c, int64_t ldc)
{
    nocopy_tile<rows, cols, b_transposed, form>(rows(m), no_fetch(), k, *alpha, a, a_depth, b, ldb, beta, c, ldc);
}

template <class rows, bool b_transposed, beta_form form>
[[gnu::noinline, gnu::aligned(64)]] void all_columns(int64_t m, int64_t n, int64_t k, const float *alpha,
                                                     const float *a, int64_t a_depth, const float *b, int64_t ldb,
                                                     const float *beta, float *c, int64_t ldc);

// One row tile against n columns: each count of them up to the widest tile has code of its own, at its index, and 0 is
// for all others.
constexpr int most_columns = 16;
template <class rows, bool b_transposed, beta_form form, int n> constexpr tesh_blas_sgemm_kernel_nocopy_fn *columns_of()
{
    if constexpr (n >= 1 && n <= rows::widest)
        return single_tile<rows, n, b_transposed, form>;
    else
        return all_columns<rows, b_transposed, form>;
}
template <class rows, bool b_transposed, beta_form form>
constexpr tesh_blas_sgemm_kernel_nocopy_fn *by_columns[most_columns + 1] = {
    columns_of<rows, b_transposed, form, 0>(),  columns_of<rows, b_transposed, form, 1>(),
    columns_of<rows, b_transposed, form, 2>(),  columns_of<rows, b_transposed, form, 3>(),
    columns_of<rows, b_transposed, form, 4>(),  columns_of<rows, b_transposed, form, 5>(),
    columns_of<rows, b_transposed, form, 6>(),  columns_of<rows, b_transposed, form, 7>(),
    columns_of<rows, b_transposed, form, 8>(),  columns_of<rows, b_transposed, form, 9>(),
    columns_of<rows, b_transposed, form, 10>(), columns_of<rows, b_transposed, form, 11>(),
    columns_of<rows, b_transposed, form, 12>(), columns_of<rows, b_transposed, form, 13>(),
    columns_of<rows, b_transposed, form, 14>(), columns_of<rows, b_transposed, form, 15>(),
    columns_of<rows, b_transposed, form, 16>()};

// Columns from which on a full tile is cut off. What is left below makes one wide tile, or two halves: in a tile of one
// or two columns A is loaded for too few products.
template <class rows>
constexpr int64_t full_tiles_from = rows::widest == rows::tile_n ? rows::tile_n
                                                                 : max_of(rows::widest + 1, rows::tile_n + 4);

template <class rows, int cols, bool b_transposed, beta_form form>
[[gnu::always_inline]] inline void fetching_tile(const rows &r, int64_t k, float alpha, const float *a, int64_t a_depth,
                                                 const float *b, int64_t ldb, const float *beta, float *c, int64_t ldc)
{
    nocopy_tile<rows, cols, b_transposed, form>(r, fetch_in_place<rows, b_transposed>{r, {b, ldb}}, k, alpha, a,
                                                a_depth, b, ldb, beta, c, ldc);
}

// More columns than a full tile takes, but too few for one to be cut off: the first tile asks for the rows behind.
template <class rows, bool b_transposed, beta_form form>
[[gnu::noinline, gnu::aligned(64)]] void
columns_without_full_tile(int64_t m, int64_t n, int64_t k, const float *alpha, const float *a, int64_t a_depth,
                          const float *b, int64_t ldb, const float *beta, float *c, int64_t ldc)
{
    constexpr int half = full_tiles_from<rows> / 2;
    const rows r(m);
    if (n == rows::widest)
        return fetching_tile<rows, rows::widest, b_transposed, form>(r, k, *alpha, a, a_depth, b, ldb, beta, c, ldc);
    fetching_tile<rows, half, b_transposed, form>(r, k, *alpha, a, a_depth, b, ldb, beta, c, ldc);
    by_columns<rows, b_transposed, form>[n - half](m, n - half, k, alpha, a, a_depth,
                                                   b + half * (b_transposed ? 1 : ldb), ldb, beta, c + half * ldc, ldc);
}

// One row tile, the first of m rows, against all columns.
template <class rows, bool b_transposed, beta_form form>
[[gnu::noinline, gnu::aligned(64)]] void all_columns(int64_t m, int64_t n, int64_t k, const float *alpha,
                                                     const float *a, int64_t a_depth, const float *b, int64_t ldb,
                                                     const float *beta, float *c, int64_t ldc)
{
    constexpr int tile_n = rows::tile_n;
    constexpr int64_t least = full_tiles_from<rows>;
    const rows r(m);
    const int64_t b_column = b_transposed ? 1 : ldb;
    // A block that the first-level cache holds needs no fetching. One register of rows waits for B more than for its
    // sums, and full tiles fetch.
    constexpr int64_t least_fetched = rows::vecs == 1 ? tile_n : least;
    if (max_of(m, n) * k > fetched_elements)
        for (; n >= least_fetched || n == tile_n; n -= tile_n, b += tile_n * b_column, c += tile_n * ldc)
            fetching_tile<rows, tile_n, b_transposed, form>(r, k, *alpha, a, a_depth, b, ldb, beta, c, ldc);
    if constexpr (rows::steps_ahead > 0)
        if (max_of(m, n) * k <= fetched_elements && n >= least && a_depth != rows::panel_m) {
            nocopy_tile<rows, tile_n, b_transposed, form>(r, fetch_steps<rows>(a_depth), k, *alpha, a, a_depth, b, ldb,
                                                          beta, c, ldc);
            n -= tile_n;
            b += tile_n * b_column;
            c += tile_n * ldc;
        }
    for (; n >= least; n -= tile_n, b += tile_n * b_column, c += tile_n * ldc)
        nocopy_tile<rows, tile_n, b_transposed, form>(r, no_fetch(), k, *alpha, a, a_depth, b, ldb, beta, c, ldc);
    if constexpr (least > rows::widest + 1)
        if (n > rows::widest) {
            const int64_t half = (n + 1) / 2;
            by_columns<rows, b_transposed, form>[half](m, half, k, alpha, a, a_depth, b, ldb, beta, c, ldc);
            n -= half;
            b += half * b_column;
            c += half * ldc;
        }
    if (n > 0)
        by_columns<rows, b_transposed, form>[n](m, n, k, alpha, a, a_depth, b, ldb, beta, c, ldc);
}

template <class rows, bool b_transposed, beta_form form>
[[gnu::always_inline]] inline void row_tile(int64_t m, int64_t n, int64_t k, const float *alpha, const float *a,
                                            int64_t a_depth, const float *b, int64_t ldb, const float *beta, float *c,
                                            int64_t ldc)
{
    by_columns<rows, b_transposed, form>[static_cast<uint64_t>(n) <= most_columns ? n : 0](m, n, k, alpha, a, a_depth,
                                                                                           b, ldb, beta, c, ldc);
}

// A full row tile in the panel against all columns, a tile of them at least. The first tile fetches the rows behind:
// they lie lda apart, the first at next.
template <class rows, bool b_transposed, beta_form form>
[[gnu::noinline, gnu::aligned(64)]] void panel_columns(const float *next, int64_t lda, int64_t n, int64_t k,
                                                       const float *alpha, const float *a, const float *b, int64_t ldb,
                                                       const float *beta, float *c, int64_t ldc)
{
    constexpr int tile_n = rows::tile_n, panel_m = rows::vecs * rows::v::width;
    nocopy_tile<rows, tile_n, b_transposed, form>(rows(panel_m),
                                                  fetch_beside_panel<rows, b_transposed>{{next, lda}, {b, ldb}}, k,
                                                  *alpha, a, panel_m, b, ldb, beta, c, ldc);
    if (n > tile_n)
        row_tile<rows, b_transposed, form>(panel_m, n - tile_n, k, alpha, a, panel_m,
                                           b + tile_n * (b_transposed ? 1 : ldb), ldb, beta, c + tile_n * ldc, ldc);
}

// A row tile that lies badly against all columns, more than a tile of them: the first tile copies it into the panel.
template <class rows, bool b_transposed, beta_form form>
[[gnu::noinline, gnu::aligned(64)]] void copied_columns(int64_t m, int64_t n, int64_t k, const float *alpha,
                                                        const float *a, int64_t lda, float *panel, const float *b,
                                                        int64_t ldb, const float *beta, float *c, int64_t ldc)
{
    constexpr int tile_n = rows::tile_n;
    const rows r(m);
    if (max_of(m, n) * k > fetched_elements)
        nocopy_tile<rows, tile_n, b_transposed, form>(
            r, copy_aside<rows, fetch_in_place<rows, b_transposed>>{{r, {b, ldb}}, panel}, k, *alpha, a, lda, b, ldb,
            beta, c, ldc);
    else
        nocopy_tile<rows, tile_n, b_transposed, form>(r, copy_aside<rows, no_fetch>{{}, panel}, k, *alpha, a, lda, b,
                                                      ldb, beta, c, ldc);
    row_tile<rows, b_transposed, form>(min_of(m, rows::panel_m), n - tile_n, k, alpha, panel, rows::panel_m,
                                       b + tile_n * (b_transposed ? 1 : ldb), ldb, beta, c + tile_n * ldc, ldc);
}

// The rows of a transposed tile, count of them: neighbours in memory are the steps of one row. Whole tiles are
// addressed by a pointer for four rows and the stride; rows beyond a partial one repeat its last.
template <int count, bool whole> struct row_pointers {
    const float *row[count];
    inline row_pointers(const float *a, int64_t lda, int64_t rows)
    {
        row[0] = a;
#pragma GCC unroll 16
        for (int i = 1; i < count; ++i)
            row[i] = row[i - 1] + (i < rows ? lda : 0);
    }
    inline const float *at(int i, int64_t l) const
    {
        return row[i] + l;
    }
};
template <int count> struct row_pointers<count, true> {
    const float *four[count / 4];
    int64_t lda;
    inline row_pointers(const float *a, int64_t ld, int64_t) : lda(ld)
    {
#pragma GCC unroll 4
        for (int i = 0; i < count / 4; ++i)
            four[i] = a + 4 * i * ld;
    }
    inline const float *at(int i, int64_t l) const
    {
        return four[i / 4] + i % 4 * lda + l;
    }
};

// Where a row tile lies: in the matrix, or copied into the panel when it comes to be used.
struct rows_in_place {
    static constexpr bool in_place = true, transposed = false;
    const float *a;
    int64_t depth_stride;
    inline const float *tile(int64_t i, int64_t, bool) const { return a + i; }
};
template <class p, bool transposed_> struct rows_in_panel {
    static constexpr bool in_place = false, transposed = transposed_;
    static constexpr int64_t depth_stride = p::panel_m;
    const float *a;
    int64_t lda, m, n, k;
    float *panel;
    // Too large for the first-level cache: what comes next is fetched.
    inline bool large() const { return max_of(m, n) * k > fetched_elements; }
    inline const float *tile(int64_t i, int64_t rows, bool fetches) const
    {
        if constexpr (!transposed)
            p::copy(rows, k, a + i, lda, panel);
        else if (fetches && large())
            p::template transpose<true>(rows, k, a + i * lda, lda, panel, behind(i, rows) - (a + i * lda));
        else
            p::template transpose<false>(rows, k, a + i * lda, lda, panel, 0);
        return panel;
    }
    // The rows behind some, or the first ones of the next depth block.
    inline const float *behind(int64_t i, int64_t rows) const { return a + (i + rows < m ? (i + rows) * lda : k); }
};

// The panel lies on a page boundary of the stack. It is touched from its upper end downwards, a page at a time, so that
// a stack that is too short is met at its guard page.
template <class p, bool a_transposed, bool b_transposed, beta_form form>
[[gnu::noinline]] void product_by_panel(int64_t m, int64_t n, int64_t k, const float *alpha, const float *a,
                                        int64_t lda, const float *b, int64_t ldb, const float *beta, float *c,
                                        int64_t ldc)
{
    constexpr int64_t page = 4096;
    const int64_t bytes = ((k + 16) & ~INT64_C(15)) * p::panel_m * 4 + 256;
    char *const memory = static_cast<char *>(__builtin_alloca(static_cast<size_t>(bytes + page)));
    for (int64_t at = bytes; at > 0; at -= page)
        *static_cast<volatile char *>(memory + at) = 0;
    char *const panel = memory + (-reinterpret_cast<intptr_t>(memory) & (page - 1));
    const rows_in_panel<p, a_transposed> source = {a, lda, m, n, k, reinterpret_cast<float *>(panel)};
    p::template row_tiles<b_transposed, form>(m, n, k, alpha, source, b, ldb, beta, c, ldc);
}

// At an odd float.
inline bool lies_badly(const float *a, int64_t lda)
{
    return ((reinterpret_cast<uintptr_t>(a) | static_cast<uintptr_t>(lda) * 4) & 7) != 0;
}

template <class p, bool a_transposed, bool b_transposed, beta_form form>
[[gnu::always_inline]] inline void nocopy_kernel(int64_t m, int64_t n, int64_t k, const float *alpha, const float *a,
                                                 int64_t lda, const float *b, int64_t ldb, const float *beta, float *c,
                                                 int64_t ldc)
{
    if constexpr (a_transposed)
        return product_by_panel<p, true, b_transposed, form>(m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
    return p::template rows_as_they_lie<b_transposed, form>(m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
} // namespace
