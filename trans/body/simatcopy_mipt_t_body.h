// SPDX-License-Identifier: BSD-3-Clause
// Transposition of a rectangle in place by following cycles, without a buffer and without marks.
//
// With L = lda and M = ldb, f(p) = (p mod L)*M + p div L sends the position of element (i, j) to that of (j, i) in the
// result; it permutes 0 .. L*M-1. Each cycle is moved when the walk over the source elements meets its leader, the
// lowest source position on it; every other element finds a lower one on its cycle and is left alone. Positions on a
// cycle that are no source carry no value, and positions that receive no value keep theirs: padding survives.
//
// On all positions but the last f(p) = p*M mod (L*M - 1), so that k steps at once are one product modulo L*M - 1, and
// steps that follow each other need not wait for each other. A remainder below 2^32 is two products: the fraction of
// p*w / n in 64 bits, times n (Lemire, Kaser, Kurz 2019, "Faster remainder by direct computation"). The walk ends as
// soon as every element has been moved.
#pragma once
#include <stdint.h>

#include "trans/routes.h"

namespace
{
constexpr uint64_t cycle_steps = 4;                          // at once
constexpr uint64_t cycle_products_below = uint64_t(1) << 32; // [positions] that 64 bits of a fraction tell apart

inline uint64_t high_product(uint64_t x, uint64_t y)
{
    return static_cast<uint64_t>((static_cast<unsigned __int128>(x) * y) >> 64);
}

// ceil(2^64 * x / n) for x < n < 2^32.
inline uint64_t fraction_of(uint64_t x, uint64_t n)
{
    const uint64_t upper = (x << 32) / n, rest = (x << 32) % n;
    return (upper << 32 | (rest << 32) / n) + ((rest << 32) % n != 0);
}

// Steps by products, for lda * ldb <= cycle_products_below. tight: every position is a source.
template <bool tight> struct cycles_by_products {
    uint64_t n_outer, n_inner, lda, last;
    uint64_t line_fraction;              // 1 / lda
    uint64_t step_fraction[cycle_steps]; // ldb, ldb^2, .. modulo last, by last

    cycles_by_products(uint64_t outer, uint64_t inner, uint64_t ld_source, uint64_t ld_result)
        : n_outer(outer), n_inner(inner), lda(ld_source), last(ld_source * ld_result - 1),
          line_fraction(fraction_of(1, ld_source))
    {
        uint64_t power = 1;
        for (uint64_t &fraction : step_fraction) {
            power = power * ld_result % last;
            fraction = fraction_of(power, last);
        }
    }
    // The next positions behind p, which is not the last.
    void next(uint64_t p, uint64_t *to) const
    {
#pragma GCC unroll 4
        for (uint64_t k = 0; k < cycle_steps; ++k)
            to[k] = high_product(p * step_fraction[k], last);
    }
    bool is_in_columns(uint64_t p) const
    {
        return tight || high_product(p * line_fraction, lda) < n_inner;
    }
    bool is_source(uint64_t p) const
    {
        return tight || (high_product(p, line_fraction) < n_outer && is_in_columns(p));
    }
};

struct cycles_by_division {
    uint64_t n_outer, n_inner, lda, ldb; // of the source; ldb of the result

    void next(uint64_t p, uint64_t *to) const
    {
        for (uint64_t k = 0; k < cycle_steps; ++k)
            to[k] = p = p % lda * ldb + p / lda;
    }
    bool is_in_columns(uint64_t p) const { return p % lda < n_inner; }
    bool is_source(uint64_t p) const { return p / lda < n_outer && is_in_columns(p); }
};

// Whether the cycle of p has no source position below p. Steps beyond the one that comes back to p meet none that is
// new.
template <class cycles> inline bool is_leader(const cycles &walk, uint64_t p)
{
    uint64_t q[cycle_steps];
    for (walk.next(p, q);; walk.next(q[cycle_steps - 1], q)) {
        bool back = false;
#pragma GCC unroll 4
        for (uint64_t k = 0; k < cycle_steps; ++k) {
            if (q[k] < p && walk.is_in_columns(q[k]))
                return false;
            back |= q[k] == p;
        }
        if (back)
            return true;
    }
}

// Moves the cycle of a leader; answers how many elements landed.
template <class cycles> uint64_t move_cycle(const cycles &walk, uint64_t leader, float *a, float alpha)
{
    uint64_t landed = 0, to[cycle_steps];
    float hold = a[leader];
    bool holds = true;
    for (walk.next(leader, to);; walk.next(to[cycle_steps - 1], to)) {
#pragma GCC unroll 4
        for (uint64_t k = 0; k < cycle_steps; ++k) {
            const bool saves = walk.is_source(to[k]);
            const float save = saves ? a[to[k]] : 0.0f;
            if (holds) {
                a[to[k]] = alpha * hold;
                ++landed;
            }
            if (to[k] == leader)
                return landed;
            hold = save;
            holds = saves;
        }
    }
}

template <class cycles>
void simatcopy_cycles(const cycles &walk, uint64_t n_outer, uint64_t n_inner, float *a, uint64_t lda, uint64_t ldb,
                      float alpha)
{
    uint64_t left = n_outer * n_inner;
    if (n_outer == ldb && n_inner == lda) { // the last position stays where it is, and would keep the walk going
        a[left - 1] *= alpha;
        --left;
    }
    for (uint64_t i = 0; i < n_outer; ++i) {
        for (uint64_t j = 0; j < n_inner; ++j) {
            if (left == 0)
                return;
            const uint64_t p = i * lda + j;
            if (is_leader(walk, p))
                left -= move_cycle(walk, p, a, alpha);
        }
    }
}

inline void simatcopy_mipt_t_body(uint64_t n_outer, uint64_t n_inner, float *a, uint64_t lda, uint64_t ldb, float alpha)
{
    trans_took(trans_route_mipt_t);
    if (n_outer == 0 || n_inner == 0)
        return;
    uint64_t area;
    if (n_outer == 1) { // targets lie at or above their sources: from the last one down
        for (uint64_t j = n_inner; j-- > 0;)
            a[j * ldb] = alpha * a[j];
    } else if (n_inner == 1) {
        for (uint64_t i = 0; i < n_outer; ++i)
            a[i] = alpha * a[i * lda];
    } else if (lda < 2 || ldb < 2 || __builtin_mul_overflow(lda, ldb, &area) || area > cycle_products_below) {
        simatcopy_cycles(cycles_by_division{n_outer, n_inner, lda, ldb}, n_outer, n_inner, a, lda, ldb, alpha);
    } else if (n_outer == ldb && n_inner == lda) {
        simatcopy_cycles(cycles_by_products<true>(n_outer, n_inner, lda, ldb), n_outer, n_inner, a, lda, ldb, alpha);
    } else {
        simatcopy_cycles(cycles_by_products<false>(n_outer, n_inner, lda, ldb), n_outer, n_inner, a, lda, ldb, alpha);
    }
}
} // namespace
