// SPDX-License-Identifier: BSD-3-Clause
// a := alpha*a^T in place, n x n: tiles for alpha = 1, pairs that are scaled as they swap for any other; and the share
// of a team's worker.
#pragma once
#include "trans/body/settled.h"
#include "trans/body/ssqtrans_body.h"
#include "trans/trans.h"

namespace
{
constexpr uint64_t square_team_least = 257; // [elements]
constexpr int32_t square_team_class = 6;    // what ssqtrans_team answers
constexpr uint64_t way_bytes = 4096;        // [bytes] between lines that share one set of the first cache
constexpr uint64_t aliased_lines = 16;      // [lines] in one set from which on stores wait

// x, y := alpha*y, alpha*x; x = y is scaled once.
inline void exchange_scaled(float *x, float *y, float alpha)
{
    const float product_x = alpha * *x, product_y = alpha * *y;
    *x = product_y;
    *y = product_x;
}

// Row i against column i up to the diagonal. steps_back: two rounds begin when the stores of the two that many times
// before have left the queue (trans/body/settled.h), for the loads in front would throw out the lines that these are to
// be written to; 0: at once.
template <int steps_back> void exchange_rows_scaled(uint64_t n, float *a, uint64_t lda, float alpha)
{
    constexpr uint64_t together = 2 * pair_round;
    for (uint64_t i = 0; i < n; ++i) {
        float *row = a + i * lda, *column = a + i;
        uint64_t left = i + 1, zero_before = 0;
        for (; steps_back > 0 && left >= together; left -= together) {
#pragma GCC unroll 8
            for (uint64_t k = 0; k < together; ++k)
                exchange_scaled(row + k, column + k * lda, alpha);
            const uint64_t zero = settled_zero(column + (together - 1) * lda - 1);
            row += together;
            column += together * lda + (steps_back == 1 ? zero : zero_before);
            zero_before = zero;
        }
        in_rounds<pair_round>(left, [=](uint64_t k) { exchange_scaled(row + k, column + k * lda, alpha); });
    }
}

inline void square_t_scaled(uint64_t n, float *a, uint64_t lda, float alpha)
{
    const uint64_t line = lda * sizeof *a, apart = line & (0 - line); // the power of two in the distance of lines
    const uint64_t sharing = apart < way_bytes ? apart : way_bytes;
    if (sharing < aliased_bytes || n * sharing <= way_bytes * aliased_lines)
        exchange_rows_scaled<0>(n, a, lda, alpha);
    else if (sharing == way_bytes)
        exchange_rows_scaled<1>(n, a, lda, alpha);
    else
        exchange_rows_scaled<2>(n, a, lda, alpha);
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
