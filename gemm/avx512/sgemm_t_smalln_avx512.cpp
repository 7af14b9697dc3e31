// SPDX-License-Identifier: BSD-3-Clause
// computes   C[m x n] := alpha*A^T*B + beta*C, 2 to 15 columns, a depth that is long against them; b0: C is not read
// registers  full tile 4 x 3: 12 sums + 3 of B + 1 of A = 16 of 32; two rows have two sets of sums, one row four
// layout     A, B, C where they lie, any alignment; columns of A and B run along the depth, so that an element of C is
//            a dot product of two contiguous vectors
// loop       depth by 64, then by 16, the rest under a mask; a register of partial sums an element, added up at the end
// prefetch   A 2048 bytes ahead where it is larger than 512 KiB
// edges      four rows, then two, then one; columns by two first, so that only threes are left
// measured   86 % of the load bandwidth at TN 4 x 4 x 20000; 36 % of the multiply-add peak at 15 x 15 x 20000, which
//            goes over A five times (bench_sgemm --group dots)
#include "frame/path/as_written.h"
#include "frame/path/vec_avx512.h"
#include "gemm/sgemm_paths.h"

namespace
{
using v = vec_avx512;

// The operands of one call of width 2 or 3.
struct dots {
    int64_t k;
    const float *a;
    int64_t lda;
    const float *b;
    int64_t ldb;
    float *c;
    int64_t ldc;
    float alpha, beta;
};

inline __m256 halves(__m512 x)
{
    return _mm256_add_ps(_mm512_maskz_extractf32x8_ps(0xff, x, 0), _mm512_maskz_extractf32x8_ps(0xff, x, 1));
}
inline __m128 quarters(__m256 x)
{
    return _mm_add_ps(_mm256_castps256_ps128(x), _mm256_extractf128_ps(x, 1));
}

// The sums of up to four registers, side by side.
template <int rows> inline __m128 sums(const __m512 (&x)[rows])
{
    __m128 q[4];
#pragma GCC unroll 4
    for (int i = 0; i < 4; ++i)
        q[i] = i < rows ? quarters(halves(x[i < rows ? i : 0])) : _mm_setzero_ps();
    const __m128 low = _mm_add_ps(_mm_unpacklo_ps(q[0], q[1]), _mm_unpackhi_ps(q[0], q[1]));
    const __m128 high = _mm_add_ps(_mm_unpacklo_ps(q[2], q[3]), _mm_unpackhi_ps(q[2], q[3]));
    return _mm_add_ps(_mm_movelh_ps(low, high), _mm_movehl_ps(high, low));
}

// An A of more elements than this does not stay in the second-level cache from one width to the next: its columns are
// fetched, as far ahead as the third level takes to answer.
constexpr int64_t cached_elements = (512 << 10) / 4, fetch_ahead = 2048 / 4;
// Of the columns of a tile, that come from the first-level cache or nearly so.
constexpr int64_t near_elements = (64 << 10) / 4;

// A choice that is made in the type of an argument.
template <bool value> struct choice {
    constexpr operator bool() const { return value; }
};
using yes = choice<true>;
using no = choice<false>;

template <int rows, int cols, bool read_c, bool fetches = false> inline void tile(const dots &x, int64_t i)
{
    // Two rows, or one, have too few sums to wait for each other: two or four sets of them take turns.
    constexpr int sets = 4 / rows;
    __m512 acc[sets][cols][rows];
#pragma GCC unroll 4
    for (int s = 0; s < sets; ++s)
#pragma GCC unroll 3
        for (int j = 0; j < cols; ++j)
#pragma GCC unroll 4
            for (int r = 0; r < rows; ++r)
                acc[s][j][r] = v::zero();
    const float *a = x.a + i * x.lda, *b = x.b;
    // Loaded ahead, the operands are plain loads, and take a third less time where they come from the first-level
    // cache: left to itself the compiler has products load A, and keeps their addresses in vector registers. From the
    // second level four rows come faster in that order.
    const auto step = [&](int64_t at, int set, auto loaded_ahead) __attribute__((always_inline))
    {
        __m512 bv[cols];
#pragma GCC unroll 3
        for (int j = 0; j < cols; ++j) {
            bv[j] = v::load(b + j * x.ldb + at);
            if constexpr (loaded_ahead)
                __asm__("" : "+v"(bv[j]));
        }
#pragma GCC unroll 4
        for (int r = 0; r < rows; ++r) {
            if constexpr (fetches)
                _mm_prefetch(reinterpret_cast<const char *>(a + r * x.lda + at + fetch_ahead), _MM_HINT_T0);
            __m512 av = v::load(a + r * x.lda + at);
            if constexpr (loaded_ahead)
                __asm__("" : "+v"(av));
#pragma GCC unroll 3
            for (int j = 0; j < cols; ++j)
                acc[set][j][r] = v::mul_add(av, bv[j], acc[set][j][r]);
        }
    };
    int64_t k = x.k;
    const auto strides = [&](auto loaded_ahead) __attribute__((always_inline))
    {
        for (; k >= 64; k -= 64, a += 64, b += 64) {
            step(0, 0, loaded_ahead);
            step(16, 1 % sets, loaded_ahead);
            step(32, 2 % sets, loaded_ahead);
            step(48, 3 % sets, loaded_ahead);
        }
    };
    if (rows < 4 || (!fetches && (rows + cols) * k <= near_elements))
        strides(yes());
    else
        strides(no());
    for (; k >= 16; k -= 16, a += 16, b += 16)
        step(0, 0, no());
    if (k > 0) {
        const __mmask16 rest = v::first(k);
        __m512 bv[cols];
#pragma GCC unroll 3
        for (int j = 0; j < cols; ++j)
            bv[j] = v::load(b + j * x.ldb, rest);
#pragma GCC unroll 4
        for (int r = 0; r < rows; ++r) {
            const __m512 av = v::load(a + r * x.lda, rest);
#pragma GCC unroll 3
            for (int j = 0; j < cols; ++j)
                acc[0][j][r] = _mm512_mask3_fmadd_ps(av, bv[j], acc[0][j][r], rest);
        }
    }
#pragma GCC unroll 4
    for (int s = 1; s < sets; ++s)
#pragma GCC unroll 3
        for (int j = 0; j < cols; ++j)
#pragma GCC unroll 4
            for (int r = 0; r < rows; ++r)
                acc[0][j][r] = v::add(acc[0][j][r], acc[s][j][r]);
    constexpr __mmask8 valid = (1 << rows) - 1;
    // Factors and sums are zero in the lanes of no row, where an infinite one would raise a flag.
    const __m128 alpha = as_written(_mm_maskz_mov_ps(valid, _mm_set1_ps(x.alpha))),
                 beta = as_written(_mm_maskz_mov_ps(valid, _mm_set1_ps(x.beta)));
    // C is read before any of it is written: a store under a mask has its full width in memory, and the load of the
    // next column would wait for it.
    float *const c = x.c + i;
    __m128 old[cols];
    if constexpr (read_c)
#pragma GCC unroll 3
        for (int j = 0; j < cols; ++j)
            old[j] = _mm_maskz_loadu_ps(valid, c + j * x.ldc);
#pragma GCC unroll 3
    for (int j = 0; j < cols; ++j) {
        __m128 value = _mm_mul_ps(alpha, as_written(sums<rows>(acc[0][j])));
        if constexpr (read_c)
            value = _mm_fmadd_ps(beta, old[j], value);
        _mm_mask_storeu_ps(c + j * x.ldc, valid, value);
    }
}

template <int cols, bool read_c> inline void all_rows(int64_t m, const dots &x)
{
    int64_t i = 0;
    if (m * x.k > cached_elements)
        for (; i + 4 <= m; i += 4)
            tile<4, cols, read_c, true>(x, i);
    for (; i + 4 <= m; i += 4)
        tile<4, cols, read_c>(x, i);
    if (m & 2) {
        tile<2, cols, read_c>(x, i);
        i += 2;
    }
    if (m & 1)
        tile<1, cols, read_c>(x, i);
}

void sgemm_t_n23(int64_t m, int64_t columns, int64_t k, const float *a, int64_t lda, const float *b, int64_t ldb,
                 float *c, int64_t ldc, float alpha, float beta)
{
    const dots x = {k, a, lda, b, ldb, c, ldc, alpha, beta};
    columns & 1 ? all_rows<3, true>(m, x) : all_rows<2, true>(m, x);
}
void sgemm_t_n23_b0(int64_t m, int64_t columns, int64_t k, const float *a, int64_t lda, const float *b, int64_t ldb,
                    float *c, int64_t ldc, float alpha)
{
    const dots x = {k, a, lda, b, ldb, c, ldc, alpha, 0.0f};
    columns & 1 ? all_rows<3, false>(m, x) : all_rows<2, false>(m, x);
}
} // namespace

// Widths of 2 first, so that only 3s are left: none for n mod 3 = 0, two for 1, one for 2. Every width goes over the
// whole of A.
extern "C" void tesh_blas_avx512_sgemm_t_smalln(const char *, const char *, const int64_t *m, const int64_t *n,
                                                const int64_t *k, const float *alpha, const float *a,
                                                const int64_t *lda, const float *b, const int64_t *ldb,
                                                const float *beta, float *c, const int64_t *ldc)
{
    if (*m < 1)
        return;
    const int64_t twos = (3 - *n % 3) % 3;
    for (int64_t j = 0, width; j < *n; j += width) {
        width = j < 2 * twos ? 2 : 3;
        const float *const bj = b + j * *ldb;
        float *const cj = c + j * *ldc;
        if (*beta == 0.0f)
            sgemm_t_n23_b0(*m, width, *k, a, *lda, bj, *ldb, cj, *ldc, *alpha);
        else
            sgemm_t_n23(*m, width, *k, a, *lda, bj, *ldb, cj, *ldc, *alpha, *beta);
    }
}
