// SPDX-License-Identifier: BSD-3-Clause
// SGEMV on the avx2 path: y := alpha*op(A)*x + beta*y. Two kernels with a contiguous vector on the row side, and a
// driver that packs a strided one in chunks of 512 elements, or runs scalar loops where there is no memory for the
// chunk.
#include "frame/path/path_util.h"
#include "frame/tesh_serv.h"
#include "vector/body/sgemv_columns.h"
#include "vector/body/sgemv_frame.h"
#include "vector/body/vec_masked_avx2.h"
#include "vector/matrix_vector_paths.h"

namespace
{
constexpr int64_t chunk_rows = 512; // [elements]
constexpr size_t chunk_bytes = chunk_rows * sizeof(float);
constexpr int32_t chunk_alignment = 128; // [bytes]

// Accumulators of a column: rows 0 to 7, 8 to 15 and so on of every 8 * sets. Four columns hide the latency of the
// multiply-add with two, fewer columns take four.
constexpr int sets_of(int columns)
{
    return columns == 4 ? 2 : 4;
}
constexpr int round_columns = 4;

// Lane c: the sum of all lanes of four registers.
inline __m128 sum_lanes(const __m256 *sum)
{
    const __m256 halves = _mm256_hadd_ps(_mm256_hadd_ps(sum[0], sum[1]), _mm256_hadd_ps(sum[2], sum[3]));
    return _mm_add_ps(_mm256_castps256_ps128(halves), _mm256_extractf128_ps(halves, 1));
}

template <int sets> inline __m256 sum_sets(const __m256 *set)
{
    if constexpr (sets == 2)
        return _mm256_add_ps(set[0], set[1]);
    else
        return _mm256_add_ps(_mm256_add_ps(set[0], set[1]), _mm256_add_ps(set[2], set[3]));
}

// The next columns of y += alpha*A^T*x, if so many are left: j moves behind them. longest: rows of a round, 32 or more.
// asks: for rows ahead. kept: the accumulators behind the first i rows, or null.
template <int columns, int longest, bool asks = false>
[[gnu::always_inline]] inline bool add_next_dots(int64_t &j, int64_t m, int64_t n, float alpha, const float *a,
                                                 int64_t lda, const float *x, int64_t incy, float *y,
                                                 const __m256 *kept = nullptr, int64_t i = 0)
{
    constexpr int sets = sets_of(columns);
    if (n - j < columns)
        return false;
    const float *column[columns];
    __m256 set[columns][sets], sum[round_columns] = {};
#pragma GCC unroll 4
    for (int c = 0; c < columns; ++c) {
        column[c] = a + (j + c) * lda;
#pragma GCC unroll 4
        for (int s = 0; s < sets; ++s)
            set[c][s] = kept != nullptr ? kept[c * sets + s] : _mm256_setzero_ps();
    }
    if (const int64_t ahead = prefetch_distance(n, lda); m <= most_brief && ahead != 0) {
#pragma GCC unroll 4
        for (int c = 0; c < columns; ++c)
            masked_avx2::prefetch(column[c] + ahead);
    }
    // Registers of 8 rows from row i on, beginning with the first accumulators.
    const auto add_registers = [&](int registers) __attribute__((always_inline))
    {
#pragma GCC unroll 32
        for (int r = 0; r < registers; ++r, i += 8) {
            const __m256 xv = _mm256_loadu_ps(x + i);
#pragma GCC unroll 4
            for (int c = 0; c < columns; ++c)
                set[c][r % sets] = _mm256_fmadd_ps(_mm256_loadu_ps(column[c] + i), xv, set[c][r % sets]);
        }
    };
    if constexpr (longest > 32) {
#pragma GCC unroll 1
        while (i + longest <= m) // NOLINT(bugprone-infinite-loop): add_registers moves i
            add_registers(longest / 8);
        if (i + 128 <= m)
            add_registers(16);
        if (i + 64 <= m)
            add_registers(8);
    }
    if constexpr (asks) {
        const rows_ahead ahead(m, lda);
        const auto add_asking = [&](int64_t distance) __attribute__((always_inline))
        {
#pragma GCC unroll 2
            for (int line = 0; line < 2; ++line) {
#pragma GCC unroll 4
                for (int c = 0; c < columns; ++c)
                    masked_avx2::prefetch(column[c] + i + distance);
                add_registers(2);
            }
        };
#pragma GCC unroll 1
        while (i + 32 <= m - ahead.near) // NOLINT(bugprone-infinite-loop): add_asking moves i
            add_asking(ahead.near);
#pragma GCC unroll 1
        while (i + 32 <= m) // NOLINT(bugprone-infinite-loop): add_asking moves i
            add_asking(ahead.late);
    }
#pragma GCC unroll 1
    while (i + 32 <= m) // NOLINT(bugprone-infinite-loop): add_registers moves i
        add_registers(4);
    if (i + 16 <= m)
        add_registers(2);
    if (i + 8 <= m)
        add_registers(1);
    if (i < m) {
        const __m256i rows = vec_avx2::first(m - i);
        const __m256 xv = vec_avx2::load(x + i, rows);
#pragma GCC unroll 4
        for (int c = 0; c < columns; ++c)
            set[c][sets - 1] = _mm256_fmadd_ps(vec_avx2::load(column[c] + i, rows), xv, set[c][sets - 1]);
    }
#pragma GCC unroll 4
    for (int c = 0; c < columns; ++c)
        sum[c] = sum_sets<sets>(set[c]);
    const __m128 dots = sum_lanes(sum);
    y += j * incy;
    j += columns;
    if (columns == round_columns && incy == 1) {
        _mm_storeu_ps(y, _mm_fmadd_ps(_mm_set1_ps(alpha), dots, _mm_loadu_ps(y)));
        return true;
    }
    float dot[round_columns];
    _mm_storeu_ps(dot, dots);
    for (int c = 0; c < columns; ++c, y += incy)
        store_one(y, __builtin_fmaf(alpha, dot[c], load_one(y)));
    return true;
}

// tesh_blas_avx2_xsgemv_t for at least 128 rows and an A in the second-level cache: four rounds of columns in a loop of
// many loads (sgemv_columns.h). The same arguments, so that it is jumped to.
[[gnu::noinline]] void add_long_dots(const int64_t *m, const int64_t *n, const float *alpha, const float *a,
                                     const int64_t *lda, const float *x, const int64_t *incy, float *y)
{
    const int64_t rows = *m, columns = *n, a_step = *lda, y_step = *incy;
    const float factor = *alpha;
    int64_t j = 0;
    while (add_next_dots<4, 256>(j, rows, columns, factor, a, a_step, x, y_step, y) &&
           add_next_dots<4, 256>(j, rows, columns, factor, a, a_step, x, y_step, y) &&
           add_next_dots<4, 256>(j, rows, columns, factor, a, a_step, x, y_step, y) &&
           add_next_dots<4, 256>(j, rows, columns, factor, a, a_step, x, y_step, y)) {
    }
    add_next_dots<2, 32>(j, rows, columns, factor, a, a_step, x, y_step, y);
    add_next_dots<1, 32>(j, rows, columns, factor, a, a_step, x, y_step, y);
}

// Four columns of the same for the rows from i to end, a multiple of 32 of them. set: the accumulators.
inline void add_rows_to_dots(int64_t i, int64_t end, const float *a, int64_t lda, const float *x, __m256 *set)
{
    constexpr int sets = sets_of(round_columns);
    __m256 sum[round_columns * sets];
#pragma GCC unroll 8
    for (int s = 0; s < round_columns * sets; ++s)
        sum[s] = set[s];
    const float *const a_1 = a + lda, *const a_2 = a + 2 * lda, *const a_3 = a + 3 * lda;
#pragma GCC unroll 1
    for (; i < end; i += 32) {
#pragma GCC unroll 4
        for (int r = 0; r < 4; ++r) {
            const __m256 xv = _mm256_loadu_ps(x + i + 8 * r);
            const float *const column[] = {a, a_1, a_2, a_3};
#pragma GCC unroll 4
            for (int c = 0; c < round_columns; ++c) {
                __m256 &to = sum[c * sets + r % sets];
                to = _mm256_fmadd_ps(_mm256_loadu_ps(column[c] + i + 8 * r), xv, to);
            }
        }
    }
#pragma GCC unroll 8
    for (int s = 0; s < round_columns * sets; ++s)
        set[s] = sum[s];
}

// The same for an x of megabytes: rounds of columns take turns panel by panel, so that x comes from memory once for
// all of them (2000000 x 8: 1217 us instead of 1402). The accumulators wait in between; the sums are those of rounds on
// their own.
constexpr int64_t tall_rows = 1024 * 1024;
[[gnu::noinline]] void add_tall_dots(int64_t &j, int64_t m, int64_t n, float alpha, const float *a, int64_t lda,
                                     const float *x, int64_t incy, float *y)
{
    constexpr int64_t panel = 8 * 1024; // rows
    constexpr int most = 8, registers = round_columns * sets_of(round_columns);
    const int64_t last = (m - 1) / panel * panel; // row where the last panel begins
    while (n - j >= round_columns) {
        const int64_t rounds = min_of(most, (n - j) / round_columns);
        __m256 kept[most][registers];
        for (int64_t r = 0; r < rounds; ++r)
            for (int s = 0; s < registers; ++s)
                kept[r][s] = _mm256_setzero_ps();
        for (int64_t i = 0; i < last; i += panel)
            for (int64_t r = 0; r < rounds; ++r)
                add_rows_to_dots(i, i + panel, a + (j + r * round_columns) * lda, lda, x, kept[r]);
        for (int64_t r = 0; r < rounds; ++r)
            add_next_dots<round_columns, 32>(j, m, n, alpha, a, lda, x, incy, y, kept[r], last);
    }
}

// y += alpha*A*x for a strided y without a buffer, 8 rows a round.
void add_product_scalar(const sgemv_call &call)
{
    for (int64_t j = 0; j < call.n; ++j) {
        const float t = call.alpha * load_one(call.x + j * call.incx), *column = call.a + j * call.lda;
        float *y = call.y;
        int64_t i = 0;
        for (; i + 8 <= call.m; i += 8) {
#pragma GCC unroll 8
            for (int r = 0; r < 8; ++r, y += call.incy)
                store_one(y, __builtin_fmaf(load_one(column + i + r), t, load_one(y)));
        }
        for (; i < call.m; ++i, y += call.incy)
            store_one(y, __builtin_fmaf(load_one(column + i), t, load_one(y)));
    }
}

// y += alpha*A^T*x for a strided x without a buffer, 8 rows a round.
void add_product_transposed_scalar(const sgemv_call &call)
{
    for (int64_t j = 0; j < call.n; ++j) {
        const float *column = call.a + j * call.lda, *x = call.x;
        alignas(32) float sum[8] = {};
        int64_t i = 0;
        for (; i + 8 <= call.m; i += 8) {
#pragma GCC unroll 8
            for (int r = 0; r < 8; ++r, x += call.incx)
                sum[r] = __builtin_fmaf(load_one(column + i + r), load_one(x), sum[r]);
        }
        for (int r = 0; i < call.m; ++i, ++r, x += call.incx)
            sum[r] = __builtin_fmaf(load_one(column + i), load_one(x), sum[r]);
        float *y = call.y + j * call.incy;
        store_one(y, __builtin_fmaf(call.alpha, masked_avx2::sum(_mm256_load_ps(sum)), load_one(y)));
    }
}

// y += alpha*A*x in chunks of a strided y. Where all elements of y are one,
// a chunk starts at zero and is summed into it.
void add_product_packed(const sgemv_call &call, float *chunk)
{
    for (int64_t i = 0; i < call.m; i += chunk_rows) {
        const int64_t rows = min_of(call.m - i, chunk_rows);
        float *y = call.y + i * call.incy;
        for (int64_t r = 0; r < rows; ++r)
            chunk[r] = call.incy == 0 ? 0.0f : load_one(y + r * call.incy);
        tesh_blas_avx2_xsgemv_n(&rows, &call.n, &call.alpha, call.a + i, &call.lda, call.x, &call.incx, chunk);
        for (int64_t r = 0; r < rows; ++r)
            store_one(y + r * call.incy, call.incy == 0 ? load_one(y) + chunk[r] : chunk[r]);
    }
}

// y += alpha*A^T*x in chunks of a strided x.
void add_product_transposed_packed(const sgemv_call &call, float *chunk)
{
    for (int64_t i = 0; i < call.m; i += chunk_rows) {
        const int64_t rows = min_of(call.m - i, chunk_rows);
        for (int64_t r = 0; r < rows; ++r)
            chunk[r] = load_one(call.x + (i + r) * call.incx);
        tesh_blas_avx2_xsgemv_t(&rows, &call.n, &call.alpha, call.a + i, &call.lda, chunk, &call.incy, call.y);
    }
}
} // namespace

