// SPDX-License-Identifier: BSD-3-Clause
// Bufferless product of the avx512 path: 16 lanes, fused multiply-add, masked tails.
#include "frame/path/vec_avx512.h"
#include "gemm/body/sgemm_pst_body.h"
#include "gemm/sgemm_paths.h"

namespace
{
struct pst_avx512 {
    using vec = vec_avx512;
    static constexpr bool masked = true, fused = true, peels = false;
    static inline float sum_lanes(__m512 x)
    {
        const __m256 h =
            _mm256_add_ps(_mm512_maskz_extractf32x8_ps(0xff, x, 0), _mm512_maskz_extractf32x8_ps(0xff, x, 1));
        const __m128 q = _mm_add_ps(_mm256_castps256_ps128(h), _mm256_extractf128_ps(h, 1));
        const __m128 half = _mm_add_ps(q, _mm_movehl_ps(q, q));
        return _mm_cvtss_f32(_mm_add_ss(half, _mm_shuffle_ps(half, half, 1)));
    }
};
} // namespace

extern "C" void tesh_blas_avx512_sgemm_pst(const char *transa, const char *transb, const int64_t *m, const int64_t *n,
                                           const int64_t *k, const float *alpha, const float *a, const int64_t *lda,
                                           const float *b, const int64_t *ldb, const float *beta, float *c,
                                           const int64_t *ldc)
{
    sgemm_pst_body<pst_avx512>(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
