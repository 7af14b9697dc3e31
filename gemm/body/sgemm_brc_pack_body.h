// SPDX-License-Identifier: BSD-3-Clause
// Packing of the 8 x 4 tile with rests: the last panel is filled up to its width by repeating the last row or column,
// the depth to a multiple of 4 with zeros on both sides.
#pragma once
#include "gemm/body/sgemm_copy_body.h"

namespace
{
template <int width, bool scaled>
inline void pack_repeated(int64_t depth, int64_t count, const float *source, int64_t step, int64_t depth_step,
                          float scale, float *panel)
{
    pack_narrow<scaled>(width, depth, source, step, depth_step, scale, panel, count - 1);
    clear_depth_tail(depth, width, panel);
}

// B down its columns, with a head up to the 16-byte boundary of the first column of a group: from there on that
// stream's loads are aligned.
inline void copy_b_right_peeled(int64_t depth, int64_t columns, const float *b, int64_t ldb, float *panel)
{
    const int64_t stride = 4 * round_up(depth, 4);
    for (int64_t j = 0; j < columns; j += 4, panel += stride) {
        const float *source = b + j * ldb;
        int64_t head = 0;
        while (head < depth && reinterpret_cast<uintptr_t>(source + head) % 16 != 0 && head < 4)
            ++head;
        pack_narrow<false>(4, head, source, ldb, 1, 1.0f, panel, 3);
        pack_right<4, false>(depth - head, source + head, ldb, 1.0f, panel + 4 * head);
        clear_depth_tail(depth, 4, panel);
    }
}

// A block: whole panels, then the rest filled up to one. peels: B down its columns with the head of
// copy_b_right_peeled.
template <int width, bool scaled, bool peels = false>
inline void pack_with_rest(bool down, int64_t depth, int64_t count, const float *source, int64_t ld, float scale,
                           float *panel)
{
    const int64_t whole = count & ~int64_t{width - 1}, step = down ? 1 : ld, depth_step = down ? ld : 1;
    if constexpr (scaled)
        down ? copy_a_down(depth, whole, source, ld, scale, panel)
             : copy_a_right(depth, whole, source, ld, scale, panel);
    else
        down    ? copy_b_down(depth, whole, source, ld, panel)
        : peels ? copy_b_right_peeled(depth, whole, source, ld, panel)
                : copy_b_right(depth, whole, source, ld, panel);
    if (whole < count)
        pack_repeated<width, scaled>(depth, count - whole, source + whole * step, step, depth_step, scale,
                                     panel + whole * round_up(depth, 4));
}
} // namespace
