// SPDX-License-Identifier: BSD-3-Clause
// Packing of the portable forms, 4 lanes at a time. A panel of width w holds, for every depth step l, w floats side by
// side: element c of the step is scale*X(c, l), where
//   down   reads X(c, l) at source[c + l*ld]: a step is contiguous,
//   right  reads X(c, l) at source[l + c*ld]: w streams, transposed 4 x 4 in registers.
// scaled = false copies bits. Destinations are aligned to 16 bytes when w is a multiple of 4; sources lie anywhere.
#pragma once
#include "frame/path/as_written.h"
#include <immintrin.h>
#include <stdint.h>

namespace
{
template <bool scaled> inline __m128 scale_4(__m128 x, __m128 scale)
{
    return scaled ? _mm_mul_ps(x, scale) : x;
}

// Panels of width 4*group side by side: the rows of neighbouring panels share cache lines, and are read together.
template <int group, int panels, bool scaled>
inline void pack_down_panels(int64_t depth, const float *source, int64_t ld, float scale, float *panel,
                             int64_t panel_stride)
{
    const __m128 factor = _mm_set1_ps(scale);
#pragma GCC unroll 1
    for (int64_t l = 0; l < depth; ++l, source += ld, panel += 4 * group) {
#pragma GCC unroll 8
        for (int w = 0; w < group * panels; ++w) {
            const __m128 x = scale_4<scaled>(_mm_loadu_ps(source + 4 * w), factor);
            _mm_store_ps(panel + w / group * panel_stride + w % group * 4, x);
        }
    }
}

// Four streams into columns first .. first + 3 of a panel of the given width.
template <int width, bool scaled>
inline void pack_right_4(int64_t depth, const float *source, int64_t ld, float scale, float *panel)
{
    const __m128 factor = _mm_set1_ps(scale);
    const float *s0 = source, *s1 = source + ld, *s2 = source + 2 * ld, *s3 = source + 3 * ld;
    int64_t l = 0;
#pragma GCC unroll 1
    for (; l + 4 <= depth; l += 4, panel += 4 * width) {
        __m128 x0 = scale_4<scaled>(_mm_loadu_ps(s0 + l), factor), x1 = scale_4<scaled>(_mm_loadu_ps(s1 + l), factor);
        __m128 x2 = scale_4<scaled>(_mm_loadu_ps(s2 + l), factor), x3 = scale_4<scaled>(_mm_loadu_ps(s3 + l), factor);
        _MM_TRANSPOSE4_PS(x0, x1, x2, x3);
        _mm_store_ps(panel, x0);
        _mm_store_ps(panel + width, x1);
        _mm_store_ps(panel + 2 * width, x2);
        _mm_store_ps(panel + 3 * width, x3);
    }
    for (; l < depth; ++l, panel += width) {
        const __m128 x = _mm_setr_ps(s0[l], s1[l], s2[l], s3[l]);
        _mm_store_ps(panel, scale_4<scaled>(x, factor));
    }
}

template <int width, bool scaled>
inline void pack_right(int64_t depth, const float *source, int64_t ld, float scale, float *panel)
{
#pragma GCC unroll 4
    for (int c = 0; c < width; c += 4)
        pack_right_4<width, scaled>(depth, source + c * ld, ld, scale, panel + c);
}

// Any width, one element at a time: the narrow panels at the end of a block. The element at last is repeated in the
// places behind it.
template <bool scaled>
inline void pack_narrow(int width, int64_t depth, const float *source, int64_t step, int64_t depth_step, float scale,
                        float *panel, int64_t last)
{
    for (int64_t l = 0; l < depth; ++l, panel += width) {
        for (int c = 0; c < width; ++c) {
            const float x = source[(c < last ? c : last) * step + l * depth_step];
            panel[c] = scaled ? as_written(scale * x) : x; // in a register of its own, without idle lanes
        }
    }
}
} // namespace
