// SPDX-License-Identifier: BSD-3-Clause
// x := op(A)*x for a triangular A, in diagonal blocks of 32. A block takes two steps: its rectangle, by the path's
// xsgemv, and its triangle, by strmv_in. The blocks and the steps follow each other so that no element of x is read
// after it was finished: the shapes that read higher elements (upper, and lower transposed) go up, the others down.
// What n is more than a multiple of 32 is in the block reached last.
//
//   shape               blocks  step 1                                step 2
//   upper               up      x(above) += A(above, b)*x(b)          triangle
//   lower               down    x(below) += A(below, b)*x(b)          triangle
//   upper, transposed   down    triangle                              x(b) += A(above, b)^T*x(above)
//   lower, transposed   up      triangle                              x(b) += A(below, b)^T*x(below)
#pragma once
#include "vector/body/element.h"
#include "vector/matrix_vector_paths.h"

namespace
{
template <tesh_blas_sgemv_fn *sgemv, tesh_blas_strmv_in_fn *strmv_in>
inline void strmv_body(const char *uplo, const char *trans, const char *diag, const int64_t *n, const float *a,
                       const int64_t *lda, float *x, const int64_t *incx)
{
    constexpr int64_t block = 32; // [elements]
    const int64_t order = *n, step = *lda, inc = *incx;
    if (order <= 0)
        return;
    const bool transposed = *trans != 'N' && *trans != 'n', upper = *uplo == 'U' || *uplo == 'u';
    const float one = 1.0f;
    float *const first = x + first_index(order, inc);
    // Elements from .. from+count-1 as a vector of their own: with a negative increment it is named by its last
    // element.
    const auto part = [=](int64_t from, int64_t count) { return first + (inc < 0 ? from + count - 1 : from) * inc; };
    const auto do_block = [&](int64_t from, int64_t count) {
        const int64_t rest_from = upper ? 0 : from + count, rest = upper ? from : order - rest_from;
        const float *rectangle = a + rest_from + from * step;
        float *const own = part(from, count);
        if (!transposed && rest > 0)
            sgemv("N", &rest, &count, &one, rectangle, lda, own, incx, &one, part(rest_from, rest), incx, 1);
        strmv_in(uplo, trans, diag, &count, a + from + from * step, lda, own, incx);
        if (transposed && rest > 0)
            sgemv("T", &rest, &count, &one, rectangle, lda, part(rest_from, rest), incx, &one, own, incx, 1);
    };
    if (upper != transposed) {
        for (int64_t from = 0; from < order; from += block)
            do_block(from, min_of(order - from, block));
    } else {
        for (int64_t end = order; end > 0; end -= block)
            do_block(max_of(end - block, 0), min_of(end, block));
    }
}
} // namespace
