// SPDX-License-Identifier: BSD-3-Clause
// Every routine of the code paths: the choosers and what they choose from. Shapes are (n_outer, n_inner): n_inner
// elements along the contiguous direction of the source, n_outer such lines; a source element (i, j) lies at
// a[i*lda + j*stridea]. Leading dimensions and strides in elements. Each is whole by itself and may be entered
// directly.
#pragma once
#include "trans/trans.h"

#ifdef __cplusplus
extern "C" {
#endif

// b[i*ldb + j*strideb] := alpha*a[i*lda + j*stridea] (n), b[j*ldb + i*strideb] := the same (t).
typedef void tesh_trans_somatcopy2_body_fn(uint64_t n_outer, uint64_t n_inner, const float *a, uint64_t lda,
                                           uint64_t stridea, float *b, uint64_t ldb, uint64_t strideb, float alpha);
// Copies count bytes; nothing for a null pointer, a count of 0 or one above dest_capacity [bytes].
typedef void tesh_trans_unrollcopy_fn(void *dest, uint64_t dest_capacity, const void *src, uint64_t count);

// a := alpha*a, n x n in one block.
typedef void tesh_trans_square_n_fn(uint64_t n, float *a, float alpha);
// Lines of lda elements become lines of ldb (mipt_n), or of the transposed matrix (mipt_t), in the same array.
typedef void tesh_trans_mipt_fn(uint64_t n_outer, uint64_t n_inner, float *a, uint64_t lda, uint64_t ldb, float alpha);
// a := alpha*a^T, n x n.
typedef void tesh_trans_square_t_fn(uint64_t n, float *a, uint64_t lda, float alpha);
// a := a^T, n x n; 0 when done. _fit_64: 16 x 16 tiles, then what is left of n.
typedef int32_t tesh_trans_ssqtrans_fn(float *a, uint64_t n, uint64_t lda);
typedef void tesh_trans_ssqtrans_fit_64_fn(float *a, uint64_t n, uint64_t lda);
// A tile at the diagonal is transposed in itself; a pair of tiles p, q becomes q^T, p^T.
typedef void tesh_trans_strans_block_fn(float *a, uint64_t lda);
typedef void tesh_trans_sswap_blocks_fn(float *p, float *q, uint64_t lda);
// The same for 64 x 64 tiles: p = q with diagonal set is a tile at the diagonal.
typedef void tesh_trans_square_t_64x64n_fn(float *p, float *q, uint64_t lda, int32_t diagonal);
// Stores 6, the size class that a team uses, into team_class.
typedef void tesh_trans_ssqtrans_team_fn(float *a, uint64_t n, uint64_t lda, uint64_t worker, uint64_t workers,
                                         int32_t *team_class);

TESH_API tesh_trans_simatcopy_fn tesh_trans_def_tesh_simatcopy;
TESH_API tesh_trans_somatcopy_fn tesh_trans_def_tesh_somatcopy;
TESH_API tesh_trans_somatcopy2_fn tesh_trans_def_tesh_somatcopy2_seq;
TESH_API tesh_trans_somatcopy2_body_fn tesh_trans_def_tesh_somatcopy2_n;
TESH_API tesh_trans_somatcopy2_body_fn tesh_trans_def_tesh_somatcopy2_t;
TESH_API tesh_trans_unrollcopy_fn tesh_trans_def_tesh_unrollcopy;
TESH_API tesh_trans_square_n_fn tesh_trans_def_tesh_simatcopy_square_n;
TESH_API tesh_trans_mipt_fn tesh_trans_def_tesh_simatcopy_mipt_n;
TESH_API tesh_trans_mipt_fn tesh_trans_def_tesh_simatcopy_mipt_t;
TESH_API tesh_trans_square_t_fn tesh_trans_def_tesh_simatcopy_square_t;
TESH_API tesh_trans_simatcopy_team_fn tesh_trans_def_tesh_simatcopy_square_t_team;
TESH_API tesh_trans_square_t_64x64n_fn tesh_trans_def_tesh_simatcopy_square_t_64x64n;
TESH_API tesh_trans_ssqtrans_fn tesh_trans_def_ssqtrans;
TESH_API tesh_trans_ssqtrans_fit_64_fn tesh_trans_def_ssqtrans_fit_64;
TESH_API tesh_trans_ssqtrans_team_fn tesh_trans_def_ssqtrans_team;
TESH_API tesh_trans_strans_block_fn tesh_trans_def_def_strans_block_8x8;
TESH_API tesh_trans_sswap_blocks_fn tesh_trans_def_def_sswap_blocks_8x8;

TESH_API tesh_trans_simatcopy_fn tesh_trans_mc3_tesh_simatcopy;
TESH_API tesh_trans_somatcopy_fn tesh_trans_mc3_tesh_somatcopy;
TESH_API tesh_trans_somatcopy2_fn tesh_trans_mc3_tesh_somatcopy2_seq;
TESH_API tesh_trans_somatcopy2_body_fn tesh_trans_mc3_tesh_somatcopy2_n;
TESH_API tesh_trans_somatcopy2_body_fn tesh_trans_mc3_tesh_somatcopy2_t;
TESH_API tesh_trans_unrollcopy_fn tesh_trans_mc3_tesh_unrollcopy;
TESH_API tesh_trans_square_n_fn tesh_trans_mc3_tesh_simatcopy_square_n;
TESH_API tesh_trans_mipt_fn tesh_trans_mc3_tesh_simatcopy_mipt_n;
TESH_API tesh_trans_mipt_fn tesh_trans_mc3_tesh_simatcopy_mipt_t;
TESH_API tesh_trans_square_t_fn tesh_trans_mc3_tesh_simatcopy_square_t;
TESH_API tesh_trans_simatcopy_team_fn tesh_trans_mc3_tesh_simatcopy_square_t_team;
TESH_API tesh_trans_square_t_64x64n_fn tesh_trans_mc3_tesh_simatcopy_square_t_64x64n;
TESH_API tesh_trans_ssqtrans_fn tesh_trans_mc3_ssqtrans;
TESH_API tesh_trans_ssqtrans_fit_64_fn tesh_trans_mc3_ssqtrans_fit_64;
TESH_API tesh_trans_ssqtrans_team_fn tesh_trans_mc3_ssqtrans_team;
TESH_API tesh_trans_strans_block_fn tesh_trans_mc3_def_strans_block_8x8;
TESH_API tesh_trans_sswap_blocks_fn tesh_trans_mc3_def_sswap_blocks_8x8;

TESH_API tesh_trans_simatcopy_fn tesh_trans_avx2_tesh_simatcopy;
TESH_API tesh_trans_somatcopy_fn tesh_trans_avx2_tesh_somatcopy;
TESH_API tesh_trans_somatcopy2_fn tesh_trans_avx2_tesh_somatcopy2_seq;
TESH_API tesh_trans_somatcopy2_body_fn tesh_trans_avx2_tesh_somatcopy2_n;
TESH_API tesh_trans_somatcopy2_body_fn tesh_trans_avx2_tesh_somatcopy2_t;
TESH_API tesh_trans_unrollcopy_fn tesh_trans_avx2_tesh_unrollcopy;
TESH_API tesh_trans_square_n_fn tesh_trans_avx2_tesh_simatcopy_square_n;
TESH_API tesh_trans_mipt_fn tesh_trans_avx2_tesh_simatcopy_mipt_n;
TESH_API tesh_trans_mipt_fn tesh_trans_avx2_tesh_simatcopy_mipt_t;
TESH_API tesh_trans_square_t_fn tesh_trans_avx2_tesh_simatcopy_square_t;
TESH_API tesh_trans_simatcopy_team_fn tesh_trans_avx2_tesh_simatcopy_square_t_team;
TESH_API tesh_trans_square_t_64x64n_fn tesh_trans_avx2_tesh_simatcopy_square_t_64x64n;
TESH_API tesh_trans_ssqtrans_fn tesh_trans_avx2_ssqtrans;
TESH_API tesh_trans_ssqtrans_fit_64_fn tesh_trans_avx2_ssqtrans_fit_64;
TESH_API tesh_trans_ssqtrans_team_fn tesh_trans_avx2_ssqtrans_team;
TESH_API tesh_trans_strans_block_fn tesh_trans_avx2_avx_strans_block_16x16;
TESH_API tesh_trans_sswap_blocks_fn tesh_trans_avx2_avx_sswap_blocks_16x16;

TESH_API tesh_trans_simatcopy_fn tesh_trans_avx512_tesh_simatcopy;
TESH_API tesh_trans_somatcopy_fn tesh_trans_avx512_tesh_somatcopy;
TESH_API tesh_trans_somatcopy2_fn tesh_trans_avx512_tesh_somatcopy2_seq;
TESH_API tesh_trans_somatcopy2_body_fn tesh_trans_avx512_tesh_somatcopy2_n;
TESH_API tesh_trans_somatcopy2_body_fn tesh_trans_avx512_tesh_somatcopy2_t;
TESH_API tesh_trans_unrollcopy_fn tesh_trans_avx512_tesh_unrollcopy;
TESH_API tesh_trans_square_n_fn tesh_trans_avx512_tesh_simatcopy_square_n;
TESH_API tesh_trans_mipt_fn tesh_trans_avx512_tesh_simatcopy_mipt_n;
TESH_API tesh_trans_mipt_fn tesh_trans_avx512_tesh_simatcopy_mipt_t;
TESH_API tesh_trans_square_t_fn tesh_trans_avx512_tesh_simatcopy_square_t;
TESH_API tesh_trans_simatcopy_team_fn tesh_trans_avx512_tesh_simatcopy_square_t_team;
TESH_API tesh_trans_square_t_64x64n_fn tesh_trans_avx512_tesh_simatcopy_square_t_64x64n;
TESH_API tesh_trans_ssqtrans_fn tesh_trans_avx512_ssqtrans;
TESH_API tesh_trans_ssqtrans_fit_64_fn tesh_trans_avx512_ssqtrans_fit_64;
TESH_API tesh_trans_ssqtrans_team_fn tesh_trans_avx512_ssqtrans_team;
TESH_API tesh_trans_strans_block_fn tesh_trans_avx512_avx_strans_block_16x16;
TESH_API tesh_trans_sswap_blocks_fn tesh_trans_avx512_avx_sswap_blocks_16x16;

#ifdef __cplusplus
}
#endif
