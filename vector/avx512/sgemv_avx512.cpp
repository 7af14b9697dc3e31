// SPDX-License-Identifier: BSD-3-Clause
// SGEMV on the avx512 path: y := alpha*op(A)*x + beta*y in one routine, without a buffer.
//
// A:   rounds of 4 columns over pieces of 16 rows of y, which are gathered and scattered where y is strided.
// A^T: rounds of 4 columns, one accumulator of 16 lanes each. The product of row 0 opens the chain of row 1, and rows
//      1, 17, 33, ... make the first chain. Two or four rounds run together where there are so many, as chains of one
//      column do not hide the latency of the multiply-add. Columns of at most 8 rows share registers,
//      with the same chains.
//
// No sum depends on the address of an operand.
#include "frame/path/path_util.h"
#include "vector/body/sgemv_brief_avx512.h"
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
    const int64_t rest = call.y_count - i;
    if (rest == 0)
        return;
    float *const y = call.y + i * access.inc;
    if constexpr (access_type::dense) { // the product loads them again at once
        const __m512 kept = vec_avx512::keep(beta, vec_avx512::first(rest));
        const bool clear = call.beta == 0.0f;
        masked_avx512::store_rows(
            y, clear ? _mm512_setzero_ps() : _mm512_mul_ps(masked_avx512::load_rows(y, rest), kept), rest);
    } else {
        scale(y, vec_avx512::first(rest));
    }
}

