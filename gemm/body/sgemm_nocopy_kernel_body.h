// SPDX-License-Identifier: BSD-3-Clause
// C := beta*C + alpha*op(A)*op(B) on one block, read where it lies: row tiles outside, column tiles inside, one register
// tile of accumulators per pair. alpha comes in at the end of a tile.
//
// An operand is a pointer and the strides of depth and column, so that one body serves every transposition. Rows of a
// tile must be neighbours: A transposed, and A that lies badly for many column tiles, goes through a private panel on the
// stack, one row tile at a time.
//
// p is the path (gemm/<path>/sgemm_kernel_nocopy_<path>.cpp):
//   tile_n              columns of a tile
//   panel_m             rows of a full tile, and the panel's width [elements]
//   whole_columns       columns up to which badly lying A is still read in place
//   row_tiles           the rows of a block, tile by tile
//   copy, transpose     a row tile into the panel
#pragma once
#include "frame/path/path_util.h"
#include "gemm/sgemm_paths.h"

namespace
{
enum class beta_form { zero, one, other };

// What the row tiles of a block share.
struct nocopy_block {
    int64_t n, k;
    float alpha, beta;
    const float *b;
    int64_t b_depth, b_column; // strides of op(B) [elements]
    int64_t ldc;
};

// Columns j .. j + cols - 1 of a tile of vecs registers of rows. rows loads, accumulates and stores them.
template <class rows, int cols, beta_form form>
[[gnu::always_inline]] inline void nocopy_tile(const rows &r, const nocopy_block &x, const float *a, int64_t a_depth,
                                               const float *b, float *c)
{
    using v = typename rows::v;
    constexpr int vecs = rows::vecs;
    const int64_t b_depth = x.b_depth, b_column = x.b_column, ldc = x.ldc;
    typename v::reg acc[cols][vecs];
#pragma GCC unroll 8
    for (int j = 0; j < cols; ++j)
#pragma GCC unroll 4
        for (int i = 0; i < vecs; ++i)
            acc[j][i] = v::zero();

    const float *b4 = b + 4 * b_column;
    const auto step = [&]() __attribute__((always_inline))
    {
        typename v::reg av[vecs];
#pragma GCC unroll 4
        for (int i = 0; i < vecs; ++i)
            av[i] = r.load(a, i);
#pragma GCC unroll 8
        for (int j = 0; j < cols; ++j) {
            const typename v::reg bj = v::broadcast(j < 4 ? b + j * b_column : b4 + (j - 4) * b_column);
#pragma GCC unroll 4
            for (int i = 0; i < vecs; ++i)
                r.accumulate(acc[j][i], av[i], bj, i);
        }
        a += a_depth;
        b += b_depth;
        b4 += b_depth;
        // Three running addresses and the strides: what the compiler would precompute instead does not fit the registers.
        __asm__("" : "+r"(a), "+r"(b), "+r"(b4));
    };
    int64_t k = x.k;
#pragma GCC unroll 1
    for (; k >= 8; k -= 8) {
#pragma GCC unroll 8
        for (int l = 0; l < 8; ++l)
            step();
    }
#pragma GCC unroll 1
    for (; k > 0; --k)
        step();

    if constexpr (form == beta_form::zero)
        if (x.alpha == 1.0f) { // a product with 1 changes nothing and takes the multipliers' time
#pragma GCC unroll 8
            for (int j = 0; j < cols; ++j, c += ldc)
#pragma GCC unroll 4
                for (int i = 0; i < vecs; ++i)
                    r.store(c, i, acc[j][i]);
            return;
        }
    const typename v::reg alpha = v::set1(x.alpha);
#pragma GCC unroll 8
    for (int j = 0; j < cols; ++j, c += ldc)
#pragma GCC unroll 4
        for (int i = 0; i < vecs; ++i) {
            if constexpr (form == beta_form::zero) {
                r.store(c, i, v::mul(alpha, acc[j][i]));
            } else {
                typename v::reg sum = r.load(c, i);
                if constexpr (form == beta_form::other)
                    sum = v::mul(v::set1(x.beta), sum);
                v::accumulate(sum, alpha, acc[j][i]);
                r.store(c, i, sum);
            }
        }
}

// One row tile against all columns. Each count of rest columns is a branch of its own.
template <class p, class rows, beta_form form>
[[gnu::noinline]] void row_tile(const nocopy_block &x, rows r, const float *a, int64_t a_depth, float *c)
{
    const float *b = x.b;
    int64_t n = x.n;
    for (; n >= p::tile_n; n -= p::tile_n, b += p::tile_n * x.b_column, c += p::tile_n * x.ldc)
        nocopy_tile<rows, p::tile_n, form>(r, x, a, a_depth, b, c);
    switch (n) {
    case 7:
        if constexpr (p::tile_n > 7)
            nocopy_tile<rows, 7, form>(r, x, a, a_depth, b, c);
        break;
    case 6:
        if constexpr (p::tile_n > 6)
            nocopy_tile<rows, 6, form>(r, x, a, a_depth, b, c);
        break;
    case 5:
        nocopy_tile<rows, 5, form>(r, x, a, a_depth, b, c);
        break;
    case 4:
        nocopy_tile<rows, 4, form>(r, x, a, a_depth, b, c);
        break;
    case 3:
        nocopy_tile<rows, 3, form>(r, x, a, a_depth, b, c);
        break;
    case 2:
        nocopy_tile<rows, 2, form>(r, x, a, a_depth, b, c);
        break;
    case 1:
        nocopy_tile<rows, 1, form>(r, x, a, a_depth, b, c);
        break;
    default:
        break;
    }
}

// The rows of a transposed tile, count of them: neighbours in memory are the steps of one row. Whole tiles are addressed by
// four pointers and the stride; rows beyond a partial one repeat its last.
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
    const float *a;
    int64_t depth_stride;
    inline const float *tile(int64_t i, int64_t) const { return a + i; }
};
template <class p, bool transposed> struct rows_in_panel {
    const float *a;
    int64_t lda, k;
    float *panel;
    static constexpr int64_t depth_stride = p::panel_m;
    inline const float *tile(int64_t i, int64_t rows) const
    {
        if constexpr (transposed)
            p::transpose(rows, k, a + i * lda, lda, panel);
        else
            p::copy(rows, k, a + i, lda, panel);
        return panel;
    }
};

