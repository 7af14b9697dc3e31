// SPDX-License-Identifier: BSD-3-Clause
// a := alpha*a^T in place, n x n: tiles for alpha = 1, pairs that are scaled as they swap for any other; and the share
// of a team's worker.
#pragma once
#include "trans/body/ssqtrans_body.h"
#include "trans/trans.h"

namespace
{
constexpr uint64_t square_team_least = 257; // [elements]
constexpr int32_t square_team_class = 6;    // what ssqtrans_team answers

// x, y := alpha*y, alpha*x; x = y is scaled once.
inline void exchange_scaled(float *x, float *y, float alpha)
{
    const float product_x = alpha * *x, product_y = alpha * *y;
    *x = product_y;
    *y = product_x;
}

// Row i against column i up to the diagonal.
inline void square_t_scaled(uint64_t n, float *a, uint64_t lda, float alpha)
{
    for (uint64_t i = 0; i < n; ++i) {
        float *const row = a + i * lda, *const column = a + i;
        in_rounds<pair_round>(i + 1, [=](uint64_t k) { exchange_scaled(row + k, column + k * lda, alpha); });
    }
}

// path names ssqtrans and team.
template <class path> void simatcopy_square_t_body(uint64_t n, float *a, uint64_t lda, float alpha)
{
    trans_took(trans_route_square_t);
    if (alpha == 1.0f) {
        if (n >= square_team_least && tesh_trans_tesh_simatcopy_square_t_par(n, a, lda, path::team) != 0)
            return;
        if (path::ssqtrans(a, n, lda) == 0)
            return;
    }
    square_t_scaled(n, a, lda, alpha);
}

// Deals the pieces of the square out: piece number t goes to worker t mod workers. Pieces do not overlap, so that
// workers may run in any order or at once: diagonal tiles of 32, the diagonal tile of 16 that is left, pairs of 32 x 32
// tiles, pairs of the last column of 16 x 16 tiles, then the strips of n mod 16 in lengths of 16, and the corner.
template <class t>
void simatcopy_square_t_team_body(uint64_t n, float *a, uint64_t lda, uint64_t worker, uint64_t workers)
{
    if (workers == 0)
        return;
    const square_tiles<t> square{a, lda};
    const uint64_t tiles = n / square_tile, doubles = tiles / 2, rest = n % square_tile;
    for (uint64_t k = worker; k < doubles; k += workers) {
        square.transpose(2 * k);
        square.transpose(2 * k + 1);
        square.swap(2 * k, 2 * k + 1);
    }
    if (tiles % 2 != 0 && doubles % workers == worker)
        square.transpose(tiles - 1);
    uint64_t piece = 0;
    for (uint64_t i = 0; i < doubles; ++i) {
        for (uint64_t j = i + 1; j < doubles; ++j) {
            if (piece++ % workers != worker)
                continue;
            for (uint64_t u = 0; u < 4; ++u)
                square.swap(2 * i + u / 2, 2 * j + u % 2);
        }
    }
    if (tiles % 2 != 0)
        for (uint64_t i = worker; i + 1 < tiles; i += workers)
            square.swap(i, tiles - 1);
    const uint64_t whole = n - rest;
    for (uint64_t i = worker; i < tiles; i += workers)
        exchange_strip(a, lda, square_tile * i, square_tile * (i + 1), whole, rest);
    if (tiles % workers == worker)
        transpose_corner(a, lda, whole, rest);
}

template <class t> void simatcopy_square_t_64x64n_body(float *p, float *q, uint64_t lda, int32_t diagonal)
{
    constexpr uint64_t side = 64 / square_tile;
    const bool in_itself = p == q && diagonal != 0;
    for (uint64_t i = 0; i < side; ++i) {
        if (in_itself)
            t::strans(p + square_tile * (i * lda + i), lda);
        for (uint64_t j = in_itself ? i + 1 : 0; j < side; ++j)
            t::sswap(p + square_tile * (i * lda + j), q + square_tile * (j * lda + i), lda);
    }
}
} // namespace
