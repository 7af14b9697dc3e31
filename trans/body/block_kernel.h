// SPDX-License-Identifier: BSD-3-Clause
// One block of the out-of-place transposition: b[j*ldb + i] := a[i*lda + j] for rows lines of cols elements, unit
// strides.
//
// m moves 8 columns of 16, 8 or 4 lines in registers. whole says how runs of 16 elements of b are stored, part how runs
// of 8 are.
#pragma once
#include "trans/body/somatcopy2_t_body.h"

namespace
{
constexpr uint64_t kernel_columns = 8; // [columns] that are moved at once
constexpr uint64_t kernel_strip = 16;  // [columns] of a strip: the cache lines of a are used up
constexpr uint64_t cache_line_bytes = 64;

// lines lines, a number with code of its own: 8 columns at a time, runs of b whole at once; what is left singly.
template <class m, class how, int lines, uint64_t ahead>
inline void transpose_fixed(uint64_t cols, const float *a, uint64_t lda, float *b, uint64_t ldb)
{
    const uint64_t whole = cols / kernel_columns * kernel_columns;
    m::template move<how, lines, ahead>(whole, a, lda, b, ldb);
    move_scalars<lines>(cols - whole, a + whole, lda, b + whole * ldb, ldb);
}

// Any number of lines: strips of columns, in each of them lines by 16, 8, 4 and singly. Where the runs of b begin in
// the middle of a cache line, 8 lines go in front.
template <class m, class whole, class part, uint64_t ahead>
inline void transpose_lines(uint64_t rows, uint64_t cols, const float *a, uint64_t lda, float *b, uint64_t ldb)
{
    const bool apart = reinterpret_cast<uintptr_t>(b) % cache_line_bytes == cache_line_bytes / 2 && rows >= 8;
    for (uint64_t j = 0; j < cols; j += kernel_strip) {
        const uint64_t width = cols - j < kernel_strip ? cols - j : kernel_strip;
        const float *from = a + j;
        float *to = b + j * ldb;
        uint64_t left = rows;
        const auto pass = [&](uint64_t lines) {
            from += lines * lda;
            to += lines;
        };
        if (apart) {
            transpose_fixed<m, part, 8, ahead>(width, from, lda, to, ldb);
            pass(8);
            left -= 8;
        }
        for (; left >= 16; left -= 16) {
            transpose_fixed<m, whole, 16, ahead>(width, from, lda, to, ldb);
            pass(16);
        }
        if (left >= 8) {
            transpose_fixed<m, part, 8, ahead>(width, from, lda, to, ldb);
            pass(8);
        }
        if (left % 8 >= 4) {
            uint64_t k = 0;
            for (; k + kernel_columns <= width; k += kernel_columns)
                m::move_4x8(from + k, lda, to + k * ldb, ldb);
            move_elements(4, width - k, from + k, lda, to + k * ldb, ldb);
            pass(4);
        }
        move_elements(left % 4, width, from, lda, to, ldb);
    }
}

// group adjacent elements of each line at a time, which go through a buffer on the stack and leave as whole lines of b.
// copy_line stores them.
template <class m, class inside, uint64_t ahead, auto copy_line>
void transpose_grouped(uint64_t rows, uint64_t cols, const float *a, uint64_t lda, float *b, uint64_t ldb,
                       uint64_t group)
{
    trans_took(trans_route_kernel_grouped);
    alignas(cache_line_bytes) float buffer[aliased_group * block_lines_most];
    for (uint64_t first = 0; first < cols; first += group) {
        const uint64_t width = cols - first < group ? cols - first : group;
        transpose_lines<m, inside, inside, ahead>(rows, width, a + first, lda, buffer, rows);
        for (uint64_t k = 0; k < width; ++k)
            copy_line(rows, buffer + k * rows, b + (first + k) * ldb);
    }
}

template <class m, class whole, class part, uint64_t ahead>
void transpose_ungrouped(uint64_t rows, uint64_t cols, const float *a, uint64_t lda, float *b, uint64_t ldb)
{
    trans_took(trans_route_kernel);
    if (rows == 16)
        transpose_fixed<m, whole, 16, ahead>(cols, a, lda, b, ldb);
    else if (rows == 8)
        transpose_fixed<m, part, 8, ahead>(cols, a, lda, b, ldb);
    else
        transpose_lines<m, whole, part, ahead>(rows, cols, a, lda, b, ldb);
}
} // namespace
