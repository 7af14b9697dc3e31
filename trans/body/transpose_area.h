// SPDX-License-Identifier: BSD-3-Clause
// b[j*ldb + i] := alpha*a[i*lda + j] for an area of unit-stride lines, in tiles of 16 x 16 elements: cache lines of both
// arrays are touched whole. For avx2 and avx512 files.
//
// Where the lines of an array are multiples of 64 bytes apart, tiles are walked along the diagonals of squares of 8 x 8
// tiles: at multiples of 4096 bytes the lines of a tile share one set of the first cache, and on a diagonal the set changes
// with every tile in both arrays; along a line or a column it would stay in one of them, and its fills would wait for each
// other. Elsewhere the tiles of 16 lines follow each other, so that the cache lines that two tiles share are used up.
//
// w brings the moves: move_16x16, move_16x4 (lines x columns), move_4x16; smaller, a tile type for what is left. stream:
// stores that bypass the caches, for areas that no cache would keep; b must be aligned to them.
#pragma once
#include "trans/body/transpose_tile.h"

namespace
{
constexpr uint64_t area_tile = 16;       // [elements] each side
constexpr uint64_t area_square = 128;    // [elements] each side of a square that is walked by diagonals
constexpr uint64_t area_panel = 1024;    // [columns] that 16 lines are walked along
constexpr uint64_t area_line_bytes = 64; // a cache line

constexpr uint64_t smaller_of(uint64_t x, uint64_t y)
{
    return x < y ? x : y;
}

// Fewer than 16 columns: strips of 4 of them. The last piece each way ends with the area.
template <class w, bool scaled, bool stream>
void transpose_tall(uint64_t lines, uint64_t columns, const float *a, uint64_t lda, float *b, uint64_t ldb, float alpha)
{
    if (columns < 4 || lines < area_tile) {
        transpose_block<typename w::smaller, scaled>(lines, columns, a, lda, b, ldb, alpha);
        return;
    }
    const uint64_t whole = lines / area_tile * area_tile;
    for (uint64_t j = 0; j < columns; j = next_tile<tile_4>(j, columns)) {
        for (uint64_t i = 0; i < whole; i += area_tile)
            w::template move_16x4<scaled, stream>(a + i * lda + j, lda, b + j * ldb + i, ldb, alpha);
        if (whole < lines)
            w::template move_16x4<scaled, false>(a + (lines - area_tile) * lda + j, lda,
                                                 b + j * ldb + lines - area_tile, ldb, alpha);
    }
}

// Fewer than 16 lines: strips of 4 of them.
template <class w, bool scaled>
void transpose_flat(uint64_t lines, uint64_t columns, const float *a, uint64_t lda, float *b, uint64_t ldb, float alpha)
{
    if (lines < 4 || columns < area_tile) {
        transpose_block<typename w::smaller, scaled>(lines, columns, a, lda, b, ldb, alpha);
        return;
    }
    const uint64_t whole = columns / area_tile * area_tile;
    for (uint64_t j = 0; j < whole; j += area_tile)
        for (uint64_t i = 0; i < lines; i = next_tile<tile_4>(i, lines))
            w::template move_4x16<scaled>(a + i * lda + j, lda, b + j * ldb + i, ldb, alpha);
    if (whole < columns)
        for (uint64_t i = 0; i < lines; i = next_tile<tile_4>(i, lines))
            w::template move_4x16<scaled>(a + i * lda + columns - area_tile, lda, b + (columns - area_tile) * ldb + i,
                                          ldb, alpha);
}

// tall x wide tiles, by diagonals.
template <class w, bool scaled, bool stream, bool whole>
void transpose_square(uint64_t tall, uint64_t wide, const float *a, uint64_t lda, float *b, uint64_t ldb, float alpha)
{
    for (uint64_t d = 0; d < wide; ++d) {
        uint64_t j = d;
        for (uint64_t i = 0; i < tall; ++i) {
            const float *from = a + area_tile * (i * lda + j);
            if constexpr (stream) { // the next tile on the diagonal; past the end this fetches nothing that hurts
#pragma GCC unroll 16
                for (uint64_t line = 0; line < area_tile; ++line)
                    _mm_prefetch(reinterpret_cast<const char *>(from + (area_tile + line) * lda + area_tile),
                                 _MM_HINT_T0);
            }
            w::template move_16x16<scaled, stream, whole>(from, lda, b + area_tile * (j * ldb + i), ldb, alpha);
            j = j + 1 == wide ? 0 : j + 1;
        }
    }
}

// Multiples of 16 lines and columns. whole: the lines of a begin with cache lines.
template <class w, bool scaled, bool stream, bool whole>
void transpose_tiles(uint64_t lines, uint64_t columns, const float *a, uint64_t lda, float *b, uint64_t ldb,
                     float alpha)
{
    if (lda % area_tile != 0 && ldb % area_tile != 0) {
        for (uint64_t j = 0; j < columns; j += area_panel)
            for (uint64_t i = 0; i < lines; i += area_tile)
                for (uint64_t k = j; k < smaller_of(j + area_panel, columns); k += area_tile)
                    w::template move_16x16<scaled, stream, whole>(a + i * lda + k, lda, b + k * ldb + i, ldb, alpha);
        return;
    }
    for (uint64_t i = 0; i < lines; i += area_square)
        for (uint64_t j = 0; j < columns; j += area_square)
            transpose_square<w, scaled, stream, whole>(smaller_of(area_square, lines - i) / area_tile,
                                                       smaller_of(area_square, columns - j) / area_tile,
                                                       a + i * lda + j, lda, b + j * ldb + i, ldb, alpha);
}

template <class w, bool scaled, bool stream>
void transpose_area(uint64_t lines, uint64_t columns, const float *a, uint64_t lda, float *b, uint64_t ldb, float alpha)
{
    if (columns < area_tile) {
        transpose_tall<w, scaled, stream>(lines, columns, a, lda, b, ldb, alpha);
        return;
    }
    const uint64_t whole_lines = lines / area_tile * area_tile, whole_columns = columns / area_tile * area_tile;
    if (lda % area_tile == 0 && reinterpret_cast<uintptr_t>(a) % area_line_bytes == 0)
        transpose_tiles<w, scaled, stream, true>(whole_lines, whole_columns, a, lda, b, ldb, alpha);
    else
        transpose_tiles<w, scaled, stream, false>(whole_lines, whole_columns, a, lda, b, ldb, alpha);
    if (whole_columns < columns)
        transpose_tall<w, scaled, stream>(whole_lines, columns - whole_columns, a + whole_columns, lda,
                                          b + whole_columns * ldb, ldb, alpha);
    if (whole_lines < lines)
        transpose_flat<w, scaled>(lines - whole_lines, columns, a + whole_lines * lda, lda, b + whole_lines, ldb,
                                  alpha);
}
} // namespace
