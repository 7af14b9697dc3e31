// SPDX-License-Identifier: BSD-3-Clause
// Small products on the avx512 path, from their public name straight to their kernel. Front, dispatcher, path routine
// and driver would only pass such a product on, and take a good part of its time for it. What any of them would do
// anything else with is not for here: a size of 1, alpha of 0, the reproducibility mode, A transposed that is packed
// (more rows than columns) or leaves for a routine without a kernel (3 rows, B as it lies).
#pragma once
#include "frame/tesh_serv.h"
#include "gemm/sgemm_paths.h"

// The path routine that the dispatcher of SGEMM is bound to; null before its first call.
extern "C" [[gnu::visibility("hidden")]] tesh_blas_sgemm_fn *tesh_xsgemm_address;

namespace
{
// One block of the driver, whose columns are cut from 97 on; with a depth of 24 a column, 4 columns and A transposed
// begin the products that are made of dot products.
constexpr int64_t direct_least = 2, direct_most = 95; // of m, n and k
constexpr int32_t direct_strict = 0x10000; // of the reproducibility setting; -1, not read yet, has it as well

// By beta, 0, 1 or any other, and by 2 * (A transposed) + (B transposed).
constexpr tesh_blas_sgemm_kernel_nocopy_fn *direct_kernels[3][4] = {
    {tesh_blas_avx512_sgemm_kernel_nocopy_NN_b0, tesh_blas_avx512_sgemm_kernel_nocopy_NT_b0,
     tesh_blas_avx512_sgemm_kernel_nocopy_TN_b0, tesh_blas_avx512_sgemm_kernel_nocopy_TT_b0},
    {tesh_blas_avx512_sgemm_kernel_nocopy_NN_b1, tesh_blas_avx512_sgemm_kernel_nocopy_NT_b1,
     tesh_blas_avx512_sgemm_kernel_nocopy_TN_b1, tesh_blas_avx512_sgemm_kernel_nocopy_TT_b1},
    {tesh_blas_avx512_sgemm_kernel_nocopy_NN_bn, tesh_blas_avx512_sgemm_kernel_nocopy_NT_bn,
     tesh_blas_avx512_sgemm_kernel_nocopy_TN_bn, tesh_blas_avx512_sgemm_kernel_nocopy_TT_bn}};

inline bool direct_letter(char letter, char upper)
{
    return (letter & 0xdf) == upper;
}

inline bool direct_size(int64_t size)
{
    return static_cast<uint64_t>(size - direct_least) <= direct_most - direct_least;
}

// Whether the arguments are right and the product goes straight to a kernel. An argument is read when its turn comes
// and not before, as in the check of arguments.
inline bool sgemm_goes_direct(const char *transa, const char *transb, const int64_t *m, const int64_t *n,
                              const int64_t *k, const float *alpha, const int64_t *lda, const int64_t *ldb,
                              const int64_t *ldc)
{
    if (__atomic_load_n(&tesh_xsgemm_address, __ATOMIC_RELAXED) != tesh_blas_avx512_xsgemm ||
        (__atomic_load_n(&tesh_cbwr, __ATOMIC_RELAXED) & direct_strict) != 0)
        return false;
    if (transa == nullptr || !(direct_letter(*transa, 'N') || direct_letter(*transa, 'T')))
        return false;
    if (transb == nullptr || !(direct_letter(*transb, 'N') || direct_letter(*transb, 'T')))
        return false;
    const bool a_transposed = direct_letter(*transa, 'T'), b_transposed = direct_letter(*transb, 'T');
    if (!direct_size(*m) || !direct_size(*n) || !direct_size(*k))
        return false;
    if (*lda < (a_transposed ? *k : *m) || *ldb < (b_transposed ? *n : *k) || *ldc < *m)
        return false;
    if (a_transposed && (*m > *n || (*m <= 3 && !b_transposed)))
        return false;
    return *alpha != 0.0f;
}

inline tesh_blas_sgemm_kernel_nocopy_fn *sgemm_direct_kernel(char transa, char transb, float beta)
{
    return direct_kernels[beta == 0.0f   ? 0
                          : beta == 1.0f ? 1
                                         : 2][2 * direct_letter(transa, 'T') + direct_letter(transb, 'T')];
}
} // namespace
