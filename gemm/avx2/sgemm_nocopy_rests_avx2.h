// SPDX-License-Identifier: BSD-3-Clause
// C := beta*C + alpha*A*op(B) for the last 4, 2 or 1 rows, which lie beside each other in A. A register of their own
// for each column would be half empty or worse, and each product would take a load. So registers run along what lies
// beside each other in B: along eight columns where B is transposed, each with an element of A, else along eight steps
// of a column, each with those steps of A.
#pragma once
#include "gemm/avx2/sgemm_across_avx2.h"
#include "gemm/avx2/sgemm_nocopy_narrow_avx2.h"

namespace
{
constexpr int64_t shallow = 16; // depth below which steps come one by one

// ---- along columns ------------------------------------------------------------------------------------------------
// A tile of rows by vecs registers of eight columns. The last register begins at column last of the tile and its first
// skipped columns belong to the register before it: so no mask is needed where the columns fill no register.
template <int rows, int vecs> struct tile_along_columns {
    static constexpr int64_t ahead = 64; // distance of the columns that are fetched [elements]
    const float *b;
    int64_t ldb, last;
    int skipped;
    bool fetches;

    inline __m256 load(int i) const { return vec_avx2::load(i + 1 < vecs ? b + 8 * i : b + last); }
    [[gnu::always_inline]] inline void step(__m256 (&acc)[vecs][rows], const float *a)
    {
        step_across<rows, vecs>(acc, a, *this);
        b += ldb;
        __asm__("" : "+r"(b));
    }

    template <beta_form form>
    [[gnu::always_inline]] inline void run(int64_t k, float alpha, const float *a, int64_t a_depth, const float *beta,
                                           float *c, int64_t ldc)
    {
        __m256 acc[vecs][rows];
        clear<rows, vecs>(acc);
#pragma GCC unroll 1
        for (; k >= 8; k -= 8)
#pragma GCC unroll 8
            for (int l = 0; l < 8; ++l, a += a_depth) {
                if (fetches)
#pragma GCC unroll 3
                    for (int i = 0; i < vecs; i += 2)
                        fetch_read(b + ahead + 8 * i);
                step(acc, a);
            }
#pragma GCC unroll 1
        for (; k > 0; --k, a += a_depth)
            step(acc, a);

        const whole_rows<lanes<rows>, 1> r(rows);
#pragma GCC unroll 6
        for (int i = 0; i < vecs; ++i) {
            float *const to = c + (i + 1 < vecs ? 8 * i : last) * ldc;
            each_column<rows>(
                acc[i], [&](int j, typename lanes<rows>::reg column) __attribute__((always_inline)) {
                    if (i + 1 < vecs || j >= skipped)
                        r.store(to + j * ldc, 0, updated<form>(r, 0, alpha, column, beta, to + j * ldc));
                });
        }
    }
};

template <int rows, int vecs, beta_form form>
[[gnu::noinline, gnu::aligned(64)]] void
columns_along(int64_t last, int64_t skipped, bool fetches, int64_t k, const float *alpha, const float *a,
              int64_t a_depth, const float *b, int64_t ldb, const float *beta, float *c, int64_t ldc)
{
    tile_along_columns<rows, vecs> tile = {b, ldb, last, static_cast<int>(skipped), fetches};
    tile.template run<form>(k, *alpha, a, a_depth, beta, c, ldc);
}
template <int rows, beta_form form> struct tiles_along_columns {
    static constexpr int widest = widest_across<rows>;
    using function = decltype(columns_along<rows, 1, form>);
    template <int vecs> static constexpr function *tile = columns_along<rows, vecs, form>;
};

// All columns, eight at least, in tiles as even as they come.
template <int rows, beta_form form>
[[gnu::noinline]] void rest_along_columns(int64_t, int64_t n, int64_t k, const float *alpha, const float *a,
                                          int64_t a_depth, const float *b, int64_t ldb, const float *beta, float *c,
                                          int64_t ldc)
{
    const bool fetches = n * k > fetched_elements;
    int64_t vecs = (n + 7) / 8;
    int64_t tiles = (vecs + widest_across<rows> - 1) / widest_across<rows>;
    for (; tiles > 0; --tiles) {
        const int64_t now = (vecs + tiles - 1) / tiles, skipped = tiles == 1 ? 8 * now - n : 0;
        tiles_across<tiles_along_columns<rows, form>>[now - 1](8 * (now - 1) - skipped, skipped, fetches, k, alpha, a,
                                                               a_depth, b, ldb, beta, c, ldc);
        vecs -= now;
        n -= 8 * now;
        b += 8 * now;
        c += 8 * now * ldc;
    }
}

// ---- along depth --------------------------------------------------------------------------------------------------
struct counted_steps : last_steps {
    int64_t count;
};

// A source of a paired tile (sgemm_nocopy_narrow_avx2.h): rows beside each other, a step in each column of A.
template <int rows> struct rows_beside {
    const float *a;
    int64_t lda;
    // Step l, which is there, or of those that are: beyond them the last one comes again.
    inline const float *at(int l, const eight_steps &) const { return a + l * lda; }
    inline const float *at(int l, const counted_steps &steps) const { return a + min_of(l, steps.count - 1) * lda; }
    template <int q> static inline __m256 valid_only(__m256 x, const eight_steps &) { return x; }
    template <int q> static inline __m256 valid_only(__m256 x, const counted_steps &steps)
    {
        return _mm256_and_ps(x, spread_steps<rows, q>(_mm256_castsi256_ps(steps.valid)));
    }
    static inline __m256 join(__m128 low, __m128 high)
    {
        return _mm256_insertf128_ps(_mm256_castps128_ps256(low), high, 1);
    }
    // Four rows of steps l and l + 4.
    template <class load> inline __m256 two_steps(int l, const load &steps) const
    {
        return join(_mm_loadu_ps(at(l, steps)), _mm_loadu_ps(at(l + 4, steps)));
    }
    // Two rows of steps l and l + 1.
    template <class load> inline __m128 step_pair(int l, const load &steps) const
    {
        return _mm_movelh_ps(lanes<2>::load(at(l, steps)), lanes<2>::load(at(l + 1, steps)));
    }
    // A row's steps from l to l + 3.
    template <class load> inline __m128 four_steps(int l, const load &steps) const
    {
        const __m128 low = _mm_unpacklo_ps(_mm_load_ss(at(l, steps)), _mm_load_ss(at(l + 1, steps)));
        const __m128 high = _mm_unpacklo_ps(_mm_load_ss(at(l + 2, steps)), _mm_load_ss(at(l + 3, steps)));
        return _mm_movelh_ps(low, high);
    }
    template <int q, class load> [[gnu::always_inline]] inline __m256 half(int pair, const load &steps) const
    {
        __m256 x;
        if constexpr (rows == 4) {
            const __m256d even = _mm256_castps_pd(two_steps(2 * q, steps));
            const __m256d odd = _mm256_castps_pd(two_steps(2 * q + 1, steps));
            x = _mm256_castpd_ps(pair == 0 ? _mm256_unpacklo_pd(even, odd) : _mm256_unpackhi_pd(even, odd));
        } else if constexpr (rows == 2) {
            x = join(step_pair(2 * q, steps), step_pair(2 * q + 4, steps));
        } else {
            x = join(four_steps(0, steps), four_steps(4, steps));
        }
        return valid_only<q>(x, steps);
    }
    template <class load>
    [[gnu::always_inline]] inline void both_halves(int pair, const load &steps, __m256 (&x)[2]) const
    {
        x[0] = half<0>(pair, steps);
        if constexpr (rows > 1)
            x[1] = half<1>(pair, steps);
    }
    static inline counted_steps rest(int64_t k) { return {{vec_avx2::first(k)}, k}; }
    inline void fetch(int64_t) const {}
    inline void advance() { a += 8 * lda; }
};

template <int rows, int cols, beta_form form>
[[gnu::noinline, gnu::aligned(64)]] void steps_along(int64_t k, const float *alpha, const float *a, int64_t a_depth,
                                                     const float *b, int64_t ldb, const float *beta, float *c,
                                                     int64_t ldc, int64_t b_ahead)
{
    paired_tile<rows, cols> t(b, ldb);
    t.multiply_depth(rows_beside<rows>{a, a_depth}, k, b_ahead);
    t.template store<form>(*alpha, beta, c, ldc);
}
template <int rows, beta_form form>
constexpr decltype(&steps_along<rows, 1, form>) steps_by_columns[widest] = {
    steps_along<rows, 1, form>, steps_along<rows, 2, form>, steps_along<rows, 3, form>,
    steps_along<rows, 4, form>, steps_along<rows, 5, form>, steps_along<rows, 6, form>};

template <int rows, beta_form form>
[[gnu::noinline]] void rest_along_depth(int64_t, int64_t n, int64_t k, const float *alpha, const float *a,
                                        int64_t a_depth, const float *b, int64_t ldb, const float *beta, float *c,
                                        int64_t ldc)
{
    const int64_t b_ahead = n * k > fetched_elements ? widest * ldb : 0;
    for (; n >= widest; n -= widest, b += widest * ldb, c += widest * ldc)
        steps_along<rows, widest, form>(k, alpha, a, a_depth, b, ldb, beta, c, ldc, b_ahead);
    if (n > 0)
        steps_by_columns<rows, form>[n - 1](k, alpha, a, a_depth, b, ldb, beta, c, ldc, 0);
}

// rows rows against all columns. One call for all forms: with the last rows it is a jump.
template <int rows, bool b_transposed, beta_form form>
[[gnu::always_inline]] inline void rest_of_rows(int64_t n, int64_t k, const float *alpha, const float *a,
                                                int64_t a_depth, const float *b, int64_t ldb, const float *beta,
                                                float *c, int64_t ldc)
{
    constexpr int64_t least = b_transposed ? 8 : 1; // columns
    if (__builtin_expect(k >= shallow && n >= least, 0)) {
        if constexpr (b_transposed)
            rest_along_columns<rows, form>(rows, n, k, alpha, a, a_depth, b, ldb, beta, c, ldc);
        else
            rest_along_depth<rows, form>(rows, n, k, alpha, a, a_depth, b, ldb, beta, c, ldc);
    } else {
        row_tile<whole_rows<lanes<rows>, 1>, b_transposed, form>(rows, n, k, alpha, a, a_depth, b, ldb, beta, c, ldc);
    }
}
} // namespace
