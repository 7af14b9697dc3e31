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
#include "trans/body/simatcopy_n_body.h"

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

template <class quotient> struct cycle_walk {
    uint64_t n_outer, n_inner; // of the source
    uint64_t lda, ldb;
    quotient over_lda;

    // A position and where it lies in lines of lda.
    struct place {
        uint64_t position, line, column;
    };
    place at(uint64_t p) const
    {
        const uint64_t line = over_lda(p);
        return {p, line, p - line * lda};
    }
    place next(const place &p) const { return at(p.column * ldb + p.line); }
    bool is_source(const place &p) const { return p.column < n_inner && p.line < n_outer; }

    bool is_leader(const place &p) const
    {
        place q = next(p);
        while (q.position > p.position || q.column >= n_inner)
            q = next(q);
        return q.position == p.position;
    }

    // Moves the cycle of a leader; answers how many elements landed.
    uint64_t move(const place &leader, float *a, float alpha) const
    {
        uint64_t landed = 0;
        float hold = a[leader.position];
        bool holds = true;
        place to = leader;
        do {
            to = next(to);
            const bool saves = is_source(to);
            const float save = saves ? a[to.position] : 0.0f;
            if (holds) {
                a[to.position] = alpha * hold;
                ++landed;
            }
            hold = save;
            holds = saves;
        } while (to.position != leader.position);
        return landed;
    }
};

template <class quotient>
void simatcopy_cycles(uint64_t n_outer, uint64_t n_inner, float *a, uint64_t lda, uint64_t ldb, float alpha)
{
    const cycle_walk<quotient> walk{n_outer, n_inner, lda, ldb, quotient(lda)};
    uint64_t left = n_outer * n_inner;
    if (n_outer == ldb && n_inner == lda) { // the last position stays where it is, and would keep the walk going
        a[left - 1] *= alpha;
        --left;
    }
    for (uint64_t i = 0; i < n_outer; ++i) {
        for (uint64_t j = 0; j < n_inner; ++j) {
            if (left == 0)
                return;
            const typename cycle_walk<quotient>::place p{i * lda + j, i, j};
            if (walk.is_leader(p))
                left -= walk.move(p, a, alpha);
        }
    }
}

template <class v>
void simatcopy_mipt_t_body(uint64_t n_outer, uint64_t n_inner, float *a, uint64_t lda, uint64_t ldb, float alpha)
{
    trans_took(trans_route_mipt_t);
    if (n_outer == 0 || n_inner == 0)
        return;
    uint64_t area, reach;
    if (lda == 1 || ldb == 1) // every position is a cycle of its own
        scale_rising<v>(n_outer * n_inner, a, a, alpha);
    else if (!__builtin_mul_overflow(lda, ldb, &area) && !__builtin_mul_overflow(area, lda, &reach))
        simatcopy_cycles<quotient_by_product>(n_outer, n_inner, a, lda, ldb, alpha);
    else
        simatcopy_cycles<quotient_by_division>(n_outer, n_inner, a, lda, ldb, alpha);
}
} // namespace
