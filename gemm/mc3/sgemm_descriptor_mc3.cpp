// SPDX-License-Identifier: BSD-3-Clause
// The table entry of the mc3 path, its block sizes and its buffers.
#include "frame/path/path_util.h"
#include "frame/tesh_serv.h"
#include "gemm/sgemm_mc3.h"

namespace
{
constexpr int64_t depth_block = 256, depth_block_least = 128;
constexpr int64_t row_block = 768, row_block_large_cache = 1280; // the latter for a large last cache, or an unknown one
constexpr int64_t large_cache_bytes = 0x400000;
constexpr int64_t column_block_most = 5000;
constexpr int64_t resident_b_bytes = 0x80000; // a B block of at most this stays in the second-level cache
constexpr int64_t page_bytes = 4096;
constexpr int32_t alignment = 128;

inline bool keeps_a_block(int32_t scheme)
{
    return scheme == mc3_gemm_scheme_a_block || scheme == mc3_gemm_scheme_a_block_b_block ||
           scheme == mc3_gemm_scheme_a_block_b_panel;
}
inline bool keeps_a_panel(int32_t scheme)
{
    return scheme == mc3_gemm_scheme_a_panel || scheme == mc3_gemm_scheme_a_panel_b_block;
}
inline bool keeps_b_block(int32_t scheme)
{
    return scheme == mc3_gemm_scheme_b_block || scheme == mc3_gemm_scheme_a_block_b_block ||
           scheme == mc3_gemm_scheme_a_panel_b_block;
}
inline bool keeps_b_panel(int32_t scheme)
{
    return scheme == mc3_gemm_scheme_b_panel || scheme == mc3_gemm_scheme_a_block_b_panel;
}
inline bool is_scheme(int32_t scheme)
{
    return scheme >= mc3_gemm_scheme_a_block && scheme <= mc3_gemm_scheme_a_block_b_panel;
}
// Whole pages; -1 where that is no size.
inline int64_t part_bytes(int64_t width, int64_t depth)
{
    int64_t floats = 0, bytes = page_bytes - 1;
    if (!add_product(&floats, width, depth) || !add_product(&bytes, floats, sizeof(float)))
        return -1;
    return bytes / page_bytes * page_bytes;
}
} // namespace

extern "C" {
// clang-format off
const mc3_gemm_kernel tesh_mc3_s_all_gemm_ker[1] = {{
    4, 8, 4, // register tile
    2,       // version
    4, 4, 4, // smallest block of the extended copy forms
    126,     // reserved
    tesh_blas_mc3_sgemm_get_blks_size,
    tesh_blas_mc3_sgemm_get_bufs_size,
    tesh_blas_mc3_sgemm_get_bufs,
    {tesh_blas_mc3_sgemm_copyan, tesh_blas_mc3_sgemm_copyat, tesh_blas_mc3_sgemm_copyat},
    {tesh_blas_mc3_sgemm_copybn, tesh_blas_mc3_sgemm_copybt, tesh_blas_mc3_sgemm_copybt},
    tesh_blas_mc3_sgemm_ker0,
    tesh_blas_mc3_sgemm_copya_ext,
    tesh_blas_mc3_sgemm_copyb_ext,
}};
// clang-format on
const int64_t tesh_mc3_s_opt_gemm_ker = 0;

void tesh_blas_mc3_sgemm_zero_desc(mc3_gemm_descriptor *desc)
{
    *desc = mc3_gemm_descriptor();
}

void tesh_blas_mc3_sgemm_get_optimal_kernel(mc3_gemm_descriptor *desc)
{
    desc->kernel = tesh_mc3_s_all_gemm_ker[tesh_mc3_s_opt_gemm_ker];
}

void tesh_blas_mc3_sgemm_get_blks_size(const int64_t *, const int64_t *n, const int64_t *k, mc3_gemm_descriptor *desc)
{
    if (desc->block_k == 0) {
        const int64_t step = desc->kernel.unroll_k;
        if (*k >= 2 * depth_block || *k == depth_block)
            desc->block_k = depth_block;
        else if (*k > depth_block)
            desc->block_k = round_up(*k / 2, step);
        else
            desc->block_k = max_of(round_up(*k, step), depth_block_least);
    }
    if (desc->block_m == 0) {
        int64_t cache[5] = {}; // levels, then the bytes of levels 1 to 4
        tesh_serv_cache_info(cache);
        desc->block_m = cache[0] > 0 && cache[3] <= large_cache_bytes ? row_block : row_block_large_cache;
    }
    if (desc->block_n == 0) {
        const int64_t step = desc->kernel.unroll_n;
        desc->block_n = round_up(min_of(max_of(*n, step), column_block_most), step);
    }
}

int64_t tesh_blas_mc3_sgemm_get_kernel_version(const int64_t *n, const int64_t *k, const mc3_gemm_descriptor *desc)
{
    const int64_t bytes = part_bytes(min_of(*n, desc->block_n), min_of(*k, desc->block_k));
    return bytes >= 0 && bytes <= resident_b_bytes ? 4 : 2;
}

int32_t tesh_blas_mc3_sgemm_get_bufs_size(int32_t scheme, int32_t size_code, const int64_t *m, const int64_t *n,
                                          const int64_t *k, const mc3_gemm_descriptor *desc, mc3_gemm_buffers *buffers)
{
    if (!is_scheme(scheme) || (size_code != mc3_gemm_size_of_problem && size_code != mc3_gemm_size_of_blocks))
        return 1;
    const bool whole = size_code == mc3_gemm_size_of_blocks;
    const int64_t rows = whole ? desc->block_m : min_of(*m, desc->block_m);
    const int64_t cols = whole ? desc->block_n : min_of(*n, desc->block_n);
    const int64_t depth = whole ? desc->block_k : min_of(*k, desc->block_k);
    const int64_t a_width = keeps_a_block(scheme)   ? rows
                            : keeps_a_panel(scheme) ? min_of(rows, mc3_gemm_panel_tiles * desc->kernel.unroll_m)
                                                    : 0;
    const int64_t b_width = keeps_b_block(scheme) ? cols : keeps_b_panel(scheme) ? desc->kernel.unroll_n : 0;
    buffers->a_bytes = part_bytes(a_width, depth);
    buffers->b_bytes = part_bytes(b_width, depth);
    return 0;
}

int32_t tesh_blas_mc3_sgemm_get_bufs(int32_t scheme, mc3_gemm_buffers *buffers)
{
    buffers->base = nullptr;
    buffers->a = buffers->b = nullptr;
    if (!is_scheme(scheme))
        return 1;
    int64_t bytes = page_bytes;
    if (buffers->a_bytes < 0 || buffers->b_bytes < 0 || !add_product(&bytes, buffers->a_bytes, 1) ||
        !add_product(&bytes, buffers->b_bytes, 1))
        return 0;
    buffers->base = tesh_serv_allocate(static_cast<size_t>(bytes), alignment);
    if (buffers->base == nullptr)
        return 0;
    const uintptr_t page = (reinterpret_cast<uintptr_t>(buffers->base) + page_bytes - 1) & ~uintptr_t(page_bytes - 1);
    if (buffers->a_bytes > 0)
        buffers->a = reinterpret_cast<float *>(page);
    if (buffers->b_bytes > 0)
        buffers->b = reinterpret_cast<float *>(page + static_cast<uintptr_t>(buffers->a_bytes));
    return 0;
}

void tesh_blas_mc3_sgemm_free_bufs(mc3_gemm_buffers *buffers)
{
    tesh_serv_deallocate(buffers->base);
    buffers->base = nullptr;
    buffers->a = buffers->b = nullptr;
}
}
