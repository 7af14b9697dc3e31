// SPDX-License-Identifier: BSD-3-Clause
// computes   C[4 x 8] += A[4 x k] * B[k x 8]; alpha is in the A panel, beta in the driver
// registers  8 accumulators + 2 of B + 2 of products = 12 of 16
// layout     A packed in rows of 4, B in columns of 8, then 4, 2, 1 (sgemm_pack_mc3.cpp); C column-major, any alignment
// loop       gemm/body/sgemm_spread_body.h, one step a round: B runs in vectors along its 8 columns, and the 4 rows of
//            A are spread once for all columns, in 16 KiB of the stack; the tile is turned over when it is added to C
// prefetch   the tile of C 128 steps before the end of its loop: from its start, columns whose distance is a large
//            power of two have left their cache set again (ldc = 1024: 86 instead of 83 % of the peak)
// edges      ker0_pst: rows 2, 1 and columns 4, 2, 1 in panels of those widths, and products of fewer than 32 columns;
//            never by reading past an operand
// measured   95 % of bench/peak at 4 lanes, a packed pair of 64 x 512 x 256 (Zen 5)
//
// In the tiles of ker0_pst MOVDDUP loads a pair of B (b0 b1 b0 b1), and A times that, with A as it is and with its
// pairs exchanged, gives both columns of the pair, the odd places swapped between them: a shuffle a step, not one a
// column. Every element of C is one sum in the order of k: for a depth of up to 256 it does not depend on its place in
// a tile.
#include "frame/path/path_util.h"
#include "frame/path/vec_mc3.h"
#include "gemm/body/sgemm_spread_body.h"
#include "gemm/sgemm_mc3.h"

