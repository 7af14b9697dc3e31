// SPDX-License-Identifier: BSD-3-Clause
// C := beta*C + alpha*A^T*B for few rows of op(A) or few columns of op(B), without packing. Rows of A and columns of B
// are runs of depth, so that a register takes several steps at once: an unpacking puts a pair of rows, four steps of
// each, into a register, and a column of B is spread to match by a shuffle within halves. That is a third of the
// shuffles that a panel of whole steps takes. The panel holds eight steps as two registers for each pair,
// as one for a single row.
#pragma once
#include "frame/path/vec_avx2.h"
#include "gemm/avx2/sgemm_path_avx2.h"
#include "gemm/body/sgemm_nocopy_kernel_body.h"

namespace
{
template <class v_, int vecs_> struct whole_rows {
    using v = v_;
    // With B in memory: 14.2 flops a cycle at 8 x 10000 x 1000 with one line ahead, 17.3 to 17.8 with two to four.
    static constexpr int vecs = vecs_, tile_n = 6, widest = tile_n, columns_ahead = 64, steps_ahead = 0;
    int64_t ahead; // distance of the next row tile, or 0 [elements]
    inline explicit whole_rows(int64_t m) : ahead(m > 16 ? 16 : 0) {}
    // Only a full tile has another behind it in memory.
    [[gnu::always_inline]] inline void fetch_next_rows(const float *a) const
    {
        if constexpr (vecs == 2)
            fetch_read(a + ahead);
    }
    inline typename v::reg load(const float *x, int i) const { return v::load(x + i * v::width); }
    inline void store(float *x, int i, typename v::reg value) const { v::store(x + i * v::width, value); }
    inline typename v::reg factor(float x, int) const { return v::set1(x); }
    inline void accumulate(typename v::reg (&z)[vecs], const typename v::reg (&x)[vecs], const float *y) const
    {
        const typename v::reg element = v::broadcast(y);
#pragma GCC unroll 2
        for (int i = 0; i < vecs; ++i)
            v::accumulate(z[i], x[i], element);
    }
};

// Columns that fill no tile are few; from this depth on they are taken by pairs of rows.
constexpr int64_t few_columns = 5, deep = 64;

// Half q of eight steps of a pair of rows: steps 4h + 2q and the next one in half h of the register, row beside row.
template <int q> inline __m256 pair_steps(__m256 x0, __m256 x1)
{
    return q == 0 ? _mm256_unpacklo_ps(x0, x1) : _mm256_unpackhi_ps(x0, x1);
}
template <int rows, int q> inline __m256 spread_steps(__m256 b)
{
    return rows == 1 ? b : _mm256_permute_ps(b, q == 0 ? 0x50 : 0xfa);
}

// Eight steps of a run of depth, or the last ones: steps beyond k come out as zeros.
struct eight_steps {
    inline __m256 operator()(const float *x) const { return vec_avx2::load(x); }
};
struct last_steps {
    __m256i valid;
    inline __m256 operator()(const float *x) const { return vec_avx2::load(x, valid); }
};

// Where a tile has its rows of op(A) from: the matrix, leaving them in the panel for the columns to come, or the panel.
// The rows that lie ahead are fetched, a line of each in sixteen steps.
template <int rows> struct rows_copied {
    static constexpr int pairs = (rows + 1) / 2;
    const float *first[pairs];
    int64_t lda;
    float *panel;
    int64_t ahead;
    inline rows_copied(const float *a, int64_t ld, float *to, int64_t distance) : lda(ld), panel(to), ahead(distance)
    {
#pragma GCC unroll 4
        for (int i = 0; i < pairs; ++i)
            first[i] = a + 2 * i * ld;
    }
    template <int q, class load> [[gnu::always_inline]] inline __m256 half(int pair, load steps) const
    {
        if constexpr (rows == 1)
            return kept(steps(first[0]), 0);
        else
            return kept(pair_steps<q>(steps(first[pair]), steps(first[pair] + lda)), 2 * pair + q);
    }
    template <class load> [[gnu::always_inline]] inline void both_halves(int pair, load steps, __m256 (&x)[2]) const
    {
        const __m256 x0 = steps(first[pair]);
        if constexpr (rows == 1) {
            x[0] = kept(x0, 0);
        } else {
            const __m256 x1 = steps(first[pair] + lda);
            x[0] = kept(pair_steps<0>(x0, x1), 2 * pair);
            x[1] = kept(pair_steps<1>(x0, x1), 2 * pair + 1);
        }
    }
    inline __m256 kept(__m256 x, int at) const
    {
        vec_avx2::store(panel + at * 8, x);
        return x;
    }
    [[gnu::always_inline]] inline void fetch(int64_t k) const
    {
        if (ahead != 0 && (k & 8) == 0)
#pragma GCC unroll 4
            for (int i = 0; i < pairs; ++i) {
                const float *next = first[i] + ahead;
                __asm__("" : "+r"(next)); // no sum of ahead and lda is kept
                fetch_read(next);
                if (rows > 1)
                    fetch_read(next + lda);
            }
    }
    static inline last_steps rest(int64_t k)
    {
        return {vec_avx2::first(k)};
    }
    inline void advance()
    {
        panel += 8 * rows;
#pragma GCC unroll 4
        for (int i = 0; i < pairs; ++i) {
            first[i] += 8;
            __asm__("" : "+r"(first[i]));
        }
    }
};
template <int rows> struct rows_of_panel {
    const float *panel;
    template <int q, class load> [[gnu::always_inline]] inline __m256 half(int pair, load) const
    {
        return vec_avx2::load(panel + (2 * pair + q) * 8);
    }
    template <class load> [[gnu::always_inline]] inline void both_halves(int pair, load, __m256 (&x)[2]) const
    {
        x[0] = vec_avx2::load(panel + 2 * pair * 8);
        if constexpr (rows > 1)
            x[1] = vec_avx2::load(panel + (2 * pair + 1) * 8);
    }
    static inline last_steps rest(int64_t k) { return {vec_avx2::first(k)}; }
    inline void fetch(int64_t) const {}
    inline void advance() { panel += 8 * rows; }
};

// Four rows, two or one, from the sums of their pairs: those of the halves, and of the runs of rows in them.
template <int rows> inline typename lanes<rows>::reg add_steps(const __m256 *pair)
{
    const auto halves = [](__m256 x) { return _mm_add_ps(_mm256_castps256_ps128(x), _mm256_extractf128_ps(x, 1)); };
    if constexpr (rows == 4) {
        const __m256d x = _mm256_castps_pd(pair[0]), y = _mm256_castps_pd(pair[1]);
        return halves(
            _mm256_add_ps(_mm256_castpd_ps(_mm256_unpacklo_pd(x, y)), _mm256_castpd_ps(_mm256_unpackhi_pd(x, y))));
    }
    const __m128 four = halves(pair[0]), two = _mm_add_ps(four, _mm_movehl_ps(four, four));
    if constexpr (rows == 2)
        return as_written(_mm_movelh_ps(two, _mm_setzero_ps())); // an infinity beside would meet a zero of alpha
    else if constexpr (rows == 1)
        return _mm_cvtss_f32(_mm_add_ss(two, _mm_movehdup_ps(two)));
}

// cols columns of 8, 6, 4, 2 or 1 rows, eight steps at a time. Halves of steps add up apart where the registers allow
// it.
template <int rows, int cols> struct paired_tile {
    static constexpr int pairs = (rows + 1) / 2, halves = rows == 1 ? 1 : 2;
    static constexpr int sets = pairs * cols <= 6 ? halves : 1;
    const float *three[2]; // columns 0 and 3
    int64_t ldb;
    __m256 acc[sets][cols][pairs];

    [[gnu::always_inline]] inline paired_tile(const float *b, int64_t ldb_) : three{b, b + 3 * ldb_}, ldb(ldb_)
    {
#pragma GCC unroll 2
        for (auto &set : acc)
#pragma GCC unroll 6
            for (auto &column : set)
#pragma GCC unroll 4
                for (__m256 &sum : column)
                    sum = vec_avx2::zero();
    }
    inline const float *column(int j) const
    {
        return three[j / 3] + j % 3 * ldb;
    }

    template <int q, class source, class load> [[gnu::always_inline]] inline void multiply(const source &a, load steps)
    {
        __m256 x[pairs];
#pragma GCC unroll 4
        for (int p = 0; p < pairs; ++p)
            x[p] = a.template half<q>(p, steps);
#pragma GCC unroll 6
        for (int j = 0; j < cols; ++j) {
            const __m256 element = spread_steps<rows, q>(steps(column(j)));
#pragma GCC unroll 4
            for (int p = 0; p < pairs; ++p)
                lanes<8>::accumulate(acc[q % sets][j][p], x[p], element);
        }
        // What comes behind would only take registers from the sums if it were begun here.
        __asm__ volatile("" ::: "memory");
    }
    // All rows are kept, so that nothing is loaded twice.
    template <class source, class load> [[gnu::always_inline]] inline void multiply_rows(const source &a, load steps)
    {
        __m256 x[pairs][2];
#pragma GCC unroll 4
        for (int p = 0; p < pairs; ++p)
            a.both_halves(p, steps, x[p]);
#pragma GCC unroll 6
        for (int j = 0; j < cols; ++j) {
            const __m256 y = steps(column(j));
            const __m256 element[2] = {spread_steps<rows, 0>(y), spread_steps<rows, 1>(y)};
#pragma GCC unroll 2
            for (int q = 0; q < halves; ++q)
#pragma GCC unroll 4
                for (int p = 0; p < pairs; ++p)
                    lanes<8>::accumulate(acc[q % sets][j][p], x[p][q], element[q]);
        }
    }
    // Half q of one pair of rows.
    template <int q, class source, class load>
    [[gnu::always_inline]] inline void multiply_half(const source &a, int p, load steps, const __m256 (&element)[cols])
    {
        const __m256 x = a.template half<q>(p, steps);
#pragma GCC unroll 3
        for (int j = 0; j < cols; ++j)
            lanes<8>::accumulate(acc[q % sets][j][p], x, element[j]);
        __asm__ volatile("" ::: "memory"); // the rows are loaded again for the other half, not kept
    }
    template <class source, class load> [[gnu::always_inline]] inline void multiply_all(const source &a, load steps)
    {
        if constexpr (rows == 8) {
            // There are registers for both halves: each row is loaded once.
            __m256 element[2][cols];
#pragma GCC unroll 2
            for (int j = 0; j < cols; ++j) {
                element[0][j] = spread_steps<rows, 0>(steps(column(j)));
                element[1][j] = spread_steps<rows, 1>(steps(column(j)));
            }
#pragma GCC unroll 4
            for (int p = 0; p < pairs; ++p) {
                __m256 x[2];
                a.both_halves(p, steps, x);
#pragma GCC unroll 2
                for (int q = 0; q < 2; ++q)
#pragma GCC unroll 2
                    for (int j = 0; j < cols; ++j)
                        lanes<8>::accumulate(acc[q % sets][j][p], x[q], element[q][j]);
            }
        } else if constexpr (rows == 6) {
            // There are registers for both halves of the columns, which are loaded once.
            __m256 element[2][cols];
#pragma GCC unroll 3
            for (int j = 0; j < cols; ++j) {
                const __m256 y = steps(column(j));
                element[0][j] = spread_steps<rows, 0>(y);
                element[1][j] = spread_steps<rows, 1>(y);
            }
#pragma GCC unroll 3
            for (int p = 0; p < pairs; ++p) {
                multiply_half<0>(a, p, steps, element[0]);
                multiply_half<1>(a, p, steps, element[1]);
            }
        } else if constexpr (rows > 1 && sets * cols * pairs + 2 * pairs + 2 <= 16) {
            // There are registers for both halves of the rows.
            multiply_rows(a, steps);
            __asm__ volatile("" ::: "memory");
        } else {
            multiply<0>(a, steps);
            if constexpr (halves == 2)
                multiply<1>(a, steps);
        }
    }
    template <class source> [[gnu::always_inline]] inline void multiply_depth(source a, int64_t k, int64_t b_ahead)
    {
#pragma GCC unroll 1
        for (; k >= 8; k -= 8) {
            a.fetch(k);
            if (b_ahead != 0 && (k & 8) == 0)
#pragma GCC unroll 6
                for (int j = 0; j < cols; ++j) {
                    const float *next = column(j) + b_ahead;
                    __asm__("" : "+r"(next));
                    fetch_read(next);
                }
            multiply_all(a, eight_steps());
            a.advance();
            three[0] += 8;
            three[1] += 8;
            __asm__("" : "+r"(three[0]), "+r"(three[1]));
        }
        if (k > 0)
            multiply_rows(a, source::rest(k)); // loads under a mask are slow
    }
    template <beta_form form>
    [[gnu::always_inline]] inline void store(float alpha, const float *beta, float *c, int64_t ldc) const
    {
        constexpr int run = rows % 4 == 0 ? 4 : rows == 1 ? 1 : 2;
        const whole_rows<lanes<run>, 1> r(run);
#pragma GCC unroll 6
        for (int j = 0; j < cols; ++j, c += ldc)
#pragma GCC unroll 3
            for (int i = 0; i < rows; i += run) {
                __m256 sum[2];
#pragma GCC unroll 2
                for (int p = 0; p < (run + 1) / 2; ++p) {
                    sum[p] = acc[0][j][i / 2 + p];
                    if constexpr (sets == 2)
                        sum[p] = _mm256_add_ps(sum[p], acc[1][j][i / 2 + p]);
                }
                r.store(c + i, 0, updated<form>(r, 0, alpha, add_steps<run>(sum), beta, c + i));
            }
    }
};

// The rows of a block, and its depth.
struct paired_block {
    int64_t m, k;
    const float *a;
    int64_t lda;
    float *panel;
    bool fetches;
    // Distances from rows i on to what comes next, or 0 [elements]: to the rows 16 further, or at the end to the first
    // ones of the next depth block, and from the last ones to its columns.
    inline int64_t a_ahead(int64_t i) const { return !fetches ? 0 : i + 16 < m ? 16 * lda : (i % 16 - i) * lda + k; }
    inline int64_t b_ahead(int64_t i, int rows) const { return fetches && i + rows >= m ? k : 0; }
};

// Tiles of rows rows from i on up to end, copied into the panel as they are multiplied. A call for each tile would take
// 3 % more time.
template <int rows, int cols, beta_form form>
[[gnu::noinline, gnu::aligned(64)]] void first_paired_columns(const paired_block &block, int64_t i, int64_t end,
                                                              const float *alpha, const float *b, int64_t ldb,
                                                              const float *beta, float *c, int64_t ldc)
{
    const paired_block p = block;
    const float scale = *alpha;
#pragma GCC unroll 1
    for (; end - i >= rows; i += rows) {
        paired_tile<rows, cols> t(b, ldb);
        t.multiply_depth(rows_copied<rows>(p.a + i * p.lda, p.lda, p.panel, p.a_ahead(i)), p.k, p.b_ahead(i, rows));
        t.template store<form>(scale, beta, c + i, ldc);
    }
}
// One tile out of the panel, c at its first element.
template <int rows, int cols, beta_form form>
[[gnu::noinline, gnu::aligned(64)]] void next_paired_columns(int64_t k, const float *alpha, const float *panel,
                                                             const float *b, int64_t ldb, const float *beta, float *c,
                                                             int64_t ldc, int64_t b_ahead)
{
    paired_tile<rows, cols> t(b, ldb);
    t.multiply_depth(rows_of_panel<rows>{panel}, k, b_ahead);
    t.template store<form>(*alpha, beta, c, ldc);
}
constexpr int widest = 6; // columns of a tile of 4, 2 or 1 rows
template <int rows, beta_form form>
constexpr decltype(&next_paired_columns<rows, 1, form>) next_by_columns[widest] = {
    next_paired_columns<rows, 1, form>, next_paired_columns<rows, 2, form>, next_paired_columns<rows, 3, form>,
    next_paired_columns<rows, 4, form>, next_paired_columns<rows, 5, form>, next_paired_columns<rows, 6, form>};

// Full tiles of rows rows from i on, against all columns. The first row behind them.
template <int rows, beta_form form>
[[gnu::always_inline]] inline int64_t paired_row_tiles(const paired_block &p, int64_t i, int64_t n, const float *alpha,
                                                       const float *b, int64_t ldb, const float *beta, float *c,
                                                       int64_t ldc)
{
    const int64_t end = i + (p.m - i) / rows * rows;
    if (i == end)
        return end;
    if constexpr (rows == 8) {
        if (n == 2)
            first_paired_columns<8, 2, form>(p, i, end, alpha, b, ldb, beta, c, ldc);
        else
            first_paired_columns<8, 1, form>(p, i, end, alpha, b, ldb, beta, c, ldc);
    } else if constexpr (rows == 6) {
        first_paired_columns<6, 3, form>(p, i, end, alpha, b, ldb, beta, c, ldc);
    } else {
        using columns = decltype(&first_paired_columns<rows, 1, form>);
        static constexpr columns first[widest] = {
            first_paired_columns<rows, 1, form>, first_paired_columns<rows, 2, form>,
            first_paired_columns<rows, 3, form>, first_paired_columns<rows, 4, form>,
            first_paired_columns<rows, 5, form>, first_paired_columns<rows, 6, form>};
        if (n <= widest)
            first[n - 1](p, i, end, alpha, b, ldb, beta, c, ldc);
        else
            for (; i < end; i += rows) {
                first[widest - 1](p, i, i + rows, alpha, b, ldb, beta, c, ldc);
                for (int64_t j = widest; j < n; j += widest)
                    next_by_columns<rows, form>[min_of(n - j, widest) - 1](p.k, alpha, p.panel, b + j * ldb, ldb, beta,
                                                                           c + i + j * ldc, ldc, p.b_ahead(i, rows));
            }
    }
    return end;
}

// Deep products: m rows of op(A), by 4 and then 2 and 1, by 8 or 6 before that where so few columns leave the registers
// for it.
template <beta_form form>
[[gnu::noinline, gnu::aligned(64)]] void paired_rows(int64_t m, int64_t n, int64_t k, const float *alpha,
                                                     const float *a, int64_t lda, float *panel, const float *b,
                                                     int64_t ldb, const float *beta, float *c, int64_t ldc)
{
    if (n <= 0) // a tile has at least one column
        return;
    const paired_block p = {m, k, a, lda, panel, max_of(m, n) * k > fetched_elements};
    int64_t i = 0;
    if (n <= 2)
        i = paired_row_tiles<8, form>(p, i, n, alpha, b, ldb, beta, c, ldc);
    if (n == 3)
        i = paired_row_tiles<6, form>(p, i, n, alpha, b, ldb, beta, c, ldc);
    i = paired_row_tiles<4, form>(p, i, n, alpha, b, ldb, beta, c, ldc);
    i = paired_row_tiles<2, form>(p, i, n, alpha, b, ldb, beta, c, ldc);
    paired_row_tiles<1, form>(p, i, n, alpha, b, ldb, beta, c, ldc);
}

// One tile of shallow rows: all of it goes into the panel first.
template <int rows, beta_form form>
[[gnu::always_inline]] inline void shallow_row_tile(int64_t n, int64_t k, const float *alpha, const float *a,
                                                    int64_t lda, float *panel, const float *b, int64_t ldb,
                                                    const float *beta, float *c, int64_t ldc)
{
    rows_copied<rows> source(a, lda, panel, 0);
    __m256 x[2];
    int64_t l = k;
    for (; l >= 8; l -= 8, source.advance())
#pragma GCC unroll 2
        for (int p = 0; p < source.pairs; ++p)
            source.both_halves(p, eight_steps(), x);
    if (l > 0)
#pragma GCC unroll 2
        for (int p = 0; p < source.pairs; ++p)
            source.both_halves(p, source.rest(l), x);
    for (; n >= widest; n -= widest, b += widest * ldb, c += widest * ldc)
        next_paired_columns<rows, widest, form>(k, alpha, panel, b, ldb, beta, c, ldc, 0);
    if (n > 0)
        next_by_columns<rows, form>[n - 1](k, alpha, panel, b, ldb, beta, c, ldc, 0);
}
// Shallow products: less than 8 rows of op(A).
template <beta_form form>
[[gnu::noinline, gnu::aligned(64)]] void shallow_rows(int64_t m, int64_t n, int64_t k, const float *alpha,
                                                      const float *a, int64_t lda, float *panel, const float *b,
                                                      int64_t ldb, const float *beta, float *c, int64_t ldc)
{
    if (m & 4) {
        shallow_row_tile<4, form>(n, k, alpha, a, lda, panel, b, ldb, beta, c, ldc);
        a += 4 * lda;
        c += 4;
    }
    if (m & 2) {
        shallow_row_tile<2, form>(n, k, alpha, a, lda, panel, b, ldb, beta, c, ldc);
        a += 2 * lda;
        c += 2;
    }
    if (m & 1)
        shallow_row_tile<1, form>(n, k, alpha, a, lda, panel, b, ldb, beta, c, ldc);
}
} // namespace
