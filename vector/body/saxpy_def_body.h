// SPDX-License-Identifier: BSD-3-Clause
// y := y + alpha*x, product and sum rounded apart.
#pragma once
#include "vector/body/quad_loops.h"
#include "vector/body/saxpby_sse_op.h"

namespace
{
// Least vector that is worth bringing to a 16-byte boundary, and the elements of a round.
constexpr int64_t saxpy_def_round = 8;

inline void saxpy_def_unit(const axpy_sse_op &f, int64_t n, const float *x, float *y)
{
    if (n >= saxpy_def_round && word_aligned(y)) {
        peel_quad(f, n, x, y);
        if (on_boundary<16>(x))
            quad_rounds<saxpy_def_round, true, true>(f, n, x, y);
        else
            quad_rounds<saxpy_def_round, false, true>(f, n, x, y);
    }
    singles(f, n, x, y);
}

// All products go to one element: the even ones to a sum that begins with y, the odd ones to a second sum. The sums are
// joined and stored once; a last product without a partner is added to what was stored.
inline void saxpy_def_one_element(int64_t n, float alpha, const float *x, int64_t incx, float *y)
{
    if (n >= 2) {
        float even = load_one(y), odd = 0.0f;
        for (; n >= 2; n -= 2, x += 2 * incx) {
            even += load_one(x) * alpha;
            odd += load_one(x + incx) * alpha;
        }
        store_one(y, even + odd);
    }
    if (n == 1)
        store_one(y, load_one(y) + load_one(x) * alpha);
}

[[gnu::always_inline]] inline void saxpy_def_body(const int64_t *pn, const float *palpha, const float *x,
                                                  const int64_t *pincx, float *y, const int64_t *pincy)
{
    const int64_t n = *pn;
    if (n <= 0)
        return;
    const float alpha = *palpha;
    if (alpha == 0.0f)
        return;
    const int64_t incx = *pincx, incy = *pincy;
    const axpy_sse_op f(alpha);
    if (incx == 1 && incy == 1)
        saxpy_def_unit(f, n, x, y);
    else if (incy == 0)
        saxpy_def_one_element(n, alpha, x + first_index(n, incx), incx, y);
    else
        strided<2>(f, n, x, incx, y, incy);
}
} // namespace
