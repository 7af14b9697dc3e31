// SPDX-License-Identifier: BSD-3-Clause
// computes   C[m x n] := beta*C + alpha*op(A)*op(B), operands where they lie; b0 does not read C, b1 adds, bn scales it
// registers  full tile 48 x 8: 24 accumulators + 3 of A + 1 broadcast of B, 28 of 32; the last columns: 48 x 9 (27),
//            32 x 12 (24) or 16 x 16 (16); a last register of eight rows or fewer is shared by columns
// layout     A, B, C column-major, any alignment; A transposed goes through a panel of 48 floats a depth step
// loop       depth unrolled by 8, remainder by 1; from depth 16 on tiles of few sums add two to eight sets of steps
//            apart
// prefetch   the next tile's columns of B, every line once, and the next 48 rows of A, also where they go through the
//            panel; small blocks columns of A, 8 steps on, for the first of their tiles of 32 rows
// edges      rows under a mask in the last register, in loads, sums and stores; a branch for each count of columns; A
//            at an odd float is copied into the panel by the first tile
// measured   96 % of the multiply-add peak at 32 x 32 x 32, 98 % at 96 x 96 x 96, NN (bench_sgemm --group small)
#include "gemm/avx512/sgemm_nocopy_shared_avx512.h"
#include "gemm/sgemm_paths.h"

namespace
{
// The first of m rows in vecs_ registers, the last one partly filled. Lanes beyond raise no flag: sums and factors are
// masked as well.
template <int vecs_> struct masked_rows {
    using v = lanes<16>;
    static constexpr int vecs = vecs_, panel_m = 48, tile_n = 8, widest = vecs == 1 ? 16 : vecs == 2 ? 12 : 9;
    static constexpr int columns_ahead = 16, steps_ahead = vecs == 2 ? 8 : 0;
    __mmask16 last;
    int64_t ahead; // distance of the next row tile, or 0 [elements]
    inline explicit masked_rows(int64_t m)
        : last(v::first(min_of(m - 16 * (vecs - 1), 16))), ahead(m > 16 * vecs ? 16 * vecs : 0)
    {
    }
    // Behind a tile of two registers are at most 72 rows.
    [[gnu::always_inline]] inline void fetch_next_rows(const float *a) const
    {
        if constexpr (vecs == 3) {
#pragma GCC unroll 3
            for (int i = 0; i < 3; ++i)
                fetch_read(a + ahead + i * 16);
        }
    }
    inline __m512 load(const float *x, int i) const
    {
        return i < vecs - 1 ? v::load(x + i * 16) : v::load(x + i * 16, last);
    }
    inline void store(float *x, int i, __m512 value) const
    {
        if (i < vecs - 1)
            v::store(x + i * 16, value);
        else
            v::store(x + i * 16, value, last);
    }
    inline __m512 factor(float x, int i) const
    {
        return i < vecs - 1 ? v::set1(x) : v::keep(v::set1(x), last);
    }
    // z += x * *y.
    inline void accumulate(__m512 (&z)[vecs], const __m512 (&x)[vecs], const float *y) const
    {
        const __m512 element = v::broadcast(y);
#pragma GCC unroll 2
        for (int i = 0; i < vecs - 1; ++i)
            v::accumulate(z[i], x[i], element);
        __asm__("vfmadd231ps %2, %1, %0%{%3%}" : "+v"(z[vecs - 1]) : "v"(x[vecs - 1]), "v"(element), "Yk"(last));
    }
};

constexpr __mmask16 all = 0xffff;

// The zeroing forms with a full mask are the plain instructions; the plain intrinsics of GCC 12 warn of the undefined
// register that they pass on.
template <int control> inline __m512 pairs(__m512 x, __m512 y)
{
    return _mm512_maskz_shuffle_ps(all, x, y, control);
}
template <int control> inline __m512 quarters(__m512 x, __m512 y)
{
    return _mm512_maskz_shuffle_f32x4(all, x, y, control);
}

inline __m512 side_by_side(__m256 low, __m256 high)
{
    return _mm512_maskz_insertf32x8(all, _mm512_castps256_ps512(low), high, 1);
}

// Eight depth steps from l on, of 8 or 16 rows, into a panel of 48: fours of rows, two of them side by side in a
// register, then quarters of registers. In this way an element takes a tenth of the time of a gathering load. Steps
// beyond valid come out as zeros: the panel has room for them.
template <int rows, class pointers>
[[gnu::always_inline]] inline void transpose_steps(const pointers &p, int64_t l, __mmask8 valid, float *panel)
{
    __m512 y[rows / 2];
#pragma GCC unroll 2
    for (int g = 0; g < rows; g += 8) {
        __m512 x[4];
#pragma GCC unroll 4
        for (int i = 0; i < 4; ++i)
            x[i] = side_by_side(_mm256_maskz_loadu_ps(valid, p.at(g + i, l)),
                                _mm256_maskz_loadu_ps(valid, p.at(g + 4 + i, l)));
        const __m512 t0 = _mm512_maskz_unpacklo_ps(all, x[0], x[1]), t1 = _mm512_maskz_unpackhi_ps(all, x[0], x[1]);
        const __m512 t2 = _mm512_maskz_unpacklo_ps(all, x[2], x[3]), t3 = _mm512_maskz_unpackhi_ps(all, x[2], x[3]);
        y[g / 2] = pairs<0x44>(t0, t2);
        y[g / 2 + 1] = pairs<0xee>(t0, t2);
        y[g / 2 + 2] = pairs<0x44>(t1, t3);
        y[g / 2 + 3] = pairs<0xee>(t1, t3);
    }
    // y[q]: steps q and q + 4 of rows 0-3, then of rows 4-7; y[q + 4] the same of rows 8-15. 8 rows stand twice.
#pragma GCC unroll 4
    for (int q = 0; q < 4; ++q) {
        const __m512 low = y[q], high = y[rows == 16 ? q + 4 : q];
        vec_avx512::store(panel + q * 48, quarters<0x88>(low, high));
        vec_avx512::store(panel + (q + 4) * 48, quarters<0xdd>(low, high));
    }
}
template <int rows, bool whole>
inline void transpose_rows(int64_t count, int64_t k, const float *a, int64_t lda, float *panel)
{
    const row_pointers<rows, whole> p(a, lda, count);
    int64_t l = 0;
    for (; l + 8 <= k; l += 8)
        transpose_steps<rows>(p, l, 0xff, panel + l * 48);
    if (l < k)
        transpose_steps<rows>(p, l, static_cast<__mmask8>((1 << (k - l)) - 1), panel + l * 48);
}

struct nocopy_avx512 {
    static constexpr int64_t panel_m = masked_rows<3>::panel_m, whole_columns = 24;

