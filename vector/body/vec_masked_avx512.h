// SPDX-License-Identifier: BSD-3-Clause
// Traits of the avx512 path for masked columns, and sixteen elements of a vector at any increment. Lanes outside a mask
// are not touched. Two elements of one store must not be the same: an increment of 0 is for loads only.
#pragma once
#include "frame/path/as_written.h"
#include "frame/path/vec_avx512.h"
#include "vector/body/element.h"

namespace
{
struct contiguous_16 {
    static constexpr bool dense = true; // no gathers
    static constexpr int64_t inc = 1;
    explicit inline contiguous_16(int64_t) {}
    inline __m512 load(const float *p) const { return vec_avx512::load(p); }
    inline void store(float *p, __m512 x) const { vec_avx512::store(p, x); }
    inline __m512 load(const float *p, __mmask16 lanes) const { return vec_avx512::load(p, lanes); }
    inline void store(float *p, __m512 x, __mmask16 lanes) const { vec_avx512::store(p, x, lanes); }
};

struct masked_avx512 : vec_avx512 {
    // Chains of multiply-adds in an element of y: one, in the order of the columns.
    static constexpr int chains(int) { return 1; }
    // Inlined early: GCC drops calls of a function that has no effect but a prefetch.
    [[gnu::always_inline]] static inline void prefetch(const float *p)
    {
        _mm_prefetch(reinterpret_cast<const char *>(p), _MM_HINT_T0);
    }
    using vec_avx512::mul_add;
    static inline reg mul_add(reg x, reg y, reg z, mask m) { return _mm512_mask3_fmadd_ps(x, y, as_written(z), m); }
    // Elements 0 to 3 of x, inc apart, in every quarter; and one of them in all lanes.
    static inline reg four(const float *x, int64_t inc)
    {
        return _mm512_broadcast_f32x4(
            inc == 1 ? _mm_loadu_ps(x)
                     : _mm_setr_ps(load_one(x), load_one(x + inc), load_one(x + 2 * inc), load_one(x + 3 * inc)));
    }
    template <int element> static inline reg one_of_four(reg x) { return _mm512_permute_ps(x, element * 0x55); }
    // The first elements of a vector that is loaded again soon after it was stored. A load that follows a store under a
    // mask waits until the store is through: whole quarters go without.
    static inline reg load_rows(const float *p, int64_t count)
    {
        if (count == 8)
            return load_half(p);
        if (count == 4)
            return _mm512_zextps128_ps512(_mm_loadu_ps(p));
        if (count == 12)
            return _mm512_insertf32x4(load_half(p), _mm_loadu_ps(p + 8), 2);
        return load(p, first(count));
    }
    static inline void store_rows(float *p, reg x, int64_t count)
    {
        if (count == 8) {
            store_half(p, x);
        } else if (count == 4) {
            _mm_storeu_ps(p, _mm512_castps512_ps128(x));
        } else if (count == 12) {
            store_half(p, x);
            _mm_storeu_ps(p + 8, _mm512_extractf32x4_ps(x, 2));
        } else {
            store(p, x, first(count));
        }
    }
    static inline float sum(reg x)
    {
        const __m512 halves = _mm512_add_ps(x, _mm512_shuffle_f32x4(x, x, 0x4e));
        const __m512 quarters = _mm512_add_ps(halves, _mm512_shuffle_f32x4(halves, halves, 0xb1));
        const __m128 lanes = _mm512_castps512_ps128(quarters);
        const __m128 pairs = _mm_add_ps(lanes, _mm_movehl_ps(lanes, lanes));
        return _mm_cvtss_f32(_mm_add_ss(pairs, _mm_movehdup_ps(pairs)));
    }
};

// The greatest stride of which fifteen fit in a signed 32-bit index.
constexpr int64_t longest_stride_32 = 0x8888888; // [elements]

struct stride_32 {
    static constexpr bool dense = false;
    int64_t inc;
    __m512i index;
    explicit inline stride_32(int64_t increment) : inc(increment)
    {
        const __m512i lane = _mm512_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
        index = _mm512_mullo_epi32(lane, _mm512_set1_epi32(static_cast<int>(increment)));
    }
    inline __m512 load(const float *p) const { return load(p, 0xffff); }
    inline void store(float *p, __m512 x) const { store(p, x, 0xffff); }
    inline __m512 load(const float *p, __mmask16 lanes) const
    {
        return _mm512_mask_i32gather_ps(_mm512_setzero_ps(), lanes, index, p, 4);
    }
    inline void store(float *p, __m512 x, __mmask16 lanes) const { _mm512_mask_i32scatter_ps(p, lanes, index, x, 4); }
};

struct stride_64 {
    static constexpr bool dense = false;
    int64_t inc;
    __m512i low, high; // of lanes 0 to 7 and 8 to 15
    explicit inline stride_64(int64_t increment) : inc(increment)
    {
        const __m512i lane = _mm512_setr_epi64(0, 1, 2, 3, 4, 5, 6, 7);
        low = _mm512_mullo_epi64(lane, _mm512_set1_epi64(increment));
        high = _mm512_add_epi64(low, _mm512_slli_epi64(_mm512_set1_epi64(increment), 3));
    }
    inline __m512 load(const float *p) const { return load(p, 0xffff); }
    inline void store(float *p, __m512 x) const { store(p, x, 0xffff); }
    inline __m512 load(const float *p, __mmask16 lanes) const
    {
        const __m256 none = _mm256_setzero_ps();
        const __m256 first = _mm512_mask_i64gather_ps(none, static_cast<__mmask8>(lanes), low, p, 4);
        const __m256 second = _mm512_mask_i64gather_ps(none, static_cast<__mmask8>(lanes >> 8), high, p, 4);
        return _mm512_insertf32x8(_mm512_castps256_ps512(first), second, 1);
    }
    inline void store(float *p, __m512 x, __mmask16 lanes) const
    {
        _mm512_mask_i64scatter_ps(p, static_cast<__mmask8>(lanes), low, _mm512_castps512_ps256(x), 4);
        _mm512_mask_i64scatter_ps(p, static_cast<__mmask8>(lanes >> 8), high, _mm512_extractf32x8_ps(x, 1), 4);
    }
};

inline bool fits_stride_32(int64_t inc)
{
    return inc <= longest_stride_32 && inc >= -longest_stride_32;
}
} // namespace
