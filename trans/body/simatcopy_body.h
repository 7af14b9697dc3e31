// SPDX-License-Identifier: BSD-3-Clause
// AB := alpha*op(AB), the chooser of a path. path names the members: square_n, mipt_n, mipt_t, square_t.
#pragma once
#include "trans/body/forms.h"
#include "trans/trans.h"

namespace
{
template <class path>
void simatcopy_body(char ordering, char trans, uint64_t rows, uint64_t cols, float alpha, float *ab, uint64_t lda,
                    uint64_t ldb)
{
    const trans_form form = trans_form_of(trans);
    const trans_shape shape = trans_shape_of(ordering, rows, cols);
    if (form == trans_form::none || shape.n_outer == 0 || shape.n_inner == 0)
        return;
    const bool square = rows == cols && lda == ldb;
    if (form == trans_form::transpose) {
        if (square)
            path::square_t(rows, ab, lda, alpha);
        else
            path::mipt_t(shape.n_outer, shape.n_inner, ab, lda, ldb, alpha);
    } else if (square && rows == lda) {
        path::square_n(rows, ab, alpha);
    } else {
        path::mipt_n(shape.n_outer, shape.n_inner, ab, lda, ldb, alpha);
    }
}
} // namespace
