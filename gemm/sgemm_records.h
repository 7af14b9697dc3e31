// SPDX-License-Identifier: BSD-3-Clause
// The records of the strategy-driven level-3 frame: what is computed (blas_op_record), on what (blas_matrix_view), how
// (gemm_strategy), by which functions (gemm_kernel_info), in which scratch memory (gemm_buffers). They live on the
// stack of the path routine for one call. The layout is fixed: drivers and kernels of several rooms meet in it.
//
// May be included by path files.
#pragma once
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct blas_matrix_view blas_matrix_view;
typedef struct blas_op_record blas_op_record;
typedef struct gemm_strategy gemm_strategy;
typedef struct gemm_kernel_info gemm_kernel_info;
typedef struct gemm_buffers gemm_buffers;

// ---- what a slot holds --------------------------------------------------------------------------------------------
// The address of element (i, j) of op(X); for a packed block i is the depth and j a multiple of the panel width.
typedef char *blas_address_fn(int64_t i, int64_t j, const blas_matrix_view *view);
// C := *beta * C.
typedef void gemm_mscale_fn(const blas_matrix_view *c, const float *beta);
// Packs the source, times *scale, into the destination and writes depth and width into its view. offset: row less
// column of the source's first element in its whole operand; it is for copies that mirror across the diagonal, the
// plain ones do not read it.
typedef void gemm_copy_fn(const blas_matrix_view *source, blas_matrix_view *destination, const float *scale,
                          int64_t offset);
// C := A*B + *beta * C on packed blocks, *beta being 0 or 1; *one is 1.
typedef void gemm_ker0_fn(const float *one, const blas_matrix_view *a, const blas_matrix_view *b, const float *beta,
                          const blas_matrix_view *c);
// The whole product. Changes op->beta once C has been scaled. buffers: null, or sizes and functions to be copied; a
// driver that packs nothing does not read them, nor the info.
typedef void gemm_driver_fn(blas_op_record *op, const blas_matrix_view *a, const blas_matrix_view *b,
                            const blas_matrix_view *c, const gemm_buffers *buffers, const gemm_kernel_info *info);
// The same product without scratch memory.
typedef void gemm_pst_fn(const blas_op_record *op, const blas_matrix_view *a, const blas_matrix_view *b,
                         const blas_matrix_view *c);
// Normalises the record: 1 if it already held the unrolls of its path, 0 if one had to be corrected.
typedef int32_t gemm_check_fn(gemm_strategy *strategy);

// ---- a matrix or a packed block -----------------------------------------------------------------------------------
enum {
    blas_view_notrans = 1,
    blas_view_trans = 2,
    blas_view_conjtrans = 4,
    blas_view_lower = 8,
    blas_view_upper = 16,
    blas_view_nonunit = 32,
    blas_view_unit = 64,
    blas_view_packed = 128,
};

struct blas_matrix_view {
    void *base;               // element (0,0), or the packed block; null until there is memory for it
    int64_t rows;             // of op(X) [elements]; packed: depth
    int64_t cols;             // of op(X) [elements]; packed: width
    int64_t ld;               // [elements]; packed: panel * padded_k
    int64_t unroll_k;         // packed: 1; else 0
    int64_t panel;            // packed: full panel width [elements]; else 0
    int64_t padded_k;         // packed: block_k rounded up to unroll_k; else a copy of rows
    int64_t elem_size;        // 4 [bytes]
    uint32_t flags;           // blas_view_*
    blas_address_fn *address; // getPointer_notrans, getPointer_trans or getPointer_buffer
};

// ---- the operation ------------------------------------------------------------------------------------------------
enum {
    blas_routine_sgemm = 0,
    blas_routine_ssymm = 1,
    blas_routine_hemm = 2, // none in single precision; goes the way of SSYMM
    blas_routine_ssyrk = 3,
    blas_routine_ssyr2k = 5,
    blas_routine_strmm = 7,
    blas_routine_strsm = 8,
    blas_routine_sgemmt = 9,
};

struct blas_op_record {
    const char *side, *uplo, *diag, *transa, *transb; // as the caller gave them; null where the routine has none
    float alpha, beta;
    int32_t side_code, uplo_code, diag_code; // 2 where the routine has none
    int32_t transa_code, transb_code;        // 0 not transposed, 1 transposed, 2 conjugate-transposed, -1 other
    int32_t routine_id;                      // blas_routine_*
};

// ---- how it is done -----------------------------------------------------------------------------------------------
enum {
    gemm_policy_packed = 2, // the driver packs the operand
    gemm_policy_given = 4,  // the operand is not packed by the driver
    gemm_policy_nocopy = 16 // A is read where it lies
};

enum {
    gemm_order_slices = 4,        // i, l, j, then slices of A
    gemm_order_depth_slices = 32, // l, i, j, then slices of A
    gemm_order_b_outer = 64,      // l, j, i
    gemm_order_a_outer = 128,     // l, i, j
};

struct gemm_strategy {
    uint32_t b_policy;                // gemm_policy_*; 0 becomes packed
    uint32_t a_policy;                // gemm_policy_*; 0 becomes packed
    uint32_t loop_order;              // gemm_order_*; 0 becomes slices
    uint32_t pack_mode;               // 2: the scratch functions of packed operands that outlive a call; 0 else
    uint64_t reserved;                // 0
    uint64_t unroll_m;                // panel width of A [elements]
    uint64_t unroll_n;                // panel width of B [elements]
    uint64_t unroll_k;                // 1
    uint64_t m_align;                 // [elements], written by the check
    uint64_t column_word, depth_word; // 16 and 16, written by the check
    uint64_t vector_length;           // floats in a register
    gemm_check_fn *check;
};

