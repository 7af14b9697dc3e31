// SPDX-License-Identifier: BSD-3-Clause
// computes   C[m x n] += A[m x k]*B[k x n] over a packed pair; alpha is in A, beta went over C before
// registers  8 accumulators of 8 floats + 2 of A + 1 broadcast of B = 11 of 16
// layout     A in panels of 16 rows, then 8, 4, 2, 1; B in panels of 4 columns, then 2, 1; C column-major, any
//            alignment
// loop       one step a round, which beats any unrolling: eight accumulators of latency 4 just fill two pipes, and
//            every product that starts late is time lost (a loop of nothing but eight such chains reaches 90 % of the
//            peak). Eight panels of A go against a panel of B, which stays in the first-level cache
// prefetch   none: both panels are read in order
// edges      the narrow panels, by 8-, 4-, 2- and 1-float operations; none reads or multiplies what is not there
// measured   90 % of bench/peak at 8 lanes, a packed pair of 128 x 384 x 128 (Zen 5)
// The policy f is the fused multiply-add of the processor: three operands (FMA) or four (FMA4).
#pragma once
#include <immintrin.h>

#include "frame/path/path_util.h"

namespace
{
// [panels of A] that a panel of B meets before the next one: the tiles of C then follow one another down its columns,
// where the hardware sees them coming, and the group stays in the second-level cache (96 KiB at depth 192). One panel
// alone gives 68 % of the peak at 2048 x 2048 x 2048, 4 to 16 give 85 %.
constexpr int64_t row_group = 8;

struct rows_8 {
    using reg = __m256;
    static constexpr int width = 8;
    static inline reg zero() { return _mm256_setzero_ps(); }
    static inline reg load(const float *p) { return _mm256_loadu_ps(p); }
    static inline void store(float *p, reg x) { _mm256_storeu_ps(p, x); }
    static inline reg broadcast(const float *p) { return _mm256_broadcast_ss(p); }
    static inline reg add(reg x, reg y) { return _mm256_add_ps(x, y); }
};

struct rows_4 {
    using reg = __m128;
    static constexpr int width = 4;
    static inline reg zero() { return _mm_setzero_ps(); }
    static inline reg load(const float *p) { return _mm_loadu_ps(p); }
    static inline void store(float *p, reg x) { _mm_storeu_ps(p, x); }
    static inline reg broadcast(const float *p) { return _mm_broadcast_ss(p); }
    static inline reg add(reg x, reg y) { return _mm_add_ps(x, y); }
};

// Two floats, twice in a register: zeros in the upper half would raise flags against an infinity.
struct rows_2 : rows_4 {
    static constexpr int width = 2;
    static inline reg load(const float *p)
    {
        const __m128i pair = _mm_loadl_epi64(reinterpret_cast<const __m128i_u *>(p));
        return _mm_castsi128_ps(_mm_unpacklo_epi64(pair, pair));
    }
    static inline void store(float *p, reg x)
    {
        _mm_storel_epi64(reinterpret_cast<__m128i_u *>(p), _mm_castps_si128(x));
    }
};

struct rows_1 : rows_4 {
    static constexpr int width = 1;
    static inline reg load(const float *p) { return _mm_broadcast_ss(p); }
    static inline void store(float *p, reg x) { _mm_store_ss(p, x); }
};

template <class f, class v, int vecs, int columns>
inline void tile_16x4(int64_t depth, const float *a, const float *b, float *c, int64_t ldc)
{
    typename v::reg acc[columns][vecs];
#pragma GCC unroll 8
    for (int t = 0; t < columns * vecs; ++t)
        acc[t / vecs][t % vecs] = v::zero();
#pragma GCC unroll 1
    for (int64_t l = 0; l < depth; ++l, a += vecs * v::width, b += columns) {
        typename v::reg av[vecs];
#pragma GCC unroll 2
        for (int w = 0; w < vecs; ++w)
            av[w] = v::load(a + w * v::width);
#pragma GCC unroll 4
        for (int j = 0; j < columns; ++j) {
            const typename v::reg bj = v::broadcast(b + j);
#pragma GCC unroll 2
            for (int w = 0; w < vecs; ++w)
                acc[j][w] = f::mul_add(av[w], bj, acc[j][w]);
        }
    }
#pragma GCC unroll 8
    for (int t = 0; t < columns * vecs; ++t) {
        float *x = c + t / vecs * ldc + t % vecs * v::width;
        v::store(x, v::add(v::load(x), acc[t / vecs][t % vecs]));
    }
}

// One panel of B against count panels of A, each behind the one before it.
template <class f, class v, int vecs, int columns>
inline void column_panel(int64_t count, int64_t depth, const float *a, const float *b, float *c, int64_t ldc)
{
    constexpr int rows = vecs * v::width;
    for (int64_t t = 0; t < count; ++t)
        tile_16x4<f, v, vecs, columns>(depth, a + t * rows * depth, b, c + t * rows, ldc);
}

// count panels of A against all panels of B.
template <class f, class v, int vecs>
inline void row_panels(int64_t count, int64_t columns, int64_t depth, const float *a, const float *b, float *c,
                       int64_t ldc)
{
    int64_t j = 0;
    for (; j + 4 <= columns; j += 4, b += 4 * depth)
        column_panel<f, v, vecs, 4>(count, depth, a, b, c + j * ldc, ldc);
    if (columns & 2) {
        column_panel<f, v, vecs, 2>(count, depth, a, b, c + j * ldc, ldc);
        b += 2 * depth;
        j += 2;
    }
    if (columns & 1)
        column_panel<f, v, vecs, 1>(count, depth, a, b, c + j * ldc, ldc);
}

template <class f>
inline void kernel_16x4(int64_t m, int64_t n, int64_t k, const float *a, const float *b, float *c, int64_t ldc)
{
    int64_t i = 0;
    for (; i + 16 <= m; i += 16 * min_of(row_group, (m - i) / 16))
        row_panels<f, rows_8, 2>(min_of(row_group, (m - i) / 16), n, k, a + i * k, b, c + i, ldc);
    if (m & 8) {
        row_panels<f, rows_8, 1>(1, n, k, a + i * k, b, c + i, ldc);
        i += 8;
    }
    if (m & 4) {
        row_panels<f, rows_4, 1>(1, n, k, a + i * k, b, c + i, ldc);
        i += 4;
    }
    if (m & 2) {
        row_panels<f, rows_2, 1>(1, n, k, a + i * k, b, c + i, ldc);
        i += 2;
    }
    if (m & 1)
        row_panels<f, rows_1, 1>(1, n, k, a + i * k, b, c + i, ldc);
}
} // namespace
