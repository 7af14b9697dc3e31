// SPDX-License-Identifier: BSD-3-Clause
// The 16 x 4 register kernel of the def path with three-operand fused multiply-add.
#include <immintrin.h>

#include "gemm/body/sgemm_kernel_16x4_body.h"
#include "gemm/sgemm_paths.h"

namespace
{
struct fused_zen {
    static inline __m256 mul_add(__m256 x, __m256 y, __m256 z) { return _mm256_fmadd_ps(x, y, z); }
    static inline __m128 mul_add(__m128 x, __m128 y, __m128 z) { return _mm_fmadd_ps(x, y, z); }
};
} // namespace

extern "C" void tesh_blas_def_sgemm_kernel_0_zen(const int64_t *m, const int64_t *n, const int64_t *k,
                                                 const float *a_panel, const float *b_panel, float *c,
                                                 const int64_t *ldc)
{
    kernel_16x4<fused_zen>(*m, *n, *k, a_panel, b_panel, c, *ldc);
}
