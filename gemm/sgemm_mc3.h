// SPDX-License-Identifier: BSD-3-Clause
// The SGEMM frame of the mc3 path: a descriptor that is filled from one constant table entry, and a driver that works
// by buffer codes. Sizes come by address; panels are as in gemm/mc3/sgemm_pack_mc3.cpp. May be included by path files.
#pragma once
#include "frame/tesh_types.h"
#include "gemm/sgemm.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct mc3_gemm_descriptor mc3_gemm_descriptor;
typedef struct mc3_gemm_buffers mc3_gemm_buffers;

// Fills the block sizes of the descriptor that are 0; one that is preset stays.
typedef void mc3_gemm_get_blks_size_fn(const int64_t *m, const int64_t *n, const int64_t *k, mc3_gemm_descriptor *desc);
// Bytes for a buffer scheme; 0, or 1 for a code outside its range.
typedef int32_t mc3_gemm_get_bufs_size_fn(int32_t scheme, int32_t size_code, const int64_t *m, const int64_t *n,
                                          const int64_t *k, const mc3_gemm_descriptor *desc, mc3_gemm_buffers *buffers);
// Takes the memory and lays the scheme out in it; 0, or 1 for a code outside its range.
// Refused memory leaves base null.
typedef int32_t mc3_gemm_get_bufs_fn(int32_t scheme, mc3_gemm_buffers *buffers);
// Packs width rows of op(A) or columns of op(B), each of depth elements, into panels, times *scale.
typedef void mc3_gemm_copy_fn(const int64_t *depth, const int64_t *width, const float *source, const int64_t *ld,
                              const float *scale, float *destination);
// The same for a whole block, by its transposition character.
typedef void mc3_gemm_copy_ext_fn(const char *trans, const int64_t *depth, const int64_t *width, const float *source,
                                  const int64_t *ld, const float *scale, float *destination);
// C := C + A*B over packed panels.
typedef void mc3_gemm_kernel_fn(const int64_t *m, const int64_t *n, const int64_t *k, const float *a, const float *b,
                                float *c, const int64_t *ldc);

typedef struct mc3_gemm_kernel {
    int64_t unroll_m, unroll_n, unroll_k;    // register tile [elements]
    int64_t version;                         // of the kernel
    int64_t ext_min_m, ext_min_n, ext_min_k; // smallest block that goes by the extended copy forms [elements]
    int64_t reserved;                        // a word that nobody reads
    mc3_gemm_get_blks_size_fn *get_blks_size;
    mc3_gemm_get_bufs_size_fn *get_bufs_size;
    mc3_gemm_get_bufs_fn *get_bufs;
    mc3_gemm_copy_fn *copya[3]; // by op(A): N, T, C
    mc3_gemm_copy_fn *copyb[3]; // by op(B): N, T, C
    mc3_gemm_kernel_fn *ker0;
    mc3_gemm_copy_ext_fn *copya_ext;
    mc3_gemm_copy_ext_fn *copyb_ext;
} mc3_gemm_kernel;

struct mc3_gemm_descriptor {
    mc3_gemm_kernel kernel;            // the entry in use
    int64_t block_m, block_n, block_k; // [elements]; 0 until preset or filled by get_blks_size
};

// What a scheme keeps of one depth block: a panel of A is mc3_gemm_panel_tiles times unroll_m rows, which share cache
// lines in A, a panel of B unroll_n columns; a block is all of a row (column) block.
enum { mc3_gemm_panel_tiles = 4 };
enum mc3_gemm_scheme {
    mc3_gemm_scheme_a_block = 100,
    mc3_gemm_scheme_b_block = 101,
    mc3_gemm_scheme_a_block_b_block = 102,
    mc3_gemm_scheme_a_panel = 103,
    mc3_gemm_scheme_a_panel_b_block = 104,
    mc3_gemm_scheme_b_panel = 105,
    mc3_gemm_scheme_a_block_b_panel = 106,
};
enum mc3_gemm_size_code { mc3_gemm_size_of_problem = 107, mc3_gemm_size_of_blocks = 108 };

