// SPDX-License-Identifier: BSD-3-Clause
// How 8 columns of 16 or 8 lines move in 256-bit registers, for avx2 and avx512 files.
#pragma once
#include "trans/body/settled.h"
#include "trans/body/transpose_tile.h"
#include "trans/routes.h"

namespace
{
// How runs of b are stored. width [elements] of a store: 8 or 4. stream: past the caches; runs are whole cache lines.
// wait: a step begins when the stores of the step that many before have reached the first cache
// (trans/body/settled.h); 0: at once. Where a run is one store, b goes on in front of it. ahead: the distance at which
// runs are fetched [steps], 0 for none.
template <int store_width, bool past_caches, int steps_back, uint64_t steps_ahead = 0> struct run_store {
    static constexpr int width = store_width;
    static constexpr bool stream = past_caches;
    static constexpr int wait = steps_back;
    static constexpr uint64_t ahead = steps_ahead;
    // Streams of four stores a cache line run at three quarters of their speed where the linker happens to put the
    // functions for 16 and for 8 lines wrongly to each other.
    static constexpr bool inlined = past_caches && store_width == 4;
    using unfetched = run_store<store_width, past_caches, steps_back>;
};

// A block is stored width elements at once.
template <int width> inline void block_took()
{
    trans_took(width == 8 ? trans_route_stores_8 : trans_route_stores_4);
}

// Stores 8 lines of a column: 4 are a half of low, 4 the same half of high; upper says which half.
template <class how> [[gnu::always_inline]] inline void put_halves(float *p, __m256 low, __m256 high, bool upper)
{
    if constexpr (how::width == 4) {
        const __m128 first = upper ? _mm256_extractf128_ps(low, 1) : _mm256_castps256_ps128(low);
        const __m128 second = upper ? _mm256_extractf128_ps(high, 1) : _mm256_castps256_ps128(high);
        if constexpr (how::stream) {
            _mm_stream_ps(p, first);
            _mm_stream_ps(p + 4, second);
        } else {
            _mm_storeu_ps(p, first);
            _mm_storeu_ps(p + 4, second);
        }
    } else {
        const __m256 run = upper ? _mm256_permute2f128_ps(low, high, 0x31) : _mm256_permute2f128_ps(low, high, 0x20);
        if constexpr (how::stream)
            _mm256_stream_ps(p, run);
        else
            _mm256_storeu_ps(p, run);
    }
}

// To the first cache, or, where lines share sets of it, to the second only.
template <bool second> [[gnu::always_inline]] inline void fetch(const float *p)
{
    if constexpr (second)
        _mm_prefetch(reinterpret_cast<const char *>(p), _MM_HINT_T1);
    else
        _mm_prefetch(reinterpret_cast<const char *>(p), _MM_HINT_T0);
}

// t[c]: element c of each register's low half, and of each high half.
[[gnu::always_inline]] inline void turn_halves(__m256 *t, __m256 r0, __m256 r1, __m256 r2, __m256 r3)
{
    const __m256 low01 = _mm256_unpacklo_ps(r0, r1), high01 = _mm256_unpackhi_ps(r0, r1);
    const __m256 low23 = _mm256_unpacklo_ps(r2, r3), high23 = _mm256_unpackhi_ps(r2, r3);
    t[0] = _mm256_shuffle_ps(low01, low23, 0x44);
    t[1] = _mm256_shuffle_ps(low01, low23, 0xee);
    t[2] = _mm256_shuffle_ps(high01, high23, 0x44);
    t[3] = _mm256_shuffle_ps(high01, high23, 0xee);
}

// 4 lines of 8 elements: column c of them in the low half of t[c], column 4 + c in the high half.
[[gnu::always_inline]] inline void turn_4x8(__m256 *t, const float *a, uint64_t lda)
{
    const __m256 r0 = _mm256_loadu_ps(a), r1 = _mm256_loadu_ps(a + lda);
    const __m256 r2 = _mm256_loadu_ps(a + 2 * lda), r3 = _mm256_loadu_ps(a + 3 * lda);
    turn_halves(t, r0, r1, r2, r3);
}

// 8 lines of 4 elements: t[c] is column c of them.
[[gnu::always_inline]] inline void turn_8x4(__m256 *t, const float *a, uint64_t lda)
{
    const auto lines_apart_4 = [=](uint64_t i) {
        return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_loadu_ps(a + i * lda)), _mm_loadu_ps(a + (i + 4) * lda),
                                    1);
    };
    const __m256 r0 = lines_apart_4(0), r1 = lines_apart_4(1), r2 = lines_apart_4(2), r3 = lines_apart_4(3);
    turn_halves(t, r0, r1, r2, r3);
}

