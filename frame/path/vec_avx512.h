// SPDX-License-Identifier: BSD-3-Clause
// Register traits of the avx512 path: 16 floats in a register, fused multiply-add, lanes enabled by a mask of 16 bits.
#pragma once
#include <stdint.h>

// GCC 12 takes the deliberately undefined registers within its own intrinsics for a mistake.
#pragma GCC diagnostic push
#ifndef __clang__
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>
#pragma GCC diagnostic pop

namespace
{
struct vec_avx512 {
    using reg = __m512;
    using mask = __mmask16;
    static constexpr int width = 16; // floats in a register
    static inline reg zero() { return _mm512_setzero_ps(); }
    static inline reg load(const float *p) { return _mm512_loadu_ps(p); }
    static inline void store(float *p, reg x) { _mm512_storeu_ps(p, x); }
    static inline reg set1(float x) { return _mm512_set1_ps(x); }
    static inline reg broadcast(const float *p) { return _mm512_set1_ps(*p); }
    static inline reg add(reg x, reg y) { return _mm512_add_ps(x, y); }
    static inline reg mul(reg x, reg y) { return _mm512_mul_ps(x, y); }
    static inline reg mul_add(reg x, reg y, reg z) { return _mm512_fmadd_ps(x, y, z); } // x*y + z, rounded once
    static inline reg mul_sub(reg x, reg y, reg z) { return _mm512_fmsub_ps(x, y, z); } // x*y - z, rounded once
    // Lanes 0 .. count-1, count of 0 to 16. Disabled lanes read as zero, are not stored, and never fault.
    static inline mask first(int64_t count) { return static_cast<mask>((1u << static_cast<unsigned>(count)) - 1u); }
    static inline reg load(const float *p, mask m) { return _mm512_maskz_loadu_ps(m, p); }
    static inline void store(float *p, reg x, mask m) { _mm512_mask_storeu_ps(p, m, x); }
    // x in the lanes of m, zero in the others: a factor that is to meet the zeros of a masked load and raise no flag.
    static inline reg keep(reg x, mask m) { return _mm512_maskz_mov_ps(m, x); }
    // Lanes 0 .. 7; the others read as zero and are not stored.
    static inline reg load_half(const float *p) { return _mm512_zextps256_ps512(_mm256_loadu_ps(p)); }
    static inline void store_half(float *p, reg x)
    {
        _mm256_storeu_ps(p, __builtin_shufflevector(x, x, 0, 1, 2, 3, 4, 5, 6, 7));
    }
    static inline reg keep_half(reg x) { return _mm512_maskz_mov_ps(0xff, x); }
};
} // namespace
