// SPDX-License-Identifier: BSD-3-Clause
// b[j*ldb + i*strideb] := alpha*a[i*lda + j*stridea], what the paths with block kernels share (mc3, avx2, avx512).
//
// alpha = 1 with unit strides goes by blocks of source lines whose height follows from the leading dimensions alone;
// all else goes by recursion.
#pragma once
#include "trans/body/somatcopy2_rec_body.h"

namespace
{
constexpr uint64_t page_bytes = 4096;
constexpr uint32_t area_bytes_16_lines = 0x1000000; // [bytes] ldb*lda*4 below which a block has 16 lines, at which 8
constexpr uint64_t block_lines_most = 48;           // [lines] of a grouped block, and room to spare
constexpr uint64_t aliased_group = 16;              // [columns]

// y[j*stridey] := x[j*stridex], one line to a column or a column to a line.
inline void move_strided(uint64_t n, const float *x, uint64_t stridex, float *y, uint64_t stridey)
{
#pragma GCC unroll 8
    for (uint64_t j = 0; j < n; ++j)
        move_element<false>(x + j * stridex, y + j * stridey, 1.0f);
}

struct trans_blocking {
    uint64_t block; // [lines] of a block
    uint64_t group; // [columns] buffered together; 1: none
};

// As many lines as fill a page of A, 16 times where a line of B fits a page, else 46 times, in multiples of multiple
// [lines]. Where the lines of such a group start at multiples of 32768 bytes, or near them, they share few cache sets:
// their columns are taken 16 at a time through a buffer. (That needs lda > 1024, for a shorter line puts a group's
// bytes between one page and two.)
template <uint64_t multiple> constexpr trans_blocking page_blocking(uint64_t lda, uint64_t ldb)
{
    const uint64_t lines_in_page = (4 * lda + page_bytes - 1) / (4 * lda);
    const uint64_t block = (4 * ldb <= page_bytes ? 16 : 46) * lines_in_page / multiple * multiple;
    const uint64_t phase = 4 * lda * lines_in_page / 8 % 4096;
    return {block, phase == 0 || phase == 4 || phase == 60 ? aliased_group : 1};
}

// For a result that is aligned to a register. The area is taken modulo 2^32.
constexpr trans_blocking aligned_blocking(uint64_t lda, uint64_t ldb)
{
    const uint32_t area = static_cast<uint32_t>(ldb * lda * 4);
    return area < area_bytes_16_lines    ? trans_blocking{16, 1}
           : area == area_bytes_16_lines ? trans_blocking{8, 1}
                                         : page_blocking<8>(lda, ldb);
}

// What all the paths share: true when the work is done.
template <class path>
bool somatcopy2_t_simple(uint64_t n_outer, uint64_t n_inner, const float *a, uint64_t lda, uint64_t stridea, float *b,
                         uint64_t ldb, uint64_t strideb, float alpha)
{
    if (n_outer == 0 || n_inner == 0)
        return true;
    if (!(alpha == 1.0f)) {
        tesh_xomatcopy2_rec_t(n_outer, n_inner, a, lda, stridea, b, ldb, strideb, alpha);
    } else if (stridea != 1 || strideb != 1 || lda == 0 || ldb == 0) {
        tesh_xomatcopy2_rec_t_1(n_outer, n_inner, a, lda, stridea, b, ldb, strideb);
    } else if (n_outer == 1) {
        trans_took(trans_route_one_line);
        path::one_line(n_inner, a, b, ldb);
    } else if (n_inner == 1) {
        trans_took(trans_route_one_column);
        path::one_column(n_outer, a, lda, b);
    } else {
        return false;
    }
    return true;
}
} // namespace
