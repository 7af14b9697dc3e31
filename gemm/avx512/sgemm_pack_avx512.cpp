// SPDX-License-Identifier: BSD-3-Clause
// Packing of the avx512 path: A in panels of 48 rows, B in panels of 8 columns.
#include "gemm/avx512/sgemm_path_avx512.h"
#include "gemm/body/sgemm_pack_body.h"

namespace
{
using v = lanes<16>;
constexpr __mmask16 all = 0xffff;

// The zeroing forms with a full mask are the plain instructions; the plain intrinsics of GCC 12 warn of the undefined
// register that they pass on.
inline __m512 unpack_low(__m512 x, __m512 y)
{
    return _mm512_maskz_unpacklo_ps(all, x, y);
}
inline __m512 unpack_high(__m512 x, __m512 y)
{
    return _mm512_maskz_unpackhi_ps(all, x, y);
}
template <int control> inline __m512 pairs(__m512 x, __m512 y)
{
    return _mm512_maskz_shuffle_ps(all, x, y, control);
}
template <int control> inline __m512 quarters(__m512 x, __m512 y)
{
    return _mm512_maskz_shuffle_f32x4(all, x, y, control);
}

// 16 streams of 16 steps: pairs of streams, fours, then quarters of registers twice.
template <> struct transpose_block<16> {
    template <class scale, bool whole>
    static inline void run(const float *source, int64_t ld, float *panel, int64_t w, int steps, scale s)
    {
        const __mmask16 valid = v::first(steps);
        __m512 x[16], y[16];
#pragma GCC unroll 16
        for (int c = 0; c < 16; ++c)
            x[c] = whole ? v::load(source + c * ld) : v::load(source + c * ld, valid);
#pragma GCC unroll 4
        // y[4*g + q]: in quarter r, step 4*r + q of streams 4*g .. 4*g + 3.
        for (int c = 0; c < 16; c += 4) {
            const __m512 t0 = unpack_low(x[c], x[c + 1]), t1 = unpack_high(x[c], x[c + 1]);
            const __m512 t2 = unpack_low(x[c + 2], x[c + 3]), t3 = unpack_high(x[c + 2], x[c + 3]);
            y[c] = pairs<0x44>(t0, t2);
            y[c + 1] = pairs<0xee>(t0, t2);
            y[c + 2] = pairs<0x44>(t1, t3);
            y[c + 3] = pairs<0xee>(t1, t3);
        }
#pragma GCC unroll 4
        for (int q = 0; q < 4; ++q) {
            // Quarters (0, 1) and (2, 3) of two groups of streams side by side, then steps q, q + 4, q + 8, q + 12.
            const __m512 low = quarters<0x44>(y[q], y[4 + q]);
            const __m512 high = quarters<0xee>(y[q], y[4 + q]);
            const __m512 low2 = quarters<0x44>(y[8 + q], y[12 + q]);
            const __m512 high2 = quarters<0xee>(y[8 + q], y[12 + q]);
            if (whole || q < steps)
                v::store(panel + q * w, s.template apply<v>(quarters<0x88>(low, low2)));
            if (whole || q + 4 < steps)
                v::store(panel + (q + 4) * w, s.template apply<v>(quarters<0xdd>(low, low2)));
            if (whole || q + 8 < steps)
                v::store(panel + (q + 8) * w, s.template apply<v>(quarters<0x88>(high, high2)));
            if (whole || q + 12 < steps)
                v::store(panel + (q + 12) * w, s.template apply<v>(quarters<0xdd>(high, high2)));
        }
    }
};

// 8 streams of 16 steps into a panel of width 8: two steps to a register.
template <> struct transposer<v, 8> {
    static constexpr int steps = 16;
    template <class scale, bool whole>
    static inline void run(const float *source, int64_t ld, float *panel, int64_t, int valid_steps, scale s)
    {
        const __mmask16 valid = v::first(valid_steps);
        __m512 x[8], y[8];
#pragma GCC unroll 8
        for (int c = 0; c < 8; ++c)
            x[c] = whole ? v::load(source + c * ld) : v::load(source + c * ld, valid);
#pragma GCC unroll 2
        // y[q] holds in quarter r step 4*r + q of streams 0-3, y[q + 4] the same of streams 4-7.
        for (int c = 0; c < 8; c += 4) {
            const __m512 t0 = unpack_low(x[c], x[c + 1]), t1 = unpack_high(x[c], x[c + 1]);
            const __m512 t2 = unpack_low(x[c + 2], x[c + 3]), t3 = unpack_high(x[c + 2], x[c + 3]);
            y[c] = pairs<0x44>(t0, t2);
            y[c + 1] = pairs<0xee>(t0, t2);
            y[c + 2] = pairs<0x44>(t1, t3);
            y[c + 3] = pairs<0xee>(t1, t3);
        }
#pragma GCC unroll 2
        for (int q = 0; q < 4; q += 2) {
            // Quarters (0, 1) and (2, 3) of the streams 0-3 and 4-7 of step q, then with those of step q + 1.
            const __m512 low = quarters<0x44>(y[q], y[q + 4]), high = quarters<0xee>(y[q], y[q + 4]);
            const __m512 low1 = quarters<0x44>(y[q + 1], y[q + 5]), high1 = quarters<0xee>(y[q + 1], y[q + 5]);
            store<whole>(s, panel, q, valid_steps, quarters<0x88>(low, low1));
            store<whole>(s, panel, 4 + q, valid_steps, quarters<0xdd>(low, low1));
            store<whole>(s, panel, 8 + q, valid_steps, quarters<0x88>(high, high1));
            store<whole>(s, panel, 12 + q, valid_steps, quarters<0xdd>(high, high1));
        }
    }

    // Steps l and l + 1, as far as they are valid.
    template <bool whole, class scale> static inline void store(scale s, float *panel, int l, int valid_steps, __m512 x)
    {
        if (whole || l + 1 < valid_steps)
            v::store(panel + l * 8, s.template apply<v>(x));
        else if (l < valid_steps)
            lanes<8>::store(panel + l * 8, s.template apply<lanes<8>>(v::low(x)));
    }
};
} // namespace

