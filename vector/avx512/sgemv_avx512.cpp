// SPDX-License-Identifier: BSD-3-Clause
// SGEMV on the avx512 path: y := alpha*op(A)*x + beta*y in one routine, without a buffer.
//
// A:   rounds of 4 columns over pieces of 16 rows of y, which are gathered and scattered where y is strided.
// A^T: rounds of 4 columns, one accumulator of 16 lanes each. The product of row 0 opens the chain of row 1, and rows 1,
//      17, 33, ... make the first chain. Two rounds run together where there are so many, as chains of one column do not
//      hide the latency of the multiply-add.
#include "frame/path/path_util.h"
#include "vector/body/sgemv_columns.h"
#include "vector/body/sgemv_frame.h"
#include "vector/body/vec_masked_avx512.h"
#include "vector/matrix_vector_paths.h"

namespace
{
// y * beta^count, for beta not 0. The powers stand in 32 lanes and are folded in one at a time, so that nothing in
// between is larger or smaller than both ends.
[[gnu::noinline]] float times_power(float y, float beta, int64_t count)
{
    if (y == 0.0f || !__builtin_isfinite(y)) // zero, infinity, NaN: only the sign still changes
        count = 2 - count % 2;
    float power[32];
    const __m512 factor = _mm512_set1_ps(beta);
    __m512 low = _mm512_set1_ps(1.0f), high = low;
    for (; count >= 32; count -= 32) {
        low = _mm512_mul_ps(low, factor);
        high = _mm512_mul_ps(high, factor);
    }
    _mm512_storeu_ps(power, low);
    _mm512_storeu_ps(power + 16, high);
    for (int lane = 0; lane < 32; ++lane)
        y *= power[lane];
    for (; count > 0; --count)
        y *= beta;
    return y;
}

// y := beta*y, for beta not 1 and elements that are not one.
template <class access_type> [[gnu::noinline]] void scale_elements(const sgemv_call &call)
{
    const access_type access(call.incy);
    const __m512 beta = _mm512_set1_ps(call.beta);
    const auto scale = [&](float *y, __mmask16 lanes) {
        if (call.beta == 0.0f)
            access.store(y, _mm512_setzero_ps(), lanes);
        else
            access.store(y, _mm512_maskz_mul_ps(lanes, access.load(y, lanes), beta), lanes);
    };
    int64_t i = 0;
    for (; i + 16 <= call.y_count; i += 16)
        scale(call.y + i * access.inc, 0xffff);
    if (i < call.y_count)
        scale(call.y + i * access.inc, vec_avx512::first(call.y_count - i));
}

// y := beta*y, for beta not 1.
inline void scale_y(const sgemv_call &call)
{
    if (call.incy == 1)
        scale_elements<contiguous_16>(call);
    else if (call.incy == 0)
        store_one(call.y, call.beta == 0.0f ? 0.0f : times_power(load_one(call.y), call.beta, call.y_count));
    else if (fits_stride_32(call.incy))
        scale_elements<stride_32>(call);
    else
        scale_elements<stride_64>(call);
}

// All elements of y are one: a piece of y starts at zero, and its lanes are summed into the one.
struct one_element {
    static constexpr int64_t inc = 0;
    explicit inline one_element(int64_t) {}
    inline __m512 load(const float *) const { return _mm512_setzero_ps(); }
    inline __m512 load(const float *, __mmask16) const { return _mm512_setzero_ps(); }
    inline void store(float *p, __m512 x) const { store_one(p, load_one(p) + masked_avx512::sum(x)); }
    inline void store(float *p, __m512 x, __mmask16 lanes) const
    {
        store_one(p, load_one(p) + masked_avx512::sum(_mm512_maskz_mov_ps(lanes, x)));
    }
};

// y += alpha*A*x for a strided y, gathered and scattered once.
template <class access_type> [[gnu::noinline]] void add_product_strided(const sgemv_call &call)
{
    const access_type access(call.incy);
    constexpr int64_t panel = 128; // rows in 8 registers
    int64_t i = 0;
    for (; i + panel <= call.m; i += panel)
        add_rows<masked_avx512, 8, false>(call.n, call.alpha, call.a + i, call.lda, call.x, call.incx,
                                          call.y + i * access.inc, access, 16);
    for (; i < call.m; i += 16)
        add_rows<masked_avx512, 1, true>(call.n, call.alpha, call.a + i, call.lda, call.x, call.incx,
                                         call.y + i * access.inc, access, min_of(16, call.m - i));
}

// How the rows of a column are cut into registers: the same for every column of a call. lead lanes stand in front of row
// 0 in the register that holds it, so that loads can stand at register boundaries.
struct row_pieces {
    __mmask16 row_1;        // the lane of row 1
    int64_t opening_at;     // the first register, of rows from 1 on [rows]
    __mmask16 opening;      // its lanes, perhaps none
    int64_t whole, rest_at; // rows from whole to rest_at - 1 fill whole registers
    __mmask16 rest;         // lanes behind them, perhaps none
    int64_t ahead;          // columns are asked for so far ahead, or not [elements]
};

inline row_pieces cut_rows(int64_t m, int64_t n, int64_t lda, int64_t lead)
{
    row_pieces rows;
    rows.row_1 = static_cast<__mmask16>(1u << ((lead + 1) % 16));
    rows.opening_at = -lead;
    rows.opening = static_cast<__mmask16>((0xfffeu << lead) & vec_avx512::first(min_of(16, m + lead)));
    rows.whole = 16 - lead;
    const int64_t behind = max_of(m - rows.whole, 0);
    rows.rest_at = rows.whole + behind / 16 * 16;
    rows.rest = vec_avx512::first(behind % 16);
    rows.ahead = m <= most_brief ? prefetch_distance(n, lda) : 0;
    return rows;
}

// The chains of some columns of A^T*x, one in each lane: of rows 1, 17, 33, ..., of rows 2, 18, 34, ..., and so on. Row 0
// opens the first of them. sets: accumulators of a column.
template <int columns, int sets, class access_type>
[[gnu::always_inline]] inline void column_chains(const row_pieces &rows, const float *a, int64_t lda, const float *x,
                                                 const access_type &access, __m512 *chain)
{
    const float *column[columns];
    __m512 sum[sets][columns];
    const auto row_0 = [&](const float *p) { return _mm512_maskz_broadcastss_ps(rows.row_1, _mm_set_ss(load_one(p))); };
    const __m512 x0 = row_0(x);
#pragma GCC unroll 8
    for (int c = 0; c < columns; ++c) {
        column[c] = a + c * lda;
        sum[0][c] = _mm512_mul_ps(row_0(column[c]), x0);
        for (int s = 1; s < sets; ++s)
            sum[s][c] = _mm512_setzero_ps();
    }
    if (rows.ahead != 0) {
#pragma GCC unroll 8
        for (int c = 0; c < columns; ++c)
            masked_avx512::prefetch(column[c] + rows.ahead);
    }
    const auto add_masked = [&](int64_t i, __mmask16 lanes) {
        const __m512 xv = access.load(x + i * access.inc, lanes);
#pragma GCC unroll 8
        for (int c = 0; c < columns; ++c)
            sum[0][c] = masked_avx512::mul_add(vec_avx512::load(column[c] + i, lanes), xv, sum[0][c], lanes);
    };
    const auto add_whole = [&](int s, int64_t i) {
        const __m512 xv = access.load(x + i * access.inc);
#pragma GCC unroll 8
        for (int c = 0; c < columns; ++c)
            sum[s][c] = _mm512_fmadd_ps(vec_avx512::load(column[c] + i), xv, sum[s][c]);
    };
    if (rows.opening != 0)
        add_masked(rows.opening_at, rows.opening);
    int64_t i = rows.whole;
#pragma GCC unroll 1
    for (; sets > 1 && i + 16 * sets <= rows.rest_at; i += 16 * sets) {
#pragma GCC unroll 4
        for (int s = 0; s < sets; ++s)
            add_whole(s, i + 16 * s);
    }
#pragma GCC unroll 1
    for (; i < rows.rest_at; i += 16)
        add_whole(0, i);
    if (rows.rest != 0)
        add_masked(rows.rest_at, rows.rest);
#pragma GCC unroll 8
    for (int c = 0; c < columns; ++c) {
#pragma GCC unroll 4
        for (int s = 1; s < sets; ++s)
            sum[0][c] = _mm512_add_ps(sum[0][c], sum[s][c]);
        chain[c] = sum[0][c];
    }
}

// The sums of the lanes of four registers, in the four lanes of each quarter.
inline __m512 sum_quarters(const __m512 *chain)
{
    const __m512 first = _mm512_add_ps(_mm512_unpacklo_ps(chain[0], chain[1]), _mm512_unpackhi_ps(chain[0], chain[1]));
    const __m512 second = _mm512_add_ps(_mm512_unpacklo_ps(chain[2], chain[3]), _mm512_unpackhi_ps(chain[2], chain[3]));
    const __m512d first_pairs = _mm512_castps_pd(first), second_pairs = _mm512_castps_pd(second);
    return _mm512_add_ps(_mm512_castpd_ps(_mm512_unpacklo_pd(first_pairs, second_pairs)),
                         _mm512_castpd_ps(_mm512_unpackhi_pd(first_pairs, second_pairs)));
}

// Lane c: the sum of chain[c].
template <int columns> inline __m256 sum_lanes(const __m512 *chain)
{
    if constexpr (columns == 8) {
        const __m512 low = sum_quarters(chain), high = sum_quarters(chain + 4);
        const __m512 halves =
            _mm512_add_ps(_mm512_shuffle_f32x4(low, high, 0x88), _mm512_shuffle_f32x4(low, high, 0xdd));
        return _mm512_castps512_ps256(
            _mm512_add_ps(_mm512_shuffle_f32x4(halves, halves, 0x08), _mm512_shuffle_f32x4(halves, halves, 0x0d)));
    } else {
        __m512 four[4];
        for (int c = 0; c < 4; ++c)
            four[c] = c < columns ? chain[c] : _mm512_setzero_ps();
        const __m512 quarters = sum_quarters(four);
        const __m512 halves = _mm512_add_ps(quarters, _mm512_shuffle_f32x4(quarters, quarters, 0xb1));
        return _mm512_castps512_ps256(_mm512_add_ps(halves, _mm512_shuffle_f32x4(halves, halves, 0x4e)));
    }
}

// Some columns of y += alpha*A^T*x, from column j on.
template <int columns, int sets, class access_type>
[[gnu::always_inline]] inline void add_dots(int64_t j, const row_pieces &rows, const sgemv_call &call,
                                            const access_type &access)
{
    __m512 chain[columns];
    column_chains<columns, sets>(rows, call.a + j * call.lda, call.lda, call.x, access, chain);
    const __m256 dots = sum_lanes<columns>(chain);
    float *y = call.y + j * call.incy;
    if (call.incy == 1) {
        const __mmask8 lanes = static_cast<__mmask8>((1u << columns) - 1u);
        const __m256 old = _mm256_maskz_loadu_ps(lanes, y);
        _mm256_mask_storeu_ps(y, lanes, _mm256_maskz_fmadd_ps(lanes, _mm256_set1_ps(call.alpha), dots, old));
        return;
    }
    float dot[8];
    _mm256_storeu_ps(dot, dots);
    for (int c = 0; c < columns; ++c, y += call.incy)
        store_one(y, __builtin_fmaf(call.alpha, dot[c], load_one(y)));
}

// y += alpha*A^T*x.
template <class access_type> [[gnu::noinline]] void add_product_transposed(const sgemv_call &call)
{
    const access_type access(call.incx);
    const bool columns_share_alignment = call.lda % 16 == 0 && word_aligned(call.a);
    const int64_t in_front = static_cast<int64_t>(reinterpret_cast<uintptr_t>(call.a) % 64 / sizeof(float));
    const row_pieces rows = cut_rows(call.m, call.n, call.lda,
                                     columns_share_alignment ? in_front
                                     : call.m <= 16          ? 0
                                                             : 15);
    int64_t j = 0;
#pragma GCC unroll 1
    for (; j + 8 <= call.n; j += 8)
        add_dots<8, 1>(j, rows, call, access);
    if (j + 4 <= call.n) {
        add_dots<4, 1>(j, rows, call, access);
        j += 4;
    }
    if (j + 2 <= call.n) {
        add_dots<2, 2>(j, rows, call, access);
        j += 2;
    }
    if (j < call.n)
        add_dots<1, 4>(j, rows, call, access);
}
inline void add_transposed(const sgemv_call &call)
{
    if (call.incx == 1)
        add_product_transposed<contiguous_16>(call);
    else if (fits_stride_32(call.incx))
        add_product_transposed<stride_32>(call);
    else
        add_product_transposed<stride_64>(call);
}

inline void add_plain(const sgemv_call &call)
{
    if (call.incy == 1)
        add_product<masked_avx512>(call.m, call.n, call.alpha, call.a, call.lda, call.x, call.incx, call.y);
    else if (call.incy == 0)
        add_product_strided<one_element>(call);
    else if (fits_stride_32(call.incy))
        add_product_strided<stride_32>(call);
    else
        add_product_strided<stride_64>(call);
}
} // namespace

extern "C" void tesh_blas_avx512_xsgemv(const char *trans, const int64_t *m, const int64_t *n, const float *alpha,
                                        const float *a, const int64_t *lda, const float *x, const int64_t *incx,
                                        const float *beta, float *y, const int64_t *incy, int64_t)
{
    sgemv_call call;
    if (!sgemv_read(call, trans, m, n, alpha, a, lda, x, incx, beta, y, incy))
        return;
    if (call.beta != 1.0f)
        scale_y(call);
    if (call.alpha == 0.0f)
        return;
    if (call.transposed)
        add_transposed(call);
    else
        add_plain(call);
}
