// SPDX-License-Identifier: BSD-3-Clause
// C := alpha*op(A)*op(B) + beta*C in smaller blocks, 256 rows by 256 deep, with the tile of the generic form. beta goes
// over C first, alpha into the packed A. Rows are filled up to 8 and columns to 4 by repeating the last one: its
// products raise no flag that the true ones do not, and are not stored.
#pragma once
#include "frame/path/path_util.h"
#include "frame/tesh_serv.h"
#include "gemm/body/sgemm_operand.h"
#include "gemm/sgemm_paths.h"

namespace
{
constexpr int64_t brc_least_m = 5, brc_least_n = 3, brc_least_k = 3;
constexpr int64_t brc_unroll_m = 8, brc_unroll_n = 4, brc_unroll_k = 4;
constexpr int64_t brc_most_rows = 256, brc_most_columns = 512, brc_most_depth = 256, brc_least_depth = 128;
// [bytes] beside the panels, by which of them are asked for.
constexpr int64_t brc_room_a = 13056, brc_room_b = 13568, brc_room_both = 21760, brc_room_neither = 4864;
constexpr int64_t brc_work_step = 64; // [bytes] a depth step: 4 columns, each element four times

inline int64_t brc_depth_block(int64_t k)
{
    if (k >= 2 * brc_most_depth || k == brc_most_depth)
        return brc_most_depth;
    if (k > brc_most_depth)
        return round_up((k + 1) / 2, brc_unroll_k);
    return max_of(round_up(k, brc_unroll_k), brc_least_depth);
}

inline void brc_blocks(int64_t m, int64_t n, int64_t k, int64_t *mb, int64_t *nb, int64_t *kb)
{
    *mb = round_up(min_of(m, brc_most_rows), brc_unroll_m);
    *nb = min_of(max_of(n, brc_unroll_n), brc_most_columns);
    *kb = brc_depth_block(k);
}

inline uintptr_t brc_next(uintptr_t at, uintptr_t step)
{
    return (at & ~(step - 1)) + step;
}

inline void brc_get_buffers(bool with_a, bool with_b, int64_t mb, int64_t nb, int64_t kb, void **base, float **a_panel,
                            float **work, float **b_panel)
{
    int64_t step_bytes = brc_work_step;
    int64_t bytes = with_a ? (with_b ? brc_room_both : brc_room_a) : (with_b ? brc_room_b : brc_room_neither);
    const bool is_size = add_product(&step_bytes, with_a ? mb : 0, sizeof(float)) &&
                         add_product(&step_bytes, with_b ? nb : 0, sizeof(float)) &&
                         add_product(&bytes, step_bytes, kb);
    *base = is_size ? tesh_serv_allocate(static_cast<size_t>(bytes), 128) : nullptr;
    *a_panel = *work = *b_panel = nullptr;
    if (*base == nullptr)
        return;
    uintptr_t at = reinterpret_cast<uintptr_t>(*base);
    if (with_a) {
        at = brc_next(at, 4096);
        *a_panel = reinterpret_cast<float *>(at);
        at += static_cast<size_t>(mb * kb) * sizeof(float);
    }
    at = brc_next(at, 128) + 128;
    *work = reinterpret_cast<float *>(at);
    at += static_cast<size_t>(brc_work_step * kb);
    if (with_b)
        *b_panel = reinterpret_cast<float *>(brc_next(at, 4096) + 640);
}

// The valid part of a tile buffer onto C.
inline void brc_add_tile(int64_t rows, int64_t columns, const float *tile, int64_t ld, float *c, int64_t ldc)
{
    for (int64_t j = 0; j < columns; ++j) {
        for (int64_t i = 0; i < rows; ++i)
            c[i + j * ldc] += tile[i + j * ld];
    }
}

// A packed pair onto a block of C: whole tiles straight, rest columns and rest rows by way of a buffer.
template <class path>
inline void brc_multiply(int64_t rows, int64_t columns, int64_t depth, const float *a_panel, const float *b_panel,
                         float *work, float *c, int64_t ldc)
{
    alignas(16) float tile[brc_unroll_m * brc_most_columns];
    const int64_t m8 = rows & ~int64_t{7}, n4 = columns & ~int64_t{3}, padded = round_up(rows, 8);
    const int64_t eight = brc_unroll_m, four = brc_unroll_n;
    const float one = 1.0f, zero = 0.0f;
    if (m8 > 0)
        path::inner_roll(&m8, &n4, &depth, a_panel, b_panel, work, &one, c, &ldc);
    if (m8 < rows && n4 > 0) {
        path::inner_z_roll(&eight, &n4, &depth, a_panel + m8 * depth, b_panel, work, &zero, tile, &eight);
        brc_add_tile(rows - m8, n4, tile, eight, c + m8, ldc);
    }
    if (n4 < columns) {
        path::inner_z_roll(&padded, &four, &depth, a_panel, b_panel + n4 * depth, work, &zero, tile, &padded);
        brc_add_tile(rows, columns - n4, tile, padded, c + n4 * ldc, ldc);
    }
}

template <class path>
inline void brc_blocked(const sgemm_operand &x, int64_t mb, int64_t nb, int64_t kb, float *a_panel, float *work,
                        float *b_panel)
{
    for (int64_t j0 = 0; j0 < x.n; j0 += nb) {
        const int64_t columns = min_of(nb, x.n - j0);
        for (int64_t l0 = 0; l0 < x.k; l0 += kb) {
            const int64_t kd = min_of(kb, x.k - l0), depth = round_up(kd, brc_unroll_k);
            (x.b_transposed() ? path::copybt : path::copybn)(&kd, &columns, x.b_at(l0, j0), &x.ldb, b_panel);
            for (int64_t i0 = 0; i0 < x.m; i0 += mb) {
                const int64_t rows = min_of(mb, x.m - i0);
                (x.a_transposed() ? path::copyat : path::copyan)(&kd, &rows, x.a_at(i0, l0), &x.lda, &x.alpha, a_panel);
                brc_multiply<path>(rows, columns, depth, a_panel, b_panel, work, x.c + i0 + j0 * x.ldc, x.ldc);
            }
        }
    }
}

template <class path> inline void brc_product(const sgemm_operand &x)
{
    if (x.m < 1 || x.n < 1)
        return;
    if (x.beta != 1.0f)
        path::mscale(&x.m, &x.n, &x.beta, x.c, &x.ldc);
    if (x.alpha == 0.0f)
        return;
    if (x.m >= brc_least_m && x.n >= brc_least_n && x.k >= brc_least_k) {
        int64_t unroll_m, unroll_n, unroll_k, mb, nb, kb;
        void *base;
        float *a_panel, *work, *b_panel;
        path::blk_info(&x.m, &x.n, &x.k, &unroll_m, &unroll_n, &unroll_k, &mb, &nb, &kb);
        path::getbufs(1, 1, &mb, &nb, &kb, &base, &a_panel, &work, &b_panel);
        if (tesh_serv_check_ptr_and_warn(base, "SGEMM") == 0) {
            brc_blocked<path>(x, mb, nb, kb, a_panel, work, b_panel);
            path::freebufs(base);
            return;
        }
    }
    const float one = 1.0f;
    path::pst(x.transa, x.transb, &x.m, &x.n, &x.k, &x.alpha, x.a, &x.lda, x.b, &x.ldb, &one, x.c, &x.ldc);
}
} // namespace