// y := beta*y, for beta not 1. A lone element is stored as such: a load that follows a store under a mask waits for it.
inline void scale_y(const sgemv_call &call)
{
    if (call.y_count == 1)
        store_one(call.y, call.beta == 0.0f ? 0.0f : call.beta * load_one(call.y));
    else if (call.incy == 1)
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

// y += alpha*A*x for a strided y: gathered, as much of it as the kernel holds in registers, and scattered.
template <class access_type> [[gnu::noinline]] void add_product_strided(const sgemv_call &call)
{
    const access_type access(call.incy);
    constexpr int64_t panel = most_pieces * 16; // rows
    alignas(64) float rows_of_y[panel];
    for (int64_t i = 0; i < call.m; i += panel) {
        const int64_t rows = min_of(call.m - i, panel);
        float *const y = call.y + i * access.inc;
        for (int64_t r = 0; r < rows; r += 16)
            vec_avx512::store(rows_of_y + r, access.load(y + r * access.inc, vec_avx512::first(min_of(16, rows - r))));
        add_product_by_rows<masked_avx512>(rows, call.n, call.alpha, call.a + i, call.lda, call.x, call.incx,
                                           rows_of_y);
        for (int64_t r = 0; r < rows; r += 16)
            access.store(y + r * access.inc, vec_avx512::load(rows_of_y + r), vec_avx512::first(min_of(16, rows - r)));
    }
}

// How the rows of a column are cut into registers: the same for every column of a call. lead lanes stand in front of
// row 0 in the register that holds it, so that loads can stand at register boundaries.
struct row_pieces {
    int64_t lead;
    __mmask16 row_1;        // its lane
    __mmask16 opening;      // lanes of the first register that hold rows from 1 on, perhaps none
    bool opening_in_bounds; // the whole of the first register lies within the column
    int64_t whole;          // registers behind the first that are full
    __mmask16 rest;         // lanes behind them, perhaps none
    int64_t ahead;          // columns are asked for so far ahead, or not [elements]
};

inline row_pieces cut_rows(int64_t m, int64_t n, int64_t lda, int64_t lead)
{
    row_pieces rows;
    rows.lead = lead;
    rows.row_1 = static_cast<__mmask16>(1u << ((lead + 1) % 16));
    rows.opening = static_cast<__mmask16>((0xfffeu << lead) & vec_avx512::first(min_of(16, m + lead)));
    rows.opening_in_bounds = lead == 0 && m >= 16;
    const int64_t behind = max_of(m + lead - 16, 0);
    rows.whole = behind / 16;
    rows.rest = vec_avx512::first(behind % 16);
    rows.ahead = m <= most_brief ? prefetch_distance(n, lda) : 0;
    return rows;
}

// The chains of some columns of A^T*x, one in each lane: of rows 1, 17, 33, ... in lane 1, of rows 2, 18, 34, ... in
// lane 2, and so on. Row 0 opens the first of them. sets: accumulators of a column. round: registers of a column in a
// round, a power of two. ahead: rows to ask for, or null.
template <int columns, int sets, int round, class access_type>
[[gnu::always_inline]] inline void column_chains(const row_pieces &rows, const float *a, int64_t lda, const float *x,
                                                 const access_type &access, __m512 *chain,
                                                 const rows_ahead *ahead = nullptr)
{
    __m512 sum[sets][columns];
    column_pointers<columns> row_0(a, lda);
    row_0.hold();
    const __m512 x_0 = _mm512_set1_ps(load_one(x));
#pragma GCC unroll 16
    for (int c = 0; c < columns; ++c) {
        sum[0][c] = _mm512_maskz_mul_ps(rows.row_1, x_0, _mm512_set1_ps(load_one(row_0.at(c))));
        for (int s = 1; s < sets; ++s)
            sum[s][c] = _mm512_setzero_ps();
    }
    column_pointers<columns> column(a - rows.lead, lda);
    x -= rows.lead * access.inc;
    const auto add_masked = [&](__mmask16 lanes) __attribute__((always_inline))
    {
        const __m512 xv = access.load(x, lanes);
        column.hold();
#pragma GCC unroll 16
        for (int c = 0; c < columns; ++c)
            sum[0][c] = masked_avx512::mul_add(vec_avx512::load(column.at(c), lanes), xv, sum[0][c], lanes);
    };
    const auto advance = [&](int registers) __attribute__((always_inline))
    {
        column.advance(16 * registers);
        x += 16 * registers * access.inc;
    };
    if (rows.opening_in_bounds) {
        const __m512 xv = access.load(x);
        column.hold();
#pragma GCC unroll 16
        for (int c = 0; c < columns; ++c)
            sum[0][c] = masked_avx512::mul_add(vec_avx512::load(column.at(c)), xv, sum[0][c], rows.opening);
    } else {
        add_masked(rows.opening);
    }
    if (rows.ahead != 0) {
        const column_pointers<columns> later(a + rows.ahead, lda);
#pragma GCC unroll 16
        for (int c = 0; c < columns; ++c)
            masked_avx512::prefetch(later.at(c));
    }
    advance(1);
    // The next whole registers: every sets-th into one accumulator.
    const auto add_whole = [&](auto count) __attribute__((always_inline))
    {
#pragma GCC unroll 32
        for (int r = 0; r < count.value; ++r) {
            const __m512 xv = access.load(x + 16 * r * access.inc);
            column.hold();
#pragma GCC unroll 16
            for (int c = 0; c < columns; ++c)
                sum[r % sets][c] = _mm512_fmadd_ps(vec_avx512::load(column.at(c, 16 * r)), xv, sum[r % sets][c]);
        }
        advance(count.value);
    };
    int64_t left = rows.whole;
    if (ahead != nullptr) {
        const auto add_asking = [&](int64_t distance) __attribute__((always_inline))
        {
            column.hold();
#pragma GCC unroll 16
            for (int c = 0; c < columns; ++c)
                masked_avx512::prefetch(column.at(c) + distance);
            add_whole(number<1>());
        };
#pragma GCC unroll 1
        for (; left * 16 > ahead->near; --left)
            add_asking(ahead->near);
#pragma GCC unroll 1
        for (; left > 0; --left)
            add_asking(ahead->late);
    }
#pragma GCC unroll 1
    for (; left >= round; left -= round)
        add_whole(number<round>());
    if constexpr (round > sets) {
        if (round > 16 && (left & 16) != 0)
            add_whole(number<16>());
        if (round > 8 && (left & 8) != 0)
            add_whole(number<8>());
        if (round > 4 && (left & 4) != 0)
            add_whole(number<4>());
        if (round > 2 && (left & 2) != 0)
            add_whole(number<2>());
        if ((left & 1) != 0)
            add_whole(number<1>());
    } else {
#pragma GCC unroll 1
        for (; left > 0; --left)
            add_whole(number<1>());
    }
    if (rows.rest != 0)
        add_masked(rows.rest);
#pragma GCC unroll 16
    for (int c = 0; c < columns; ++c) {
#pragma GCC unroll 4
        for (int s = 1; s < sets; ++s)
            sum[0][c] = _mm512_add_ps(sum[0][c], sum[s][c]);
        chain[c] = sum[0][c];
    }
    if (rows.lead != 0) { // row i back to lane i % 16, so that the lanes are summed in the same order at every address
        const __m512i lane = _mm512_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
        const __m512i from = _mm512_add_epi32(lane, _mm512_set1_epi32(static_cast<int>(rows.lead)));
#pragma GCC unroll 16
        for (int c = 0; c < columns; ++c)
            chain[c] = _mm512_permutexvar_ps(from, chain[c]);
    }
}

// Lane c: the sum of chain[c].
template <int columns> [[gnu::always_inline]] inline __m512 sum_lanes(const __m512 *chain)
{
    if constexpr (columns == 16) {
        return _mm512_insertf32x8(sum_lanes<8>(chain), _mm512_castps512_ps256(sum_lanes<8>(chain + 8)), 1);
    } else if constexpr (columns == 8) {
        const __m512 low = sum_quarters(chain), high = sum_quarters(chain + 4);
        const __m512 halves =
            _mm512_add_ps(_mm512_shuffle_f32x4(low, high, 0x88), _mm512_shuffle_f32x4(low, high, 0xdd));
        return _mm512_add_ps(_mm512_shuffle_f32x4(halves, halves, 0x08), _mm512_shuffle_f32x4(halves, halves, 0x0d));
    } else {
        __m512 four[4];
        for (int c = 0; c < 4; ++c)
            four[c] = c < columns ? chain[c] : _mm512_setzero_ps();
        const __m512 quarters = sum_quarters(four);
        const __m512 halves = _mm512_add_ps(quarters, _mm512_shuffle_f32x4(quarters, quarters, 0xb1));
        return _mm512_add_ps(halves, _mm512_shuffle_f32x4(halves, halves, 0x4e));
    }
}

// y += alpha*A^T*x for a contiguous x and the columns that fill rounds, in a loop of many loads: sgemv_columns.h.
// Returns the columns done.
template <int columns, int round>
[[gnu::noinline]] int64_t add_long_rounds(const sgemv_call &call, const row_pieces &pieces)
{
    const row_pieces rows = pieces;
    const int64_t lda = call.lda, incy = call.incy;
    const float alpha = call.alpha, *const x = call.x, *a = call.a;
    float *y = call.y;
    const int64_t n = call.n;
    int64_t j = 0;
    for (; j + columns <= n; j += columns) {
        __m512 chain[columns];
        column_chains<columns, 1, round>(rows, a, lda, x, contiguous_16(1), chain);
        add_to_y<columns>(sum_lanes<columns>(chain), alpha, y, incy);
        a += columns * lda;
        y += columns * incy;
    }
    return j;
}

// The same in the third-level cache, a register of each column in a round.
[[gnu::noinline]] int64_t add_asking_rounds(const sgemv_call &call, const row_pieces &pieces)
{
    constexpr int columns = columns_asked_for;
    const row_pieces rows = pieces;
    const rows_ahead ahead(call.m, call.lda);
    const float *a = call.a;
    float *y = call.y;
    int64_t j = 0;
    for (; j + columns <= call.n; j += columns) {
        __m512 chain[columns];
        column_chains<columns, 1, 1>(rows, a, call.lda, call.x, contiguous_16(1), chain, &ahead);
        add_to_y<columns>(sum_lanes<columns>(chain), call.alpha, y, call.incy);
        a += columns * call.lda;
        y += columns * call.incy;
    }
    return j;
}

// y += alpha*A^T*x for at most 8 rows.
template <class access_type> [[gnu::noinline]] void add_product_of_brief_columns(const sgemv_call &call)
{
    const __m512 x_rows = access_type(call.incx).load(call.x, vec_avx512::first(call.m));
    if (call.m <= 4)
        add_brief_dots<4>(call, x_rows);
    else
        add_brief_dots<2>(call, x_rows);
}

// y += alpha*A^T*x for more rows.
template <class access_type> [[gnu::noinline]] void add_product_transposed(const sgemv_call &call)
{
    const access_type access(call.incx);
    const int64_t lda = call.lda, incy = call.incy;
    const float alpha = call.alpha, *const x = call.x, *a = call.a;
    float *y = call.y;
    int64_t n = call.n;
    const bool columns_share_alignment = lda % 16 == 0 && word_aligned(a);
    const int64_t in_front = static_cast<int64_t>(reinterpret_cast<uintptr_t>(a) % 64 / sizeof(float));
    row_pieces rows = cut_rows(call.m, n, lda, columns_share_alignment ? in_front : 0);
    // columns: of a round, sets: accumulators of each.
    const auto add_dots = [&](auto columns_type, auto sets_type) __attribute__((always_inline))
    {
        constexpr int columns = columns_type.value, sets = sets_type.value;
        __m512 chain[columns];
        column_chains<columns, sets, sets>(rows, a, lda, x, access, chain);
        add_to_y<columns>(sum_lanes<columns>(chain), alpha, y, incy);
        a += columns * lda;
        y += columns * incy;
    };
    if constexpr (access_type::dense) {
        int64_t done = 0;
        if (call.m >= rows_of_long_loop<masked_avx512>)
            done = reads_second_cache(call.m, n) ? add_long_rounds<8, 32>(call, rows)
                   : asks_ahead(call.m, n)       ? add_asking_rounds(call, rows)
                                                 : 0;
        else if (call.m >= 32 && n >= 16)
            done = add_long_rounds<16, 8>(call, rows);
        n -= done;
        a += done * lda;
        y += done * incy;
    }
#pragma GCC unroll 1
    for (; n >= 8; n -= 8)
        add_dots(number<8>(), number<1>());
    if (n >= 4)
        add_dots(number<4>(), number<1>());
    n %= 4;
    if (n > 0 && rows.lead != 0) // which rows meet in an accumulator of several may not depend on the address
        rows = cut_rows(call.m, n, lda, 0);
    if (n >= 2)
        add_dots(number<2>(), number<2>());
    if (n % 2 == 1)
        add_dots(number<1>(), number<4>());
}
template <class access_type> inline void add_transposed_by(const sgemv_call &call)
{
    if (call.m <= 8)
        add_product_of_brief_columns<access_type>(call);
    else
        add_product_transposed<access_type>(call);
}
inline void add_transposed(const sgemv_call &call)
{
    if (call.incx == 1)
        add_transposed_by<contiguous_16>(call);
    else if (fits_stride_32(call.incx))
        add_transposed_by<stride_32>(call);
    else
        add_transposed_by<stride_64>(call);
}

inline void add_plain(const sgemv_call &call)
{
    if (call.incy == 1 && call.m <= 16)
        add_product_of_one_register<masked_avx512>(call.m, call.n, call.alpha, call.a, call.lda, call.x, call.incx,
                                                   call.y);
    else if (call.incy == 1)
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
    // From a lone element no increment leads anywhere, and a contiguous vector is the cheaper one.
    if ((call.transposed ? call.m : call.n) == 1)
        call.incx = 1;
    if (call.y_count == 1)
        call.incy = 1;
    if (call.beta != 1.0f)
        scale_y(call);
    if (call.alpha == 0.0f)
        return;
    if (call.transposed)
        add_transposed(call);
    else
        add_plain(call);
}
