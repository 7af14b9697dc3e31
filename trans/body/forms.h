// SPDX-License-Identifier: BSD-3-Clause
// The letters of a copy and the shape that the path routines work in.
#pragma once
#include <stdint.h>

namespace
{
enum class trans_form { none, keep, transpose };

// The matrix is real: 'R' (conjugate) keeps, 'C' (conjugate transpose) transposes.
constexpr trans_form trans_form_of(char trans)
{
    return trans == 'N' || trans == 'n' || trans == 'R' || trans == 'r'   ? trans_form::keep
           : trans == 'T' || trans == 't' || trans == 'C' || trans == 'c' ? trans_form::transpose
                                                                          : trans_form::none;
}

// n_inner elements along the contiguous direction of the source, n_outer such lines; both 0 for an unknown ordering.
struct trans_shape {
    uint64_t n_outer, n_inner; // [elements]
};
constexpr trans_shape trans_shape_of(char ordering, uint64_t rows, uint64_t cols)
{
    return ordering == 'C' || ordering == 'c'   ? trans_shape{cols, rows}
           : ordering == 'R' || ordering == 'r' ? trans_shape{rows, cols}
                                                : trans_shape{0, 0};
}
} // namespace
