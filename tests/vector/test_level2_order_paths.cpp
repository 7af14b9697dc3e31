// SPDX-License-Identifier: BSD-3-Clause
// In which order the sums of SGEMV and STRMV are made, seen in their bits: panels of 512 rows, blocks of 32, and what a
// sum begins with.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "tests/support/random.h"
#include "tests/support/test_paths.h"
#include "vector/matrix_vector_paths.h"

namespace
{
constexpr float one = 1.0f, two_to_24 = 16777216.0f;
constexpr std::int64_t unit = 1;

struct path_row {
    const char *path;
    tesh_blas_sgemv_fn *sgemv;
    tesh_blas_strmv_fn *strmv;
    tesh_blas_strmv_in_fn *strmv_in;
};
constexpr path_row all_rows[] = {
    {"def", tesh_blas_def_xsgemv, tesh_blas_def_xstrmv, tesh_blas_def_strmv_in},
    {"cnr_def", tesh_blas_cnr_def_xsgemv, tesh_blas_cnr_def_xstrmv, tesh_blas_cnr_def_strmv_in},
    {"mc3", tesh_blas_mc3_xsgemv, tesh_blas_mc3_xstrmv, tesh_blas_mc3_strmv_in},
    {"avx2", tesh_blas_avx2_xsgemv, tesh_blas_avx2_xstrmv, tesh_blas_avx2_strmv_in},
    {"avx512", tesh_blas_avx512_xsgemv, tesh_blas_avx512_xstrmv, tesh_blas_avx512_strmv_in},
};

std::vector<path_row> rows()
{
    return tesh_test::rows_to_run(all_rows);
}

std::vector<float> uniform(std::int64_t count, std::uint64_t stream)
{
    std::vector<float> values(static_cast<std::size_t>(count));
    tesh_test::random(stream).fill(values);
    return values;
}

bool same_bits(const std::vector<float> &x, const std::vector<float> &y)
{
    return std::memcmp(x.data(), y.data(), x.size() * sizeof(float)) == 0;
}

// Where element i of a vector of n elements lies.
std::int64_t place(std::int64_t i, std::int64_t n, std::int64_t inc)
{
    return (inc < 0 ? (1 - n) * inc : 0) + i * inc;
}

// One product of 1 in each of two rows, over y = 2^24: two separate additions are lost, their sum is not.
float add_two_products(const path_row &row, std::int64_t n, std::int64_t incx, std::int64_t first, std::int64_t second)
{
    const std::int64_t m = 1100;
    std::vector<float> a(static_cast<std::size_t>(m * n)), x(2 * m, 1.0f), y(static_cast<std::size_t>(n), two_to_24);
    for (std::int64_t j = 0; j < n; ++j) {
        a[static_cast<std::size_t>(j * m + first)] = 1.0f;
        a[static_cast<std::size_t>(j * m + second)] = 1.0f;
    }
    row.sgemv("T", &m, &n, &one, a.data(), &m, x.data(), &incx, &one, y.data(), &unit, 1);
    for (const float value : y)
        EXPECT_EQ(value, y[0]) << row.path << " n " << n;
    return y[0];
}

TEST(sgemv_order, dots_go_in_panels_of_512_rows_where_a_path_has_them)
{
    const std::int64_t pairs[][2] = {{5, 600}, {511, 512}, {510, 511}, {0, 511}, {512, 1023}, {1023, 1024}, {3, 1030}};
    for (const path_row &row : rows()) {
        const std::string path = row.path;
        for (const std::int64_t incx : {1, 2, -2}) {
            const bool panels = path != "avx512" && (path != "avx2" || incx != 1);
            for (const auto &pair : pairs) {
                const bool apart = panels && pair[0] / 512 != pair[1] / 512;
                for (const std::int64_t n : {1, 3, 4, 5, 8})
                    EXPECT_EQ(add_two_products(row, n, incx, pair[0], pair[1]), apart ? two_to_24 : two_to_24 + 2.0f)
                        << path << " incx " << incx << " rows " << pair[0] << ", " << pair[1] << " n " << n;
            }
        }
    }
}

TEST(sgemv_order, avx2_chunks_of_a_strided_vector_are_runs_of_its_kernels)
{
    if (tesh_test::paths_to_run() != std::vector<std::string>{"avx2"})
        GTEST_SKIP() << "for the avx2 path";
    const std::int64_t n = 11;
    const float alpha = 0.7f;
    for (const std::int64_t m : {5, 511, 512, 513, 1500}) {
        for (const std::int64_t inc : {2, -1, -3}) {
            const std::vector<float> a = uniform(m * n, 1), strided = uniform(3 * m, 2), other = uniform(n, 3);
            std::vector<float> x = strided, y = strided, expected_y = strided, dots = other, expected_dots = other;
            for (std::int64_t from = 0; from < m; from += 512) {
                const std::int64_t count = std::min<std::int64_t>(512, m - from);
                std::vector<float> chunk;
                for (std::int64_t i = from; i < from + count; ++i)
                    chunk.push_back(strided[static_cast<std::size_t>(place(i, m, inc))]);
                tesh_blas_avx2_xsgemv_t(&count, &n, &alpha, &a[static_cast<std::size_t>(from)], &m, chunk.data(), &unit,
                                        expected_dots.data());
                tesh_blas_avx2_xsgemv_n(&count, &n, &alpha, &a[static_cast<std::size_t>(from)], &m, other.data(), &unit,
                                        chunk.data());
                for (std::int64_t i = from; i < from + count; ++i)
                    expected_y[static_cast<std::size_t>(place(i, m, inc))] = chunk[static_cast<std::size_t>(i - from)];
            }
            tesh_blas_avx2_xsgemv("T", &m, &n, &alpha, a.data(), &m, x.data(), &inc, &one, dots.data(), &unit, 1);
            tesh_blas_avx2_xsgemv("N", &m, &n, &alpha, a.data(), &m, other.data(), &unit, &one, y.data(), &inc, 1);
            EXPECT_TRUE(same_bits(dots, expected_dots)) << "m " << m << " incx " << inc;
            EXPECT_TRUE(same_bits(y, expected_y)) << "m " << m << " incy " << inc;
        }
    }
}

// An x of megabytes may be read once for some columns, which leaves each column its sums: four at a time have the same
// bits.
TEST(sgemv_order, columns_keep_their_bits_beside_an_x_of_megabytes)
{
    const std::int64_t m = (std::int64_t(1) << 20) + 37, n = 12, four = 4;
    const float alpha = 0.7f;
    const std::vector<float> a = uniform(m * n, 6), x = uniform(m, 7);
    for (const path_row &row : rows()) {
        std::vector<float> all = uniform(n, 8), fours = all;
        row.sgemv("T", &m, &n, &alpha, a.data(), &m, x.data(), &unit, &one, all.data(), &unit, 1);
        for (std::int64_t j = 0; j < n; j += four)
            row.sgemv("T", &m, &four, &alpha, a.data() + j * m, &m, x.data(), &unit, &one, fours.data() + j, &unit, 1);
        EXPECT_TRUE(same_bits(all, fours)) << row.path;
    }
}

TEST(sgemv_order, negative_zeros_add_up_to_a_negative_zero)
{
    for (const path_row &row : rows()) {
        for (const std::int64_t m : {1, 3, 8, 17, 40, 130}) {
            for (const std::int64_t n : {1, 2, 3, 4, 5, 9, 33}) {
                const std::vector<float> a(static_cast<std::size_t>(m * n), -0.0f),
                    x(static_cast<std::size_t>(n), 1.0f);
                std::vector<float> y(static_cast<std::size_t>(m), -0.0f);
                row.sgemv("N", &m, &n, &one, a.data(), &m, x.data(), &unit, &one, y.data(), &unit, 1);
                for (const float value : y)
                    ASSERT_TRUE(value == 0.0f && std::signbit(value)) << row.path << " m " << m << " n " << n;
                const float zero = 0.0f;
                row.sgemv("N", &m, &n, &one, a.data(), &m, x.data(), &unit, &zero, y.data(), &unit, 1);
                for (const float value : y)
                    ASSERT_TRUE(value == 0.0f && !std::signbit(value)) << row.path << " m " << m << " n " << n;
            }
        }
    }
}

// The two steps of one diagonal block.
void block_steps(const path_row &row, const char *uplo, const char *trans, std::int64_t order, const float *a, float *x,
                 std::int64_t from, std::int64_t count)
{
    const bool upper = *uplo == 'U';
    const std::int64_t rest_from = upper ? 0 : from + count, rest = upper ? from : order - rest_from;
    const float *rectangle = a + from * order + rest_from;
    if (*trans == 'N' && rest > 0)
        row.sgemv("N", &rest, &count, &one, rectangle, &order, x + from, &unit, &one, x + rest_from, &unit, 1);
    row.strmv_in(uplo, trans, "N", &count, a + from * order + from, &order, x + from, &unit);
    if (*trans != 'N' && rest > 0)
        row.sgemv("T", &rest, &count, &one, rectangle, &order, x + rest_from, &unit, &one, x + from, &unit, 1);
}

TEST(strmv_order, blocks_of_32_with_the_odd_one_reached_last)
{
    for (const path_row &row : rows()) {
        for (const std::int64_t n : {1, 31, 32, 33, 64, 70, 97}) {
            for (const char *uplo : {"U", "L"}) {
                for (const char *trans : {"N", "T"}) {
                    const std::vector<float> a = uniform(n * n, 4);
                    std::vector<float> x = uniform(n, 5), expected = x;
                    for (std::int64_t done = 0; done < n; done += 32) {
                        const std::int64_t count = std::min<std::int64_t>(32, n - done);
                        const bool upwards = (*uplo == 'U') == (*trans == 'N');
                        block_steps(row, uplo, trans, n, a.data(), expected.data(), upwards ? done : n - done - count,
                                    count);
                    }
                    row.strmv(uplo, trans, "N", &n, a.data(), &n, x.data(), &unit, 1, 1, 1);
                    EXPECT_TRUE(same_bits(x, expected)) << row.path << ' ' << uplo << trans << " n " << n;
                }
            }
        }
    }
}
} // namespace
