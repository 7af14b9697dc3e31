// SPDX-License-Identifier: BSD-3-Clause
// Every tesh_blas_<path>_* name of the SGEMM family. A name stands in the file gemm/<path>/<what>_<path>.cpp.
#pragma once
#include "frame/tesh_types.h"
#include "gemm/sgemm.h"
#include "gemm/sgemm_records.h"

#ifdef __cplusplus
extern "C" {
#endif

// ---- path routines and bufferless products ------------------------------------------------------------------------
TESH_API tesh_blas_sgemm_fn tesh_blas_def_xsgemm;
TESH_API tesh_blas_sgemm_fn tesh_blas_cnr_def_xsgemm;
TESH_API tesh_blas_sgemm_fn tesh_blas_mc3_xsgemm;
TESH_API tesh_blas_sgemm_fn tesh_blas_avx2_xsgemm;
TESH_API tesh_blas_sgemm_fn tesh_blas_avx512_xsgemm;
// For what is too small to pack, for rest rows, and for when there is no memory.
TESH_API tesh_blas_sgemm_fn tesh_blas_def_sgemm_pst;
TESH_API tesh_blas_sgemm_fn tesh_blas_cnr_def_sgemm_pst;
TESH_API tesh_blas_sgemm_fn tesh_blas_mc3_sgemm_pst;
TESH_API tesh_blas_sgemm_fn tesh_blas_avx2_sgemm_pst;
TESH_API tesh_blas_sgemm_fn tesh_blas_avx512_sgemm_pst;

// ---- def and cnr_def ----------------------------------------------------------------------------------------------
// Packs whole panels: A in 8 rows, times *alpha, B in 4 columns; the depth is rounded up to 4 with zeros. (brc: the
// last panel is filled up by repeating its last row or column.)
typedef void tesh_blas_sgemm_copya_fn(const int64_t *depth, const int64_t *rows, const float *a, const int64_t *lda,
                                      const float *alpha, float *panel);
typedef void tesh_blas_sgemm_copyb_fn(const int64_t *depth, const int64_t *columns, const float *b, const int64_t *ldb,
                                      float *panel);
// C := *beta * C + A*B over a packed pair of rows (a multiple of 8), columns and depth (multiples of 4); work holds 16
// floats a depth step. inner and roll take beta for 1 and do not read it, z_roll for 0 without reading C.
typedef void tesh_blas_sgemm_inner_fn(const int64_t *rows, const int64_t *columns, const int64_t *depth,
                                      const float *a_panel, const float *b_panel, float *work, const float *beta,
                                      float *c, const int64_t *ldc);
typedef void tesh_blas_sgemm_zerom_fn(const int64_t *rows, const int64_t *columns, float *c, const int64_t *ldc);
typedef void tesh_blas_sgemm_scalm_fn(const int64_t *rows, const int64_t *columns, const float *beta, float *c,
                                      const int64_t *ldc);
typedef void tesh_blas_sgemm_blk_info_fn(const int64_t *m, const int64_t *n, const int64_t *k, int64_t *unroll_m,
                                         int64_t *unroll_n, int64_t *unroll_k, int64_t *block_m, int64_t *block_n,
                                         int64_t *block_k);
// One allocation, *base, and the panels in it; *base is null when there was none.
typedef void tesh_blas_sgemm_getbufs_bdz_fn(const int64_t *block_m, const int64_t *block_n, const int64_t *block_k,
                                            void **base, float **a_panel, float **b_panel);
// A panel that is not asked for is null.
typedef void tesh_blas_sgemm_getbufs_brc_fn(int32_t with_a, int32_t with_b, const int64_t *block_m,
                                            const int64_t *block_n, const int64_t *block_k, void **base,
                                            float **a_panel, float **work, float **b_panel);
typedef void tesh_blas_sgemm_freebufs_fn(void *base);
typedef void tesh_blas_sgemm_scopy_bdz_fn(const int64_t *depth, const int64_t *count, const float *source,
                                          const int64_t *ld, const float *scale, float *panel);
// C := C + A*B over a packed pair: A in panels of 16 rows, then 8, 4, 2, 1, B of 4 columns, then 2, 1.
typedef void tesh_blas_sgemm_kernel_16x4_fn(const int64_t *m, const int64_t *n, const int64_t *k, const float *a_panel,
                                            const float *b_panel, float *c, const int64_t *ldc);

TESH_API tesh_blas_sgemm_fn tesh_blas_def_xsgemm_bdz;
TESH_API tesh_blas_sgemm_fn tesh_blas_def_xsgemm1_brc;
TESH_API tesh_blas_sgemm_fn tesh_blas_def_xsgemm1_0_brc;
TESH_API tesh_blas_sgemm_zerom_fn tesh_blas_def_sgemm_zerom;
TESH_API tesh_blas_sgemm_scalm_fn tesh_blas_def_sgemm_scalm;
TESH_API tesh_blas_sgemm_scalm_fn tesh_blas_def_sgemm_mscale;
TESH_API tesh_blas_sgemm_copya_fn tesh_blas_def_sgemm_copyan;
TESH_API tesh_blas_sgemm_copya_fn tesh_blas_def_sgemm_copyat;
TESH_API tesh_blas_sgemm_copya_fn tesh_blas_def_sgemm_copyan_1_brc;
TESH_API tesh_blas_sgemm_copya_fn tesh_blas_def_sgemm_copyat_1_brc;
TESH_API tesh_blas_sgemm_copyb_fn tesh_blas_def_sgemm_copybn;
TESH_API tesh_blas_sgemm_copyb_fn tesh_blas_def_sgemm_copybt;
TESH_API tesh_blas_sgemm_copyb_fn tesh_blas_def_sgemm_copybn_brc;
TESH_API tesh_blas_sgemm_copyb_fn tesh_blas_def_sgemm_copybt_brc;
TESH_API tesh_blas_sgemm_inner_fn tesh_blas_def_sgemm_inner;
TESH_API tesh_blas_sgemm_inner_fn tesh_blas_def_sgemm_inner_roll;
TESH_API tesh_blas_sgemm_inner_fn tesh_blas_def_sgemm_inner_z_roll;
TESH_API tesh_blas_sgemm_inner_fn tesh_blas_def_sgemm_inner_b_roll;
TESH_API tesh_blas_sgemm_blk_info_fn tesh_blas_def_sgemm_blk_info_bdz;
TESH_API tesh_blas_sgemm_blk_info_fn tesh_blas_def_sgemm_blk_info_1_brc;
TESH_API tesh_blas_sgemm_getbufs_bdz_fn tesh_blas_def_sgemm_getbufs_bdz;
TESH_API tesh_blas_sgemm_getbufs_brc_fn tesh_blas_def_sgemm_getbufs_brc;
TESH_API tesh_blas_sgemm_freebufs_fn tesh_blas_def_sgemm_freebufs_bdz;
TESH_API tesh_blas_sgemm_freebufs_fn tesh_blas_def_sgemm_freebufs_brc;
TESH_API tesh_blas_sgemm_scopy_bdz_fn tesh_blas_def_sgemm_scopy_right4_bdz;
TESH_API tesh_blas_sgemm_scopy_bdz_fn tesh_blas_def_sgemm_scopy_right16_bdz;
TESH_API tesh_blas_sgemm_scopy_bdz_fn tesh_blas_def_sgemm_scopy_down4_bdz;
TESH_API tesh_blas_sgemm_scopy_bdz_fn tesh_blas_def_sgemm_scopy_down16_bdz;
TESH_API tesh_blas_sgemm_kernel_16x4_fn tesh_blas_def_sgemm_kernel_0_bdz;
TESH_API tesh_blas_sgemm_kernel_16x4_fn tesh_blas_def_sgemm_kernel_0_zen;

TESH_API tesh_blas_sgemm_fn tesh_blas_cnr_def_xsgemm_bdz;
TESH_API tesh_blas_sgemm_fn tesh_blas_cnr_def_xsgemm1_brc;
TESH_API tesh_blas_sgemm_fn tesh_blas_cnr_def_xsgemm1_0_brc;
TESH_API tesh_blas_sgemm_zerom_fn tesh_blas_cnr_def_sgemm_zerom;
TESH_API tesh_blas_sgemm_scalm_fn tesh_blas_cnr_def_sgemm_scalm;
TESH_API tesh_blas_sgemm_scalm_fn tesh_blas_cnr_def_sgemm_mscale;
TESH_API tesh_blas_sgemm_copya_fn tesh_blas_cnr_def_sgemm_copyan;
TESH_API tesh_blas_sgemm_copya_fn tesh_blas_cnr_def_sgemm_copyat;
TESH_API tesh_blas_sgemm_copya_fn tesh_blas_cnr_def_sgemm_copyan_1_brc;
TESH_API tesh_blas_sgemm_copya_fn tesh_blas_cnr_def_sgemm_copyat_1_brc;
TESH_API tesh_blas_sgemm_copyb_fn tesh_blas_cnr_def_sgemm_copybn;
TESH_API tesh_blas_sgemm_copyb_fn tesh_blas_cnr_def_sgemm_copybt;
TESH_API tesh_blas_sgemm_copyb_fn tesh_blas_cnr_def_sgemm_copybn_brc;
TESH_API tesh_blas_sgemm_copyb_fn tesh_blas_cnr_def_sgemm_copybt_brc;
TESH_API tesh_blas_sgemm_inner_fn tesh_blas_cnr_def_sgemm_inner;
TESH_API tesh_blas_sgemm_inner_fn tesh_blas_cnr_def_sgemm_inner_roll;
TESH_API tesh_blas_sgemm_inner_fn tesh_blas_cnr_def_sgemm_inner_z_roll;
TESH_API tesh_blas_sgemm_inner_fn tesh_blas_cnr_def_sgemm_inner_b_roll;
TESH_API tesh_blas_sgemm_blk_info_fn tesh_blas_cnr_def_sgemm_blk_info_bdz;
TESH_API tesh_blas_sgemm_blk_info_fn tesh_blas_cnr_def_sgemm_blk_info_1_brc;
TESH_API tesh_blas_sgemm_getbufs_bdz_fn tesh_blas_cnr_def_sgemm_getbufs_bdz;
TESH_API tesh_blas_sgemm_getbufs_brc_fn tesh_blas_cnr_def_sgemm_getbufs_brc;
TESH_API tesh_blas_sgemm_freebufs_fn tesh_blas_cnr_def_sgemm_freebufs_bdz;
TESH_API tesh_blas_sgemm_freebufs_fn tesh_blas_cnr_def_sgemm_freebufs_brc;
TESH_API tesh_blas_sgemm_scopy_bdz_fn tesh_blas_cnr_def_sgemm_scopy_right4_bdz;
TESH_API tesh_blas_sgemm_scopy_bdz_fn tesh_blas_cnr_def_sgemm_scopy_right16_bdz;
TESH_API tesh_blas_sgemm_scopy_bdz_fn tesh_blas_cnr_def_sgemm_scopy_down4_bdz;
TESH_API tesh_blas_sgemm_scopy_bdz_fn tesh_blas_cnr_def_sgemm_scopy_down16_bdz;
TESH_API tesh_blas_sgemm_kernel_16x4_fn tesh_blas_cnr_def_sgemm_kernel_0_bdz;
TESH_API tesh_blas_sgemm_kernel_16x4_fn tesh_blas_cnr_def_sgemm_kernel_0_zen;

// ---- avx2 and avx512: the packed frame ----------------------------------------------------------------------------
// Fill a record with the defaults of the path.
TESH_API void tesh_blas_avx2_sgemm_initialize_strategy(gemm_strategy *strategy);
TESH_API void tesh_blas_avx512_sgemm_initialize_strategy(gemm_strategy *strategy);
TESH_API void tesh_blas_avx2_sgemm_initialize_kernel_info(const blas_op_record *op, const blas_matrix_view *a,
                                                          const blas_matrix_view *b, const blas_matrix_view *c,
                                                          const gemm_strategy *strategy, gemm_kernel_info *info);
TESH_API void tesh_blas_avx512_sgemm_initialize_kernel_info(const blas_op_record *op, const blas_matrix_view *a,
                                                            const blas_matrix_view *b, const blas_matrix_view *c,
                                                            const gemm_strategy *strategy, gemm_kernel_info *info);
TESH_API void tesh_blas_avx2_sgemm_initialize_buffers(const blas_matrix_view *a, const blas_matrix_view *b,
                                                      const gemm_strategy *strategy, gemm_buffers *buffers);
TESH_API void tesh_blas_avx512_sgemm_initialize_buffers(const blas_matrix_view *a, const blas_matrix_view *b,
                                                        const gemm_strategy *strategy, gemm_buffers *buffers);

TESH_API gemm_get_bufs_fn tesh_blas_avx2_sgemm_get_bufs;
TESH_API gemm_get_bufs_fn tesh_blas_avx2_sgemm_get_bufs_pack;
TESH_API gemm_get_size_bufs_fn tesh_blas_avx2_sgemm_get_size_bufs;
TESH_API gemm_set_bufs_fn tesh_blas_avx2_sgemm_set_bufs_pack;
TESH_API gemm_free_bufs_fn tesh_blas_avx2_sgemm_free_bufs;
TESH_API gemm_get_bufs_fn tesh_blas_avx512_sgemm_get_bufs;
TESH_API gemm_get_bufs_fn tesh_blas_avx512_sgemm_get_bufs_pack;
TESH_API gemm_get_size_bufs_fn tesh_blas_avx512_sgemm_get_size_bufs;
TESH_API gemm_set_bufs_fn tesh_blas_avx512_sgemm_set_bufs_pack;
TESH_API gemm_free_bufs_fn tesh_blas_avx512_sgemm_free_bufs;

TESH_API gemm_driver_fn tesh_blas_avx2_s_generic_fullacopybcopy;
TESH_API gemm_driver_fn tesh_blas_avx2_xsgemm_acopiedbcopy;
TESH_API gemm_pst_fn tesh_blas_avx2_s_pst_wrapper;
TESH_API gemm_driver_fn tesh_blas_avx512_s_generic_fullacopybcopy;
TESH_API gemm_driver_fn tesh_blas_avx512_xsgemm_acopiedbcopy;
TESH_API gemm_pst_fn tesh_blas_avx512_s_pst_wrapper;

// ---- avx2 and avx512: packing, register kernels, scaling ----------------------------------------------------------
TESH_API gemm_copy_fn tesh_blas_avx2_sgemm_copyan;
TESH_API gemm_copy_fn tesh_blas_avx2_sgemm_copyat;
TESH_API gemm_copy_fn tesh_blas_avx2_sgemm_copybn;
TESH_API gemm_copy_fn tesh_blas_avx2_sgemm_copybt;
TESH_API gemm_copy_fn tesh_blas_avx512_sgemm_copyan;
TESH_API gemm_copy_fn tesh_blas_avx512_sgemm_copyat;
TESH_API gemm_copy_fn tesh_blas_avx512_sgemm_copybn;
TESH_API gemm_copy_fn tesh_blas_avx512_sgemm_copybt;

// Packs width columns (right) or rows (down) of depth elements into panels, times *scale.
typedef void tesh_blas_sgemm_scopy_fn(const int64_t *depth, const int64_t *width, const float *source,
                                      const int64_t *ld, const float *scale, float *destination);
TESH_API tesh_blas_sgemm_scopy_fn tesh_blas_avx2_sgemm_scopy_down24_ea;
TESH_API tesh_blas_sgemm_scopy_fn tesh_blas_avx2_sgemm_scopy_right24_ea;
TESH_API tesh_blas_sgemm_scopy_fn tesh_blas_avx2_sgemm_scopy_right4_ea;
TESH_API tesh_blas_sgemm_scopy_fn tesh_blas_avx2_sgemm_scopy_down4_ea;
TESH_API tesh_blas_sgemm_scopy_fn tesh_blas_avx512_sgemm_scopy_down48_ea;
TESH_API tesh_blas_sgemm_scopy_fn tesh_blas_avx512_sgemm_scopy_right48_ea;
TESH_API tesh_blas_sgemm_scopy_fn tesh_blas_avx512_sgemm_scopy_right8_ea;
TESH_API tesh_blas_sgemm_scopy_fn tesh_blas_avx512_sgemm_scopy_down8_ea;

TESH_API gemm_ker0_fn tesh_blas_avx2_sgemm_ker0;
TESH_API gemm_ker0_fn tesh_blas_avx2_sgemm_ker0_cnr;
TESH_API gemm_ker0_fn tesh_blas_avx512_sgemm_ker0;
TESH_API gemm_ker0_fn tesh_blas_avx512_sgemm_ker0_cnr;

// C := C + A*B, or C := A*B without reading C (b0), over a packed pair. The scale is in A already and is not read;
// sizes come by address, ldc by value.
typedef void tesh_blas_sgemm_kernel_fn(const int64_t *m, const int64_t *n, const int64_t *k, const float *scale,
                                       const float *a_block, const float *b_block, float *c, int64_t ldc);
TESH_API tesh_blas_sgemm_kernel_fn tesh_blas_avx2_sgemm_kernel_0;
TESH_API tesh_blas_sgemm_kernel_fn tesh_blas_avx2_sgemm_kernel_0_b0;
TESH_API tesh_blas_sgemm_kernel_fn tesh_blas_avx2_sgemm_kernel_0_cnr;
TESH_API tesh_blas_sgemm_kernel_fn tesh_blas_avx2_sgemm_kernel_0_b0_cnr;
TESH_API tesh_blas_sgemm_kernel_fn tesh_blas_avx512_sgemm_kernel_0;
TESH_API tesh_blas_sgemm_kernel_fn tesh_blas_avx512_sgemm_kernel_0_b0;
TESH_API tesh_blas_sgemm_kernel_fn tesh_blas_avx512_sgemm_kernel_0_cnr;
TESH_API tesh_blas_sgemm_kernel_fn tesh_blas_avx512_sgemm_kernel_0_b0_cnr;

// C := *beta * C; *beta = 0 clears C without reading it.
typedef void tesh_blas_sgemm_mscale_fn(const int64_t *m, const int64_t *n, const float *beta, float *c,
                                       const int64_t *ldc);
TESH_API tesh_blas_sgemm_mscale_fn tesh_blas_avx2_sgemm_mscale;
TESH_API tesh_blas_sgemm_mscale_fn tesh_blas_avx512_sgemm_mscale;
TESH_API gemm_mscale_fn tesh_blas_avx2_sgemm_mscale_wrapper;
TESH_API gemm_mscale_fn tesh_blas_avx512_sgemm_mscale_wrapper;

// ---- avx2 and avx512: the product without packing -----------------------------------------------------------------
// Reads op, a, b and c only.
TESH_API gemm_driver_fn tesh_blas_avx2_xsgemm_nocopy_driver;
TESH_API gemm_driver_fn tesh_blas_avx512_xsgemm_nocopy_driver;

// C := *beta * C + *alpha * op(A)*op(B) on one block, with A and B where they lie. The letters are the transpositions
// of A and B; b0 takes beta for 0 and does not read C, b1 for 1; neither reads *beta. Leading dimensions are values.
typedef void tesh_blas_sgemm_kernel_nocopy_fn(int64_t m, int64_t n, int64_t k, const float *alpha, const float *a,
                                              int64_t lda, const float *b, int64_t ldb, const float *beta, float *c,
                                              int64_t ldc);
TESH_API tesh_blas_sgemm_kernel_nocopy_fn tesh_blas_avx2_sgemm_kernel_nocopy_NN_b0;
TESH_API tesh_blas_sgemm_kernel_nocopy_fn tesh_blas_avx2_sgemm_kernel_nocopy_NN_b1;
TESH_API tesh_blas_sgemm_kernel_nocopy_fn tesh_blas_avx2_sgemm_kernel_nocopy_NN_bn;
TESH_API tesh_blas_sgemm_kernel_nocopy_fn tesh_blas_avx2_sgemm_kernel_nocopy_NT_b0;
TESH_API tesh_blas_sgemm_kernel_nocopy_fn tesh_blas_avx2_sgemm_kernel_nocopy_NT_b1;
TESH_API tesh_blas_sgemm_kernel_nocopy_fn tesh_blas_avx2_sgemm_kernel_nocopy_NT_bn;
TESH_API tesh_blas_sgemm_kernel_nocopy_fn tesh_blas_avx2_sgemm_kernel_nocopy_TN_b0;
TESH_API tesh_blas_sgemm_kernel_nocopy_fn tesh_blas_avx2_sgemm_kernel_nocopy_TN_b1;
TESH_API tesh_blas_sgemm_kernel_nocopy_fn tesh_blas_avx2_sgemm_kernel_nocopy_TN_bn;
TESH_API tesh_blas_sgemm_kernel_nocopy_fn tesh_blas_avx2_sgemm_kernel_nocopy_TT_b0;
TESH_API tesh_blas_sgemm_kernel_nocopy_fn tesh_blas_avx2_sgemm_kernel_nocopy_TT_b1;
TESH_API tesh_blas_sgemm_kernel_nocopy_fn tesh_blas_avx2_sgemm_kernel_nocopy_TT_bn;
TESH_API tesh_blas_sgemm_kernel_nocopy_fn tesh_blas_avx512_sgemm_kernel_nocopy_NN_b0;
TESH_API tesh_blas_sgemm_kernel_nocopy_fn tesh_blas_avx512_sgemm_kernel_nocopy_NN_b1;
TESH_API tesh_blas_sgemm_kernel_nocopy_fn tesh_blas_avx512_sgemm_kernel_nocopy_NN_bn;
TESH_API tesh_blas_sgemm_kernel_nocopy_fn tesh_blas_avx512_sgemm_kernel_nocopy_NT_b0;
TESH_API tesh_blas_sgemm_kernel_nocopy_fn tesh_blas_avx512_sgemm_kernel_nocopy_NT_b1;
TESH_API tesh_blas_sgemm_kernel_nocopy_fn tesh_blas_avx512_sgemm_kernel_nocopy_NT_bn;
TESH_API tesh_blas_sgemm_kernel_nocopy_fn tesh_blas_avx512_sgemm_kernel_nocopy_TN_b0;
TESH_API tesh_blas_sgemm_kernel_nocopy_fn tesh_blas_avx512_sgemm_kernel_nocopy_TN_b1;
TESH_API tesh_blas_sgemm_kernel_nocopy_fn tesh_blas_avx512_sgemm_kernel_nocopy_TN_bn;
TESH_API tesh_blas_sgemm_kernel_nocopy_fn tesh_blas_avx512_sgemm_kernel_nocopy_TT_b0;
TESH_API tesh_blas_sgemm_kernel_nocopy_fn tesh_blas_avx512_sgemm_kernel_nocopy_TT_b1;
TESH_API tesh_blas_sgemm_kernel_nocopy_fn tesh_blas_avx512_sgemm_kernel_nocopy_TT_bn;

// ---- small shapes -------------------------------------------------------------------------------------------------
TESH_API tesh_blas_sgemm_fn tesh_blas_avx512_sgemm_t_smalln;
TESH_API tesh_blas_sgemm_fn tesh_blas_avx2_sgemm_nocopy_anbn_meq6_keq6;
TESH_API tesh_blas_sgemm_fn tesh_blas_avx2_sgemm_nocopy_anbn_meq6_keq6_b0;

#ifdef __cplusplus
}
#endif
