// SPDX-License-Identifier: BSD-3-Clause
// Sizes of the avx2 path: register tile, blocks, prefetch distances. In elements unless said.
#pragma once
#include "gemm/body/sgemm_lanes.h"

namespace
{
struct sgemm_path_avx2 {
    // Tile, and the least m and n for which packing is worth its cost.
    static constexpr int panel_m = 24, panel_n = 4;
    static constexpr int min_m_driver = 12, min_n_driver = 4, min_k_driver = 4;
    static constexpr int vector_length = 8, m_align = 32;
    // Blocks: an A panel of 24 x 192 (18 KiB) stays in the first-level cache, a B block of 192 x 384 (288 KiB) in the
    // second.
    static constexpr int64_t block_k = 192, block_k_least = 128;
    static constexpr int64_t block_k_whole = 256; // a k up to here is one block
    static constexpr int64_t block_m_most = 10000, block_n_most = 384;
    static constexpr int64_t block_n_shallow = 24, shallow_k = 47; // the B block for a depth at most shallow_k
    // The depth block for two blocks' worth of k at most: half of it, and one where that is even.
    static constexpr int64_t half_depth(int64_t k) { return k / 2 + 1; }
    // Prefetch; see sgemm_kernel_body.h.
    static constexpr int c_groups = 34;
    static constexpr int a_ahead = 704 / 4;
    static constexpr int b_ahead = 384 / 4;
    static constexpr int next_a_lines = 1;
    static constexpr int c_head = 28 / 4;
    static inline void fetch_c(const char *p) { _mm_prefetch(p, _MM_HINT_T0); }
    static constexpr int64_t pack_version = 1; // of the header in front of a packed block that outlives a call
};
} // namespace
