// SPDX-License-Identifier: BSD-3-Clause
// B := alpha*op(A), the choosers of a path. path names the members: seq, n, t.
#pragma once
#include "trans/body/forms.h"
#include "trans/trans.h"

namespace
{
constexpr uint64_t somatcopy_team_least = 17;          // [elements] each side of the least shape for a team
constexpr uint64_t somatcopy_team_above_bytes = 32768; // [bytes] of the source

template <class path>
void somatcopy_body(char ordering, char trans, uint64_t rows, uint64_t cols, float alpha, const float *a, uint64_t lda,
                    float *b, uint64_t ldb)
{
    if (rows == 0 || cols == 0)
        return;
    if (rows >= somatcopy_team_least && cols >= somatcopy_team_least && rows * cols * 4 > somatcopy_team_above_bytes)
        tesh_trans_tesh_somatcopy2_par(ordering, trans, rows, cols, alpha, a, lda, 1, b, ldb, 1);
    else
        path::seq(ordering, trans, rows, cols, alpha, a, lda, 1, b, ldb, 1);
}

template <class path>
void somatcopy2_seq_body(char ordering, char trans, uint64_t rows, uint64_t cols, float alpha, const float *a,
                         uint64_t lda, uint64_t stridea, float *b, uint64_t ldb, uint64_t strideb)
{
    const trans_form form = trans_form_of(trans);
    const trans_shape shape = trans_shape_of(ordering, rows, cols);
    if (form == trans_form::none || shape.n_outer == 0 || shape.n_inner == 0)
        return;
    if (form == trans_form::keep)
        path::n(shape.n_outer, shape.n_inner, a, lda, stridea, b, ldb, strideb, alpha);
    else
        path::t(shape.n_outer, shape.n_inner, a, lda, stridea, b, ldb, strideb, alpha);
}
} // namespace
