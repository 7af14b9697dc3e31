// SPDX-License-Identifier: BSD-3-Clause
// Traits of the avx2 path for masked columns, and eight elements of a vector at any increment.
#pragma once
#include "frame/path/vec_avx2.h"
#include "vector/body/element.h"

namespace
{
struct contiguous_8 {
    static constexpr int64_t inc = 1;
    explicit inline contiguous_8(int64_t) {}
    inline __m256 load(const float *p) const { return vec_avx2::load(p); }
    inline void store(float *p, __m256 x) const { vec_avx2::store(p, x); }
    inline __m256 load(const float *p, __m256i lanes) const { return vec_avx2::load(p, lanes); }
    inline void store(float *p, __m256 x, __m256i lanes) const { vec_avx2::store(p, x, lanes); }
};

struct masked_avx2 : vec_avx2 {
    // Chains of multiply-adds in an element of y that stands in so few registers with others.
    static constexpr int chains(int registers) { return registers <= 3 ? 4 : registers <= 5 ? 2 : 1; }
    // Inlined early: GCC drops calls of a function that has no effect but a prefetch.
    [[gnu::always_inline]] static inline void prefetch(const float *p)
    {
        _mm_prefetch(reinterpret_cast<const char *>(p), _MM_HINT_T0);
    }
    using vec_avx2::mul_add;
    // Lanes outside the mask multiply zero by zero: no flag is raised there by an infinite factor.
    static inline reg mul_add(reg x, reg y, reg z, mask m) { return _mm256_fmadd_ps(x, keep(y, m), z); }
    // Elements 0 to 3 of x, inc apart, in both halves; and one of them in all lanes.
    static inline reg four(const float *x, int64_t inc)
    {
        const __m128 values =
            inc == 1 ? _mm_loadu_ps(x)
                     : _mm_setr_ps(load_one(x), load_one(x + inc), load_one(x + 2 * inc), load_one(x + 3 * inc));
        return _mm256_insertf128_ps(_mm256_castps128_ps256(values), values, 1);
    }
    template <int element> static inline reg one_of_four(reg x) { return _mm256_permute_ps(x, element * 0x55); }
    static inline reg load_rows(const float *p, int64_t count) { return load(p, first(count)); }
    static inline void store_rows(float *p, reg x, int64_t count) { store(p, x, first(count)); }
    static inline float sum(reg x)
    {
        const __m128 quarters = _mm_add_ps(_mm256_castps256_ps128(x), _mm256_extractf128_ps(x, 1));
        const __m128 pairs = _mm_add_ps(quarters, _mm_movehl_ps(quarters, quarters));
        return _mm_cvtss_f32(_mm_add_ss(pairs, _mm_movehdup_ps(pairs)));
    }
};

struct strided_8 {
    int64_t inc; // [elements]
    static inline int count(__m256i lanes)
    {
        return __builtin_popcount(static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(lanes))));
    }
    inline __m256 load(const float *p, __m256i lanes) const
    {
        alignas(32) float lane[8] = {};
        for (int l = 0; l < count(lanes); ++l)
            lane[l] = load_one(p + l * inc);
        return _mm256_load_ps(lane);
    }
    inline void store(float *p, __m256 x, __m256i lanes) const
    {
        alignas(32) float lane[8];
        _mm256_store_ps(lane, x);
        for (int l = 0; l < count(lanes); ++l)
            store_one(p + l * inc, lane[l]);
    }
};
} // namespace
