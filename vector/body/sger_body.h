// SPDX-License-Identifier: BSD-3-Clause
// A := alpha*x*y^T + A, column by column with the path's xsaxpy. A column whose element of y is zero stays as it is,
// whatever x holds; a NaN in y is no zero.
#pragma once
#include "vector/body/element.h"
#include "vector/vector.h"

namespace
{
template <tesh_blas_saxpy_fn *saxpy>
inline void sger_body(const int64_t *m, const int64_t *n, const float *alpha, const float *x, const int64_t *incx,
                      const float *y, const int64_t *incy, float *a, const int64_t *lda)
{
    const int64_t columns = *n, y_step = *incy, a_step = *lda, one = 1;
    const float factor = *alpha;
    if (*m <= 0 || columns <= 0 || factor == 0.0f)
        return;
    y += first_index(columns, y_step);
    const auto add_column = [&](int64_t j) {
        const float element = load_one(y + j * y_step);
        if (element == 0.0f)
            return;
        const float t = factor * element;
        saxpy(m, &t, x, incx, a + j * a_step, &one);
    };
    int64_t j = 0;
    for (; j + 2 <= columns; j += 2) {
        add_column(j);
        add_column(j + 1);
    }
    if (j < columns)
        add_column(j);
}
} // namespace
