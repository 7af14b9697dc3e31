// SPDX-License-Identifier: BSD-3-Clause
// The members of SGEMM without packing, by path, for tests that run on both wide paths.
#pragma once
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "gemm/sgemm_paths.h"
#include "tests/support/reference_gemm.h"
#include "tests/support/test_paths.h"

namespace tesh_test
{
constexpr const char *nocopy_classes[4] = {"NN", "NT", "TN", "TT"};
constexpr float nocopy_betas[3] = {0.0f, 1.0f, 0.5f};

struct nocopy_path {
    std::string name;
    std::int64_t tile_m, tile_n;
    std::int64_t whole_columns; // columns up to which badly lying A that is not transposed is read in place
    tesh_blas_sgemm_kernel_nocopy_fn *kernels[4][3]; // by class, and by beta: 0, 1, other
    gemm_driver_fn *driver;
    tesh_blas_sgemm_fn *pst;
};

inline const nocopy_path &nocopy_avx2()
{
    static const nocopy_path path = {
        "avx2",
        16,
        6,
        18,
        {{tesh_blas_avx2_sgemm_kernel_nocopy_NN_b0, tesh_blas_avx2_sgemm_kernel_nocopy_NN_b1,
          tesh_blas_avx2_sgemm_kernel_nocopy_NN_bn},
         {tesh_blas_avx2_sgemm_kernel_nocopy_NT_b0, tesh_blas_avx2_sgemm_kernel_nocopy_NT_b1,
          tesh_blas_avx2_sgemm_kernel_nocopy_NT_bn},
         {tesh_blas_avx2_sgemm_kernel_nocopy_TN_b0, tesh_blas_avx2_sgemm_kernel_nocopy_TN_b1,
          tesh_blas_avx2_sgemm_kernel_nocopy_TN_bn},
         {tesh_blas_avx2_sgemm_kernel_nocopy_TT_b0, tesh_blas_avx2_sgemm_kernel_nocopy_TT_b1,
          tesh_blas_avx2_sgemm_kernel_nocopy_TT_bn}},
        tesh_blas_avx2_xsgemm_nocopy_driver,
        tesh_blas_avx2_sgemm_pst};
    return path;
}

inline const nocopy_path &nocopy_avx512()
{
    static const nocopy_path path = {
        "avx512",
        48,
        8,
        24,
        {{tesh_blas_avx512_sgemm_kernel_nocopy_NN_b0, tesh_blas_avx512_sgemm_kernel_nocopy_NN_b1,
          tesh_blas_avx512_sgemm_kernel_nocopy_NN_bn},
         {tesh_blas_avx512_sgemm_kernel_nocopy_NT_b0, tesh_blas_avx512_sgemm_kernel_nocopy_NT_b1,
          tesh_blas_avx512_sgemm_kernel_nocopy_NT_bn},
         {tesh_blas_avx512_sgemm_kernel_nocopy_TN_b0, tesh_blas_avx512_sgemm_kernel_nocopy_TN_b1,
          tesh_blas_avx512_sgemm_kernel_nocopy_TN_bn},
         {tesh_blas_avx512_sgemm_kernel_nocopy_TT_b0, tesh_blas_avx512_sgemm_kernel_nocopy_TT_b1,
          tesh_blas_avx512_sgemm_kernel_nocopy_TT_bn}},
        tesh_blas_avx512_xsgemm_nocopy_driver,
        tesh_blas_avx512_sgemm_pst};
    return path;
}

// avx2 and avx512, those of them that run here and are asked for.
inline std::vector<const nocopy_path *> nocopy_paths_to_run()
{
    std::vector<const nocopy_path *> paths;
    for (const std::string &name : paths_to_run()) {
        if (name == "avx2")
            paths.push_back(&nocopy_avx2());
        if (name == "avx512")
            paths.push_back(&nocopy_avx512());
    }
    return paths;
}

inline std::string nocopy_path_name(const testing::TestParamInfo<const nocopy_path *> &info)
{
    return info.param->name;
}

// A kernel with the arguments of SGEMM.
inline std::function<tesh_blas_sgemm_fn> as_product(tesh_blas_sgemm_kernel_nocopy_fn *kernel)
{
    return
        [kernel](const char *, const char *, const int64_t *m, const int64_t *n, const int64_t *k, const float *alpha,
                 const float *a, const int64_t *lda, const float *b, const int64_t *ldb, const float *beta, float *c,
                 const int64_t *ldc) { kernel(*m, *n, *k, alpha, a, *lda, b, *ldb, beta, c, *ldc); };
}

// The driver with the arguments of SGEMM: fills what it reads of the records.
inline std::function<tesh_blas_sgemm_fn> as_product(gemm_driver_fn *driver)
{
    return [driver](const char *transa, const char *transb, const int64_t *m, const int64_t *n, const int64_t *k,
                    const float *alpha, const float *a, const int64_t *lda, const float *b, const int64_t *ldb,
                    const float *beta, float *c, const int64_t *ldc) {
        blas_op_record op = {};
        op.transa = transa;
        op.transb = transb;
        op.alpha = *alpha;
        op.beta = *beta;
        blas_matrix_view va = {}, vb = {}, vc = {};
        va.base = const_cast<float *>(a);
        va.rows = *m;
        va.cols = *k;
        va.ld = *lda;
        vb.base = const_cast<float *>(b);
        vb.rows = *k;
        vb.cols = *n;
        vb.ld = *ldb;
        vc.base = c;
        vc.rows = *m;
        vc.cols = *n;
        vc.ld = *ldc;
        driver(&op, &va, &vb, &vc, nullptr, nullptr);
    };
}
} // namespace tesh_test
