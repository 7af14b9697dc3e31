// SPDX-License-Identifier: BSD-3-Clause
// computes   C[m x n] += A[m x k] * B[k x n] on a packed pair (b0: C = A*B, C is not read); alpha is in A, beta in C
// registers  full tile 24 x 4: 12 accumulators + 3 of A + 1 broadcast of B = 16 of 16; the panels of 16 and 8 rows have
//            12 accumulators too, for two tiles of 6 columns go over three B panels
// layout     A in panels of 24, 16, 8, 4, 2, 1 rows, B in panels of 4, 2, 1 columns; C column-major, any alignment
// loop       depth unrolled by 4, remainder by 1; one chain of sums per element in the order of depth, but for the
//            panel of 8 rows, whose plain form adds even and odd steps apart; the cnr form has one chain there too
// prefetch   A 704 bytes ahead, every second step; B 384 bytes ahead; C at the head and over the last 34 groups, in a
//            shallow tile the one below; the next A panel a line per column of C
// edges      binary panel widths; below 8 rows a register holds eight columns of a row (sgemm_narrow_avx2.h); no masks,
//            no read past an operand
// measured   97 % of the multiply-add peak at depth 192 on a packed pair; SGEMM as a whole: bench/gemm/bench_sgemm.cpp
#include "gemm/avx2/sgemm_narrow_avx2.h"
#include "gemm/avx2/sgemm_path_avx2.h"
#include "gemm/sgemm_paths.h"

namespace
{
template <bool read_c, int tail_sets>
[[gnu::always_inline]] inline void kernel(int64_t m, int64_t n, int64_t k, const float *a, const float *b, float *c,
                                          int64_t ldc)
{
    using p = sgemm_path_avx2;
    packed_pair pair = {n, k, a, b, c, ldc};
    for (; m >= p::panel_m; m -= p::panel_m)
        pair.rows<p, lanes<8>, 3, read_c>();
    if (m & 16)
        pair.rows<p, lanes<8>, 2, read_c, 1, true>();
    if (m & 8)
        pair.rows<p, lanes<8>, 1, read_c, tail_sets, true>();
    if (m & 4)
        narrow_rows<p, 4, read_c>(pair);
    if (m & 2)
        narrow_rows<p, 2, read_c>(pair);
    if (m & 1)
        narrow_rows<p, 1, read_c>(pair);
}
} // namespace

extern "C" {
void tesh_blas_avx2_sgemm_kernel_0(const int64_t *m, const int64_t *n, const int64_t *k, const float *,
                                   const float *a_block, const float *b_block, float *c, int64_t ldc)
{
    kernel<true, 2>(*m, *n, *k, a_block, b_block, c, ldc);
}
void tesh_blas_avx2_sgemm_kernel_0_b0(const int64_t *m, const int64_t *n, const int64_t *k, const float *,
                                      const float *a_block, const float *b_block, float *c, int64_t ldc)
{
    kernel<false, 2>(*m, *n, *k, a_block, b_block, c, ldc);
}
void tesh_blas_avx2_sgemm_kernel_0_cnr(const int64_t *m, const int64_t *n, const int64_t *k, const float *,
                                       const float *a_block, const float *b_block, float *c, int64_t ldc)
{
    kernel<true, 1>(*m, *n, *k, a_block, b_block, c, ldc);
}
void tesh_blas_avx2_sgemm_kernel_0_b0_cnr(const int64_t *m, const int64_t *n, const int64_t *k, const float *,
                                          const float *a_block, const float *b_block, float *c, int64_t ldc)
{
    kernel<false, 1>(*m, *n, *k, a_block, b_block, c, ldc);
}

void tesh_blas_avx2_sgemm_ker0(const float *one, const blas_matrix_view *a, const blas_matrix_view *b,
                               const float *beta, const blas_matrix_view *c)
{
    ker0(tesh_blas_avx2_sgemm_kernel_0, tesh_blas_avx2_sgemm_kernel_0_b0, one, a, b, beta, c);
}
void tesh_blas_avx2_sgemm_ker0_cnr(const float *one, const blas_matrix_view *a, const blas_matrix_view *b,
                                   const float *beta, const blas_matrix_view *c)
{
    ker0(tesh_blas_avx2_sgemm_kernel_0_cnr, tesh_blas_avx2_sgemm_kernel_0_b0_cnr, one, a, b, beta, c);
}
}
