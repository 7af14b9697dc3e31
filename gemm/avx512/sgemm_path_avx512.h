// SPDX-License-Identifier: BSD-3-Clause
// Sizes of the avx512 path: register tile, blocks, prefetch distances. In elements unless said.
#pragma once
#include "frame/path/vec_avx512.h"
#include "gemm/body/sgemm_lanes.h"

namespace
{
template <> struct lanes<16> : vec_avx512 {
    static inline reg flip(reg x) { return _mm512_xor_ps(x, _mm512_set1_ps(-0.0f)); }
    static inline __m256 low(reg x) { return _mm512_castps512_ps256(x); }
    static inline __m256 high(reg x) { return _mm512_extractf32x8_ps(x, 1); }
    // z += x*y, rounded once; why it is no intrinsic: sgemm_lanes.h.
    static inline void accumulate(reg &z, reg x, reg y)
    {
        __asm__("vfmadd231ps %2, %1, %0" : "+v"(z) : "v"(x), "v"(y));
    }
};

struct sgemm_path_avx512 {
    // Tile, and the least m and n for which packing is worth its cost.
    static constexpr int panel_m = 48, panel_n = 8;
    static constexpr int min_m_driver = 12, min_n_driver = 8, min_k_driver = 4;
    static constexpr int vector_length = 16, m_align = 48;
    // Blocks: a B block of 384 x 384 (576 KiB) stays in a second-level cache of 1 MiB beside the A panel in use.
    static constexpr int64_t block_k = 384, block_k_least = 128;
    static constexpr int64_t block_k_whole = 384; // a k up to here is one block
    static constexpr int64_t block_m_most = 9984, block_n_most = 384;
    static constexpr int64_t block_n_shallow = 24, shallow_k = 47; // the B block for a depth at most shallow_k
    // The depth block for two blocks' worth of k at most: two halves.
    static constexpr int64_t half_depth(int64_t k) { return (k + 1) / 2; }
    // Prefetch; see sgemm_kernel_body.h.
    static constexpr int c_groups = 32;
    static constexpr int a_ahead = 0;
    static constexpr int b_ahead = 512 / 4;
    static constexpr int next_a_lines = 3;
    static constexpr int c_head = -1;
    // For writing. Every processor with AVX-512 has the instruction; the compiler wants a flag of its own for it.
    static inline void fetch_c(const char *p) { __asm__ volatile("prefetchw %0" : : "m"(*p)); }
    static constexpr int64_t pack_version = 2; // of the header in front of a packed block that outlives a call
};
} // namespace
