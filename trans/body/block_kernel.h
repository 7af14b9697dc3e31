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
[[gnu::always_inline]] inline void transpose_inlined(uint64_t cols, const float *a, uint64_t lda, float *b,
                                                     uint64_t ldb)
{
    const uint64_t whole = cols / kernel_columns * kernel_columns;
    m::template move<how, lines, ahead>(whole, a, lda, b, ldb);
    move_scalars<lines>(cols - whole, a + whole, lda, b + whole * ldb, ldb);
}

template <class m, class how, int lines, uint64_t ahead>
inline void transpose_fixed(uint64_t cols, const float *a, uint64_t lda, float *b, uint64_t ldb)
{
    transpose_inlined<m, how, lines, ahead>(cols, a, lda, b, ldb);
}

// The same without prefetches; inlined or a function of its own.
template <class m, class how, int lines, bool inlined>
[[gnu::always_inline]] inline void transpose_strip(uint64_t cols, const float *a, uint64_t lda, float *b, uint64_t ldb)
{
    if constexpr (inlined)
        transpose_inlined<m, how, lines, 0>(cols, a, lda, b, ldb);
    else
        transpose_fixed<m, how, lines, 0>(cols, a, lda, b, ldb);
}

// The strip that begins with element from of a line of a and with line to of b, to the second cache: the first may have
// fewer ways than the strip has lines. streamed: of b only what shares a cache line with the blocks in front and
// behind; the rest bypasses the caches.
template <bool streamed>
[[gnu::always_inline]] inline void fetch_strip(uint64_t rows, const float *from, uint64_t lda, const float *to,
                                               uint64_t ldb, uint64_t width)
{
    constexpr uint64_t cache_line = cache_line_bytes / sizeof *to;
    for (uint64_t i = 0; i < rows; ++i)
        _mm_prefetch(reinterpret_cast<const char *>(from + i * lda), _MM_HINT_T1);
    const bool front = reinterpret_cast<uintptr_t>(to) % cache_line_bytes != 0;
    const bool tail = reinterpret_cast<uintptr_t>(to + rows) % cache_line_bytes != 0;
    for (uint64_t k = 0; k < width; ++k) {
        const float *const run = to + k * ldb;
        if (front || !streamed)
            _mm_prefetch(reinterpret_cast<const char *>(run), _MM_HINT_T1);
        for (uint64_t i = cache_line; i < rows && !streamed; i += cache_line)
            _mm_prefetch(reinterpret_cast<const char *>(run + i), _MM_HINT_T1);
        if (tail || !streamed)
            _mm_prefetch(reinterpret_cast<const char *>(run + rows - 1), _MM_HINT_T1);
    }
}

// Any number of lines: strips of columns, in each of them lines by 16, 8, 4 and singly. Where the runs of b begin in
// the middle of a cache line, 8 lines go in front. ahead: the distance at which strips are fetched [columns],
// 0 for none. Not inlined, for the places of its loops to each other decide what the processor fetches ahead.
template <class m, class whole, class part, uint64_t ahead>
[[gnu::noinline]] void transpose_lines(uint64_t rows, uint64_t cols, const float *a, uint64_t lda, float *b,
                                       uint64_t ldb)
{
    const bool apart = reinterpret_cast<uintptr_t>(b) % cache_line_bytes == cache_line_bytes / 2 && rows >= 8;
    for (uint64_t j = 0; j < cols; j += kernel_strip) {
        const uint64_t width = cols - j < kernel_strip ? cols - j : kernel_strip;
        const float *from = a + j;
        float *to = b + j * ldb;
        if (ahead > 0 && j + ahead + width <= cols)
            fetch_strip<whole::stream>(rows, from + ahead, lda, to + ahead * ldb, ldb, width);
        uint64_t left = rows;
        const auto pass = [&](uint64_t lines) {
            from += lines * lda;
            to += lines;
        };
        if (apart) {
            transpose_strip<m, typename part::unfetched, 8, whole::inlined>(width, from, lda, to, ldb);
            pass(8);
            left -= 8;
        }
        for (; left >= 16; left -= 16) {
            transpose_strip<m, typename whole::unfetched, 16, whole::inlined>(width, from, lda, to, ldb);
            pass(16);
        }
        if (left >= 8) {
            transpose_strip<m, typename part::unfetched, 8, whole::inlined>(width, from, lda, to, ldb);
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
// copy_lines stores them, past the caches if streamed. ahead: the distance at which groups are fetched [columns], 0 for
// none.
template <class m, class inside, uint64_t ahead, bool streamed, auto copy_lines>
void transpose_grouped(uint64_t rows, uint64_t cols, const float *a, uint64_t lda, float *b, uint64_t ldb,
                       uint64_t group)
{
    trans_took(trans_route_kernel_grouped);
    alignas(cache_line_bytes) float buffer[aliased_group * block_lines_most];
    for (uint64_t first = 0; first < cols; first += group) {
        const uint64_t width = cols - first < group ? cols - first : group;
        if (ahead > 0 && first + ahead + width <= cols)
            fetch_strip<streamed>(rows, a + first + ahead, lda, b + (first + ahead) * ldb, ldb, width);
        transpose_lines<m, inside, inside, 0>(rows, width, a + first, lda, buffer, rows);
        copy_lines(width, rows, buffer, b + first * ldb, ldb);
    }
}

// line_ahead: the distance of prefetches of a [elements] where the number of lines has code of its own; strip_ahead:
// that of strips elsewhere.
template <class m, class whole, class part, uint64_t line_ahead, uint64_t strip_ahead>
void transpose_ungrouped(uint64_t rows, uint64_t cols, const float *a, uint64_t lda, float *b, uint64_t ldb)
{
    trans_took(trans_route_kernel);
    if (rows == 16)
        transpose_fixed<m, whole, 16, line_ahead>(cols, a, lda, b, ldb);
    else if (rows == 8)
        transpose_fixed<m, part, 8, line_ahead>(cols, a, lda, b, ldb);
    else
        transpose_lines<m, whole, part, strip_ahead>(rows, cols, a, lda, b, ldb);
}
} // namespace
