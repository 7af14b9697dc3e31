// SPDX-License-Identifier: BSD-3-Clause
// y += alpha*A^T*x for columns of few rows on the avx512 path: they share registers. What they share with long columns
// stands here, too: the sums of lanes and the update of y.
#pragma once
#include "vector/body/sgemv_columns.h"
#include "vector/body/sgemv_frame.h"
#include "vector/body/vec_masked_avx512.h"

namespace
{
template <auto n> struct number {
    static constexpr auto value = n;
};

// The sums of the lanes of four registers, in the four lanes of each quarter.
[[gnu::always_inline]] inline __m512 sum_quarters(const __m512 *chain)
{
    const __m512 first = _mm512_add_ps(_mm512_unpacklo_ps(chain[0], chain[1]), _mm512_unpackhi_ps(chain[0], chain[1]));
    const __m512 second = _mm512_add_ps(_mm512_unpacklo_ps(chain[2], chain[3]), _mm512_unpackhi_ps(chain[2], chain[3]));
    const __m512d first_pairs = _mm512_castps_pd(first), second_pairs = _mm512_castps_pd(second);
    return _mm512_add_ps(_mm512_castpd_ps(_mm512_unpacklo_pd(first_pairs, second_pairs)),
                         _mm512_castpd_ps(_mm512_unpackhi_pd(first_pairs, second_pairs)));
}

// y += alpha*dots for some columns. No masks: y may be loaded again soon.
template <int columns> [[gnu::always_inline]] inline void add_to_y(__m512 dots, float alpha, float *y, int64_t incy)
{
    if (incy == 1 && columns >= 4) {
        if constexpr (columns == 16)
            _mm512_storeu_ps(y, _mm512_fmadd_ps(_mm512_set1_ps(alpha), dots, _mm512_loadu_ps(y)));
        else if constexpr (columns == 8)
            _mm256_storeu_ps(y,
                             _mm256_fmadd_ps(_mm256_set1_ps(alpha), _mm512_castps512_ps256(dots), _mm256_loadu_ps(y)));
        else
            _mm_storeu_ps(y, _mm_fmadd_ps(_mm_set1_ps(alpha), _mm512_castps512_ps128(dots), _mm_loadu_ps(y)));
        return;
    }
    float dot[16];
    _mm512_storeu_ps(dot, dots);
    for (int c = 0; c < columns; ++c, y += incy)
        store_one(y, __builtin_fmaf(alpha, dot[c], load_one(y)));
}

// The same for 1 to 4 columns, their dots in the first lanes.
[[gnu::always_inline]] inline void add_some_to_y(__m128 dots, int64_t columns, float alpha, float *y, int64_t incy)
{
    if (columns == 4 && incy == 1) {
        _mm_storeu_ps(y, _mm_fmadd_ps(_mm_set1_ps(alpha), dots, _mm_loadu_ps(y)));
        return;
    }
    for (;;) {
        store_one(y, __builtin_fmaf(alpha, _mm_cvtss_f32(dots), load_one(y)));
        if (--columns == 0)
            return;
        dots = _mm_permute_ps(dots, 0x39);
        y += incy;
    }
}

// How brief columns lie: filling their lanes, one behind the other; or not; or not and worth asking for ahead.
enum class brief_layout { dense, apart, apart_and_many };

// Columns of at most 4 or at most 8 rows, each in a quarter or in a half of a register. The chains are those of long
// ones: one in each lane from row 1 on, the product of row 0 before that of row 1.
template <int per_register> struct brief_columns {
    static constexpr unsigned lowest = per_register == 4 ? 0x1111u : 0x0101u; // the first lane of each column
    column_pointers<per_register> column;                                     // of those in the next register
    unsigned rows;                                                            // lanes of a column that hold rows
    __m512 x;                                                                 // the rows of x for each column

    // x_rows has a lane for each row.
    inline brief_columns(const sgemv_call &call, __m512 x_rows)
        : column(call.a, call.lda), rows((1u << static_cast<unsigned>(call.m)) - 1u),
          x(per_register == 4 ? _mm512_shuffle_f32x4(x_rows, x_rows, 0x00) : _mm512_shuffle_f32x4(x_rows, x_rows, 0x44))
    {
    }
    // 1 to per_register columns. Nothing of others is touched.
    [[gnu::always_inline]] inline __m512 load(int64_t count)
    {
        const __mmask8 lanes = static_cast<__mmask8>(rows);
        column.hold();
        if constexpr (per_register == 4) {
            const __m128 a_0 = _mm_maskz_loadu_ps(lanes, column.at(0));
            if (count == 1)
                return _mm512_zextps128_ps512(a_0);
            const __m128 a_1 = _mm_maskz_loadu_ps(lanes, column.at(1));
            const __m256 low = _mm256_insertf128_ps(_mm256_castps128_ps256(a_0), a_1, 1);
            if (count == 2)
                return _mm512_zextps256_ps512(low);
            __m256 high = _mm256_zextps128_ps256(_mm_maskz_loadu_ps(lanes, column.at(2)));
            if (count == 4)
                high = _mm256_insertf128_ps(high, _mm_maskz_loadu_ps(lanes, column.at(3)), 1);
            return _mm512_insertf32x8(_mm512_castps256_ps512(low), high, 1);
        } else {
            const __m256 a_0 = _mm256_maskz_loadu_ps(lanes, column.at(0));
            if (count == 1)
                return _mm512_zextps256_ps512(a_0);
            return _mm512_insertf32x8(_mm512_castps256_ps512(a_0), _mm256_maskz_loadu_ps(lanes, column.at(1)), 1);
        }
    }
    // The chains of columns in a register, whose first lanes are given. Other lanes are zero.
    [[gnu::always_inline]] inline __m512 chains(__m512 a, unsigned firsts) const
    {
        const __mmask16 row_0 = static_cast<__mmask16>(firsts), row_1 = static_cast<__mmask16>(firsts << 1);
        const __mmask16 behind_row_0 = static_cast<__mmask16>(rows * firsts & ~firsts);
        const __m512 start = _mm512_maskz_permute_ps(row_1, _mm512_maskz_mul_ps(row_0, a, x), 0x00);
        return masked_avx512::mul_add(a, x, start, behind_row_0);
    }
    // The dots of the next columns, as many as four registers hold. ahead:
    // columns are asked for so far ahead [elements].
    template <brief_layout layout> [[gnu::always_inline]] inline __m512 next_dots(int64_t ahead)
    {
        const __m512i in_order = per_register == 4
                                     ? _mm512_setr_epi32(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15)
                                     : _mm512_setr_epi32(0, 8, 1, 9, 2, 10, 3, 11, 0, 8, 1, 9, 2, 10, 3, 11);
        __m512 chain[4];
#pragma GCC unroll 4
        for (int r = 0; r < 4; ++r) {
            if (layout == brief_layout::apart_and_many) {
#pragma GCC unroll 4
                for (int c = 0; c < per_register; ++c)
                    masked_avx512::prefetch(column.at(c) + ahead);
            }
            __m512 a = layout == brief_layout::dense ? _mm512_loadu_ps(column.at(0)) : load(per_register);
            __asm__("" : "+v"(a)); // used twice: kept from being loaded once for each use
            chain[r] = chains(a, lowest);
            column.next();
        }
        __m512 dots = sum_quarters(chain);
        if (per_register == 2)
            dots = _mm512_add_ps(dots, _mm512_shuffle_f32x4(dots, dots, 0xb1));
        return _mm512_permutexvar_ps(in_order, dots);
    }
    // The dots of the next 1 to 4 columns.
    [[gnu::always_inline]] inline __m128 next_few_dots(int64_t count)
    {
        __m512 dots;
        if constexpr (per_register == 4) {
            const __m512 chain = chains(load(count), lowest & vec_avx512::first(4 * count));
            const __m512 pairs = _mm512_add_ps(chain, _mm512_permute_ps(chain, 0x4e));
            dots = _mm512_add_ps(pairs, _mm512_permute_ps(pairs, 0xb1));
            dots = _mm512_permutexvar_ps(_mm512_setr_epi32(0, 4, 8, 12, 0, 4, 8, 12, 0, 4, 8, 12, 0, 4, 8, 12), dots);
        } else {
            __m512 chain[2] = {};
            chain[0] = chains(load(count), count == 1 ? 0x1u : lowest);
            column.next();
            if (count > 2)
                chain[1] = chains(load(count - 2), count == 3 ? 0x1u : lowest);
            const __m512 pairs =
                _mm512_add_ps(_mm512_unpacklo_ps(chain[0], chain[1]), _mm512_unpackhi_ps(chain[0], chain[1]));
            const __m512 quarters = _mm512_add_ps(pairs, _mm512_permute_ps(pairs, 0x4e));
            dots = _mm512_add_ps(quarters, _mm512_shuffle_f32x4(quarters, quarters, 0xb1));
            dots = _mm512_permutexvar_ps(_mm512_setr_epi32(0, 8, 1, 9, 0, 8, 1, 9, 0, 8, 1, 9, 0, 8, 1, 9), dots);
        }
        column.next();
        return _mm512_castps512_ps128(dots);
    }
};

// y += alpha*A^T*x for at most 4 or at most 8 rows. x has a lane for each.
template <int per_register> [[gnu::noinline]] void add_brief_dots(const sgemv_call &call, __m512 x)
{
    constexpr int round = 4 * per_register, width = 16 / per_register; // columns, lanes of one
    brief_columns<per_register> columns(call, x);
    const int64_t incy = call.incy;
    const float alpha = call.alpha;
    float *y = call.y;
    int64_t left = call.n;
    const auto add_rounds = [&](auto layout_type, int64_t ahead) __attribute__((always_inline))
    {
#pragma GCC unroll 1
        for (; left >= round; left -= round, y += round * incy)
            add_to_y<round>(columns.template next_dots<decltype(layout_type)::value>(ahead), alpha, y, incy);
    };
    if (left >= round) {
        const int64_t ahead = prefetch_distance(left, call.lda);
        if (call.m == width && call.lda == width)
            add_rounds(number<brief_layout::dense>(), 0);
        else if (ahead == 0)
            add_rounds(number<brief_layout::apart>(), 0);
        else
            add_rounds(number<brief_layout::apart_and_many>(), ahead);
    }
    for (; left > 0; left -= 4, y += 4 * incy) {
        const int64_t count = min_of(left, 4);
        add_some_to_y(columns.next_few_dots(count), count, alpha, y, incy);
    }
    _mm256_zeroupper(); // which GCC 12 leaves out where a register of 16 elements is an argument
}
} // namespace
