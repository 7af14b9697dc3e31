// SPDX-License-Identifier: BSD-3-Clause
// Packing for the 16 x 4 kernels: panels of the full width, then the rest in panels of 8, 4, 2, 1 (full width 16) or
// 2, 1 (full width 4), each of the whole depth, one behind the other. A scale of 1 copies bits.
#pragma once
#include "gemm/body/sgemm_portable_pack_body.h"

namespace
{
// The widths below full, largest first. A panel of 4 or more goes by vectors, a narrower one by elements.
template <int width, bool down, bool scaled>
inline void pack_rest(int64_t depth, int64_t rest, const float *source, int64_t ld, float scale, float *panel)
{
    if constexpr (width > 0) {
        if (rest & width) {
            if constexpr (width < 4)
                pack_narrow<scaled>(width, depth, source, down ? 1 : ld, down ? ld : 1, scale, panel, width - 1);
            else if constexpr (down)
                pack_down_panels<width / 4, 1, scaled>(depth, source, ld, scale, panel, 0);
            else
                pack_right<width, scaled>(depth, source, ld, scale, panel);
            source += down ? width : width * ld;
            panel += width * depth;
        }
        pack_rest<width / 2, down, scaled>(depth, rest, source, ld, scale, panel);
    }
}

template <int width, bool down, bool scaled>
inline void pack_block(int64_t depth, int64_t count, const float *source, int64_t ld, float scale, float *panel)
{
    constexpr int neighbours = 32 / width; // panels that share cache lines of the source
    int64_t i = 0;
    if constexpr (down) {
        for (; i + neighbours * width <= count; i += neighbours * width, panel += neighbours * width * depth)
            pack_down_panels<width / 4, neighbours, scaled>(depth, source + i, ld, scale, panel, width * depth);
    }
    for (; i + width <= count; i += width, panel += width * depth) {
        if constexpr (down)
            pack_down_panels<width / 4, 1, scaled>(depth, source + i, ld, scale, panel, 0);
        else
            pack_right<width, scaled>(depth, source + i * ld, ld, scale, panel);
    }
    pack_rest<width / 2, down, scaled>(depth, count - i, source + (down ? i : i * ld), ld, scale, panel);
}

template <int width, bool down>
inline void pack_scaled_block(const int64_t *depth, const int64_t *count, const float *source, const int64_t *ld,
                              const float *scale, float *panel)
{
    if (*scale == 1.0f)
        pack_block<width, down, false>(*depth, *count, source, *ld, 1.0f, panel);
    else
        pack_block<width, down, true>(*depth, *count, source, *ld, *scale, panel);
}
} // namespace
