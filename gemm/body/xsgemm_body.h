// SPDX-License-Identifier: BSD-3-Clause
// The path routine's records and its two general routes: with packing and without.
//
// p is the path: its sizes (gemm/<path>/sgemm_path_<path>.h) and the members of its family as constants.
#pragma once
#include "frame/tesh_serv.h"
#include "gemm/body/sgemm_views.h"
#include "gemm/sgemm_paths.h"

namespace
{
constexpr uint64_t nocopy_panel_m = 16, nocopy_panel_n = 6; // [elements] unrolls of a strategy without packing
constexpr int32_t strict_flag = 0x10000;                    // of the reproducibility setting

// One load once the setting is known.
inline bool strict_reproducibility()
{
    const int32_t setting = __atomic_load_n(&tesh_cbwr, __ATOMIC_ACQUIRE);
    return (setting == -1 ? tesh_serv_cbwr_get(-1) : setting) & strict_flag;
}

// The same without a call: true as well where the setting has not been read yet, for -1 has every bit.
inline bool may_be_strict()
{
    return __atomic_load_n(&tesh_cbwr, __ATOMIC_ACQUIRE) & strict_flag;
}

struct sgemm_records {
    blas_op_record op;
    blas_matrix_view a, b, c;
};

// ---- strategy -----------------------------------------------------------------------------------------------------
template <class p> inline void initialize_strategy(gemm_strategy *strategy, gemm_check_fn *check)
{
    strategy->b_policy = 0;
    strategy->a_policy = 0;
    strategy->loop_order = 0;
    strategy->pack_mode = 0;
    strategy->reserved = 0;
    strategy->unroll_m = p::panel_m;
    strategy->unroll_n = p::panel_n;
    strategy->unroll_k = 1;
    strategy->vector_length = p::vector_length;
    strategy->check = check;
}

inline bool corrected(uint64_t *field, uint64_t wanted)
{
    const bool wrong = *field != wanted;
    *field = wanted;
    return wrong;
}

template <class p> inline int32_t normalise(gemm_strategy *strategy)
{
    const bool nocopy = strategy->a_policy == gemm_policy_nocopy;
    bool wrong = corrected(&strategy->unroll_m, nocopy ? nocopy_panel_m : p::panel_m);
    wrong |= corrected(&strategy->unroll_n, nocopy ? nocopy_panel_n : p::panel_n);
    wrong |= corrected(&strategy->unroll_k, 1);
    strategy->m_align = nocopy ? nocopy_panel_m : p::m_align;
    if (nocopy)
        strategy->b_policy = gemm_policy_given;
    strategy->column_word = 16;
    strategy->depth_word = 16;
    if (strategy->a_policy == 0)
        strategy->a_policy = gemm_policy_packed;
    if (strategy->b_policy == 0)
        strategy->b_policy = gemm_policy_packed;
    if (strategy->loop_order == 0)
        strategy->loop_order = gemm_order_slices;
    return wrong ? 0 : 1;
}

// ---- kernel info --------------------------------------------------------------------------------------------------
inline const char *routine_name(int32_t routine_id)
{
    switch (routine_id) {
    case blas_routine_ssymm:
        return "SSYMM";
    case blas_routine_ssyrk:
        return "SSYRK";
    case blas_routine_ssyr2k:
        return "SSYR2K";
    case blas_routine_strmm:
        return "STRMM";
    case blas_routine_strsm:
        return "STRSM";
    case blas_routine_sgemmt:
        return "SGEMMT";
    default:
        return "SGEMM";
    }
}

// The drivers of other routines than SGEMM are not of this room: their slots are null.
template <class p>
inline void initialize_kernel_info(const blas_op_record *op, const blas_matrix_view *a, const blas_matrix_view *b,
                                   const gemm_strategy *strategy, gemm_kernel_info *info)
{
    constexpr uint32_t transposed = blas_view_trans | blas_view_conjtrans;
    info->strategy = *strategy;
    info->strategy.check(&info->strategy);
    const uint32_t a_policy = info->strategy.a_policy;
    const bool packs = a_policy != gemm_policy_nocopy;
    const bool strict = strict_reproducibility();
    info->min_m_driver = p::min_m_driver;
    info->min_n_driver = p::min_n_driver;
    info->min_k_driver = p::min_k_driver;
    info->routine_name = routine_name(op->routine_id);
    info->mscale = p::mscale_wrapper;
    info->copy_a = !packs ? nullptr : a->flags & transposed ? p::copyat : p::copyan;
    info->copy_b = !packs ? nullptr : b->flags & transposed ? p::copybt : p::copybn;
    info->scale_tri = nullptr;
    info->ker0 = strict ? p::ker0_cnr : p::ker0;
    info->kernel_tri = nullptr;
    info->driver = op->routine_id != blas_routine_sgemm ? nullptr
                   : a_policy == gemm_policy_nocopy     ? p::nocopy_driver
                   : a_policy == gemm_policy_given      ? p::acopied_driver
                                                        : p::packed_driver;
    info->pst = p::pst_wrapper;
    info->mscale_syrk = nullptr;
    info->driver_syrk = nullptr;
}

// ---- the routes ---------------------------------------------------------------------------------------------------
[[gnu::always_inline]] inline void fill_records(sgemm_records *records, const char *transa, const char *transb,
                                                int64_t m, int64_t n, int64_t k, float alpha, const float *a,
                                                int64_t lda, const float *b, int64_t ldb, float beta, float *c,
                                                int64_t ldc)
{
    const int32_t code_a = operation_code(*transa), code_b = operation_code(*transb);
    blas_op_record &op = records->op;
    op.side = nullptr;
    op.uplo = nullptr;
    op.diag = nullptr;
    op.transa = transa;
    op.transb = transb;
    op.alpha = alpha;
    op.beta = beta;
    op.side_code = 2;
    op.uplo_code = 2;
    op.diag_code = 2;
    op.transa_code = code_a;
    op.transb_code = code_b;
    op.routine_id = blas_routine_sgemm;
    fill_operand_view(&records->a, a, m, k, lda, code_a, 0);
    fill_operand_view(&records->b, b, k, n, ldb, code_b, 0);
    blas_initialize_matrix(nullptr, nullptr, nullptr, c, m, n, ldc, &records->c);
}

template <class p>
[[gnu::noinline]] void packed_route(const char *transa, const char *transb, const int64_t *m, const int64_t *n,
                                    const int64_t *k, const float *alpha, const float *a, const int64_t *lda,
                                    const float *b, const int64_t *ldb, const float *beta, float *c, const int64_t *ldc)
{
    sgemm_records r;
    gemm_strategy strategy;
    gemm_kernel_info info;
    fill_records(&r, transa, transb, *m, *n, *k, *alpha, a, *lda, b, *ldb, *beta, c, *ldc);
    p::initialize_strategy(&strategy);
    p::initialize_kernel_info(&r.op, &r.a, &r.b, &r.c, &strategy, &info);
    if (r.op.alpha == 0.0f) {
        if (r.op.beta != 1.0f)
            info.mscale(&r.c, &r.op.beta);
        return;
    }
    const bool dot_products = r.op.transa_code != 0 && r.op.transb_code == 0;
    if (strict_reproducibility() || (dot_products ? *m >= info.min_m_driver : *n >= info.min_n_driver))
        info.driver(&r.op, &r.a, &r.b, &r.c, nullptr, &info);
    else
        p::pst(transa, transb, m, n, k, &r.op.alpha, a, lda, b, ldb, &r.op.beta, c, ldc);
}

// Sizes up to 32 make one block of the no-copy driver. Of a product that small the records would be a good part of the
// time: its kernel is called without them, and the roads that such sizes do not meet are not asked for.
constexpr int tiny_bits = 5;
[[gnu::always_inline]] inline bool is_tiny(int64_t m, int64_t n, int64_t k, float alpha)
{
    return static_cast<uint64_t>((m - 1) | (n - 1) | (k - 1)) >> tiny_bits == 0 && alpha != 0.0f; // 1 to 32 each
}

// With A and B read where they lie the driver slot holds the no-copy driver, which reads neither strategy nor info:
// none is filled, for this is the route of the smallest products.
template <class p>
[[gnu::always_inline]] inline void nocopy_route(const char *transa, const char *transb, int64_t m, int64_t n, int64_t k,
                                                float alpha, const float *a, int64_t lda, const float *b, int64_t ldb,
                                                float beta, float *c, int64_t ldc)
{
    sgemm_records r;
    fill_records(&r, transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
    p::nocopy_driver(&r.op, &r.a, &r.b, &r.c, nullptr, nullptr);
}
} // namespace
