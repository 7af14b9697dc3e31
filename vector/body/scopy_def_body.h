// SPDX-License-Identifier: BSD-3-Clause
// y := x with 4-lane registers.
#pragma once
#include "vector/body/quad_loops.h"
#include "vector/body/saxpby_sse_op.h"

namespace
{
template <bool x_aligned, bool y_aligned> inline void scopy_def_rounds(int64_t n, const float *x, float *y)
{
    const copy_sse_op f;
    quad_rounds<32, x_aligned, y_aligned>(f, n, x, y);
    quad_rounds<16, x_aligned, y_aligned>(f, n, x, y);
    quad_rounds<8, x_aligned, y_aligned>(f, n, x, y);
    singles(f, n, x, y);
}

// Both vectors aligned where their offsets agree, otherwise one of them: y, or x where y cannot be.
inline void scopy_def_unit(int64_t n, const float *x, float *y)
{
    const copy_sse_op f;
    if (word_aligned(y)) {
        peel_quad(f, n, x, y);
        if (on_boundary<16>(x))
            scopy_def_rounds<true, true>(n, x, y);
        else
            scopy_def_rounds<false, true>(n, x, y);
    } else if (word_aligned(x)) {
        const int64_t k = elements_to<16>(x, n);
        singles(f, k, x, y);
        scopy_def_rounds<true, false>(n - k, x + k, y + k);
    } else {
        scopy_def_rounds<false, false>(n, x, y);
    }
}

[[gnu::always_inline]] inline void scopy_def_body(const int64_t *pn, const float *x, const int64_t *pincx, float *y,
                                                  const int64_t *pincy)
{
    const int64_t n = *pn;
    if (n <= 0)
        return;
    const int64_t incx = *pincx, incy = *pincy;
    if (same_unit(incx, incy))
        scopy_def_unit(n, x, y);
    else
        strided<8>(copy_sse_op(), n, x, incx, y, incy);
}
} // namespace
