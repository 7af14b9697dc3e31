// SPDX-License-Identifier: BSD-3-Clause
// C := C + A*B, or C := A*B, over a packed pair of blocks: row panels outside, column panels inside, one register tile
// of accumulators per pair of panels.
//
// p is the path's tile (gemm/<path>/sgemm_path_<path>.h):
//   panel_n        full width of a B panel [elements]
//   c_groups       groups of four depth steps, from the end, that fetch the C tile
//   shallow_k      most depth of a tile that is too short to fetch for itself
//   a_ahead        distance at which A is fetched [elements], 0 where the processor's own stream will do
//   b_ahead        distance at which B is fetched [elements]
//   next_a_lines   lines of the next A panel fetched per column of a finished tile, beside one at the tile's head: with
//                  a full B block the panel is covered once
//   c_head         place in each column of C that is fetched at the tile's head [elements], -1 for none
//   fetch_c        fetches a line of C
#pragma once
#include <immintrin.h>

#include "gemm/sgemm_paths.h"

namespace
{
// What one depth step of a tile does: acc[j][i] += a[i] * b[j]. Columns from split on stand in the next panel, beyond
// elements further.
template <class v, int rv, int cols, int split>
[[gnu::always_inline]] inline void tile_step(typename v::reg (&acc)[cols][rv], const float *a, const float *b,
                                             int64_t beyond)
{
    typename v::reg av[rv];
#pragma GCC unroll 4
    for (int i = 0; i < rv; ++i)
        av[i] = v::load(a + i * v::width);
    const auto element = [&](int j) __attribute__((always_inline))
    {
        return v::broadcast(j < split ? b + j : b + beyond + j);
    };
    if constexpr (rv == 1 && split < cols) {
        // With one register of rows, loading each element for itself takes longer than multiplying it. Two come out of
        // one load of a panel's four; three would take a register too many.
        constexpr int from = split % 4;
        const typename v::reg four = v::four(from < split ? b + from : b + beyond + from);
#pragma GCC unroll 8
        for (int j = 0; j < cols; ++j)
            v::accumulate(acc[j][0], av[0], j == from || j == from + 1 ? v::spread(four, j - from) : element(j));
        return;
    }
#pragma GCC unroll 8
    for (int j = 0; j < cols; ++j) {
        const typename v::reg bj = element(j);
#pragma GCC unroll 4
        for (int i = 0; i < rv; ++i)
            v::accumulate(acc[j][i], av[i], bj);
    }
}

// Fetches the C tile into the cache, for writing, a line at a time: first lines of all columns, then the next ones.
template <class p, int cols> struct c_fetch {
    const char *line, *next;
    int64_t column_bytes;
    int left = cols;
    c_fetch(const float *c, int64_t ldc)
        : line(reinterpret_cast<const char *>(c)), next(line + 64), column_bytes(ldc * 4)
    {
    }
    [[gnu::always_inline]] inline void step()
    {
        p::fetch_c(line);
        line += column_bytes;
        if (--left == 0) {
            left = cols;
            line = next;
            next += 64;
        }
    }
};

// One tile: rv registers of rows, cols columns, the whole depth. With two sets of sums even and odd depth steps add up
// apart, so that a tile of few registers does not wait for its own sums. A tile of more columns than the panel gives,
// from b on, takes those from split on out of the next panel.
template <class p, class v, int rv, int cols, bool read_c, int sets, int split = cols>
[[gnu::always_inline]] inline void tile(int64_t depth, const float *a, const float *b, float *c, int64_t ldc,
                                        const char *&next_a)
{
    constexpr int rows = rv * v::width, b_step = split < cols ? p::panel_n : cols;
    const int64_t beyond = p::panel_n * (depth - 1);
    typename v::reg acc[sets][cols][rv];
#pragma GCC unroll 2
    for (int s = 0; s < sets; ++s)
#pragma GCC unroll 8
        for (int j = 0; j < cols; ++j)
#pragma GCC unroll 4
            for (int i = 0; i < rv; ++i)
                acc[s][j][i] = v::zero();

    _mm_prefetch(next_a, _MM_HINT_T2);
    next_a += 64;
    if constexpr (p::c_head >= 0)
#pragma GCC unroll 8
        for (int j = 0; j < cols; ++j)
            _mm_prefetch(reinterpret_cast<const char *>(c + j * ldc + p::c_head), _MM_HINT_T0);

    const auto group = [&]() __attribute__((always_inline))
    {
        _mm_prefetch(reinterpret_cast<const char *>(b + p::b_ahead), _MM_HINT_T0);
        if constexpr (b_step * 4 > 16)
            _mm_prefetch(reinterpret_cast<const char *>(b + p::b_ahead + 16), _MM_HINT_T0);
        if constexpr (split < cols)
            _mm_prefetch(reinterpret_cast<const char *>(b + beyond + p::b_ahead), _MM_HINT_T0);
#pragma GCC unroll 4
        for (int l = 0; l < 4; ++l) {
            if constexpr (p::a_ahead > 0)
                if (l % 2 == 0)
                    _mm_prefetch(reinterpret_cast<const char *>(a + l * rows + p::a_ahead), _MM_HINT_T0);
            tile_step<v, rv, cols, split>(acc[l % sets], a + l * rows, b + l * b_step, beyond);
        }
        a += 4 * rows;
        b += 4 * b_step;
    };

    int64_t groups = depth >> 2;
#pragma GCC unroll 1
    for (; groups > p::c_groups; --groups)
        group();
    // A shallow tile is over before what it asks for comes: it fetches for the row panel behind it, which asks for C at
    // the same columns.
    c_fetch<p, cols> fetch(depth <= p::shallow_k ? c + rows : c, ldc);
    constexpr int lines = cols * (rows * 4 / 64 + 1);
    const int64_t each = groups >= lines ? 1 : lines / (groups + 1) + 1; // lines for a group, all in a short depth
#pragma GCC unroll 1
    for (; groups > 0; --groups) {
#pragma GCC unroll 1
        for (int64_t i = 0; i < each; ++i)
            fetch.step();
        group();
    }
    for (int64_t l = depth & ~INT64_C(3); l < depth; ++l, a += rows, b += b_step) {
        if (sets == 1 || l % 2 == 0)
            tile_step<v, rv, cols, split>(acc[0], a, b, beyond);
        else
            tile_step<v, rv, cols, split>(acc[sets - 1], a, b, beyond);
    }

#pragma GCC unroll 8
    for (int j = 0; j < cols; ++j, c += ldc)
#pragma GCC unroll 4
        for (int i = 0; i < rv; ++i) {
            if (i < p::next_a_lines) {
                _mm_prefetch(next_a, _MM_HINT_T2);
                next_a += 64;
            }
            const typename v::reg sum = sets == 1 ? acc[0][j][i] : v::add(acc[0][j][i], acc[sets - 1][j][i]);
            v::store(c + i * v::width, read_c ? v::add(v::load(c + i * v::width), sum) : sum);
        }
}

// One row panel against all column panels of the B block. Where a panel of columns gives too few sums to keep the
// multipliers busy, two tiles share three panels.
template <class p, class v, int rv, bool read_c, int sets = 1, bool shares_panels = false>
[[gnu::noinline]] void row_panel(int64_t n, int64_t depth, const float *a, const float *b, float *c, int64_t ldc)
{
    const char *next_a = reinterpret_cast<const char *>(a + depth * rv * v::width);
    if constexpr (shares_panels) {
        constexpr int half = p::panel_n / 2, cols = p::panel_n + half;
        for (; n >= 2 * cols; n -= 2 * cols, b += 3 * p::panel_n * depth, c += 2 * cols * ldc) {
            tile<p, v, rv, cols, read_c, sets, p::panel_n>(depth, a, b, c, ldc, next_a);
            tile<p, v, rv, cols, read_c, sets, half>(depth, a, b + p::panel_n * depth + half, c + cols * ldc, ldc,
                                                     next_a);
        }
    }
    for (; n >= p::panel_n; n -= p::panel_n, b += p::panel_n * depth, c += p::panel_n * ldc)
        tile<p, v, rv, p::panel_n, read_c, sets>(depth, a, b, c, ldc, next_a);
    if constexpr (p::panel_n > 4)
        if (n & 4) {
            tile<p, v, rv, 4, read_c, sets>(depth, a, b, c, ldc, next_a);
            b += 4 * depth;
            c += 4 * ldc;
        }
    if (n & 2) {
        tile<p, v, rv, 2, read_c, sets>(depth, a, b, c, ldc, next_a);
        b += 2 * depth;
        c += 2 * ldc;
    }
    if (n & 1)
        tile<p, v, rv, 1, read_c, sets>(depth, a, b, c, ldc, next_a);
}

// The operands of a kernel as the row panels are peeled off.
struct packed_pair {
    int64_t n, depth;
    const float *a, *b;
    float *c;
    int64_t ldc;
    template <class p, class v, int rv, bool read_c, int sets = 1, bool shares_panels = false>
    [[gnu::always_inline]] inline void rows()
    {
        row_panel<p, v, rv, read_c, sets, shares_panels>(n, depth, a, b, c, ldc);
        a += rv * v::width * depth;
        c += rv * v::width;
    }
};

// From views to sizes and addresses. beta is 0 or 1 here.
[[gnu::always_inline]] inline void ker0(tesh_blas_sgemm_kernel_fn *add, tesh_blas_sgemm_kernel_fn *store,
                                        const float *one, const blas_matrix_view *a, const blas_matrix_view *b,
                                        const float *beta, const blas_matrix_view *c)
{
    (*beta == 0.0f ? store : add)(&c->rows, &c->cols, &a->rows, one, static_cast<const float *>(a->base),
                                  static_cast<const float *>(b->base), static_cast<float *>(c->base), c->ld);
}
} // namespace
