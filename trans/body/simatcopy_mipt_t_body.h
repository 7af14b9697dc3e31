// SPDX-License-Identifier: BSD-3-Clause
// Transposition of a rectangle in place by following cycles, without a buffer and without marks.
//
// With L = lda and M = ldb, f(p) = (p mod L)*M + p div L sends the position of element (i, j) to that of (j, i) in the
// result; it permutes 0 .. L*M-1. Each cycle is moved when the walk over the source elements meets its leader, the
// lowest source position on it; every other element finds a lower one on its cycle and is left alone. Positions on a
// cycle that are no source carry no value, and positions that receive no value keep theirs: padding survives.
//
// A step costs one quotient, taken as the high half of a product with ceil(2^64 / L): exact while p*L < 2^64 (Lemire,
// Kaser, Kurz 2019, "Faster remainder by direct computation"). The walk ends as soon as every element has been moved.
#pragma once
#include <stdint.h>

#include "trans/routes.h"

namespace
{
struct quotient_by_product {
    uint64_t reciprocal; // ceil(2^64 / divisor), divisor > 1
    explicit quotient_by_product(uint64_t divisor) : reciprocal(UINT64_MAX / divisor + 1) {}
    uint64_t operator()(uint64_t p) const
    {
        return static_cast<uint64_t>((static_cast<unsigned __int128>(p) * reciprocal) >> 64);
    }
};
struct quotient_by_division {
    uint64_t divisor;
    explicit quotient_by_division(uint64_t by) : divisor(by) {}
    uint64_t operator()(uint64_t p) const { return p / divisor; }
};

// The walk over an array whose lines hold more than the matrix.
template <class quotient> struct cycles_padded {
    uint64_t n_outer, n_inner; // of the source
    uint64_t lda, ldb;
    quotient over_lda;

    cycles_padded(uint64_t outer, uint64_t inner, uint64_t ld_source, uint64_t ld_result)
        : n_outer(outer), n_inner(inner), lda(ld_source), ldb(ld_result), over_lda(ld_source)
    {
    }
    uint64_t next(uint64_t p) const
    {
        const uint64_t line = over_lda(p);
        return (p - line * lda) * ldb + line;
    }
    bool is_in_columns(uint64_t p) const { return p - over_lda(p) * lda < n_inner; }
    bool is_source(uint64_t p) const
    {
        const uint64_t line = over_lda(p);
        return line < n_outer && p - line * lda < n_inner;
    }
};

// Without padding every position is a source, and f(p) = p*M - (p div L)*(L*M - 1).
template <class quotient> struct cycles_tight {
    uint64_t ldb, last;
    quotient over_lda;

    cycles_tight(uint64_t, uint64_t, uint64_t ld_source, uint64_t ld_result)
        : ldb(ld_result), last(ld_source * ld_result - 1), over_lda(ld_source)
    {
    }
    uint64_t next(uint64_t p) const { return p * ldb - over_lda(p) * last; }
    bool is_in_columns(uint64_t) const { return true; }
    bool is_source(uint64_t) const { return true; }
};

// The first steps run without a branch of their own, so that the walks of several elements overlap: they find most of
// the elements that are no leaders.
template <class cycles> inline bool is_leader(const cycles &walk, uint64_t p)
{
    constexpr int screened = 4; // [steps]
    uint64_t q = p;
    bool lower = false;
#pragma GCC unroll 4
    for (int step = 0; step < screened; ++step) {
        q = walk.next(q);
        lower |= q < p && walk.is_in_columns(q);
    }
    if (lower)
        return false;
    q = walk.next(p);
    while (q > p || !walk.is_in_columns(q))
        q = walk.next(q);
    return q == p;
}

// Moves the cycle of a leader; answers how many elements landed.
template <class cycles> uint64_t move_cycle(const cycles &walk, uint64_t leader, float *a, float alpha)
{
    uint64_t landed = 0, to = leader;
    float hold = a[leader];
    bool holds = true;
    do {
        to = walk.next(to);
        const bool saves = walk.is_source(to);
        const float save = saves ? a[to] : 0.0f;
        if (holds) {
            a[to] = alpha * hold;
            ++landed;
        }
        hold = save;
        holds = saves;
    } while (to != leader);
    return landed;
}

template <class cycles>
void simatcopy_cycles(uint64_t n_outer, uint64_t n_inner, float *a, uint64_t lda, uint64_t ldb, float alpha)
{
    const cycles walk(n_outer, n_inner, lda, ldb);
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

template <class quotient>
void simatcopy_cycles_of(uint64_t n_outer, uint64_t n_inner, float *a, uint64_t lda, uint64_t ldb, float alpha)
{
    if (n_outer == ldb && n_inner == lda)
        simatcopy_cycles<cycles_tight<quotient>>(n_outer, n_inner, a, lda, ldb, alpha);
    else
        simatcopy_cycles<cycles_padded<quotient>>(n_outer, n_inner, a, lda, ldb, alpha);
}

inline void simatcopy_mipt_t_body(uint64_t n_outer, uint64_t n_inner, float *a, uint64_t lda, uint64_t ldb, float alpha)
{
    trans_took(trans_route_mipt_t);
    if (n_outer == 0 || n_inner == 0)
        return;
    uint64_t area, reach;
    if (n_outer == 1) { // targets lie at or above their sources: from the last one down
        for (uint64_t j = n_inner; j-- > 0;)
            a[j * ldb] = alpha * a[j];
    } else if (n_inner == 1) {
        for (uint64_t i = 0; i < n_outer; ++i)
            a[i] = alpha * a[i * lda];
    } else if (lda > 1 && !__builtin_mul_overflow(lda, ldb, &area) && !__builtin_mul_overflow(area, lda, &reach)) {
        simatcopy_cycles_of<quotient_by_product>(n_outer, n_inner, a, lda, ldb, alpha);
    } else {
        simatcopy_cycles_of<quotient_by_division>(n_outer, n_inner, a, lda, ldb, alpha);
    }
}
} // namespace
