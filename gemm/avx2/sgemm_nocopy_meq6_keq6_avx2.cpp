// SPDX-License-Identifier: BSD-3-Clause
// computes   C[6 x n] := alpha*A*B + beta*C with A 6 by 6 and neither transposed; b0 does not read C
// registers  6 columns of A + 4 sums + 1 broadcast of B + alpha, beta and the mask of rows = 14 of 16
// layout     A, B, C column-major where they lie, any alignment
// loop       the depth is straight-line code; columns of B and C four at a time, then one by one
// prefetch   none: A stays in its registers, B and C are read in order
// edges      rows under a mask in loads and stores; the two idle lanes repeat row 5 of A
// measured   19 % of the multiply-add peak at 6 x 6 x 6, 16.5 ns a call (bench_sgemm --isa avx2 --group tiny --size 6)
#include "frame/path/vec_avx2.h"
#include "gemm/sgemm_paths.h"

namespace
{
using v = vec_avx2;

template <int cols, bool read_c>
inline void columns(const __m256 (&a)[6], const float *b, int64_t ldb, float *c, int64_t ldc, __m256 alpha, __m256 beta,
                    __m256i rows)
{
    __m256 sum[cols];
#pragma GCC unroll 4
    for (int j = 0; j < cols; ++j)
        sum[j] = v::zero();
#pragma GCC unroll 6
    for (int l = 0; l < 6; ++l)
#pragma GCC unroll 4
        for (int j = 0; j < cols; ++j)
            sum[j] = v::mul_add(a[l], v::broadcast(b + j * ldb + l), sum[j]);
#pragma GCC unroll 4
    for (int j = 0; j < cols; ++j, c += ldc) {
        if constexpr (read_c)
            v::store(c, v::mul_add(alpha, sum[j], v::mul(beta, v::load(c, rows))), rows);
        else
            v::store(c, v::mul(alpha, sum[j]), rows);
    }
}

template <bool read_c>
[[gnu::always_inline]] inline void product(int64_t n, float alpha, const float *a, int64_t lda, const float *b,
                                           int64_t ldb, float beta, float *c, int64_t ldc)
{
    if (n < 1)
        return;
    const __m256i rows = _mm256_setr_epi32(-1, -1, -1, -1, -1, -1, 0, 0);
    // Two lanes are idle: they repeat row 5 of A, and have no beta, so that no infinity meets a zero there.
    const __m256i repeat = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 5, 5);
    __m256 columns_of_a[6];
#pragma GCC unroll 6
    for (int l = 0; l < 6; ++l)
        columns_of_a[l] = _mm256_permutevar8x32_ps(v::load(a + l * lda, rows), repeat);
    const __m256 va = v::set1(alpha), vb = v::keep(v::set1(beta), rows);
    for (; n >= 4; n -= 4, b += 4 * ldb, c += 4 * ldc)
        columns<4, read_c>(columns_of_a, b, ldb, c, ldc, va, vb, rows);
    for (; n > 0; --n, b += ldb, c += ldc)
        columns<1, read_c>(columns_of_a, b, ldb, c, ldc, va, vb, rows);
}
} // namespace

extern "C" {
void tesh_blas_avx2_sgemm_nocopy_anbn_meq6_keq6(const char *, const char *, const int64_t *, const int64_t *n,
                                                const int64_t *, const float *alpha, const float *a, const int64_t *lda,
                                                const float *b, const int64_t *ldb, const float *beta, float *c,
                                                const int64_t *ldc)
{
    product<true>(*n, *alpha, a, *lda, b, *ldb, *beta, c, *ldc);
}
void tesh_blas_avx2_sgemm_nocopy_anbn_meq6_keq6_b0(const char *, const char *, const int64_t *, const int64_t *n,
                                                   const int64_t *, const float *alpha, const float *a,
                                                   const int64_t *lda, const float *b, const int64_t *ldb,
                                                   const float *, float *c, const int64_t *ldc)
{
    product<false>(*n, *alpha, a, *lda, b, *ldb, 0.0f, c, *ldc);
}
}
