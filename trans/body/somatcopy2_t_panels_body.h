// SPDX-License-Identifier: BSD-3-Clause
// b[j*ldb + i*strideb] := alpha*a[i*lda + j*stridea] of avx2 and avx512: panels of columns, in each of them blocks of lines,
// where B is aligned to a register; a direct loop elsewhere and for a handful of lines.
//
// Blocks are walked in teams of whole tiles, and the tiles of a team along diagonals (trans/body/transpose_area.h): block
// after block, the lines of B in a power-of-two matrix would all meet in a few cache sets.
#pragma once
#include "trans/body/somatcopy2_t_body.h"
#include "trans/body/transpose_area.h"

namespace
{
constexpr uint64_t kernel_least_outer = 5; // [lines] below: the direct loop
constexpr uint64_t panel_columns_narrow = 1024, panel_columns_wide = 4096;
constexpr uint64_t panel_narrow_most = 512; // [elements] lda up to which a panel is narrow
constexpr uint64_t team_least = 128;        // [lines] of a team of blocks
constexpr uint64_t peeled_least = 400;      // [lines] from which those in front of a cache line's start go apart
// [bytes] of B from which its lines bypass the caches: where lines at multiples of a page share cache sets, and elsewhere
constexpr uint64_t stream_least_aliased = uint64_t(4) << 20, stream_least = uint64_t(12) << 20;

constexpr uint64_t team_lines(uint64_t block)
{
    uint64_t team = block;
    while (team < team_least || team % area_tile != 0)
        team += block;
    return team;
}

// A block or a team of blocks. stream: B is aligned to a cache line, and so are its lines.
template <class w>
void xomatcopy_blk_t_one_transpose_kernel_by_src_rows(uint64_t rows, uint64_t cols, const float *a, uint64_t lda,
                                                      float *b, uint64_t ldb, bool stream)
{
    if (stream)
        transpose_area<w, false, true>(rows, cols, a, lda, b, ldb, 1.0f);
    else
        transpose_area<w, false, false>(rows, cols, a, lda, b, ldb, 1.0f);
}

// Whether all lines of B begin at the same place of a cache line.
constexpr bool lines_are_alike(uint64_t ldb)
{
    return ldb * sizeof(float) % area_line_bytes == 0;
}

// [lines] of A in front of the first whole cache line of B, where its lines are alike and long enough to make it worth it.
inline uint64_t leading_lines(uint64_t n_outer, const float *b, uint64_t ldb)
{
    const uint64_t past = reinterpret_cast<uintptr_t>(b) % area_line_bytes;
    const bool apart = past != 0 && past % sizeof(float) == 0 && lines_are_alike(ldb) && n_outer >= peeled_least;
    return apart ? (area_line_bytes - past) / sizeof(float) : 0;
}

// Whether B is a matter of whole cache lines that no cache would keep.
inline bool bypasses_caches(uint64_t n_outer, uint64_t n_inner, const float *b, uint64_t ldb)
{
    const bool whole = reinterpret_cast<uintptr_t>(b) % area_line_bytes == 0 && lines_are_alike(ldb);
    const uint64_t least = ldb * sizeof *b % page_bytes == 0 ? stream_least_aliased : stream_least;
    return whole && n_outer * n_inner * sizeof *b >= least;
}

// A subtree of the recursion in tiles. stream: its lines of B bypass the caches where they are whole cache lines.
template <class w, bool stream> struct block_of_tiles {
    static constexpr uint64_t side = 256;
    template <bool scaled>
    static inline void transpose(uint64_t lines, uint64_t columns, const float *a, uint64_t lda, float *b, uint64_t ldb,
                                 float alpha)
    {
        if (stream && reinterpret_cast<uintptr_t>(b) % area_line_bytes == 0)
            transpose_area<w, scaled, stream>(lines, columns, a, lda, b, ldb, alpha);
        else
            transpose_area<w, scaled, false>(lines, columns, a, lda, b, ldb, alpha);
    }
};

template <class path>
void somatcopy2_t_panels(uint64_t n_outer, uint64_t n_inner, const float *a, uint64_t lda, uint64_t stridea, float *b,
                         uint64_t ldb, uint64_t strideb, float alpha)
{
    using moves = typename path::moves;
    const bool unit = stridea == 1 && strideb == 1;
    if (!(alpha == 1.0f) && unit && bypasses_caches(n_outer, n_inner, b, ldb)) {
        tesh_xomatcopy2_rec_t<block_of_tiles<moves, true>>(n_outer, n_inner, a, lda, stridea, b, ldb, strideb, alpha);
        return;
    }
    if (somatcopy2_t_simple<path>(n_outer, n_inner, a, lda, stridea, b, ldb, strideb, alpha))
        return;
    const bool direct = reinterpret_cast<uintptr_t>(b) % path::aligned_bytes != 0 || n_outer < kernel_least_outer;
    trans_took(direct ? trans_route_direct : trans_route_kernel);
    const uint64_t leading = leading_lines(n_outer, b, ldb);
    if (leading > 0) {
        transpose_area<moves, false, false>(leading, n_inner, a, lda, b, ldb, 1.0f);
        a += leading * lda;
        b += leading;
        n_outer -= leading;
    }
    const bool stream = bypasses_caches(n_outer, n_inner, b, ldb);
    if (direct || (n_outer <= team_least && n_inner <= panel_columns_narrow)) { // no order to keep, or one team
        xomatcopy_blk_t_one_transpose_kernel_by_src_rows<moves>(n_outer, n_inner, a, lda, b, ldb, stream);
        return;
    }
    const uint64_t team = team_lines(aligned_blocking(lda, ldb).block);
    const uint64_t panel = lda <= panel_narrow_most ? panel_columns_narrow : panel_columns_wide;
    for (uint64_t j = 0; j < n_inner; j += panel)
        for (uint64_t i = 0; i < n_outer; i += team)
            xomatcopy_blk_t_one_transpose_kernel_by_src_rows<moves>(smaller_of(n_outer - i, team),
                                                                    smaller_of(n_inner - j, panel), a + i * lda + j,
                                                                    lda, b + j * ldb + i, ldb, stream);
}
} // namespace