namespace
{
constexpr int tile_m = 4, tile_n = 8;
constexpr int64_t prefetch_steps = 16;      // of B in the tiles of ker0_pst
constexpr int64_t spread_columns = 32;      // fewer do not pay for the spreading (24: 46 against 48 % of the peak)
constexpr int64_t last_steps = 128;         // of the depth, before which a tile of C is fetched
constexpr int64_t spread_depth = 256;       // of A spread at a time: 16 KiB, a third of the first-level cache
constexpr int64_t resident_bytes = 0x80000; // of B that meet all rows of A before the next: for the second-level cache

using reg = __m128;

inline reg load_pair(const float *p)
{
    double pair; // the bits of two floats, at any alignment
    __builtin_memcpy(&pair, p, sizeof pair);
    return _mm_castpd_ps(_mm_set1_pd(pair));
}
inline reg exchange_pairs(reg x)
{
    return _mm_shuffle_ps(x, x, _MM_SHUFFLE(2, 3, 0, 1));
}
template <int i> inline float lane(reg x)
{
    return _mm_cvtss_f32(_mm_shuffle_ps(x, x, i));
}
inline void add_to(float *c, reg x)
{
    _mm_storeu_ps(c, _mm_add_ps(_mm_loadu_ps(c), x));
}

[[gnu::noinline]] void spread_rows(int64_t k, const float *a, float *spread)
{
    spread_elements(k, a, spread);
}

// Four rows, eight columns. sum[i] is row i of the tile.
[[gnu::noinline]] void tile_of_spread(int64_t k, const float *spread, const float *b, float *c, int64_t ldc)
{
    reg sum[tile_m][2];
#pragma GCC unroll 8
    for (int t = 0; t < 2 * tile_m; ++t)
        sum[t / 2][t % 2] = _mm_setzero_ps();
    const int64_t first = max_of(k - last_steps, 0);
    add_products<vec_mc3>(first, b, spread, sum);
#pragma GCC unroll 8
    for (int j = 0; j < tile_n; ++j)
        _mm_prefetch(reinterpret_cast<const char *>(c + j * ldc), _MM_HINT_T0);
    add_products<vec_mc3>(k - first, b + tile_n * first, spread + 4 * tile_m * first, sum);
#pragma GCC unroll 2
    for (int v = 0; v < 2; ++v) {
        _MM_TRANSPOSE4_PS(sum[0][v], sum[1][v], sum[2][v], sum[3][v]);
#pragma GCC unroll 4
        for (int j = 0; j < 4; ++j)
            add_to(c + (4 * v + j) * ldc, sum[j][v]);
    }
}

// m and n are whole numbers of tiles.
inline void whole_tiles(int64_t m, int64_t n, int64_t k, const float *a, const float *b, float *c, int64_t ldc)
{
    alignas(64) float spread[4 * tile_m * spread_depth];
    for (int64_t l = 0; l < k; l += spread_depth) {
        const int64_t depth = min_of(spread_depth, k - l);
        const int64_t group = max_of(resident_bytes / (depth * tile_n * int64_t(sizeof(float))), 1) * tile_n;
        for (int64_t j0 = 0; j0 < n; j0 += group)
            for (int64_t i = 0; i < m; i += tile_m) {
                spread_rows(depth, a + i * k + l * tile_m, spread);
                for (int64_t j = j0; j < min_of(j0 + group, n); j += tile_n)
                    tile_of_spread(depth, spread, b + j * k + l * tile_n, c + j * ldc + i, ldc);
            }
    }
}

// Four rows, 2*pairs columns. straight[p] holds (a0 b0, a1 b1, a2 b0, a3 b1) of column pair p, crossed[p] (a1 b0, a0
// b1, a3 b0, a2 b1).
template <int pairs>
[[gnu::noinline]] void tile_of_pairs(int64_t k, const float *a, const float *b, float *c, int64_t ldc)
{
    reg straight[pairs], crossed[pairs];
#pragma GCC unroll 4
    for (int p = 0; p < pairs; ++p) {
        straight[p] = crossed[p] = _mm_setzero_ps();
        _mm_prefetch(reinterpret_cast<const char *>(c + 2 * p * ldc), _MM_HINT_T0);
        _mm_prefetch(reinterpret_cast<const char *>(c + (2 * p + 1) * ldc), _MM_HINT_T0);
    }
    // Unrolled by the last pass of the compiler: unrolled by hand, the loads of all four steps move to the front and
    // spill.
#pragma GCC unroll 4
    for (int64_t l = 0; l < k; ++l, a += tile_m, b += 2 * pairs) {
        _mm_prefetch(reinterpret_cast<const char *>(b + prefetch_steps * 2 * pairs), _MM_HINT_T0);
        const reg av = _mm_loadu_ps(a), ax = exchange_pairs(av);
#pragma GCC unroll 4
        for (int p = 0; p < pairs; ++p) {
            const reg bp = load_pair(b + 2 * p);
            straight[p] = _mm_add_ps(straight[p], _mm_mul_ps(bp, av));
            crossed[p] = _mm_add_ps(crossed[p], _mm_mul_ps(bp, ax));
        }
    }
#pragma GCC unroll 4
    for (int p = 0; p < pairs; ++p) {
        constexpr int odd_places = 0xa;
        add_to(c + 2 * p * ldc, _mm_blend_ps(straight[p], _mm_moveldup_ps(crossed[p]), odd_places));
        add_to(c + (2 * p + 1) * ldc, _mm_blend_ps(_mm_movehdup_ps(crossed[p]), straight[p], odd_places));
    }
}

// Four rows, one column.
inline void tile_of_column(int64_t k, const float *a, const float *b, float *c)
{
    reg sum = _mm_setzero_ps();
    for (int64_t l = 0; l < k; ++l)
        sum = _mm_add_ps(sum, _mm_mul_ps(_mm_loadu_ps(a + l * tile_m), _mm_set1_ps(b[l])));
    add_to(c, sum);
}

// One or two rows: vectors run along the columns of B.
template <int rows, int vectors>
[[gnu::noinline]] void tile_of_rows(int64_t k, const float *a, const float *b, float *c, int64_t ldc)
{
    reg sum[rows][vectors];
#pragma GCC unroll 4
    for (int t = 0; t < rows * vectors; ++t)
        sum[t / vectors][t % vectors] = _mm_setzero_ps();
    for (int64_t l = 0; l < k; ++l, a += rows, b += 4 * vectors)
#pragma GCC unroll 2
        for (int i = 0; i < rows; ++i)
#pragma GCC unroll 2
            for (int v = 0; v < vectors; ++v)
                sum[i][v] = _mm_add_ps(sum[i][v], _mm_mul_ps(_mm_set1_ps(a[i]), _mm_loadu_ps(b + 4 * v)));
#pragma GCC unroll 2
    for (int i = 0; i < rows; ++i)
#pragma GCC unroll 2
        for (int v = 0; v < vectors; ++v) {
            float *const row = c + 4 * v * ldc + i;
            row[0] += lane<0>(sum[i][v]);
            row[ldc] += lane<1>(sum[i][v]);
            row[2 * ldc] += lane<2>(sum[i][v]);
            row[3 * ldc] += lane<3>(sum[i][v]);
        }
}

// One or two rows, one or two columns.
template <int rows, int cols>
[[gnu::noinline]] void tile_of_scalars(int64_t k, const float *a, const float *b, float *c, int64_t ldc)
{
    float sum[rows][cols] = {};
    for (int64_t l = 0; l < k; ++l, a += rows, b += cols)
#pragma GCC unroll 2
        for (int i = 0; i < rows; ++i)
#pragma GCC unroll 2
            for (int j = 0; j < cols; ++j)
                sum[i][j] += a[i] * b[j];
#pragma GCC unroll 2
    for (int i = 0; i < rows; ++i)
#pragma GCC unroll 2
        for (int j = 0; j < cols; ++j)
            c[j * ldc + i] += sum[i][j];
}

template <int rows>
inline void tail_tile(int64_t cols, int64_t k, const float *a, const float *b, float *c, int64_t ldc)
{
    if constexpr (rows == tile_m) {
        if (cols == 4)
            tile_of_pairs<2>(k, a, b, c, ldc);
        else if (cols == 2)
            tile_of_pairs<1>(k, a, b, c, ldc);
        else
            tile_of_column(k, a, b, c);
    } else {
        if (cols == tile_n)
            tile_of_rows<rows, 2>(k, a, b, c, ldc);
        else if (cols == 4)
            tile_of_rows<rows, 1>(k, a, b, c, ldc);
        else if (cols == 2)
            tile_of_scalars<rows, 2>(k, a, b, c, ldc);
        else
            tile_of_scalars<rows, 1>(k, a, b, c, ldc);
    }
}

// The width of the panel that begins where rest rows or columns remain.
inline int64_t panel_width(int64_t rest, int64_t full)
{
    while (full > rest)
        full /= 2;
    return full;
}
} // namespace

