// SPDX-License-Identifier: BSD-3-Clause
// y := alpha*x + beta*y, rounded as y*beta, x*alpha, their sum. beta = 0 (of either sign): y := alpha*x, and y is not
// read. Unaligned access throughout, so that any address will do.
#pragma once
#include "vector/body/quad_loops.h"
#include "vector/body/saxpby_sse_op.h"

namespace
{
template <int round, class op>
inline void saxpby_def_run(const op &f, int64_t n, const float *x, int64_t incx, float *y, int64_t incy)
{
    if (incx == 1 && incy == 1) {
        quad_rounds<4, false, false>(f, n, x, y);
        singles(f, n, x, y);
        return;
    }
    strided<round>(f, n, x, incx, y, incy);
}

[[gnu::always_inline]] inline void saxpby_def_body(const int64_t *pn, const float *palpha, const float *x,
                                                   const int64_t *pincx, const float *pbeta, float *y,
                                                   const int64_t *pincy)
{
    const int64_t n = *pn;
    if (n <= 0)
        return;
    const float alpha = *palpha, beta = *pbeta;
    const int64_t incx = *pincx, incy = *pincy;
    if (alpha == 0.0f && beta == 1.0f)
        return;
    if (beta == 0.0f)
        saxpby_def_run<8>(scale_sse_op(alpha), n, x, incx, y, incy);
    else
        saxpby_def_run<4>(axpby_sse_op(alpha, beta), n, x, incx, y, incy);
}
} // namespace
