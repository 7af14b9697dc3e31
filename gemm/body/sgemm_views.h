// SPDX-License-Identifier: BSD-3-Clause
// Views of matrices and of packed blocks.
#pragma once
#include "frame/path/path_util.h"
#include "gemm/sgemm_records.h"

namespace
{
inline char *getPointer_notrans(int64_t i, int64_t j, const blas_matrix_view *view)
{
    return static_cast<char *>(view->base) + (j * view->ld + i) * view->elem_size;
}
inline char *getPointer_trans(int64_t i, int64_t j, const blas_matrix_view *view)
{
    return static_cast<char *>(view->base) + (i * view->ld + j) * view->elem_size;
}
inline char *getPointer_buffer(int64_t i, int64_t j, const blas_matrix_view *view)
{
    return static_cast<char *>(view->base) +
           (round_up(view->rows, view->unroll_k) * j + i * view->panel) * view->elem_size;
}

constexpr bool is_letter(char c, char upper)
{
    return (c & 0xdf) == upper;
}
// 0, 1, 2 for not transposed, transposed, conjugate-transposed; -1 for anything else.
constexpr int32_t operation_code(char c)
{
    return is_letter(c, 'N') ? 0 : is_letter(c, 'T') ? 1 : is_letter(c, 'C') ? 2 : -1;
}

[[gnu::always_inline]] inline void fill_view(blas_matrix_view *view, const void *base, int64_t rows, int64_t cols,
                                             int64_t ld, uint32_t flags, blas_address_fn *address)
{
    view->base = const_cast<void *>(base);
    view->rows = rows;
    view->cols = cols;
    view->ld = ld;
    view->unroll_k = 0;
    view->panel = 0;
    view->padded_k = rows;
    view->elem_size = 4;
    view->flags = flags;
    view->address = address;
}

// The view of an operand with the operation of the given code and the flags of its triangle; what is no known letter is
// addressed as transposed.
[[gnu::always_inline]] inline void fill_operand_view(blas_matrix_view *view, const void *base, int64_t rows,
                                                     int64_t cols, int64_t ld, int32_t code, uint32_t triangle)
{
    fill_view(view, base, rows, cols, ld, triangle | (code < 0 ? 0u : 1u << static_cast<uint32_t>(code)),
              code == 0 ? getPointer_notrans : getPointer_trans);
}

// The flag of the letter that stands there; none for another, or where there is none.
constexpr uint32_t one_of(const char *letter, char first, uint32_t first_flag, char second, uint32_t second_flag)
{
    return letter == nullptr            ? 0
           : is_letter(*letter, first)  ? first_flag
           : is_letter(*letter, second) ? second_flag
                                        : 0;
}

// The view of a matrix as its routine's characters describe it; null for one that the routine lacks.
[[gnu::always_inline]] inline void blas_initialize_matrix(const char *uplo, const char *diag, const char *trans,
                                                          const void *base, int64_t rows, int64_t cols, int64_t ld,
                                                          blas_matrix_view *view)
{
    const uint32_t triangle = one_of(uplo, 'L', blas_view_lower, 'U', blas_view_upper) |
                              one_of(diag, 'N', blas_view_nonunit, 'U', blas_view_unit);
    if (trans == nullptr)
        fill_view(view, base, rows, cols, ld, triangle, getPointer_notrans);
    else
        fill_operand_view(view, base, rows, cols, ld, operation_code(*trans), triangle);
}

// Rows i .. i+rows-1 and columns j .. j+cols-1 of a view.
[[gnu::always_inline]] inline blas_matrix_view part_of(const blas_matrix_view *view, int64_t i, int64_t j, int64_t rows,
                                                       int64_t cols)
{
    blas_matrix_view part = *view;
    part.base = view->address(i, j, view);
    part.rows = rows;
    part.cols = cols;
    part.padded_k = rows;
    return part;
}
} // namespace