extern "C" void tesh_blas_avx2_xsgemv_n(const int64_t *m, const int64_t *n, const float *alpha, const float *a,
                                        const int64_t *lda, const float *x, const int64_t *incx, float *y)
{
    add_product<masked_avx2>(*m, *n, *alpha, a, *lda, x, *incx, y);
}

extern "C" void tesh_blas_avx2_xsgemv_t(const int64_t *m, const int64_t *n, const float *alpha, const float *a,
                                        const int64_t *lda, const float *x, const int64_t *incy, float *y)
{
    const int64_t rows = *m, columns = *n, a_step = *lda, y_step = *incy;
    if (rows >= 128 && reads_second_cache(rows, columns)) {
        add_long_dots(m, n, alpha, a, lda, x, incy, y);
        return;
    }
    const float factor = *alpha;
    int64_t j = 0;
    // At a stride of whole pages what is asked for meets the columns in the sets of the first-level cache.
    if (asks_ahead(rows, columns) && a_step % 1024 != 0) {
        while (add_next_dots<columns_asked_for, 32, true>(j, rows, columns, factor, a, a_step, x, y_step, y)) {
        }
    }
    if (rows >= tall_rows && columns >= 2 * round_columns)
        add_tall_dots(j, rows, columns, factor, a, a_step, x, y_step, y);
    while (add_next_dots<4, 32>(j, rows, columns, factor, a, a_step, x, y_step, y)) {
    }
    add_next_dots<2, 32>(j, rows, columns, factor, a, a_step, x, y_step, y);
    add_next_dots<1, 32>(j, rows, columns, factor, a, a_step, x, y_step, y);
}

