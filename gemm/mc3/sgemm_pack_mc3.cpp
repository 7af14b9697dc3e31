// SPDX-License-Identifier: BSD-3-Clause
// Packing of the mc3 path. A panel of width W holds, depth step after depth step, W neighbouring elements: rows of
// op(A) in widths of 4, then 2, 1; columns of op(B) in widths of 8, then 4, 2, 1. Panels follow one another without a
// gap, so that the panel of column j begins at j*depth. Every element is multiplied by *scale (alpha for A, 1 for B).
#include "frame/path/path_util.h"
#include "frame/path/vec_mc3.h"
#include "gemm/sgemm_mc3.h"

namespace
{
constexpr int panel_a = 4, panel_b = 8; // the unrolls of the table entry

using reg = __m128;

// The width runs along contiguous memory: element (l, c) of the source lies at l*ld + c.
template <int width>
inline void pack_down(int64_t depth, const float *source, int64_t ld, float scale, float *destination)
{
    const reg s = _mm_set1_ps(scale);
    for (int64_t l = 0; l < depth; ++l, source += ld, destination += width) {
        if constexpr (width >= 4) {
#pragma GCC unroll 2
            for (int c = 0; c < width; c += 4)
                _mm_storeu_ps(destination + c, _mm_mul_ps(_mm_loadu_ps(source + c), s));
        } else {
            for (int c = 0; c < width; ++c)
                destination[c] = source[c] * scale;
        }
    }
}

// The width runs across columns: element (l, c) lies at c*ld + l. Four by four elements are transposed in registers.
template <int width>
inline void pack_right(int64_t depth, const float *source, int64_t ld, float scale, float *destination)
{
    int64_t l = 0;
    if constexpr (width >= 4) {
        const reg s = _mm_set1_ps(scale);
        for (; l + 4 <= depth; l += 4)
#pragma GCC unroll 2
            for (int c = 0; c < width; c += 4) {
                const float *const x = source + c * ld + l;
                reg r0 = _mm_loadu_ps(x), r1 = _mm_loadu_ps(x + ld), r2 = _mm_loadu_ps(x + 2 * ld),
                    r3 = _mm_loadu_ps(x + 3 * ld);
                _MM_TRANSPOSE4_PS(r0, r1, r2, r3);
                float *const y = destination + l * width + c;
                _mm_storeu_ps(y, _mm_mul_ps(r0, s));
                _mm_storeu_ps(y + width, _mm_mul_ps(r1, s));
                _mm_storeu_ps(y + 2 * width, _mm_mul_ps(r2, s));
                _mm_storeu_ps(y + 3 * width, _mm_mul_ps(r3, s));
            }
    }
    for (; l < depth; ++l)
        for (int c = 0; c < width; ++c)
            destination[l * width + c] = source[c * ld + l] * scale;
}

// Four panels of A side by side: 16 rows, whose columns share cache lines.
inline void pack_four_down(int64_t depth, const float *source, int64_t ld, float scale, float *destination)
{
    const reg s = _mm_set1_ps(scale);
    for (int64_t l = 0; l < depth; ++l, source += ld, destination += panel_a)
#pragma GCC unroll 4
        for (int p = 0; p < 4; ++p)
            _mm_storeu_ps(destination + p * panel_a * depth, _mm_mul_ps(_mm_loadu_ps(source + p * panel_a), s));
}

template <int width, bool down>
inline void pack_panel(int64_t depth, const float *source, int64_t ld, float scale, float *destination)
{
    if constexpr (down)
        pack_down<width>(depth, source, ld, scale, destination);
    else
        pack_right<width>(depth, source, ld, scale, destination);
}

template <int full, bool down>
inline void pack(const int64_t *depth, const int64_t *width, const float *source, const int64_t *ld, const float *scale,
                 float *destination)
{
    const int64_t across = down ? 1 : *ld; // distance of neighbours in the width [elements]
    int64_t c = 0;
    if constexpr (full == panel_a && down)
        for (; c + 4 * full <= *width; c += 4 * full)
            pack_four_down(*depth, source + c, *ld, *scale, destination + c * *depth);
    for (; c + full <= *width; c += full)
        pack_panel<full, down>(*depth, source + c * across, *ld, *scale, destination + c * *depth);
    if (full > 4 && c + 4 <= *width) {
        pack_panel<4, down>(*depth, source + c * across, *ld, *scale, destination + c * *depth);
        c += 4;
    }
    if (c + 2 <= *width) {
        pack_panel<2, down>(*depth, source + c * across, *ld, *scale, destination + c * *depth);
        c += 2;
    }
    if (c < *width)
        pack_panel<1, down>(*depth, source + c * across, *ld, *scale, destination + c * *depth);
}

inline bool is_plain(const char *trans)
{
    return *trans == 'N' || *trans == 'n';
}
} // namespace

extern "C" {
void tesh_blas_mc3_sgemm_copyan(const int64_t *depth, const int64_t *width, const float *source, const int64_t *ld,
                                const float *scale, float *destination)
{
    pack<panel_a, true>(depth, width, source, ld, scale, destination);
}

void tesh_blas_mc3_sgemm_copyat(const int64_t *depth, const int64_t *width, const float *source, const int64_t *ld,
                                const float *scale, float *destination)
{
    pack<panel_a, false>(depth, width, source, ld, scale, destination);
}

void tesh_blas_mc3_sgemm_copybn(const int64_t *depth, const int64_t *width, const float *source, const int64_t *ld,
                                const float *scale, float *destination)
{
    pack<panel_b, false>(depth, width, source, ld, scale, destination);
}

void tesh_blas_mc3_sgemm_copybt(const int64_t *depth, const int64_t *width, const float *source, const int64_t *ld,
                                const float *scale, float *destination)
{
    pack<panel_b, true>(depth, width, source, ld, scale, destination);
}

void tesh_blas_mc3_sgemm_copya_ext(const char *trans, const int64_t *depth, const int64_t *width, const float *source,
                                   const int64_t *ld, const float *scale, float *destination)
{
    if (is_plain(trans))
        pack<panel_a, true>(depth, width, source, ld, scale, destination);
    else
        pack<panel_a, false>(depth, width, source, ld, scale, destination);
}

void tesh_blas_mc3_sgemm_copyb_ext(const char *trans, const int64_t *depth, const int64_t *width, const float *source,
                                   const int64_t *ld, const float *scale, float *destination)
{
    if (is_plain(trans))
        pack<panel_b, false>(depth, width, source, ld, scale, destination);
    else
        pack<panel_b, true>(depth, width, source, ld, scale, destination);
}
}
