// SPDX-License-Identifier: BSD-3-Clause
// The records that the packed drivers are called with, made without the library's initialisers.
#pragma once
#include "tests/gemm/wide_paths.h"
#include "tests/support/reference_gemm.h"

namespace tesh_test
{
inline char *notrans(std::int64_t i, std::int64_t j, const blas_matrix_view *v)
{
    return static_cast<char *>(v->base) + (j * v->ld + i) * v->elem_size;
}
inline char *trans(std::int64_t i, std::int64_t j, const blas_matrix_view *v)
{
    return static_cast<char *>(v->base) + (i * v->ld + j) * v->elem_size;
}

struct records {
    blas_op_record op = {};
    blas_matrix_view a = {}, b = {}, c = {};
    gemm_kernel_info info = {};
};

inline blas_matrix_view view(const float *base, std::int64_t rows, std::int64_t cols, std::int64_t ld, char letter)
{
    const bool n = counts_as_n(letter);
    blas_matrix_view v = {};
    v.base = const_cast<float *>(base);
    v.rows = v.padded_k = rows;
    v.cols = cols;
    v.ld = ld;
    v.elem_size = 4;
    v.flags = n ? 1 : 2;
    v.address = n ? notrans : trans;
    return v;
}

inline records records_of(const wide_path &p, const gemm_operands &x, std::uint32_t loop_order)
{
    const gemm_shape &s = x.shape;
    records r;
    r.op.transa = &s.transa;
    r.op.transb = &s.transb;
    r.op.alpha = s.alpha;
    r.op.beta = s.beta;
    r.op.side_code = r.op.uplo_code = r.op.diag_code = 2;
    r.a = view(x.a.data(), s.m, s.k, s.lda(), s.transa);
    r.b = view(x.b.data(), s.k, s.n, s.ldb(), s.transb);
    r.c = view(x.c.data(), s.m, s.n, s.ldc(), 'N');
    r.info.mscale = p.mscale_wrapper;
    r.info.copy_a = r.a.flags == 1 ? p.copyan : p.copyat;
    r.info.copy_b = r.b.flags == 1 ? p.copybn : p.copybt;
    r.info.ker0 = p.ker0;
    r.info.driver = p.driver;
    r.info.pst = p.pst_wrapper;
    r.info.strategy.a_policy = r.info.strategy.b_policy = gemm_policy_packed;
    r.info.strategy.loop_order = loop_order;
    r.info.strategy.unroll_m = static_cast<std::uint64_t>(p.panel_m);
    r.info.strategy.unroll_n = static_cast<std::uint64_t>(p.panel_n);
    r.info.strategy.unroll_k = 1;
    return r;
}

inline gemm_buffers small_blocks(const wide_path &p, const records &r, std::int64_t bm, std::int64_t bn,
                                 std::int64_t bk)
{
    gemm_buffers b;
    p.initialize_buffers(&r.a, &r.b, &r.info.strategy, &b);
    b.block_m = bm;
    b.block_n = bn;
    b.block_k = bk;
    return b;
}
} // namespace tesh_test
