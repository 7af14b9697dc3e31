// SPDX-License-Identifier: BSD-3-Clause
// Blocks and kernels of the avx512 path for products without packing. In elements.
#pragma once
#include "frame/path/vec_avx512.h"
#include "gemm/body/sgemm_nocopy_driver_body.h"

namespace
{
struct nocopy_path {
    using full = vec_avx512;
    // NN, NT, TN, TT.
    static constexpr block_rule k_rule[4] = {{768, 384, 385}, {768, 384, 385}, {768, 384, 385}, {768, 384, 385}};
    static constexpr block_rule n_rule[4] = {{128, 64, 97}, {128, 64, 97}, {768, 384, 577}, {768, 384, 577}};
    static constexpr tesh_blas_sgemm_fn *pst = tesh_blas_avx512_sgemm_pst;
    static constexpr nocopy_kernels first_zero = {tesh_blas_avx512_sgemm_kernel_nocopy_NN_b0,
                                                  tesh_blas_avx512_sgemm_kernel_nocopy_NT_b0,
                                                  nullptr,
                                                  tesh_blas_avx512_sgemm_kernel_nocopy_NT_b0,
                                                  tesh_blas_avx512_sgemm_kernel_nocopy_TN_b0,
                                                  tesh_blas_avx512_sgemm_kernel_nocopy_TT_b0,
                                                  nullptr,
                                                  tesh_blas_avx512_sgemm_kernel_nocopy_TT_b0,
                                                  nullptr,
                                                  nullptr,
                                                  nullptr,
                                                  nullptr,
                                                  tesh_blas_avx512_sgemm_kernel_nocopy_TN_b0,
                                                  tesh_blas_avx512_sgemm_kernel_nocopy_TT_b0,
                                                  nullptr,
                                                  tesh_blas_avx512_sgemm_kernel_nocopy_TT_b0};
    static constexpr nocopy_kernels add = {tesh_blas_avx512_sgemm_kernel_nocopy_NN_b1,
                                           tesh_blas_avx512_sgemm_kernel_nocopy_NT_b1,
                                           nullptr,
                                           tesh_blas_avx512_sgemm_kernel_nocopy_NT_b1,
                                           tesh_blas_avx512_sgemm_kernel_nocopy_TN_b1,
                                           tesh_blas_avx512_sgemm_kernel_nocopy_TT_b1,
                                           nullptr,
                                           tesh_blas_avx512_sgemm_kernel_nocopy_TT_b1,
                                           nullptr,
                                           nullptr,
                                           nullptr,
                                           nullptr,
                                           tesh_blas_avx512_sgemm_kernel_nocopy_TN_b1,
                                           tesh_blas_avx512_sgemm_kernel_nocopy_TT_b1,
                                           nullptr,
                                           tesh_blas_avx512_sgemm_kernel_nocopy_TT_b1};
    static constexpr nocopy_kernels first_other = {tesh_blas_avx512_sgemm_kernel_nocopy_NN_bn,
                                                   tesh_blas_avx512_sgemm_kernel_nocopy_NT_bn,
                                                   nullptr,
                                                   tesh_blas_avx512_sgemm_kernel_nocopy_NT_bn,
                                                   tesh_blas_avx512_sgemm_kernel_nocopy_TN_bn,
                                                   tesh_blas_avx512_sgemm_kernel_nocopy_TT_bn,
                                                   nullptr,
                                                   tesh_blas_avx512_sgemm_kernel_nocopy_TT_bn,
                                                   nullptr,
                                                   nullptr,
                                                   nullptr,
                                                   nullptr,
                                                   tesh_blas_avx512_sgemm_kernel_nocopy_TN_bn,
                                                   tesh_blas_avx512_sgemm_kernel_nocopy_TT_bn,
                                                   nullptr,
                                                   tesh_blas_avx512_sgemm_kernel_nocopy_TT_bn};
};
} // namespace