struct mc3_gemm_buffers {
    void *base;      // what the allocator answered; null without memory
    float *a, *b;    // aligned to a page; null for what the scheme does not keep
    int64_t a_bytes; // of the A part, a multiple of a page; -1 where the product of its sizes is no size
    int64_t b_bytes; // of the B part, likewise
};

TESH_API extern const mc3_gemm_kernel tesh_mc3_s_all_gemm_ker[1];
TESH_API extern const int64_t tesh_mc3_s_opt_gemm_ker; // index of the entry in use

TESH_API void tesh_blas_mc3_sgemm_zero_desc(mc3_gemm_descriptor *desc);
TESH_API void tesh_blas_mc3_sgemm_get_optimal_kernel(mc3_gemm_descriptor *desc);
TESH_API mc3_gemm_get_blks_size_fn tesh_blas_mc3_sgemm_get_blks_size;
// 4 where a B block stays in half a mebibyte, else 2: which buffer scheme the driver takes.
TESH_API int64_t tesh_blas_mc3_sgemm_get_kernel_version(const int64_t *n, const int64_t *k,
                                                        const mc3_gemm_descriptor *desc);
TESH_API mc3_gemm_get_bufs_size_fn tesh_blas_mc3_sgemm_get_bufs_size;
TESH_API mc3_gemm_get_bufs_fn tesh_blas_mc3_sgemm_get_bufs;
TESH_API void tesh_blas_mc3_sgemm_free_bufs(mc3_gemm_buffers *buffers);

TESH_API mc3_gemm_copy_fn tesh_blas_mc3_sgemm_copyan;
TESH_API mc3_gemm_copy_fn tesh_blas_mc3_sgemm_copyat;
TESH_API mc3_gemm_copy_fn tesh_blas_mc3_sgemm_copybn;
TESH_API mc3_gemm_copy_fn tesh_blas_mc3_sgemm_copybt;
TESH_API mc3_gemm_copy_ext_fn tesh_blas_mc3_sgemm_copya_ext;
TESH_API mc3_gemm_copy_ext_fn tesh_blas_mc3_sgemm_copyb_ext;
TESH_API mc3_gemm_kernel_fn tesh_blas_mc3_sgemm_ker0;
TESH_API mc3_gemm_kernel_fn tesh_blas_mc3_sgemm_ker0_pst; // rest rows and columns, few columns

TESH_API void tesh_blas_mc3_sgemm_mscale(const int64_t *m, const int64_t *n, const float *beta, float *c,
                                         const int64_t *ldc);
// The blocked product, C := C + alpha*op(A)*op(B), in the scheme of the version. Without memory it goes by sgemm_pst.
TESH_API void tesh_blas_mc3_xsgemm_par(const char *transa, const char *transb, const int64_t *m, const int64_t *n,
                                       const int64_t *k, const float *alpha, const float *a, const int64_t *lda,
                                       const float *b, const int64_t *ldb, float *c, const int64_t *ldc,
                                       const mc3_gemm_descriptor *desc, int64_t version);

// C := C + alpha*op(A)*op(B) for m, n below 11: by *k, which is 1 to 10; another depth does nothing.
TESH_API tesh_blas_sgemm_fn tesh_blas_mc3_sgemm_sm_01_10;
TESH_API tesh_blas_sgemm_fn tesh_blas_mc3_sgemm_sm_01;
TESH_API tesh_blas_sgemm_fn tesh_blas_mc3_sgemm_sm_02;
TESH_API tesh_blas_sgemm_fn tesh_blas_mc3_sgemm_sm_03;
TESH_API tesh_blas_sgemm_fn tesh_blas_mc3_sgemm_sm_04;
TESH_API tesh_blas_sgemm_fn tesh_blas_mc3_sgemm_sm_05;
TESH_API tesh_blas_sgemm_fn tesh_blas_mc3_sgemm_sm_06;
TESH_API tesh_blas_sgemm_fn tesh_blas_mc3_sgemm_sm_07;
TESH_API tesh_blas_sgemm_fn tesh_blas_mc3_sgemm_sm_08;
TESH_API tesh_blas_sgemm_fn tesh_blas_mc3_sgemm_sm_09;
TESH_API tesh_blas_sgemm_fn tesh_blas_mc3_sgemm_sm_10;

#ifdef __cplusplus
}
#endif
