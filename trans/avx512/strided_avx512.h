// SPDX-License-Identifier: BSD-3-Clause
// y[j*stridey] := alpha*x[j*stridex] in rounds of 16 elements: gather and scatter, or a load (unit_x) and a store
// (unit_y) on a side whose stride is 1 by its role; a rest of at least masked_least elements runs once under a mask, a
// shorter one singly.
#pragma once
#include "trans/body/transpose_tile.h"

namespace
{
constexpr uint64_t gather_stride_most = 0x7fffffff / 15; // [elements] that 32-bit lane offsets reach

inline __m512i strided_lanes(uint64_t stride)
{
    const __m512i lane = _mm512_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    return _mm512_mullo_epi32(lane, _mm512_set1_epi32(static_cast<int>(stride)));
}

template <bool scaled, bool unit_x, bool unit_y, uint64_t masked_least>
void strided_avx512(uint64_t n, const float *x, uint64_t stridex, float *y, uint64_t stridey, float alpha)
{
    uint64_t j = 0;
    if (stridex <= gather_stride_most && stridey <= gather_stride_most) {
        const __m512i from = strided_lanes(stridex), to = strided_lanes(stridey);
        const __m512 av = _mm512_set1_ps(alpha);
        for (; j + 16 <= n; j += 16) {
            const float *source = x + j * stridex;
            float *target = y + j * stridey;
            const __m512 value = unit_x ? _mm512_loadu_ps(source)
                                        : _mm512_mask_i32gather_ps(_mm512_setzero_ps(), 0xffff, from, source, 4);
            const __m512 product = scaled ? _mm512_mul_ps(av, value) : value;
            if constexpr (unit_y)
                _mm512_storeu_ps(target, product);
            else
                _mm512_i32scatter_ps(target, to, product, 4);
        }
        if (n - j >= masked_least) {
            const __mmask16 rest = static_cast<__mmask16>((1u << (n - j)) - 1u);
            const float *source = x + j * stridex;
            float *target = y + j * stridey;
            const __m512 value = unit_x ? _mm512_maskz_loadu_ps(rest, source)
                                        : _mm512_mask_i32gather_ps(_mm512_setzero_ps(), rest, from, source, 4);
            const __m512 product = scaled ? _mm512_maskz_mul_ps(rest, av, value) : value;
            if constexpr (unit_y)
                _mm512_mask_storeu_ps(target, rest, product);
            else
                _mm512_mask_i32scatter_ps(target, rest, to, product, 4);
            return;
        }
    }
    for (; j < n; ++j)
        move_element<scaled>(x + j * stridex, y + j * stridey, alpha);
}
} // namespace
