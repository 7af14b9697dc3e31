// SPDX-License-Identifier: BSD-3-Clause
// x := alpha*x. No value of alpha is special: 0 times NaN or infinity is NaN.
#pragma once
#include "vector/body/quad_loops.h"
#include "vector/body/saxpby_sse_op.h"

namespace
{
constexpr int64_t sscal_def_round = 8; // as in saxpy_def_body.h

[[gnu::always_inline]] inline void sscal_def_body(const int64_t *pn, const float *palpha, float *x,
                                                  const int64_t *pincx)
{
    int64_t n = *pn;
    if (n <= 0)
        return;
    const scale_sse_op f(*palpha);
    const int64_t incx = magnitude(*pincx);
    const float *source = x;
    if (incx != 1) {
        strided<2>(f, n, source, incx, x, incx);
        return;
    }
    if (n >= sscal_def_round && word_aligned(x)) {
        peel_quad(f, n, source, x);
        quad_rounds<sscal_def_round, true, true>(f, n, source, x);
    }
    singles(f, n, source, x);
}
} // namespace