    // Without fetching: where few columns meet long rows another road is taken.
    template <bool>
    static inline void transpose(int64_t rows, int64_t k, const float *a, int64_t lda, float *panel, int64_t)
    {
        for (; rows >= 16; rows -= 16, a += 16 * lda, panel += 16)
            transpose_rows<16, true>(16, k, a, lda, panel);
        if (rows > 8)
            transpose_rows<16, false>(rows, k, a, lda, panel);
        else if (rows > 0)
            transpose_rows<8, false>(rows, k, a, lda, panel);
    }

    template <bool b_transposed, beta_form form, class source>
    static inline void row_tiles(int64_t m, int64_t n, int64_t k, const float *alpha, const source &s, const float *b,
                                 int64_t ldb, const float *beta, float *c, int64_t ldc)
    {
        for (int64_t i = 0, rows; i < m; i += rows) {
            const int64_t left = m - i;
            rows = next_rows(left);
            if (takes_shared_columns(rows, n))
                last_rows<b_transposed, form>(i, rows, n, k, *alpha, s, b, ldb, beta, c + i, ldc);
            else if constexpr (source::in_place || source::transposed)
                whole_tile<b_transposed, form>(i, left, rows, n, k, alpha, s, b, ldb, beta, c + i, ldc);
            else
                (rows > 32   ? copied_columns<masked_rows<3>, b_transposed, form>
                 : rows > 16 ? copied_columns<masked_rows<2>, b_transposed, form>
                             : copied_columns<masked_rows<1>, b_transposed, form>)(left, n, k, alpha, s.a + i, s.lda,
                                                                                   s.panel, b, ldb, beta, c + i, ldc);
        }
    }
    // A row tile, the first of left rows, that stands in its place for all of its columns.
    template <bool b_transposed, beta_form form, class source>
    [[gnu::always_inline]] static inline void whole_tile(int64_t i, int64_t left, int64_t rows, int64_t n, int64_t k,
                                                         const float *alpha, const source &s, const float *b,
                                                         int64_t ldb, const float *beta, float *c, int64_t ldc)
    {
        const float *const tile = s.tile(i, rows, false);
        if constexpr (source::transposed)
            if (rows == panel_m && n >= masked_rows<3>::tile_n && s.large())
                return panel_columns<masked_rows<3>, b_transposed, form>(s.behind(i, rows), s.lda, n, k, alpha, tile, b,
                                                                         ldb, beta, c, ldc);
        const int64_t count = source::in_place ? left : rows;
        const bool small = static_cast<uint64_t>(n) <= most_columns && max_of(count, n) * k <= fetched_elements;
        if (rows == panel_m && !small && n > masked_rows<3>::tile_n && n < full_tiles_from<masked_rows<3>>)
            return columns_without_full_tile<masked_rows<3>, b_transposed, form>(count, n, k, alpha, tile,
                                                                                 s.depth_stride, b, ldb, beta, c, ldc);
        (rows > 32   ? by_columns<masked_rows<3>, b_transposed, form>
         : rows > 16 ? by_columns<masked_rows<2>, b_transposed, form>
                     : by_columns<masked_rows<1>, b_transposed, form>)[small ? n : 0](
            count, n, k, alpha, tile, s.depth_stride, b, ldb, beta, c, ldc);
    }
    // More columns than are read as they lie at an odd float.
    template <class rows, bool b_transposed, beta_form form>
    [[gnu::noinline]] static void row_tile_or_panel(int64_t m, int64_t n, int64_t k, const float *alpha, const float *a,
                                                    int64_t lda, const float *b, int64_t ldb, const float *beta,
                                                    float *c, int64_t ldc)
    {
        (lies_badly(a, lda) ? product_by_panel<nocopy_avx512, false, b_transposed, form>
                            : all_columns<rows, b_transposed, form>)(m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
    }
    template <bool b_transposed, beta_form form>
    [[gnu::noinline]] static void many_rows_or_columns(int64_t m, int64_t n, int64_t k, const float *alpha,
                                                       const float *a, int64_t lda, const float *b, int64_t ldb,
                                                       const float *beta, float *c, int64_t ldc)
    {
        if (lies_badly(a, lda) && n > whole_columns)
            return product_by_panel<nocopy_avx512, false, b_transposed, form>(m, n, k, alpha, a, lda, b, ldb, beta, c,
                                                                              ldc);
        row_tiles<b_transposed, form>(m, n, k, alpha, rows_in_place{a, lda}, b, ldb, beta, c, ldc);
    }
    // The way of each size: up to 32 rows and columns at the index of the columns, from 17 rows on 32 further;
    // all others at 0.
    template <bool b_transposed, beta_form form> struct ways {
        tesh_blas_sgemm_kernel_nocopy_fn *of[65];
        constexpr ways() : of{many_rows_or_columns<b_transposed, form>}
        {
            for (int n = 1; n <= 32; ++n) {
                const int tile = n <= most_columns ? n : 0;
                const bool in_place = n <= whole_columns;
                of[n] = in_place ? by_columns<masked_rows<1>, b_transposed, form>[tile]
                                 : row_tile_or_panel<masked_rows<1>, b_transposed, form>;
                of[32 + n] = in_place ? by_columns<masked_rows<2>, b_transposed, form>[tile]
                                      : row_tile_or_panel<masked_rows<2>, b_transposed, form>;
            }
        }
    };
    // Without a branch, and with one call: so the arguments on the stack stay in their places.
    template <bool b_transposed, beta_form form>
    [[gnu::always_inline]] static inline void rows_as_they_lie(int64_t m, int64_t n, int64_t k, const float *alpha,
                                                               const float *a, int64_t lda, const float *b, int64_t ldb,
                                                               const float *beta, float *c, int64_t ldc)
    {
        static constexpr ways<b_transposed, form> way;
        const bool few = ((m - 1) | (n - 1)) >> 5 == 0;
        way.of[((m > 16) * 32 + n) & -static_cast<int64_t>(few)](m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
    }
};
} // namespace

extern "C" {
void tesh_blas_avx512_sgemm_kernel_nocopy_NN_b0(int64_t m, int64_t n, int64_t k, const float *alpha, const float *a,
                                                int64_t lda, const float *b, int64_t ldb, const float *beta, float *c,
                                                int64_t ldc)
{
    nocopy_kernel<nocopy_avx512, false, false, beta_form::zero>(m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
void tesh_blas_avx512_sgemm_kernel_nocopy_NN_b1(int64_t m, int64_t n, int64_t k, const float *alpha, const float *a,
                                                int64_t lda, const float *b, int64_t ldb, const float *beta, float *c,
                                                int64_t ldc)
{
    nocopy_kernel<nocopy_avx512, false, false, beta_form::one>(m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
void tesh_blas_avx512_sgemm_kernel_nocopy_NN_bn(int64_t m, int64_t n, int64_t k, const float *alpha, const float *a,
                                                int64_t lda, const float *b, int64_t ldb, const float *beta, float *c,
                                                int64_t ldc)
{
    nocopy_kernel<nocopy_avx512, false, false, beta_form::other>(m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
void tesh_blas_avx512_sgemm_kernel_nocopy_NT_b0(int64_t m, int64_t n, int64_t k, const float *alpha, const float *a,
                                                int64_t lda, const float *b, int64_t ldb, const float *beta, float *c,
                                                int64_t ldc)
{
    nocopy_kernel<nocopy_avx512, false, true, beta_form::zero>(m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
void tesh_blas_avx512_sgemm_kernel_nocopy_NT_b1(int64_t m, int64_t n, int64_t k, const float *alpha, const float *a,
                                                int64_t lda, const float *b, int64_t ldb, const float *beta, float *c,
                                                int64_t ldc)
{
    nocopy_kernel<nocopy_avx512, false, true, beta_form::one>(m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
void tesh_blas_avx512_sgemm_kernel_nocopy_NT_bn(int64_t m, int64_t n, int64_t k, const float *alpha, const float *a,
                                                int64_t lda, const float *b, int64_t ldb, const float *beta, float *c,
                                                int64_t ldc)
{
    nocopy_kernel<nocopy_avx512, false, true, beta_form::other>(m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
void tesh_blas_avx512_sgemm_kernel_nocopy_TN_b0(int64_t m, int64_t n, int64_t k, const float *alpha, const float *a,
                                                int64_t lda, const float *b, int64_t ldb, const float *beta, float *c,
                                                int64_t ldc)
{
    nocopy_kernel<nocopy_avx512, true, false, beta_form::zero>(m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
void tesh_blas_avx512_sgemm_kernel_nocopy_TN_b1(int64_t m, int64_t n, int64_t k, const float *alpha, const float *a,
                                                int64_t lda, const float *b, int64_t ldb, const float *beta, float *c,
                                                int64_t ldc)
{
    nocopy_kernel<nocopy_avx512, true, false, beta_form::one>(m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
void tesh_blas_avx512_sgemm_kernel_nocopy_TN_bn(int64_t m, int64_t n, int64_t k, const float *alpha, const float *a,
                                                int64_t lda, const float *b, int64_t ldb, const float *beta, float *c,
                                                int64_t ldc)
{
    nocopy_kernel<nocopy_avx512, true, false, beta_form::other>(m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
void tesh_blas_avx512_sgemm_kernel_nocopy_TT_b0(int64_t m, int64_t n, int64_t k, const float *alpha, const float *a,
                                                int64_t lda, const float *b, int64_t ldb, const float *beta, float *c,
                                                int64_t ldc)
{
    nocopy_kernel<nocopy_avx512, true, true, beta_form::zero>(m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
void tesh_blas_avx512_sgemm_kernel_nocopy_TT_b1(int64_t m, int64_t n, int64_t k, const float *alpha, const float *a,
                                                int64_t lda, const float *b, int64_t ldb, const float *beta, float *c,
                                                int64_t ldc)
{
    nocopy_kernel<nocopy_avx512, true, true, beta_form::one>(m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
void tesh_blas_avx512_sgemm_kernel_nocopy_TT_bn(int64_t m, int64_t n, int64_t k, const float *alpha, const float *a,
                                                int64_t lda, const float *b, int64_t ldb, const float *beta, float *c,
                                                int64_t ldc)
{
    nocopy_kernel<nocopy_avx512, true, true, beta_form::other>(m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
}