extern "C" {
void tesh_blas_avx512_sgemm_scopy_down48_ea(const int64_t *depth, const int64_t *width, const float *source,
                                            const int64_t *ld, const float *scale, float *destination)
{
    scopy<pack_down<v, 48>>(depth, width, source, ld, scale, destination);
}
void tesh_blas_avx512_sgemm_scopy_right48_ea(const int64_t *depth, const int64_t *width, const float *source,
                                             const int64_t *ld, const float *scale, float *destination)
{
    scopy<pack_right<v, 48>>(depth, width, source, ld, scale, destination);
}
void tesh_blas_avx512_sgemm_scopy_down8_ea(const int64_t *depth, const int64_t *width, const float *source,
                                           const int64_t *ld, const float *scale, float *destination)
{
    scopy<pack_down<v, 8>>(depth, width, source, ld, scale, destination);
}
void tesh_blas_avx512_sgemm_scopy_right8_ea(const int64_t *depth, const int64_t *width, const float *source,
                                            const int64_t *ld, const float *scale, float *destination)
{
    scopy<pack_right<v, 8>>(depth, width, source, ld, scale, destination);
}

void tesh_blas_avx512_sgemm_copyan(const blas_matrix_view *source, blas_matrix_view *destination, const float *scale,
                                   int64_t)
{
    copy_a(tesh_blas_avx512_sgemm_scopy_down48_ea, source, destination, scale);
}
void tesh_blas_avx512_sgemm_copyat(const blas_matrix_view *source, blas_matrix_view *destination, const float *scale,
                                   int64_t)
{
    copy_a(tesh_blas_avx512_sgemm_scopy_right48_ea, source, destination, scale);
}
void tesh_blas_avx512_sgemm_copybn(const blas_matrix_view *source, blas_matrix_view *destination, const float *scale,
                                   int64_t)
{
    copy_b(tesh_blas_avx512_sgemm_scopy_right8_ea, source, destination, scale);
}
void tesh_blas_avx512_sgemm_copybt(const blas_matrix_view *source, blas_matrix_view *destination, const float *scale,
                                   int64_t)
{
    copy_b(tesh_blas_avx512_sgemm_scopy_down8_ea, source, destination, scale);
}
}
