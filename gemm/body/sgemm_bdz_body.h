// SPDX-License-Identifier: BSD-3-Clause
// C := alpha*op(A)*op(B) + beta*C for processors with fused multiply-add behind the portable path. beta goes over C
// first, alpha into the packed A. Blocks: depth outside, rows next, columns inside. Panels: A 16 rows wide, B 4 columns
// wide, rests in panels of the binary widths below, nothing padded.
#pragma once
#include "frame/path/path_util.h"
#include "frame/tesh_serv.h"
#include "gemm/body/sgemm_operand.h"
#include "gemm/sgemm_paths.h"

namespace
{
constexpr int64_t bdz_least_m = 12, bdz_least_n = 4, bdz_least_k = 2;
constexpr int64_t bdz_unroll_m = 16, bdz_unroll_n = 4, bdz_unroll_k = 1;
constexpr int64_t bdz_most_rows = 6400, bdz_most_columns = 384, bdz_most_depth = 192, bdz_least_depth = 128;
constexpr int64_t bdz_room = 16896; // [bytes] for the alignment of both panels
constexpr uintptr_t page = 4096;    // [bytes]

inline int64_t bdz_depth_block(int64_t k)
{
    if (k >= 2 * bdz_most_depth)
        return bdz_most_depth;
    if (k > bdz_most_depth)
        return k / 2;
    return max_of(k, bdz_least_depth);
}

inline void bdz_blocks(int64_t m, int64_t n, int64_t k, int64_t *mb, int64_t *nb, int64_t *kb)
{
    *mb = min_of(round_up(min_of(m, bdz_most_rows), bdz_unroll_m), bdz_most_rows);
    *nb = min_of(max_of(n, bdz_unroll_n), bdz_most_columns);
    *kb = bdz_depth_block(k);
}

inline float *next_page(uintptr_t at)
{
    return reinterpret_cast<float *>((at & ~(page - 1)) + page);
}

inline void bdz_get_buffers(int64_t mb, int64_t nb, int64_t kb, void **base, float **a_panel, float **b_panel)
{
    int64_t step_bytes = 0, bytes = bdz_room;
    const bool is_size =
        add_product(&step_bytes, mb, 4) && add_product(&step_bytes, nb, 8) && add_product(&bytes, step_bytes, kb);
    *base = is_size ? tesh_serv_allocate(static_cast<size_t>(bytes), 128) : nullptr;
    if (*base == nullptr)
        return;
    *a_panel = next_page(reinterpret_cast<uintptr_t>(*base));
    *b_panel = next_page(reinterpret_cast<uintptr_t>(*a_panel + mb * kb));
}

template <class path>
inline void bdz_blocked(const sgemm_operand &x, int64_t mb, int64_t nb, int64_t kb, float *a_panel, float *b_panel)
{
    const float one = 1.0f;
    tesh_blas_sgemm_kernel_16x4_fn *kernel = tesh_serv_cpuiszen() ? path::kernel_zen : path::kernel_bdz;
    for (int64_t l0 = 0; l0 < x.k; l0 += kb) {
        const int64_t depth = min_of(kb, x.k - l0);
        for (int64_t i0 = 0; i0 < x.m; i0 += mb) {
            const int64_t rows = min_of(mb, x.m - i0);
            (x.a_transposed() ? path::right16 : path::down16)(&depth, &rows, x.a_at(i0, l0), &x.lda, &x.alpha, a_panel);
            for (int64_t j0 = 0; j0 < x.n; j0 += nb) {
                const int64_t columns = min_of(nb, x.n - j0);
                (x.b_transposed() ? path::down4 : path::right4)(&depth, &columns, x.b_at(l0, j0), &x.ldb, &one,
                                                                b_panel);
                kernel(&rows, &columns, &depth, a_panel, b_panel, x.c + i0 + j0 * x.ldc, &x.ldc);
            }
        }
    }
}

template <class path> inline void bdz_product(const sgemm_operand &x)
{
    if (x.m < 1 || x.n < 1)
        return;
    if (x.beta != 1.0f)
        path::mscale(&x.m, &x.n, &x.beta, x.c, &x.ldc);
    if (x.alpha == 0.0f)
        return;
    if (x.m >= bdz_least_m && x.n >= bdz_least_n && x.k >= bdz_least_k) {
        int64_t unroll_m, unroll_n, unroll_k, mb, nb, kb;
        void *base;
        float *a_panel, *b_panel;
        path::blk_info(&x.m, &x.n, &x.k, &unroll_m, &unroll_n, &unroll_k, &mb, &nb, &kb);
        path::getbufs(&mb, &nb, &kb, &base, &a_panel, &b_panel);
        if (tesh_serv_check_ptr_and_warn(base, "xdgemm") == 0) {
            bdz_blocked<path>(x, mb, nb, kb, a_panel, b_panel);
            path::freebufs(base);
            return;
        }
    }
    const float one = 1.0f;
    path::pst(x.transa, x.transb, &x.m, &x.n, &x.k, &x.alpha, x.a, &x.lda, x.b, &x.ldb, &one, x.c, &x.ldc);
}
} // namespace
