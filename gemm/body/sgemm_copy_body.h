// SPDX-License-Identifier: BSD-3-Clause
// Packing of the generic portable form: A in panels of 8 rows, times alpha, B in panels of 4 columns. Counts are whole
// numbers of panels; the depth is rounded up to a multiple of 4 with zeros on both sides, which add nothing.
#pragma once
#include "frame/path/path_util.h"
#include "gemm/body/sgemm_portable_pack_body.h"

namespace
{
inline void clear_depth_tail(int64_t depth, int64_t width, float *panel)
{
    const int64_t padded = round_up(depth, 4);
    for (int64_t i = depth * width; i < padded * width; ++i)
        panel[i] = 0.0f;
}

inline void copy_a_down(int64_t depth, int64_t rows, const float *a, int64_t lda, float alpha, float *panel)
{
    const int64_t stride = 8 * round_up(depth, 4);
    int64_t i = 0;
    for (; i + 32 <= rows; i += 32)
        pack_down_panels<2, 4, true>(depth, a + i, lda, alpha, panel + i / 8 * stride, stride);
    for (; i < rows; i += 8)
        pack_down_panels<2, 1, true>(depth, a + i, lda, alpha, panel + i / 8 * stride, stride);
    for (i = 0; i < rows; i += 8)
        clear_depth_tail(depth, 8, panel + i / 8 * stride);
}

inline void copy_a_right(int64_t depth, int64_t rows, const float *a, int64_t lda, float alpha, float *panel)
{
    const int64_t stride = 8 * round_up(depth, 4);
    for (int64_t i = 0; i < rows; i += 8, panel += stride) {
        pack_right<8, true>(depth, a + i * lda, lda, alpha, panel);
        clear_depth_tail(depth, 8, panel);
    }
}

inline void copy_b_right(int64_t depth, int64_t columns, const float *b, int64_t ldb, float *panel)
{
    const int64_t stride = 4 * round_up(depth, 4);
    for (int64_t j = 0; j < columns; j += 4, panel += stride) {
        pack_right<4, false>(depth, b + j * ldb, ldb, 1.0f, panel);
        clear_depth_tail(depth, 4, panel);
    }
}

inline void copy_b_down(int64_t depth, int64_t columns, const float *b, int64_t ldb, float *panel)
{
    const int64_t stride = 4 * round_up(depth, 4);
    int64_t j = 0;
    for (; j + 16 <= columns; j += 16)
        pack_down_panels<1, 4, false>(depth, b + j, ldb, 1.0f, panel + j / 4 * stride, stride);
    for (; j < columns; j += 4)
        pack_down_panels<1, 1, false>(depth, b + j, ldb, 1.0f, panel + j / 4 * stride, stride);
    for (j = 0; j < columns; j += 4)
        clear_depth_tail(depth, 4, panel + j / 4 * stride);
}
} // namespace
