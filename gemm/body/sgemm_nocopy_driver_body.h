// SPDX-License-Identifier: BSD-3-Clause
// C := alpha*op(A)*op(B) + beta*C without packing: blocks of depth outside, rows next, columns inside, one kernel call a
// block. The first depth block brings beta to C, the later ones add.
//
// p is the path (gemm/<path>/sgemm_nocopy_driver_<path>.cpp):
//   k_rule, n_rule   block sizes by class: 2 * (A transposed) + (B transposed)
//   first_zero, first_other, add   kernels by their slot, see nocopy_slot
//   pst              the bufferless product
#pragma once
#include "gemm/sgemm_paths.h"

namespace
{
// How a rest of a dimension is cut: from whole_from on by block; below, from halve_from on, into two equal halves, so that
// no sliver remains; else not at all. [elements]
struct block_rule {
    int64_t whole_from, block, halve_from;
    inline int64_t next(int64_t rest) const
    {
        return rest < halve_from ? rest : rest < whole_from ? (rest + 1) / 2 : block;
    }
};
constexpr block_rule nocopy_m_rule = {8064, 4032, 6049};

// A real product treats the conjugate as the transpose.
inline bool is_conjugate(char trans)
{
    return trans == 'C' || trans == 'c';
}
inline bool is_transposed(char trans)
{
    return is_conjugate(trans) || trans == 'T' || trans == 't';
}

constexpr int nocopy_slots = 16;
using nocopy_kernels = tesh_blas_sgemm_kernel_nocopy_fn *[nocopy_slots];
inline int nocopy_slot(bool a_conjugate, bool a_transposed, bool b_conjugate, bool b_transposed)
{
    return 8 * a_conjugate + 4 * a_transposed + 2 * b_conjugate + b_transposed;
}

// C := beta*C where there is nothing to add.
inline void nocopy_scale(int64_t m, int64_t n, float beta, float *c, int64_t ldc)
{
    if (beta == 1.0f)
        return;
    if (beta == 0.0f) {
        for (; n > 0; --n, c += ldc)
            __builtin_memset(c, 0, static_cast<size_t>(m) * sizeof(float));
        return;
    }
    const __m128 factor = _mm_set1_ps(beta);
    for (; n > 0; --n, c += ldc) {
        int64_t i = 0;
        for (; i + 16 <= m; i += 16)
            for (int u = 0; u < 16; u += 4)
                _mm_storeu_ps(c + i + u, _mm_mul_ps(factor, _mm_loadu_ps(c + i + u)));
        for (; i + 4 <= m; i += 4)
            _mm_storeu_ps(c + i, _mm_mul_ps(factor, _mm_loadu_ps(c + i)));
        for (; i < m; ++i)
            c[i] *= beta;
    }
}

template <class p>
inline void nocopy_driver(const blas_op_record *op, const blas_matrix_view *a_view, const blas_matrix_view *b_view,
                          const blas_matrix_view *c_view)
{
    const int64_t m = c_view->rows, n = c_view->cols, k = a_view->cols;
    if (m < 1 || n < 1)
        return;
    const bool a_transposed = is_transposed(*op->transa), b_transposed = is_transposed(*op->transb);
    const float *a = static_cast<const float *>(a_view->base), *b = static_cast<const float *>(b_view->base);
    float *c = static_cast<float *>(c_view->base);
    const int64_t lda = a_view->ld, ldb = b_view->ld, ldc = c_view->ld;
    if (a_transposed && !b_transposed && m <= 3 && n <= 15 && m * n < 32) {
        p::pst("T", "N", &m, &n, &k, &op->alpha, a, &lda, b, &ldb, &op->beta, c, &ldc);
        return;
    }
    if (k < 1 || op->alpha == 0.0f) {
        nocopy_scale(m, n, op->beta, c, ldc);
        return;
    }
    const int slot = nocopy_slot(is_conjugate(*op->transa), a_transposed, is_conjugate(*op->transb), b_transposed);
    const int transposition = 2 * a_transposed + b_transposed;
    const block_rule k_rule = p::k_rule[transposition], n_rule = p::n_rule[transposition];
    tesh_blas_sgemm_kernel_nocopy_fn *kernel = op->beta == 0.0f   ? p::first_zero[slot]
                                               : op->beta == 1.0f ? p::add[slot]
                                                                  : p::first_other[slot];
    for (int64_t l = 0, kb; l < k; l += kb, kernel = p::add[slot]) {
        kb = k_rule.next(k - l);
        for (int64_t i = 0, mb; i < m; i += mb) {
            mb = nocopy_m_rule.next(m - i);
            const float *a_block = a + (a_transposed ? l + i * lda : i + l * lda);
            for (int64_t j = 0, nb; j < n; j += nb) {
                nb = n_rule.next(n - j);
                kernel(mb, nb, kb, &op->alpha, a_block, lda, b + (b_transposed ? j + l * ldb : l + j * ldb), ldb,
                       &op->beta, c + i + j * ldc, ldc);
            }
        }
    }
}
} // namespace
