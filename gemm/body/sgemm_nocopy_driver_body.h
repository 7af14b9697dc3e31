// SPDX-License-Identifier: BSD-3-Clause
// C := alpha*op(A)*op(B) + beta*C without packing: blocks of depth outside, rows next, columns inside, one kernel call
// a block. The first depth block brings beta to C, the later ones add.
//
// p is the path (gemm/<path>/sgemm_nocopy_path_<path>.h):
//   k_rule, n_rule   block sizes by class: 2 * (A transposed) + (B transposed)
//   first_zero, first_other, add   kernels by their slot, see nocopy_slot
//   pst              the bufferless product
//   full             its widest register
#pragma once
#include <immintrin.h>

#include "gemm/sgemm_paths.h"

namespace
{
// How a rest of a dimension is cut: from whole_from on by block; below, from halve_from on, into two equal halves, so
// that no sliver remains; else not at all. [elements]
struct block_rule {
    int64_t whole_from, block, halve_from;
    inline int64_t next(int64_t rest) const
    {
        return rest < halve_from ? rest : rest < whole_from ? (rest + 1) / 2 : block;
    }
};
constexpr block_rule nocopy_m_rule = {8064, 4032, 6049};

// Distance of a letter from 'C', the first one of C, N, T, c, n, t; a set holds a bit for each of its letters. A real
// product treats the conjugate as the transpose.
constexpr uint64_t letters_of_transposition = 0x2000100020001;  // C, T, c, t
constexpr uint64_t letters_of_conjugation = 0x0000000100000001; // C, c
constexpr uint8_t last_letter = 't' - 'C';
inline bool is_letter_of(uint64_t set, char trans)
{
    const uint8_t letter = static_cast<uint8_t>(trans - 'C');
    return letter <= last_letter && (set >> letter & 1);
}

constexpr int nocopy_slots = 16;
using nocopy_kernels = tesh_blas_sgemm_kernel_nocopy_fn *[nocopy_slots];
inline int nocopy_slot(bool a_conjugate, bool a_transposed, bool b_conjugate, bool b_transposed)
{
    return 8 * a_conjugate + 4 * a_transposed + 2 * b_conjugate + b_transposed;
}

// C := beta*C where there is nothing to add. v: the path's full register.
template <class v> [[gnu::noinline]] void nocopy_scale(int64_t m, int64_t n, float beta, float *c, int64_t ldc)
{
    if (beta == 1.0f)
        return;
    if (beta == 0.0f) {
#pragma GCC unroll 8
        for (; n > 0; --n, c += ldc)
            __builtin_memset(c, 0, static_cast<size_t>(m) * sizeof(float));
        return;
    }
    const typename v::reg factor = v::set1(beta);
    const __m128 factor_of_four = _mm_set1_ps(beta);
    for (; n > 0; --n, c += ldc) {
        int64_t i = 0;
        for (; i + 16 <= m; i += 16)
            for (int u = 0; u < 16; u += v::width)
                v::store(c + i + u, v::mul(factor, v::load(c + i + u)));
        for (; i + 4 <= m; i += 4)
            _mm_storeu_ps(c + i, _mm_mul_ps(factor_of_four, _mm_loadu_ps(c + i)));
        for (; i < m; ++i)
            c[i] *= beta;
    }
}

// The arguments of a product, by value.
struct nocopy_call {
    int64_t m, n, k;
    const float *alpha, *a;
    int64_t lda;
    const float *b;
    int64_t ldb;
    const float *beta;
    float *c;
    int64_t ldc;
};

template <bool a_transposed, bool b_transposed>
[[gnu::noinline]] void nocopy_blocks(const nocopy_call &x, const block_rule &k_rule, const block_rule &n_rule,
                                     tesh_blas_sgemm_kernel_nocopy_fn *first, tesh_blas_sgemm_kernel_nocopy_fn *add)
{
    tesh_blas_sgemm_kernel_nocopy_fn *kernel = first;
    for (int64_t l = 0, kb; l < x.k; l += kb, kernel = add) {
        kb = k_rule.next(x.k - l);
        for (int64_t i = 0, mb; i < x.m; i += mb) {
            mb = nocopy_m_rule.next(x.m - i);
            const float *a = x.a + (a_transposed ? l + i * x.lda : i + l * x.lda);
            for (int64_t j = 0, nb; j < x.n; j += nb) {
                nb = n_rule.next(x.n - j);
                const float *b = x.b + (b_transposed ? j + l * x.ldb : l + j * x.ldb);
                kernel(mb, nb, kb, x.alpha, a, x.lda, b, x.ldb, x.beta, x.c + i + j * x.ldc, x.ldc);
            }
        }
    }
}

// So few and short dot products are not worth a kernel.
constexpr bool takes_bufferless_dots(bool a_transposed, bool b_transposed, int64_t m, int64_t n)
{
    return a_transposed && !b_transposed && m <= 3 && n <= 15 && m * n < 32;
}

template <class p>
inline tesh_blas_sgemm_kernel_nocopy_fn *nocopy_first_kernel(char transa, char transb, bool a_transposed,
                                                             bool b_transposed, float beta)
{
    const nocopy_kernels &kernels = beta == 0.0f ? p::first_zero : beta == 1.0f ? p::add : p::first_other;
    return kernels[nocopy_slot(is_letter_of(letters_of_conjugation, transa), a_transposed,
                               is_letter_of(letters_of_conjugation, transb), b_transposed)];
}

// The driver for a product of one block, with something to add, whose arguments stand in no records.
template <class p>
[[gnu::always_inline]] inline void nocopy_one_block(const char *transa, const char *transb, const int64_t *m,
                                                    const int64_t *n, const int64_t *k, const float *alpha,
                                                    const float *a, const int64_t *lda, const float *b,
                                                    const int64_t *ldb, const float *beta, float *c, const int64_t *ldc)
{
    const bool a_transposed = is_letter_of(letters_of_transposition, *transa);
    const bool b_transposed = is_letter_of(letters_of_transposition, *transb);
    if (takes_bufferless_dots(a_transposed, b_transposed, *m, *n))
        return p::pst("T", "N", m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
    return nocopy_first_kernel<p>(*transa, *transb, a_transposed, b_transposed, *beta)(*m, *n, *k, alpha, a, *lda, b,
                                                                                       *ldb, beta, c, *ldc);
}

// From the records.
template <class p>
[[gnu::always_inline]] inline void nocopy_driver(const blas_op_record *op, const blas_matrix_view *a_view,
                                                 const blas_matrix_view *b_view, const blas_matrix_view *c_view)
{
    const int64_t m = c_view->rows, n = c_view->cols, k = a_view->cols;
    const float *a = static_cast<const float *>(a_view->base), *b = static_cast<const float *>(b_view->base);
    float *c = static_cast<float *>(c_view->base);
    if (m < 1 || n < 1)
        return;
    const bool a_transposed = is_letter_of(letters_of_transposition, *op->transa);
    const bool b_transposed = is_letter_of(letters_of_transposition, *op->transb);
    if (takes_bufferless_dots(a_transposed, b_transposed, m, n))
        return p::pst("T", "N", &c_view->rows, &c_view->cols, &a_view->cols, &op->alpha, a, &a_view->ld, b, &b_view->ld,
                      &op->beta, c, &c_view->ld);
    if (k < 1 || op->alpha == 0.0f)
        return nocopy_scale<typename p::full>(m, n, op->beta, c, c_view->ld);
    const int transposition = 2 * a_transposed + b_transposed;
    const block_rule &k_rule = p::k_rule[transposition], &n_rule = p::n_rule[transposition];
    tesh_blas_sgemm_kernel_nocopy_fn *const first =
        nocopy_first_kernel<p>(*op->transa, *op->transb, a_transposed, b_transposed, op->beta);
    if (k < k_rule.halve_from && n < n_rule.halve_from && m < nocopy_m_rule.halve_from)
        return first(m, n, k, &op->alpha, a, a_view->ld, b, b_view->ld, &op->beta, c, c_view->ld);
    const nocopy_call call = {m, n, k, &op->alpha, a, a_view->ld, b, b_view->ld, &op->beta, c, c_view->ld};
    tesh_blas_sgemm_kernel_nocopy_fn *const add =
        nocopy_first_kernel<p>(*op->transa, *op->transb, a_transposed, b_transposed, 1.0f);
    if (a_transposed)
        b_transposed ? nocopy_blocks<true, true>(call, k_rule, n_rule, first, add)
                     : nocopy_blocks<true, false>(call, k_rule, n_rule, first, add);
    else
        b_transposed ? nocopy_blocks<false, true>(call, k_rule, n_rule, first, add)
                     : nocopy_blocks<false, false>(call, k_rule, n_rule, first, add);
}
} // namespace
