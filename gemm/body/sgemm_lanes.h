// SPDX-License-Identifier: BSD-3-Clause
// A run of 8, 4, 2 or 1 consecutive floats as one register, for panels of every binary width. Lanes beyond the run stay
// zero, so that they raise no exception flag. flip changes the sign; low and high are the halves. The
// path with 16 lanes adds them. And the prefetch of all of these kernels. Needs AVX2 and FMA.
#pragma once
#include "frame/path/as_written.h"
#include "frame/path/vec_avx2.h"
#include <immintrin.h>

namespace
{
template <int count> struct lanes;

// accumulate: z += x*y, rounded once. With the intrinsic GCC 12 is free to put the sum into x's or y's register; in a
// tile that takes every register it then shuffles accumulators about and spills two of them in each group of steps. The
// instruction that names its sum keeps each accumulator in one register.
template <> struct lanes<8> : vec_avx2 {
    static inline reg flip(reg x) { return _mm256_xor_ps(x, _mm256_set1_ps(-0.0f)); }
    // Four floats in both halves, and float 0 or 1 of them in all lanes.
    static inline reg four(const float *p) { return _mm256_broadcast_ps(reinterpret_cast<const __m128 *>(p)); }
    static inline reg spread(reg x, int i) { return i == 0 ? _mm256_permute_ps(x, 0x00) : _mm256_permute_ps(x, 0x55); }
    static inline __m128 low(reg x) { return _mm256_castps256_ps128(x); }
    static inline __m128 high(reg x) { return _mm256_extractf128_ps(x, 1); }
    static inline void accumulate(reg &z, reg x, reg y)
    {
        __asm__("vfmadd231ps %2, %1, %0" : "+x"(z) : "x"(x), "x"(y));
    }
};

template <> struct lanes<4> {
    using reg = __m128;
    static constexpr int width = 4;
    static inline reg zero() { return _mm_setzero_ps(); }
    static inline reg load(const float *p) { return _mm_loadu_ps(p); }
    static inline void store(float *p, reg x) { _mm_storeu_ps(p, x); }
    static inline reg set1(float x) { return _mm_set1_ps(x); }
    static inline reg broadcast(const float *p) { return _mm_broadcast_ss(p); }
    static inline reg add(reg x, reg y) { return _mm_add_ps(x, y); }
    static inline reg mul(reg x, reg y) { return _mm_mul_ps(x, y); }
    static inline reg flip(reg x) { return _mm_xor_ps(x, _mm_set1_ps(-0.0f)); }
    static inline reg low(reg x) { return x; }
    static inline reg high(reg x) { return _mm_movehl_ps(x, x); }
    static inline void accumulate(reg &z, reg x, reg y) { z = _mm_fmadd_ps(x, y, z); }
};

template <> struct lanes<2> {
    using reg = __m128;
    static constexpr int width = 2;
    static inline reg zero() { return _mm_setzero_ps(); }
    static inline reg load(const float *p) { return _mm_castsi128_ps(_mm_loadu_si64(p)); }
    static inline void store(float *p, reg x) { _mm_storeu_si64(p, _mm_castps_si128(x)); }
    static inline reg set1(float x) { return as_written(_mm_moveldup_ps(_mm_set_ss(x))); }
    static inline reg broadcast(const float *p) { return as_written(_mm_moveldup_ps(_mm_load_ss(p))); }
    static inline reg add(reg x, reg y) { return _mm_add_ps(x, y); }
    static inline reg mul(reg x, reg y) { return _mm_mul_ps(x, y); }
    static inline reg flip(reg x) { return _mm_xor_ps(x, _mm_set1_ps(-0.0f)); }
    static inline float low(reg x) { return _mm_cvtss_f32(x); }
    static inline float high(reg x) { return _mm_cvtss_f32(_mm_movehdup_ps(x)); }
    static inline void accumulate(reg &z, reg x, reg y) { z = _mm_fmadd_ps(x, y, z); }
};

template <> struct lanes<1> {
    using reg = float;
    static constexpr int width = 1;
    static inline reg zero() { return 0.0f; }
    static inline reg load(const float *p) // at any byte
    {
        reg x;
        __builtin_memcpy(&x, p, sizeof x);
        return x;
    }
    static inline void store(float *p, reg x) { __builtin_memcpy(p, &x, sizeof x); }
    static inline reg set1(float x) { return x; }
    static inline reg broadcast(const float *p) { return load(p); }
    static inline reg add(reg x, reg y) { return x + y; }
    static inline reg mul(reg x, reg y) { return x * y; }
    static inline reg flip(reg x) { return -x; }
    static inline void accumulate(reg &z, reg x, reg y) { z = __builtin_fmaf(x, y, z); }
};

// Inlined early: GCC drops calls of a function that has no effect but a prefetch.
[[gnu::always_inline]] inline void fetch_read(const float *p)
{
    _mm_prefetch(reinterpret_cast<const char *>(p), _MM_HINT_T0);
}
} // namespace
