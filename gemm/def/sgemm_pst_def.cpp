// SPDX-License-Identifier: BSD-3-Clause
// Bufferless product of the def path: 4 lanes, vector loops from a 16-byte boundary on.
#include "frame/path/vec_def.h"
#include "gemm/body/sgemm_pst_body.h"
#include "gemm/sgemm_paths.h"

namespace
{
struct pst_def {
    using vec = vec_def;
    static constexpr bool masked = false, fused = false, peels = true;
    static inline float sum_lanes(__m128 x)
    {
        const __m128 half = _mm_add_ps(x, _mm_movehl_ps(x, x));
        return _mm_cvtss_f32(_mm_add_ss(half, _mm_shuffle_ps(half, half, 1)));
    }
};
} // namespace

extern "C" void tesh_blas_def_sgemm_pst(const char *transa, const char *transb, const int64_t *m, const int64_t *n,
                                        const int64_t *k, const float *alpha, const float *a, const int64_t *lda,
                                        const float *b, const int64_t *ldb, const float *beta, float *c,
                                        const int64_t *ldc)
{
    sgemm_pst_body<pst_def>(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
