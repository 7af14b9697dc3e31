// SPDX-License-Identifier: BSD-3-Clause
// C := alpha*op(A)*op(B) + beta*C by blocks: pack a block of B and a block or a slice of A, and let the kernel add
// their product to C. alpha goes into the packed A; beta is applied with the first depth block.
#pragma once
#include "frame/tesh_serv.h"
#include "gemm/body/sgemm_views.h"
#include "gemm/sgemm_paths.h"

namespace
{
constexpr float float_one = 1.0f;

// One call of a driver while its blocks run. i, l, j: first row, depth and column of a block; mb, kb, nb: its sizes.
struct blocked_product {
    const blas_op_record *op;
    const blas_matrix_view *a, *b, *c;
    const gemm_kernel_info *info;
    gemm_buffers buffers;
    int64_t m, n, k;

    int64_t height(int64_t i) const { return min_of(buffers.block_m, m - i); }
    int64_t depth(int64_t l) const { return min_of(buffers.block_k, k - l); }
    int64_t width(int64_t j) const { return min_of(buffers.block_n, n - j); }
    const float *effective_beta(int64_t l) const { return l == 0 ? &op->beta : &float_one; }

    void pack_b(int64_t l, int64_t kb, int64_t j, int64_t nb)
    {
        const blas_matrix_view source = part_of(b, l, j, kb, nb);
        info->copy_b(&source, &buffers.b_block, &float_one, l - j);
    }

    // The place of rows from place on in the A block, for the depth kb.
    blas_matrix_view a_rows(int64_t place, int64_t rows, int64_t kb) const
    {
        blas_matrix_view block = buffers.a_block;
        block.rows = kb;
        block.cols = rows;
        block.base = getPointer_buffer(0, place, &block);
        return block;
    }

    void pack_a(int64_t i, int64_t rows, int64_t l, int64_t kb, blas_matrix_view *block)
    {
        const blas_matrix_view source = part_of(a, i, l, rows, kb);
        info->copy_a(&source, block, &op->alpha, i - l);
    }

    void multiply(const blas_matrix_view *a_block, int64_t i, int64_t mb, int64_t l, int64_t j, int64_t nb)
    {
        const blas_matrix_view target = part_of(c, i, j, mb, nb);
        info->ker0(&float_one, a_block, &buffers.b_block, effective_beta(l), &target);
    }

    // One pair of blocks, A slice by slice. A slice is packed just before its first use; when no other column block
    // will ask for it, all slices use the same place, which then stays in cache.
    void slices(int64_t i, int64_t mb, int64_t l, int64_t kb, int64_t j, int64_t nb)
    {
        const int64_t step = static_cast<int64_t>(info->strategy.unroll_m);
        // From slice to slice only places and the last height change: of a shallow product all else is a good part of
        // the time.
        const blas_matrix_view block = a_rows(0, step, kb);
        blas_matrix_view slice = block, target = part_of(c, i, j, step, nb);
        for (int64_t r = 0; r < mb; r += step) {
            const int64_t rows = min_of(step, mb - r);
            slice.cols = rows;
            slice.base = getPointer_buffer(0, nb == n ? 0 : r, &block);
            if (j == 0)
                pack_a(i + r, rows, l, kb, &slice);
            target.rows = target.padded_k = rows;
            target.base = c->address(i + r, j, c);
            info->ker0(&float_one, &slice, &buffers.b_block, effective_beta(l), &target);
        }
    }

    // All column blocks of one pair (i, l).
    void columns_in_slices(int64_t i, int64_t mb, int64_t l, int64_t kb)
    {
        for (int64_t j = 0; j < n; j += buffers.block_n) {
            const int64_t nb = width(j);
            pack_b(l, kb, j, nb);
            slices(i, mb, l, kb, j, nb);
        }
    }

    void order_slices()
    {
        for (int64_t i = 0; i < m; i += buffers.block_m)
            for (int64_t l = 0; l < k; l += buffers.block_k)
                columns_in_slices(i, height(i), l, depth(l));
    }
    void order_depth_slices()
    {
        for (int64_t l = 0; l < k; l += buffers.block_k)
            for (int64_t i = 0; i < m; i += buffers.block_m)
                columns_in_slices(i, height(i), l, depth(l));
    }
    void order_b_outer()
    {
        for (int64_t l = 0; l < k; l += buffers.block_k)
            for (int64_t j = 0; j < n; j += buffers.block_n) {
                pack_b(l, depth(l), j, width(j));
                for (int64_t i = 0; i < m; i += buffers.block_m) {
                    blas_matrix_view block = a_rows(0, height(i), depth(l));
                    pack_a(i, height(i), l, depth(l), &block);
                    multiply(&block, i, height(i), l, j, width(j));
                }
            }
    }
    void order_a_outer()
    {
        for (int64_t l = 0; l < k; l += buffers.block_k)
            for (int64_t i = 0; i < m; i += buffers.block_m) {
                blas_matrix_view block = a_rows(0, height(i), depth(l));
                pack_a(i, height(i), l, depth(l), &block);
                for (int64_t j = 0; j < n; j += buffers.block_n) {
                    pack_b(l, depth(l), j, width(j));
                    multiply(&block, i, height(i), l, j, width(j));
                }
            }
    }

