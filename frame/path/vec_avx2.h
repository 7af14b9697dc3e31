// SPDX-License-Identifier: BSD-3-Clause
// Register traits of the avx2 path: 8 floats in a register, fused multiply-add, lanes enabled by a mask register.
#pragma once
#include <immintrin.h>
#include <stdint.h>

namespace
{
struct vec_avx2 {
    using reg = __m256;
    using mask = __m256i;
    static constexpr int width = 8; // floats in a register
    static inline reg zero() { return _mm256_setzero_ps(); }
    static inline reg load(const float *p) { return _mm256_loadu_ps(p); }
    static inline void store(float *p, reg x) { _mm256_storeu_ps(p, x); }
    static inline reg set1(float x) { return _mm256_set1_ps(x); }
    static inline reg broadcast(const float *p) { return _mm256_broadcast_ss(p); }
    static inline reg add(reg x, reg y) { return _mm256_add_ps(x, y); }
    static inline reg mul(reg x, reg y) { return _mm256_mul_ps(x, y); }
    static inline reg mul_add(reg x, reg y, reg z) { return _mm256_fmadd_ps(x, y, z); } // x*y + z, rounded once
    static inline reg mul_sub(reg x, reg y, reg z) { return _mm256_fmsub_ps(x, y, z); } // x*y - z, rounded once
    // Lanes 0 .. count-1, count of 0 to 8. Disabled lanes read as zero, are not stored, and never fault.
    static inline mask first(int64_t count)
    {
        const __m256i lane = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
        return _mm256_cmpgt_epi32(_mm256_set1_epi32(static_cast<int>(count)), lane);
    }
    static inline reg load(const float *p, mask m) { return _mm256_maskload_ps(p, m); }
    static inline void store(float *p, reg x, mask m) { _mm256_maskstore_ps(p, m, x); }
    // x in the lanes of m, zero in the others: a factor that is to meet the zeros of a masked load and raise no flag.
    static inline reg keep(reg x, mask m) { return _mm256_and_ps(x, _mm256_castsi256_ps(m)); }
};
} // namespace
