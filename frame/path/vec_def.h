// SPDX-License-Identifier: BSD-3-Clause
// Register traits of the def and cnr_def paths: 4 floats in an SSE2 register, multiply and add rounded apart.
#pragma once
#include <immintrin.h>
#include <stdint.h>

namespace
{
struct vec_def {
    using reg = __m128;
    static constexpr int width = 4; // floats in a register
    static inline reg zero() { return _mm_setzero_ps(); }
    static inline reg load(const float *p) { return _mm_loadu_ps(p); }
    static inline reg load_aligned(const float *p) { return _mm_load_ps(p); }
    static inline void store(float *p, reg x) { _mm_storeu_ps(p, x); }
    static inline void store_aligned(float *p, reg x) { _mm_store_ps(p, x); }
    static inline reg set1(float x) { return _mm_set1_ps(x); }
    static inline reg broadcast(const float *p) { return _mm_set1_ps(*p); }
    static inline reg add(reg x, reg y) { return _mm_add_ps(x, y); }
    static inline reg mul(reg x, reg y) { return _mm_mul_ps(x, y); }
    static inline reg mul_add(reg x, reg y, reg z) { return _mm_add_ps(_mm_mul_ps(x, y), z); } // x*y + z
};
} // namespace
