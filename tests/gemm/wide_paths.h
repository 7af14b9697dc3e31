// SPDX-License-Identifier: BSD-3-Clause
// The members of the packed SGEMM frame, by path, for tests that run on both wide paths.
#pragma once
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "gemm/sgemm_paths.h"
#include "tests/support/test_paths.h"

namespace tesh_test
{
struct wide_path {
    std::string name;
    std::int64_t panel_m, panel_n;
    std::vector<std::int64_t> a_tails, b_tails; // widths below the full panels, widest first
    tesh_blas_sgemm_scopy_fn *down_a, *right_a, *down_b, *right_b;
    gemm_copy_fn *copyan, *copyat, *copybn, *copybt;
    tesh_blas_sgemm_kernel_fn *kernel, *kernel_b0, *kernel_cnr, *kernel_b0_cnr;
    gemm_ker0_fn *ker0, *ker0_cnr;
    tesh_blas_sgemm_mscale_fn *mscale;
    gemm_mscale_fn *mscale_wrapper;
    void (*initialize_buffers)(const blas_matrix_view *, const blas_matrix_view *, const gemm_strategy *,
                               gemm_buffers *);
    gemm_get_bufs_fn *get_bufs, *get_bufs_pack;
    gemm_get_size_bufs_fn *get_size_bufs;
    gemm_set_bufs_fn *set_bufs_pack;
    gemm_free_bufs_fn *free_bufs;
    gemm_driver_fn *driver, *acopied_driver;
    gemm_pst_fn *pst_wrapper;
};

inline const wide_path &wide_avx2()
{
    static const wide_path path = {"avx2",
                                   24,
                                   4,
                                   {16, 8, 4, 2, 1},
                                   {2, 1},
                                   tesh_blas_avx2_sgemm_scopy_down24_ea,
                                   tesh_blas_avx2_sgemm_scopy_right24_ea,
                                   tesh_blas_avx2_sgemm_scopy_down4_ea,
                                   tesh_blas_avx2_sgemm_scopy_right4_ea,
                                   tesh_blas_avx2_sgemm_copyan,
                                   tesh_blas_avx2_sgemm_copyat,
                                   tesh_blas_avx2_sgemm_copybn,
                                   tesh_blas_avx2_sgemm_copybt,
                                   tesh_blas_avx2_sgemm_kernel_0,
                                   tesh_blas_avx2_sgemm_kernel_0_b0,
                                   tesh_blas_avx2_sgemm_kernel_0_cnr,
                                   tesh_blas_avx2_sgemm_kernel_0_b0_cnr,
                                   tesh_blas_avx2_sgemm_ker0,
                                   tesh_blas_avx2_sgemm_ker0_cnr,
                                   tesh_blas_avx2_sgemm_mscale,
                                   tesh_blas_avx2_sgemm_mscale_wrapper,
                                   tesh_blas_avx2_sgemm_initialize_buffers,
                                   tesh_blas_avx2_sgemm_get_bufs,
                                   tesh_blas_avx2_sgemm_get_bufs_pack,
                                   tesh_blas_avx2_sgemm_get_size_bufs,
                                   tesh_blas_avx2_sgemm_set_bufs_pack,
                                   tesh_blas_avx2_sgemm_free_bufs,
                                   tesh_blas_avx2_s_generic_fullacopybcopy,
                                   tesh_blas_avx2_xsgemm_acopiedbcopy,
                                   tesh_blas_avx2_s_pst_wrapper};
    return path;
}

inline const wide_path &wide_avx512()
{
    static const wide_path path = {"avx512",
                                   48,
                                   8,
                                   {32, 16, 8, 4, 2, 1},
                                   {4, 2, 1},
                                   tesh_blas_avx512_sgemm_scopy_down48_ea,
                                   tesh_blas_avx512_sgemm_scopy_right48_ea,
                                   tesh_blas_avx512_sgemm_scopy_down8_ea,
                                   tesh_blas_avx512_sgemm_scopy_right8_ea,
                                   tesh_blas_avx512_sgemm_copyan,
                                   tesh_blas_avx512_sgemm_copyat,
                                   tesh_blas_avx512_sgemm_copybn,
                                   tesh_blas_avx512_sgemm_copybt,
                                   tesh_blas_avx512_sgemm_kernel_0,
                                   tesh_blas_avx512_sgemm_kernel_0_b0,
                                   tesh_blas_avx512_sgemm_kernel_0_cnr,
                                   tesh_blas_avx512_sgemm_kernel_0_b0_cnr,
                                   tesh_blas_avx512_sgemm_ker0,
                                   tesh_blas_avx512_sgemm_ker0_cnr,
                                   tesh_blas_avx512_sgemm_mscale,
                                   tesh_blas_avx512_sgemm_mscale_wrapper,
                                   tesh_blas_avx512_sgemm_initialize_buffers,
                                   tesh_blas_avx512_sgemm_get_bufs,
                                   tesh_blas_avx512_sgemm_get_bufs_pack,
                                   tesh_blas_avx512_sgemm_get_size_bufs,
                                   tesh_blas_avx512_sgemm_set_bufs_pack,
                                   tesh_blas_avx512_sgemm_free_bufs,
                                   tesh_blas_avx512_s_generic_fullacopybcopy,
                                   tesh_blas_avx512_xsgemm_acopiedbcopy,
                                   tesh_blas_avx512_s_pst_wrapper};
    return path;
}

// avx2 and avx512, those of them that run here and are asked for.
inline std::vector<const wide_path *> wide_paths_to_run()
{
    std::vector<const wide_path *> paths;
    for (const std::string &name : paths_to_run()) {
        if (name == "avx2")
            paths.push_back(&wide_avx2());
        if (name == "avx512")
            paths.push_back(&wide_avx512());
    }
    return paths;
}

inline std::string path_name(const testing::TestParamInfo<const wide_path *> &info)
{
    return info.param->name;
}

// The widths that a block of the given width is cut into.
inline std::vector<std::int64_t> panel_widths(std::int64_t width, std::int64_t full,
                                              const std::vector<std::int64_t> &tails)
{
    std::vector<std::int64_t> widths;
    for (; width >= full; width -= full)
        widths.push_back(full);
    for (const std::int64_t tail : tails)
        if (width >= tail) {
            widths.push_back(tail);
            width -= tail;
        }
    return widths;
}
} // namespace tesh_test