struct moves_8 {
    // b := a^T, cols a multiple of 8. Pointers to every fourth line advance, so that each address is a base and a
    // multiple of a leading dimension. ahead: the distance of prefetches of a [elements], 0 for none.
    template <class how, int lines, uint64_t ahead>
    [[gnu::always_inline]] static inline void move(uint64_t cols, const float *a, uint64_t lda, float *b, uint64_t ldb)
    {
        const float *a0 = a, *a4 = a + 4 * lda, *a8 = a + 8 * lda, *a12 = a + 12 * lda;
        float *b0 = b, *b4 = b + 4 * ldb;
        uint64_t zero_before = 0;
        for (uint64_t j = 0; j < cols; j += 8) {
            __m256 t[lines];
            if constexpr (ahead > 0) {
                const float *const next = (lines == 16 && j % 16 != 0 ? a8 : a0) + ahead;
#pragma GCC unroll 8
                for (uint64_t i = 0; i < 8; ++i)
                    fetch<(how::wait > 0)>(next + i * lda);
            }
            if constexpr (how::ahead > 0) { // a run may lie in two cache lines, but where they share sets
#pragma GCC unroll 8
                for (uint64_t c = 0; c < 8; ++c) {
                    const float *const run = (c < 4 ? b0 : b4) + (c % 4 + 8 * how::ahead) * ldb;
                    fetch<(how::wait > 0)>(run);
                    if (how::wait == 0)
                        fetch<false>(run + lines - 1);
                }
            }
            turn_4x8(t, a0, lda);
            turn_4x8(t + 4, a4, lda);
            if constexpr (lines == 16) {
                turn_4x8(t + 8, a8, lda);
                turn_4x8(t + 12, a12, lda);
            }
#pragma GCC unroll 8
            for (uint64_t c = 0; c < 8; ++c) {
                float *const run = (c < 4 ? b0 : b4) + c % 4 * ldb;
                put_halves<how>(run, t[c % 4], t[4 + c % 4], c >= 4);
                if constexpr (lines == 16)
                    put_halves<how>(run + 8, t[8 + c % 4], t[12 + c % 4], c >= 4);
            }
            uint64_t step = 8 * ldb;
            if constexpr (how::wait > 0) {
                // Where two stores of the last run meet, or where its only one begins.
                constexpr int64_t meet = lines == how::width ? -1 : lines / 2 - 1;
                const uint64_t zero = settled_zero(b4 + 3 * ldb + meet);
                step += how::wait == 1 ? zero : zero_before;
                zero_before = zero;
            }
            a0 += 8;
            a4 += 8;
            a8 += 8;
            a12 += 8;
            b0 += step;
            // With a wait in between, addresses that are known one after the other bring fewer lines into the set at
            // once.
            b4 = how::wait == 1 ? b0 + 4 * ldb : b4 + step;
        }
    }
    // 4 columns of 16 lines.
    template <int width>
    [[gnu::always_inline]] static inline void move_16x4(const float *a, uint64_t lda, float *b, uint64_t ldb)
    {
        __m256 t[8];
        turn_8x4(t, a, lda);
        turn_8x4(t + 4, a + 8 * lda, lda);
#pragma GCC unroll 4
        for (uint64_t c = 0; c < 4; ++c) {
            float *const run = b + c * ldb;
#pragma GCC unroll 2
            for (uint64_t half = 0; half < 2; ++half) {
                if constexpr (width == 8) {
                    _mm256_storeu_ps(run + 8 * half, t[4 * half + c]);
                } else {
                    _mm_storeu_ps(run + 8 * half, _mm256_castps256_ps128(t[4 * half + c]));
                    _mm_storeu_ps(run + 8 * half + 4, _mm256_extractf128_ps(t[4 * half + c], 1));
                }
            }
        }
    }
    [[gnu::always_inline]] static inline void move_4x8(const float *a, uint64_t lda, float *b, uint64_t ldb)
    {
        move_4x4(a, lda, b, ldb);
        move_4x4(a + 4, lda, b + 4 * ldb, ldb);
    }
    // The same with half the loads and shuffles, none of whose stores begins before all the loads are there.
    [[gnu::always_inline]] static inline void move_4x8_whole(const float *a, uint64_t lda, float *b, uint64_t ldb)
    {
        __m256 t[4];
        turn_4x8(t, a, lda);
#pragma GCC unroll 8
        for (uint64_t c = 0; c < 8; ++c)
            _mm_storeu_ps(b + c * ldb, c < 4 ? _mm256_castps256_ps128(t[c % 4]) : _mm256_extractf128_ps(t[c % 4], 1));
    }
};
} // namespace