extern "C" {
void tesh_blas_mc3_sgemm_ker0_pst(const int64_t *m, const int64_t *n, const int64_t *k, const float *a, const float *b,
                                  float *c, const int64_t *ldc)
{
    for (int64_t j = 0; j < *n;) {
        const int64_t cols = panel_width(*n - j, tile_n);
        for (int64_t i = 0; i < *m;) {
            const int64_t rows = panel_width(*m - i, tile_m);
            float *const tile = c + j * *ldc + i;
            const float *const a_panel = a + i * *k, *const b_panel = b + j * *k;
            if (rows == tile_m && cols == tile_n)
                tile_of_pairs<4>(*k, a_panel, b_panel, tile, *ldc);
            else if (rows == tile_m)
                tail_tile<tile_m>(cols, *k, a_panel, b_panel, tile, *ldc);
            else if (rows == 2)
                tail_tile<2>(cols, *k, a_panel, b_panel, tile, *ldc);
            else
                tail_tile<1>(cols, *k, a_panel, b_panel, tile, *ldc);
            i += rows;
        }
        j += cols;
    }
}

void tesh_blas_mc3_sgemm_ker0(const int64_t *m, const int64_t *n, const int64_t *k, const float *a, const float *b,
                              float *c, const int64_t *ldc)
{
    if (*n < spread_columns) {
        tesh_blas_mc3_sgemm_ker0_pst(m, n, k, a, b, c, ldc);
        return;
    }
    const int64_t full_m = *m / tile_m * tile_m, full_n = *n / tile_n * tile_n;
    const int64_t rest_m = *m - full_m, rest_n = *n - full_n;
    whole_tiles(full_m, full_n, *k, a, b, c, *ldc);
    if (rest_m > 0)
        tesh_blas_mc3_sgemm_ker0_pst(&rest_m, &full_n, k, a + full_m * *k, b, c + full_m, ldc);
    if (rest_n > 0)
        tesh_blas_mc3_sgemm_ker0_pst(m, &rest_n, k, a, b + full_n * *k, c + full_n * *ldc, ldc);
}
}
