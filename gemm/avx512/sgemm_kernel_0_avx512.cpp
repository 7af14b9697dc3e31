// SPDX-License-Identifier: BSD-3-Clause
// computes   C[m x n] += A[m x k] * B[k x n] on a packed pair (b0: C = A*B, C is not read); alpha is in A, beta in C
// registers  full tile 48 x 8: 24 accumulators + 3 of A + 1 broadcast of B, 28 of 32: with the step ahead
//            in registers of its own GCC 12 spills a sum, and renaming gives the processor the same
// layout     A in panels of 48, 32, 16, 8, 4, 2, 1 rows, B in panels of 8, 4, 2, 1 columns; C column-major, any
//            alignment
// loop       depth unrolled by 4, remainder by 1; each element of C is one chain of sums in the order of depth
// prefetch   B 512 bytes ahead; C for writing over the last 32 groups, in a shallow tile the one below; the next A
//            panel (T2) a line per vector of C
// edges      binary panel widths; below 16 rows a register holds several columns; no masks, no read past an operand
// measured   98 % of the multiply-add peak at depth 384 on a packed pair; SGEMM as a whole: bench/gemm/bench_sgemm.cpp
#include "gemm/avx512/sgemm_path_avx512.h"
#include "gemm/body/sgemm_narrow_body.h"
#include "gemm/sgemm_paths.h"

namespace
{
// In a register of 16 lanes: 8 rows of 2 columns, 4 of 4 or 2 of 8. The full mask of the zeroing forms is no operation.
template <int r> struct spreader<lanes<16>, r> {
    static constexpr __mmask16 all = 0xffff;
    static inline __m512 repeat(const float *a)
    {
        if constexpr (r == 8)
            return _mm512_maskz_broadcast_f32x8(all, _mm256_loadu_ps(a));
        else if constexpr (r == 4)
            return _mm512_maskz_broadcast_f32x4(all, _mm_loadu_ps(a));
        else
            return _mm512_castpd_ps(_mm512_maskz_broadcastsd_pd(0xff, _mm_castps_pd(lanes<2>::load(a))));
    }
    template <int q> static inline __m512 spread(const float *b)
    {
        constexpr int first = q * 16 / r;
        const __m512i column =
            _mm512_setr_epi32(first, first + 1 / r, first + 2 / r, first + 3 / r, first + 4 / r, first + 5 / r,
                              first + 6 / r, first + 7 / r, first + 8 / r, first + 9 / r, first + 10 / r,
                              first + 11 / r, first + 12 / r, first + 13 / r, first + 14 / r, first + 15 / r);
        return _mm512_maskz_permutexvar_ps(all, column, _mm512_zextps256_ps512(_mm256_loadu_ps(b)));
    }
};
template <> struct spreader<lanes<8>, 1> {
    static inline __m256 repeat(const float *a) { return lanes<8>::broadcast(a); }
    template <int> static inline __m256 spread(const float *b) { return lanes<8>::load(b); }
};

template <bool read_c>
[[gnu::always_inline]] inline void kernel(int64_t m, int64_t n, int64_t k, const float *a, const float *b, float *c,
                                          int64_t ldc)
{
    using p = sgemm_path_avx512;
    packed_pair pair = {n, k, a, b, c, ldc};
    for (; m >= p::panel_m; m -= p::panel_m)
        pair.rows<p, lanes<16>, 3, read_c>();
    if (m & 32)
        pair.rows<p, lanes<16>, 2, read_c>();
    if (m & 16)
        pair.rows<p, lanes<16>, 1, read_c>();
    if (m & 8)
        narrow_rows<p, lanes<16>, 8, 2, read_c>(pair);
    if (m & 4)
        narrow_rows<p, lanes<16>, 4, 4, read_c>(pair);
    if (m & 2)
        narrow_rows<p, lanes<16>, 2, 4, read_c>(pair);
    if (m & 1)
        narrow_rows<p, lanes<8>, 1, 4, read_c>(pair);
}
} // namespace

extern "C" {
void tesh_blas_avx512_sgemm_kernel_0(const int64_t *m, const int64_t *n, const int64_t *k, const float *,
                                     const float *a_block, const float *b_block, float *c, int64_t ldc)
{
    kernel<true>(*m, *n, *k, a_block, b_block, c, ldc);
}
void tesh_blas_avx512_sgemm_kernel_0_b0(const int64_t *m, const int64_t *n, const int64_t *k, const float *,
                                        const float *a_block, const float *b_block, float *c, int64_t ldc)
{
    kernel<false>(*m, *n, *k, a_block, b_block, c, ldc);
}

// The plain forms add up every row in the same order wherever it lies, so the reproducible forms are the same code.
[[gnu::alias("tesh_blas_avx512_sgemm_kernel_0")]] tesh_blas_sgemm_kernel_fn tesh_blas_avx512_sgemm_kernel_0_cnr;
[[gnu::alias("tesh_blas_avx512_sgemm_kernel_0_b0")]] tesh_blas_sgemm_kernel_fn tesh_blas_avx512_sgemm_kernel_0_b0_cnr;

void tesh_blas_avx512_sgemm_ker0(const float *one, const blas_matrix_view *a, const blas_matrix_view *b,
                                 const float *beta, const blas_matrix_view *c)
{
    ker0(tesh_blas_avx512_sgemm_kernel_0, tesh_blas_avx512_sgemm_kernel_0_b0, one, a, b, beta, c);
}
void tesh_blas_avx512_sgemm_ker0_cnr(const float *one, const blas_matrix_view *a, const blas_matrix_view *b,
                                     const float *beta, const blas_matrix_view *c)
{
    ker0(tesh_blas_avx512_sgemm_kernel_0_cnr, tesh_blas_avx512_sgemm_kernel_0_b0_cnr, one, a, b, beta, c);
}
}
