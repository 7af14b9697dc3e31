// SPDX-License-Identifier: BSD-3-Clause
// 8 x 8 tile in 256-bit registers, for avx2 and avx512 files. The exchange of 128-bit halves is done by the loads, so that
// only shuffles within halves are left: 16 for 64 elements.
#pragma once
#include "trans/body/transpose_tile.h"

namespace
{
struct tile_8 {
    static constexpr uint64_t size = 8;
    using smaller = tile_4;
    template <bool scaled>
    [[gnu::always_inline]] static inline void move(const float *a, uint64_t lda, float *b, uint64_t ldb, float alpha)
    {
        move_half<scaled>(a, lda, b, ldb, alpha);
        move_half<scaled>(a + 4, lda, b + 4 * ldb, ldb, alpha);
    }

private:
    // 8 lines of 4 elements become 4 lines of 8.
    template <bool scaled>
    [[gnu::always_inline]] static inline void move_half(const float *a, uint64_t lda, float *b, uint64_t ldb,
                                                        float alpha)
    {
        const __m256 r0 = load_two(a, a + 4 * lda), r1 = load_two(a + lda, a + 5 * lda);
        const __m256 r2 = load_two(a + 2 * lda, a + 6 * lda), r3 = load_two(a + 3 * lda, a + 7 * lda);
        const __m256 low01 = _mm256_unpacklo_ps(r0, r1), high01 = _mm256_unpackhi_ps(r0, r1);
        const __m256 low23 = _mm256_unpacklo_ps(r2, r3), high23 = _mm256_unpackhi_ps(r2, r3);
        store<scaled>(b, _mm256_shuffle_ps(low01, low23, 0x44), alpha);
        store<scaled>(b + ldb, _mm256_shuffle_ps(low01, low23, 0xee), alpha);
        store<scaled>(b + 2 * ldb, _mm256_shuffle_ps(high01, high23, 0x44), alpha);
        store<scaled>(b + 3 * ldb, _mm256_shuffle_ps(high01, high23, 0xee), alpha);
    }
    [[gnu::always_inline]] static inline __m256 load_two(const float *low, const float *high)
    {
        return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_loadu_ps(low)), _mm_loadu_ps(high), 1);
    }
    template <bool scaled> [[gnu::always_inline]] static inline void store(float *p, __m256 x, float alpha)
    {
        _mm256_storeu_ps(p, scaled ? _mm256_mul_ps(_mm256_set1_ps(alpha), x) : x);
    }
};
} // namespace
