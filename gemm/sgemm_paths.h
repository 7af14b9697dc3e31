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

// ---- small shapes -------------------------------------------------------------------------------------------------
TESH_API tesh_blas_sgemm_fn tesh_blas_avx512_sgemm_t_smalln;
TESH_API tesh_blas_sgemm_fn tesh_blas_avx2_sgemm_nocopy_anbn_meq6_keq6;
TESH_API tesh_blas_sgemm_fn tesh_blas_avx2_sgemm_nocopy_anbn_meq6_keq6_b0;

#ifdef __cplusplus
}
#endif