    void run()
    {
        switch (info->strategy.loop_order) {
        case gemm_order_slices:
            return order_slices();
        case gemm_order_depth_slices:
            return order_depth_slices();
        case gemm_order_b_outer:
            return order_b_outer();
        case gemm_order_a_outer:
            return order_a_outer();
        default:
            return;
        }
    }
};

// What needs no product: true when C is finished. Leaves op->beta at 0 or 1, which is all that the kernel knows.
inline bool scaled_only(blas_op_record *op, const blas_matrix_view *c, int64_t k, const gemm_kernel_info *info)
{
    if (k <= 0) {
        if (op->beta != 1.0f)
            info->mscale(c, &op->beta);
        return true;
    }
    if (op->beta != 1.0f && op->beta != 0.0f) {
        info->mscale(c, &op->beta);
        op->beta = 1.0f;
    }
    if (op->alpha == 0.0f) {
        if (op->beta == 0.0f)
            info->mscale(c, &op->beta);
        return true;
    }
    return false;
}

// The flat arguments of the bufferless product. Routines other than SGEMM have bufferless forms of their own.
inline void pst_wrapper(tesh_blas_sgemm_fn *pst, const blas_op_record *op, const blas_matrix_view *a,
                        const blas_matrix_view *b, const blas_matrix_view *c)
{
    if (op->routine_id == blas_routine_sgemm)
        pst(op->transa, op->transb, &c->rows, &c->cols, &a->cols, &op->alpha, static_cast<const float *>(a->base),
            &a->ld, static_cast<const float *>(b->base), &b->ld, &op->beta, static_cast<float *>(c->base), &c->ld);
}

typedef void initialize_buffers_fn(const blas_matrix_view *a, const blas_matrix_view *b, const gemm_strategy *strategy,
                                   gemm_buffers *buffers);

template <initialize_buffers_fn *initialize_buffers>
inline void generic_fullacopybcopy(blas_op_record *op, const blas_matrix_view *a, const blas_matrix_view *b,
                                   const blas_matrix_view *c, const gemm_buffers *given, const gemm_kernel_info *info)
{
    const blas_matrix_view *const a_given = a, *const b_given = b;
    // A symmetric operand on the left: it comes as B, and its transpose is itself.
    blas_matrix_view turned;
    if ((op->routine_id == blas_routine_ssymm || op->routine_id == blas_routine_hemm) && op->side_code == 0) {
        turned = *b;
        turned.flags = (turned.flags & ~static_cast<uint32_t>(blas_view_notrans)) | blas_view_trans;
        turned.address = getPointer_trans;
        b = a;
        a = &turned;
    }
    const int64_t m = c->rows, n = c->cols, k = a->cols;
    if (m <= 0 || n <= 0 || scaled_only(op, c, k, info))
        return;
    blocked_product product = {op, a, b, c, info, {}, m, n, k};
    if (given != nullptr)
        product.buffers = *given;
    else
        initialize_buffers(a, b, &info->strategy, &product.buffers);
    product.buffers.get_bufs(&product.buffers);
    if (tesh_serv_check_ptr_and_warn(product.buffers.base, "SGEMM")) {
        info->pst(op, a_given, b_given, c);
        return;
    }
    product.run();
    product.buffers.free_bufs(&product.buffers);
}

// A was packed beforehand, for the whole depth and times alpha, into the A block of the buffers.
inline void acopiedbcopy(blas_op_record *op, const blas_matrix_view *a, const blas_matrix_view *b,
                         const blas_matrix_view *c, const gemm_buffers *given, const gemm_kernel_info *info)
{
    const int64_t m = c->rows, n = c->cols, k = a->cols;
    if (m <= 0 || n <= 0 || scaled_only(op, c, k, info))
        return;
    blocked_product product = {op, a, b, c, info, *given, m, n, k};
    product.buffers.block_k = max_of(product.buffers.block_k, k); // a B block is as deep as the A block
    product.buffers.get_bufs(&product.buffers);
    if (tesh_serv_check_ptr_and_warn(product.buffers.base, "SGEMM")) {
        info->pst(op, a, b, c);
        return;
    }
    const blas_matrix_view block = product.a_rows(0, m, k);
    for (int64_t j = 0; j < n; j += product.buffers.block_n) {
        const int64_t nb = product.width(j);
        product.pack_b(0, k, j, nb);
        product.multiply(&block, 0, m, 0, j, nb);
    }
    product.buffers.free_bufs(&product.buffers);
}
} // namespace
