// SPDX-License-Identifier: BSD-3-Clause
// How 4 columns of 40 lines move in 256-bit registers, for avx2 and avx512 files: the blocks of matrices whose lines
// are longer than a page, where neither array is in the caches.
//
// A run of b is stored at once, and what it fills of cache lines bypasses the caches: b comes in from memory only where
// a run begins and ends. Of b only the ends of runs are fetched ahead; their beginnings are the ends of the block in
// front, and more prefetches than that delay those of a.
#pragma once
#include "trans/body/tile_8.h"

namespace
{
constexpr int tall_lines = 40;
constexpr uint64_t tall_ahead = 48;     // [elements] of prefetches of a
constexpr uint64_t tall_run_ahead = 32; // [columns] of prefetches of b

// One column: 8 lines in each fourth register of t, stored width elements at once.
template <int width> [[gnu::always_inline]] inline void put_tall(float *run, const __m256 *t)
{
#pragma GCC unroll 5
    for (int eight = 0; eight < tall_lines / 8; ++eight) {
        if constexpr (width == 8) {
            _mm256_storeu_ps(run + 8 * eight, t[4 * eight]);
        } else {
            _mm_storeu_ps(run + 8 * eight, _mm256_castps256_ps128(t[4 * eight]));
            _mm_storeu_ps(run + 8 * eight + 4, _mm256_extractf128_ps(t[4 * eight], 1));
        }
    }
}

// The same for a run that begins past quarters of a cache line: whole lines bypass the caches.
template <int width, int past> [[gnu::always_inline]] inline void stream_tall(float *run, const __m256 *t)
{
    constexpr int quarters = tall_lines / 4;
    constexpr int front = (4 - past) % 4, last = front + (quarters - front) / 4 * 4;
    if constexpr (width == 8) {
        static_assert(past % 2 == 0, "stores of 8 begin with halves of cache lines");
#pragma GCC unroll 5
        for (int q = 0; q < quarters; q += 2) {
            if (q >= front && q < last)
                _mm256_stream_ps(run + 4 * q, t[2 * q]);
            else
                _mm256_storeu_ps(run + 4 * q, t[2 * q]);
        }
    } else {
#pragma GCC unroll 10
        for (int q = 0; q < quarters; ++q) {
            const __m256 eight = t[q / 2 * 4];
            const __m128 four = q % 2 == 0 ? _mm256_castps256_ps128(eight) : _mm256_extractf128_ps(eight, 1);
            if (q >= front && q < last)
                _mm_stream_ps(run + 4 * q, four);
            else
                _mm_storeu_ps(run + 4 * q, four);
        }
    }
}

// One column past the caches; run is aligned to width elements.
template <int width> [[gnu::always_inline]] inline void stream_tall_run(float *run, const __m256 *t)
{
    const uintptr_t past = reinterpret_cast<uintptr_t>(run) / 16 % 4; // [quarters of a cache line]
    if (past == 0)
        stream_tall<width, 0>(run, t);
    else if (width == 8 || past == 2)
        stream_tall<width, 2>(run, t);
    else if (past == 1)
        stream_tall<4, 1>(run, t);
    else
        stream_tall<4, 3>(run, t);
}

// stream: runs are aligned to width elements.
template <int width, bool stream>
[[gnu::always_inline]] inline void move_40x4(const float *a, uint64_t lda, float *b, uint64_t ldb)
{
    __m256 t[tall_lines / 2];
#pragma GCC unroll 5
    for (int eight = 0; eight < tall_lines / 8; ++eight, a += 8 * lda)
        turn_8x4(t + 4 * eight, a, lda);
#pragma GCC unroll 4
    for (int c = 0; c < 4; ++c, b += ldb) {
        if constexpr (stream)
            stream_tall_run<width>(b, t + c);
        else
            put_tall<width>(b, t + c);
    }
}

// A block of 40 lines. Not inlined: beside the other forms of the block kernel its pointers would be spilled.
// Prefetches stand between the stores of 4 columns, for many at once would wait for each other and all else for them.
template <int width, bool stream>
[[gnu::noinline]] void transpose_tall(uint64_t cols, const float *a, uint64_t lda, float *b, uint64_t ldb)
{
    block_took<width>();
    constexpr uint64_t steps = 4, lines_a_step = tall_lines / steps; // 16 columns are a cache line of each line of a
    uint64_t j = 0;
    for (; j + 4 <= cols; j += 4) {
        if (j + tall_ahead < cols) {
            const uint64_t step = j / 4 % steps;
            const float *from = a + step * lines_a_step * lda + (j - 4 * step) + tall_ahead;
            for (uint64_t i = 0; i < lines_a_step; ++i, from += lda)
                _mm_prefetch(reinterpret_cast<const char *>(from), _MM_HINT_T0);
        }
        if (j + tall_run_ahead + 4 <= cols) {
            const float *end = b + (j + tall_run_ahead) * ldb + tall_lines - 1;
            for (uint64_t k = 0; k < 4; ++k, end += ldb)
                _mm_prefetch(reinterpret_cast<const char *>(end), _MM_HINT_T0);
        }
        move_40x4<width, stream>(a + j, lda, b + j * ldb, ldb);
    }
    move_elements(tall_lines, cols - j, a + j, lda, b + j * ldb, ldb);
}
} // namespace