// The panel lies on a page boundary of the stack. It is touched from its upper end downwards, a page at a time, so that a
// stack that is too short is met at its guard page.
template <class p, bool transposed, beta_form form>
[[gnu::noinline]] void product_by_panel(const nocopy_block &x, int64_t m, const float *a, int64_t lda, float *c)
{
    constexpr int64_t page = 4096;
    const int64_t bytes = ((x.k + 16) & ~INT64_C(15)) * p::panel_m * 4 + 256;
    char *const memory = static_cast<char *>(__builtin_alloca(static_cast<size_t>(bytes + page)));
    for (int64_t at = bytes; at > 0; at -= page)
        *static_cast<volatile char *>(memory + at) = 0;
    char *const panel = memory + (-reinterpret_cast<intptr_t>(memory) & (page - 1));
    p::template row_tiles<form>(x, m, rows_in_panel<p, transposed>{a, lda, x.k, reinterpret_cast<float *>(panel)}, c);
}

template <class p, bool a_transposed, bool b_transposed, beta_form form>
[[gnu::always_inline]] inline void nocopy_kernel(int64_t m, int64_t n, int64_t k, const float *alpha, const float *a,
                                                 int64_t lda, const float *b, int64_t ldb, const float *beta, float *c,
                                                 int64_t ldc)
{
    const nocopy_block x = {
        n, k, *alpha, form == beta_form::other ? *beta : 0.0f, b, b_transposed ? ldb : 1, b_transposed ? 1 : ldb, ldc};
    const bool lies_badly = ((reinterpret_cast<uintptr_t>(a) | static_cast<uintptr_t>(lda) * 4) & 7) != 0;
    if (a_transposed || (lies_badly && n > p::whole_columns))
        product_by_panel<p, a_transposed, form>(x, m, a, lda, c);
    else
        p::template row_tiles<form>(x, m, rows_in_place{a, lda}, c);
}
} // namespace
