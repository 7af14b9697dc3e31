// SPDX-License-Identifier: BSD-3-Clause
// Packing of the avx2 path: A in panels of 24 rows, B in panels of 4 columns.
#include "gemm/avx2/sgemm_path_avx2.h"
#include "gemm/body/sgemm_pack_body.h"

namespace
{
using v = lanes<8>;

// 4 streams of 8 steps into a panel of width 4: two steps to a register.
template <> struct transposer<v, 4> {
    static constexpr int steps = 8;
    template <class scale, bool whole>
    static inline void run(const float *source, int64_t ld, float *panel, int64_t, int valid_steps, scale s)
    {
        const __m256i valid = v::first(valid_steps);
        __m256 x[4];
#pragma GCC unroll 4
        for (int c = 0; c < 4; ++c)
            x[c] = whole ? v::load(source + c * ld) : v::load(source + c * ld, valid);
        // y[q] holds steps q and q + 4.
        const __m256 t0 = _mm256_unpacklo_ps(x[0], x[1]), t1 = _mm256_unpackhi_ps(x[0], x[1]);
        const __m256 t2 = _mm256_unpacklo_ps(x[2], x[3]), t3 = _mm256_unpackhi_ps(x[2], x[3]);
        const __m256 y[4] = {_mm256_shuffle_ps(t0, t2, 0x44), _mm256_shuffle_ps(t0, t2, 0xee),
                             _mm256_shuffle_ps(t1, t3, 0x44), _mm256_shuffle_ps(t1, t3, 0xee)};
        store<whole>(s, panel, 0, valid_steps, _mm256_permute2f128_ps(y[0], y[1], 0x20));
        store<whole>(s, panel, 2, valid_steps, _mm256_permute2f128_ps(y[2], y[3], 0x20));
        store<whole>(s, panel, 4, valid_steps, _mm256_permute2f128_ps(y[0], y[1], 0x31));
        store<whole>(s, panel, 6, valid_steps, _mm256_permute2f128_ps(y[2], y[3], 0x31));
    }

    // Steps l and l + 1, as far as they are valid.
    template <bool whole, class scale> static inline void store(scale s, float *panel, int l, int valid_steps, __m256 x)
    {
        if (whole || l + 1 < valid_steps)
            v::store(panel + l * 4, s.template apply<v>(x));
        else if (l < valid_steps)
            lanes<4>::store(panel + l * 4, s.template apply<lanes<4>>(v::low(x)));
    }
};
} // namespace

extern "C" {
void tesh_blas_avx2_sgemm_scopy_down24_ea(const int64_t *depth, const int64_t *width, const float *source,
                                          const int64_t *ld, const float *scale, float *destination)
{
    scopy<pack_down<v, 24>>(depth, width, source, ld, scale, destination);
}
void tesh_blas_avx2_sgemm_scopy_right24_ea(const int64_t *depth, const int64_t *width, const float *source,
                                           const int64_t *ld, const float *scale, float *destination)
{
    scopy<pack_right<v, 24>>(depth, width, source, ld, scale, destination);
}
void tesh_blas_avx2_sgemm_scopy_down4_ea(const int64_t *depth, const int64_t *width, const float *source,
                                         const int64_t *ld, const float *scale, float *destination)
{
    scopy<pack_down<v, 4>>(depth, width, source, ld, scale, destination);
}
void tesh_blas_avx2_sgemm_scopy_right4_ea(const int64_t *depth, const int64_t *width, const float *source,
                                          const int64_t *ld, const float *scale, float *destination)
{
    scopy<pack_right<v, 4>>(depth, width, source, ld, scale, destination);
}

void tesh_blas_avx2_sgemm_copyan(const blas_matrix_view *source, blas_matrix_view *destination, const float *scale,
                                 int64_t)
{
    copy_a(tesh_blas_avx2_sgemm_scopy_down24_ea, source, destination, scale);
}
void tesh_blas_avx2_sgemm_copyat(const blas_matrix_view *source, blas_matrix_view *destination, const float *scale,
                                 int64_t)
{
    copy_a(tesh_blas_avx2_sgemm_scopy_right24_ea, source, destination, scale);
}
void tesh_blas_avx2_sgemm_copybn(const blas_matrix_view *source, blas_matrix_view *destination, const float *scale,
                                 int64_t)
{
    copy_b(tesh_blas_avx2_sgemm_scopy_right4_ea, source, destination, scale);
}
void tesh_blas_avx2_sgemm_copybt(const blas_matrix_view *source, blas_matrix_view *destination, const float *scale,
                                 int64_t)
{
    copy_b(tesh_blas_avx2_sgemm_scopy_down4_ea, source, destination, scale);
}
}