extern "C" void tesh_blas_avx2_xsgemv(const char *trans, const int64_t *m, const int64_t *n, const float *alpha,
                                      const float *a, const int64_t *lda, const float *x, const int64_t *incx,
                                      const float *beta, float *y, const int64_t *incy, int64_t)
{
    sgemv_call call;
    if (!sgemv_read(call, trans, m, n, alpha, a, lda, x, incx, beta, y, incy))
        return;
    sgemv_scale_y<vec_avx2>(call);
    if (call.alpha == 0.0f)
        return;
    if (call.transposed && call.incx == 1) {
        tesh_blas_avx2_xsgemv_t(&call.m, &call.n, &call.alpha, call.a, &call.lda, call.x, &call.incy, call.y);
        return;
    }
    if (!call.transposed && call.incy == 1) {
        tesh_blas_avx2_xsgemv_n(&call.m, &call.n, &call.alpha, call.a, &call.lda, call.x, &call.incx, call.y);
        return;
    }
    float *chunk = static_cast<float *>(tesh_serv_allocate(chunk_bytes, chunk_alignment));
    if (tesh_serv_check_ptr_and_warn(chunk, "SGEMV") != 0) {
        if (call.transposed)
            add_product_transposed_scalar(call);
        else
            add_product_scalar(call);
        return;
    }
    if (call.transposed)
        add_product_transposed_packed(call, chunk);
    else
        add_product_packed(call, chunk);
    tesh_serv_deallocate(chunk);
}
