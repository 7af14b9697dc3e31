// SPDX-License-Identifier: BSD-3-Clause
// Row panels of 8, 4, 2 or 1 rows against the full column panels. A register holds the rows of several columns side by
// side, and several column panels are in work at once: registers are full, and there are sums enough that none waits
// for itself. Each element of C is still one chain of sums in the order of depth.
//
// A path gives, for a register type w and a row count r,
//   spreader<w, r>::repeat(a)      the r rows of a step, repeated over the register
//   spreader<w, r>::spread<q>(b)   columns q*width/r and on of a step, each repeated r times
#pragma once
#include "gemm/body/sgemm_kernel_body.h"

namespace
{
template <class w, int r> struct spreader;

// The runs of r lanes of a register are columns of C.
template <class w, int r, bool read_c>
[[gnu::always_inline]] inline void put_columns(float *c, int64_t ldc, typename w::reg x)
{
    if constexpr (w::width > r) {
        using half = lanes<w::width / 2>;
        put_columns<half, r, read_c>(c, ldc, w::low(x));
        put_columns<half, r, read_c>(c + w::width / 2 / r * ldc, ldc, w::high(x));
    } else {
        w::store(c, read_c ? w::add(w::load(c), x) : x);
    }
}

template <class p, class w, int r, int regs, int panels, int q>
[[gnu::always_inline]] inline void narrow_step(typename w::reg (&acc)[panels][regs], typename w::reg a, const float *b,
                                               int64_t next)
{
#pragma GCC unroll 8
    for (int g = 0; g < panels; ++g)
        w::accumulate(acc[g][q], a, spreader<w, r>::template spread<q>(b + g * next));
    if constexpr (q + 1 < regs)
        narrow_step<p, w, r, regs, panels, q + 1>(acc, a, b, next);
}

// r rows by panels column panels.
template <class p, class w, int r, int panels, bool read_c>
[[gnu::always_inline]] inline void narrow_tile(int64_t depth, const float *a, const float *b, float *c, int64_t ldc)
{
    constexpr int regs = p::panel_n * r / w::width, columns = w::width / r;
    const int64_t next = p::panel_n * depth; // from a column panel to the one behind it
    typename w::reg acc[panels][regs];
#pragma GCC unroll 8
    for (int g = 0; g < panels; ++g)
#pragma GCC unroll 4
        for (int q = 0; q < regs; ++q)
            acc[g][q] = w::zero();
    int64_t l = 0;
#pragma GCC unroll 1
    for (; l + 4 <= depth; l += 4, a += 4 * r, b += 4 * p::panel_n)
#pragma GCC unroll 4
        for (int u = 0; u < 4; ++u)
            narrow_step<p, w, r, regs, panels, 0>(acc, spreader<w, r>::repeat(a + u * r), b + u * p::panel_n, next);
#pragma GCC unroll 1
    for (; l < depth; ++l, a += r, b += p::panel_n)
        narrow_step<p, w, r, regs, panels, 0>(acc, spreader<w, r>::repeat(a), b, next);
#pragma GCC unroll 8
    for (int g = 0; g < panels; ++g)
#pragma GCC unroll 4
        for (int q = 0; q < regs; ++q)
            put_columns<w, r, read_c>(c + (g * p::panel_n + q * columns) * ldc, ldc, acc[g][q]);
}

// One narrow row panel against all column panels; the narrow column panels by the plain tile.
template <class p, class w, int r, int panels, bool read_c>
[[gnu::noinline]] void narrow_panel(int64_t n, int64_t depth, const float *a, const float *b, float *c, int64_t ldc)
{
    constexpr int across = panels * p::panel_n;
#pragma GCC unroll 1
    for (; n >= across; n -= across, b += across * depth, c += across * ldc)
        narrow_tile<p, w, r, panels, read_c>(depth, a, b, c, ldc);
#pragma GCC unroll 1
    for (; n >= p::panel_n; n -= p::panel_n, b += p::panel_n * depth, c += p::panel_n * ldc)
        narrow_tile<p, w, r, 1, read_c>(depth, a, b, c, ldc);
    if (n > 0) {
        _mm256_zeroupper(); // GCC 12 leaves it out before a jump to a function that spares some registers
        row_panel<p, lanes<r>, 1, read_c>(n, depth, a, b, c, ldc);
    }
}

template <class p, class w, int r, int panels, bool read_c> inline void narrow_rows(packed_pair &pair)
{
    narrow_panel<p, w, r, panels, read_c>(pair.n, pair.depth, pair.a, pair.b, pair.c, pair.ldc);
    pair.a += r * pair.depth;
    pair.c += r;
}
} // namespace
