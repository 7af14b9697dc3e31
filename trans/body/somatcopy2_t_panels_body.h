// SPDX-License-Identifier: BSD-3-Clause
// b[j*ldb + i*strideb] := alpha*a[i*lda + j*stridea] of avx2 and avx512: panels of columns, in each of them blocks of
// lines, where B is aligned to a register; a direct loop elsewhere and for a handful of lines.
#pragma once
#include "trans/body/block_kernel.h"
#include "trans/body/tile_40.h"
#include "trans/body/tile_8.h"

namespace
{
constexpr uint64_t kernel_least_outer = 5; // [lines] below: the direct loop
constexpr uint64_t kernel_lanes = 8;       // [elements] of a register that B is aligned to
constexpr uint64_t panel_columns_narrow = 1024, panel_columns_wide = 4096;
constexpr uint64_t panel_narrow_most = 512;                   // [elements] lda up to which a panel is narrow
constexpr uint64_t direct_round = 4;                          // [lines] of a round of the direct loop
constexpr uint64_t direct_strip = 256, direct_strip_far = 64; // [lines] that its rounds walk through together
constexpr uint64_t direct_ahead = 32;                         // [elements] of prefetches of A beyond the caches
constexpr uint64_t direct_ahead_least = 1 << 20; // [bytes] of B from which 16 columns at a time fetch A ahead
constexpr uint64_t direct_run_ahead = 16;        // [columns] of prefetches of B there

// [bytes] of B from which whole cache lines of it bypass the caches: where the caches stop paying, later where lines
// share sets.
constexpr uint64_t stream_least = uint64_t(12) << 20, stream_least_aliased = uint64_t(20) << 20;

// [bytes] of B from which what the third cache keeps of both arrays comes too late if it is not fetched ahead.
constexpr uint64_t far_least = uint64_t(8) << 20;
constexpr uint64_t far_ahead = 64;            // [elements] of prefetches of A there
constexpr uint64_t far_run_ahead = 8;         // [steps] of prefetches of B
constexpr uint64_t far_run_ahead_aliased = 4; // the same for blocks of 8 lines whose lines of B share sets

constexpr uint64_t stream_ahead = 32; // [elements] of prefetches of A beside streaming stores
constexpr uint64_t strip_ahead = 32;  // [columns] of strips and groups of a block that has no code of its own

constexpr uint64_t smaller_of(uint64_t x, uint64_t y)
{
    return x < y ? x : y;
}

// A strip of lines: 16 or 8 columns at a time, then 8, 4 and single ones; in each of them rounds of 4 lines, so that a
// line of b gets its stores together. What is left of the lines goes together, column after column. single: 4 lines.
// settled: 8 columns begin when the stores of the last 8 have left the queue (trans/body/settled.h).
// ahead: the distance of prefetches of a [elements], 0 for none; with 8 columns at a time they are of b too.
// Not inlined: beside the block kernel its pointers would be spilled.
template <bool single, bool settled, uint64_t ahead, uint64_t together>
[[gnu::noinline]] void direct_lines(uint64_t lines, uint64_t columns, const float *a, uint64_t lda, float *b,
                                    uint64_t ldb)
{
    constexpr bool both_ahead = ahead > 0 && together == 8;
    const uint64_t whole = single ? direct_round : lines / direct_round * direct_round;
    uint64_t j = 0;
    float *to = b;
    for (; j + together <= columns; j += together) {
        if constexpr (both_ahead) {
            for (uint64_t c = 0; c < 8; ++c) {
                const float *const run = to + (direct_run_ahead + c) * ldb;
                for (uint64_t i = 0; i < whole; i += cache_line_bytes / sizeof *run)
                    _mm_prefetch(reinterpret_cast<const char *>(run + i), _MM_HINT_T0);
                _mm_prefetch(reinterpret_cast<const char *>(run + whole - 1), _MM_HINT_T0);
            }
        }
        for (uint64_t i = 0; i < whole; i += direct_round) {
            const float *const from = a + i * lda + j;
            if constexpr (ahead > 0) {
#pragma GCC unroll 4
                for (uint64_t k = 0; k < direct_round; ++k)
                    _mm_prefetch(reinterpret_cast<const char *>(from + k * lda + ahead), _MM_HINT_T0);
            }
            if constexpr (both_ahead) {
                moves_8::move_4x8(from, lda, to + i, ldb);
            } else {
#pragma GCC unroll 2
                for (uint64_t c = 0; c < together; c += 8)
                    moves_8::move_4x8_whole(from + c, lda, to + c * ldb + i, ldb);
            }
        }
        to += together * ldb;
        if (settled && whole > direct_round) // two stores of the last line of b meet there
            to += settled_zero(to - ldb + whole - direct_round - 1);
    }
    if (together > 8 && j + 8 <= columns) {
        for (uint64_t i = 0; i < whole; i += direct_round)
            moves_8::move_4x8_whole(a + i * lda + j, lda, to + i, ldb);
        to += 8 * ldb;
        j += 8;
    }
    if (j + 4 <= columns) {
        for (uint64_t i = 0; i < whole; i += direct_round)
            move_4x4(a + i * lda + j, lda, to + i, ldb);
        to += 4 * ldb;
        j += 4;
    }
    for (uint64_t i = 0; i < whole; i += direct_round)
        move_scalars<direct_round>(columns - j, a + i * lda + j, lda, to + i, ldb);
    const float *const rest = a + whole * lda;
    if (lines - whole == 3)
        move_scalars<3>(columns, rest, lda, b + whole, ldb);
    else if (lines - whole == 2)
        move_scalars<2>(columns, rest, lda, b + whole, ldb);
    else if (lines - whole == 1)
        move_scalars<1>(columns, rest, lda, b + whole, ldb);
}

// A strip's lines of b are half filled at both ends: a high strip has fewer of them. 8 columns at a time come back to
// each cache line of a. Where the lines of a share sets, or lie on pages of their own, which nobody fetches ahead, 16
// take all of it at once; but no more than 8 lines of b may share one set.
inline void direct_loop(uint64_t n_outer, uint64_t n_inner, const float *a, uint64_t lda, float *b, uint64_t ldb)
{
    trans_took(trans_route_direct);
    const uint64_t line_a = lda * sizeof *a, line = ldb * sizeof *b;
    const uint64_t bytes = n_outer * n_inner * sizeof *b;
    const bool far = bytes >= far_least, outgrows = bytes >= direct_ahead_least;
    const bool settled = line % (2 * aliased_bytes) == 0;
    const bool wide = (line_a % (aliased_bytes / 2) == 0 || line_a > page_bytes) && line % page_bytes != 0;
    const auto strip = n_outer == direct_round ? direct_lines<true, false, 0, 8>
                       : far && settled        ? direct_lines<false, true, direct_ahead, 8>
                       : far                   ? direct_lines<false, false, direct_ahead, 8>
                       : wide && outgrows      ? direct_lines<false, false, 16, 16>
                       : wide                  ? direct_lines<false, false, 0, 16>
                       : settled               ? direct_lines<false, true, 0, 8>
                                               : direct_lines<false, false, 0, 8>;
    const uint64_t height = far ? direct_strip_far : direct_strip;
    for (uint64_t i = 0; i < n_outer; i += height)
        strip(smaller_of(n_outer - i, height), n_inner, a + i * lda, lda, b + i, ldb);
}

inline void copy_run(uint64_t n, const float *x, float *y)
{
    uint64_t i = 0;
    for (; i + 8 <= n; i += 8)
        _mm256_storeu_ps(y + i, _mm256_loadu_ps(x + i));
    for (; i < n; ++i)
        move_element<false>(x + i, y + i, 1.0f);
}

// lines lines of length elements, one behind the other at x, to lines of b.
template <bool stream> inline void copy_runs(uint64_t lines, uint64_t length, const float *x, float *b, uint64_t ldb)
{
    if constexpr (stream) { // first what is less than a cache line, at both ends
        constexpr uint64_t cache_line = cache_line_bytes / sizeof *b;
        const auto front = [=](uint64_t k) {
            const uint64_t past = reinterpret_cast<uintptr_t>(b + k * ldb) % cache_line_bytes / sizeof *b;
            return smaller_of((cache_line - past) % cache_line, length);
        };
        for (uint64_t k = 0; k < lines; ++k) {
            const uint64_t first = front(k), tail = (length - first) % cache_line;
            copy_run(first, x + k * length, b + k * ldb);
            copy_run(tail, x + (k + 1) * length - tail, b + k * ldb + length - tail);
        }
        for (uint64_t k = 0; k < lines; ++k)
            for (uint64_t i = front(k); i + cache_line <= length; i += cache_line)
                for (uint64_t part = i; part < i + cache_line; part += 8)
                    _mm256_stream_ps(b + k * ldb + part, _mm256_loadu_ps(x + k * length + part));
    } else {
        for (uint64_t k = 0; k < lines; ++k)
            copy_run(length, x + k * length, b + k * ldb);
    }
}

// Where the cache lines of B are when they are written: in the caches, behind most of them, or past all of them.
enum class target { near, far, streamed };

template <int width, target where, int wait, int part_wait = wait>
inline void transpose_stored(uint64_t rows, uint64_t cols, const float *a, uint64_t lda, float *b, uint64_t ldb)
{
    block_took<width>();
    constexpr bool stream = where == target::streamed, far = where == target::far;
    transpose_ungrouped<moves_8, run_store<width, stream, wait, (far ? far_run_ahead : 0)>,
                        run_store<width, false, part_wait, (far ? far_run_ahead : 0)>,
                        (stream ? stream_ahead
                         : far  ? far_ahead
                                : 0),
                        (where == target::near ? 0 : strip_ahead)>(rows, cols, a, lda, b, ldb);
}

// lanes: 8 where B as a whole is aligned to the path's register. later: lines of B begin in front of b.
template <class path, target where, bool later>
void xomatcopy_blk_t_one_transpose_kernel_by_src_rows(uint64_t rows, uint64_t cols, const float *a, uint64_t lda,
                                                      float *b, uint64_t ldb, uint64_t group, uint64_t lanes)
{
    constexpr bool stream = where == target::streamed;
    const uint64_t line = ldb * sizeof *b;
    if (group != 1) {
        constexpr uint64_t ahead = where == target::near ? 0 : strip_ahead;
        const auto grouped = where != target::near && line % (4 * sizeof *b) == 0
                                 ? transpose_grouped<moves_8, run_store<8, false, 0>, ahead, true, copy_runs<true>>
                                 : transpose_grouped<moves_8, run_store<8, false, 0>, ahead, false, copy_runs<false>>;
        grouped(rows, cols, a, lda, b, ldb, group);
    } else if (where == target::far && rows == tall_lines && line % aliased_bytes != 0) {
        trans_took(trans_route_kernel);
        const bool wide = path::store_width(b, ldb, lanes) == 8;
        const auto tall = wide && line % (8 * sizeof *b) == 0 ? transpose_tall<8, true>
                          : line % (4 * sizeof *b) == 0       ? transpose_tall<4, true>
                          : wide                              ? transpose_tall<8, false>
                                                              : transpose_tall<4, false>;
        tall(cols, a, lda, b, ldb);
    } else if (path::store_width(b, ldb, lanes) == 4) {
        if (!stream && line % (2 * aliased_bytes) == 0) // four stores a cache line keep fewer lines in the queue
            transpose_stored<4, target::near, 1>(rows, cols, a, lda, b, ldb);
        else
            transpose_stored<4, where, 0>(rows, cols, a, lda, b, ldb);
    } else if (where == target::far && later && rows == 8 && lda >= ldb && line % (2 * aliased_bytes) == 0) {
        trans_took(trans_route_kernel); // each cache line of B comes in twice
        block_took<8>();
        transpose_fixed<moves_8, run_store<8, false, 1, far_run_ahead_aliased>, 8, far_ahead>(cols, a, lda, b, ldb);
    } else if (!stream && line % (2 * aliased_bytes) == 0) {
        transpose_stored<8, target::near, 1, later>(rows, cols, a, lda, b, ldb);
    } else if (!stream && line % aliased_bytes == 0) { // twice the sets
        transpose_stored<8, target::near, 2, later>(rows, cols, a, lda, b, ldb);
    } else {
        transpose_stored<8, where, 0>(rows, cols, a, lda, b, ldb);
    }
}

// The lines of a panel that is narrower than what the kernel takes at once, 16 at a time: 4 columns in registers if
// there are so many, the rest singly. Returns the lines that are done.
template <int width>
[[gnu::noinline]] uint64_t transpose_narrow(uint64_t n_outer, uint64_t cols, const float *a, uint64_t lda, float *b,
                                            uint64_t ldb)
{
    trans_took(trans_route_kernel);
    block_took<width>();
    const uint64_t together = cols < 4 ? 0 : 4;
    uint64_t i = 0;
    for (; i + 16 <= n_outer; i += 16) {
        if (together != 0)
            moves_8::move_16x4<width>(a + i * lda, lda, b + i, ldb);
        move_scalars<16>(cols - together, a + i * lda + together, lda, b + together * ldb + i, ldb);
    }
    return i;
}

template <class path, target where>
void transpose_panels(uint64_t n_outer, uint64_t n_inner, const float *a, uint64_t lda, float *b, uint64_t ldb)
{
    const trans_blocking by = aligned_blocking(lda, ldb);
    const uint64_t panel = lda <= panel_narrow_most ? panel_columns_narrow : panel_columns_wide;
    for (uint64_t j = 0; j < n_inner; j += panel) {
        const uint64_t cols = smaller_of(n_inner - j, panel);
        const float *const from = a + j;
        float *const to = b + j * ldb;
        uint64_t i = 0;
        if (cols < kernel_columns && by.group == 1)
            i = (path::store_width(to, ldb, kernel_lanes) == 8
                     ? transpose_narrow<8>
                     : transpose_narrow<4>)(n_outer, cols, from, lda, to, ldb);
        for (; i < n_outer; i += by.block)
            (i > 0 ? xomatcopy_blk_t_one_transpose_kernel_by_src_rows<path, where, true>
                   : xomatcopy_blk_t_one_transpose_kernel_by_src_rows<path, where, false>)(smaller_of(n_outer - i,
                                                                                                      by.block),
                                                                                           cols, from + i * lda, lda,
                                                                                           to + i, ldb, by.group,
                                                                                           kernel_lanes);
    }
}

// Whether B is whole cache lines that no cache would keep.
inline bool bypasses_caches(uint64_t n_outer, uint64_t n_inner, const float *b, uint64_t ldb)
{
    const uint64_t line = ldb * sizeof *b;
    const uint64_t least = line % aliased_bytes == 0 ? stream_least_aliased : stream_least;
    return line % cache_line_bytes == 0 && reinterpret_cast<uintptr_t>(b) % cache_line_bytes == 0 &&
           n_outer * n_inner * sizeof *b >= least;
}

template <class path>
void somatcopy2_t_panels(uint64_t n_outer, uint64_t n_inner, const float *a, uint64_t lda, uint64_t stridea, float *b,
                         uint64_t ldb, uint64_t strideb, float alpha)
{
    if (somatcopy2_t_simple<path>(n_outer, n_inner, a, lda, stridea, b, ldb, strideb, alpha))
        return;
    if (reinterpret_cast<uintptr_t>(b) % path::aligned_bytes != 0 || n_outer < kernel_least_outer) {
        direct_loop(n_outer, n_inner, a, lda, b, ldb);
    } else if (n_outer * n_inner * sizeof *b >= far_least) {
        (bypasses_caches(n_outer, n_inner, b, ldb)
             ? transpose_panels<path, target::streamed>
             : transpose_panels<path, target::far>)(n_outer, n_inner, a, lda, b, ldb);
        _mm_sfence(); // streaming stores, before any store that follows
    } else {
        transpose_panels<path, target::near>(n_outer, n_inner, a, lda, b, ldb);
    }
}
} // namespace