struct gemm_kernel_info {
    int64_t min_m_driver, min_n_driver, min_k_driver; // [elements] below which the bufferless product is taken
    const char *routine_name;                         // upper case
    gemm_mscale_fn *mscale;
    gemm_copy_fn *copy_a, *copy_b; // null when nothing is packed
    void *scale_tri;               // of the triangular routines; null else
    gemm_ker0_fn *ker0;
    void *kernel_tri; // of the triangular routines; null else
    gemm_driver_fn *driver;
    gemm_pst_fn *pst;
    gemm_mscale_fn *mscale_syrk; // of the rank-update routines; null else
    gemm_driver_fn *driver_syrk; // of the rank-update routines; null else
    gemm_strategy strategy;      // a checked copy
};

// ---- scratch memory -----------------------------------------------------------------------------------------------
enum {
    gemm_buffers_a = 1,       // the A block alone
    gemm_buffers_b = 2,       // the B block alone
    gemm_buffers_both = 3,    // A and B block
    gemm_buffers_b_count = 4, // several B blocks
    gemm_buffers_a_count = 5, // several A blocks; size queries only
};

typedef int32_t gemm_get_bufs_fn(gemm_buffers *buffers); // 0, or 1 when there is no memory for the blocks
typedef int64_t gemm_get_size_bufs_fn(gemm_buffers *buffers);
typedef void gemm_set_bufs_fn(void *memory, gemm_buffers *buffers);
typedef void gemm_free_bufs_fn(gemm_buffers *buffers);

struct gemm_buffers {
    void *base;                        // what the allocator returned
    int64_t *pack_header;              // in front of a block that outlives the call; else null
    blas_matrix_view a_block, b_block; // bases null until get_bufs
    uint32_t buffer_mode;              // gemm_buffers_*
    int64_t block_m, block_n, block_k; // [elements]
    int64_t a_offset, a_align;         // [bytes]
    int64_t b_offset, b_align;         // [bytes]
    int64_t count;                     // blocks in the counted modes
    gemm_get_bufs_fn *get_bufs;
    gemm_get_size_bufs_fn *get_size_bufs; // null but for pack_mode 2
    gemm_set_bufs_fn *set_bufs;           // null but for pack_mode 2
    gemm_free_bufs_fn *free_bufs;
};

#ifdef __cplusplus
}

static_assert(sizeof(blas_matrix_view) == 80 && offsetof(blas_matrix_view, rows) == 8 &&
              offsetof(blas_matrix_view, cols) == 16 && offsetof(blas_matrix_view, ld) == 24 &&
              offsetof(blas_matrix_view, unroll_k) == 32 && offsetof(blas_matrix_view, panel) == 40 &&
              offsetof(blas_matrix_view, padded_k) == 48 && offsetof(blas_matrix_view, elem_size) == 56 &&
              offsetof(blas_matrix_view, flags) == 64 && offsetof(blas_matrix_view, address) == 72);
static_assert(sizeof(blas_op_record) == 72 && offsetof(blas_op_record, transa) == 24 &&
              offsetof(blas_op_record, transb) == 32 && offsetof(blas_op_record, alpha) == 40 &&
              offsetof(blas_op_record, beta) == 44 && offsetof(blas_op_record, side_code) == 48 &&
              offsetof(blas_op_record, transa_code) == 60 && offsetof(blas_op_record, transb_code) == 64 &&
              offsetof(blas_op_record, routine_id) == 68);
static_assert(sizeof(gemm_strategy) == 88 && offsetof(gemm_strategy, a_policy) == 4 &&
              offsetof(gemm_strategy, loop_order) == 8 && offsetof(gemm_strategy, pack_mode) == 12 &&
              offsetof(gemm_strategy, unroll_m) == 24 && offsetof(gemm_strategy, m_align) == 48 &&
              offsetof(gemm_strategy, vector_length) == 72 && offsetof(gemm_strategy, check) == 80);
static_assert(sizeof(gemm_kernel_info) == 14 * 8 + 88 && offsetof(gemm_kernel_info, routine_name) == 3 * 8 &&
              offsetof(gemm_kernel_info, mscale) == 4 * 8 && offsetof(gemm_kernel_info, copy_a) == 5 * 8 &&
              offsetof(gemm_kernel_info, copy_b) == 6 * 8 && offsetof(gemm_kernel_info, scale_tri) == 7 * 8 &&
              offsetof(gemm_kernel_info, ker0) == 8 * 8 && offsetof(gemm_kernel_info, kernel_tri) == 9 * 8 &&
              offsetof(gemm_kernel_info, driver) == 10 * 8 && offsetof(gemm_kernel_info, pst) == 11 * 8 &&
              offsetof(gemm_kernel_info, mscale_syrk) == 12 * 8 && offsetof(gemm_kernel_info, driver_syrk) == 13 * 8 &&
              offsetof(gemm_kernel_info, strategy) == 14 * 8);
static_assert(sizeof(gemm_buffers) == 280 && offsetof(gemm_buffers, pack_header) == 8 &&
              offsetof(gemm_buffers, a_block) == 16 && offsetof(gemm_buffers, b_block) == 96 &&
              offsetof(gemm_buffers, buffer_mode) == 176 && offsetof(gemm_buffers, block_m) == 184 &&
              offsetof(gemm_buffers, a_offset) == 208 && offsetof(gemm_buffers, count) == 240 &&
              offsetof(gemm_buffers, get_bufs) == 248 && offsetof(gemm_buffers, free_bufs) == 272);
#endif
