// SPDX-License-Identifier: BSD-3-Clause
// SGER of every path, entered directly: A := alpha*x*y^T + A.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <string>

#include "tests/support/test_paths.h"
#include "tests/support/tolerance.h"
#include "tests/vector/matrix_vector_support.h"
#include "vector/matrix_vector_paths.h"

using tesh_test::filling;
using tesh_test::guard;
using tesh_test::matrix;
using tesh_test::strided_vector;

namespace
{
constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();
constexpr float inf_value = std::numeric_limits<float>::infinity();

struct path_row {
    const char *path;
    tesh_blas_sger_fn *sger;
};
constexpr path_row all_rows[] = {
    {"def", tesh_blas_def_xsger},   {"cnr_def", tesh_blas_cnr_def_xsger}, {"mc3", tesh_blas_mc3_xsger},
    {"avx2", tesh_blas_avx2_xsger}, {"avx512", tesh_blas_avx512_xsger},
};

std::vector<path_row> rows()
{
    return tesh_test::rows_to_run(all_rows);
}

struct shape {
    std::int64_t m, n, extra_lda, incx, incy;
};

struct operands {
    matrix a;
    strided_vector x, y;
    shape s;
    operands(const shape &shape_, filling kind, guard side)
        : a(shape_.m, shape_.n, shape_.m + shape_.extra_lda, side), x(shape_.m, shape_.incx, side),
          y(shape_.n, shape_.incy, side), s(shape_)
    {
        tesh_test::random source(7);
        tesh_test::fill_elements(x, s.m, kind, source);
        tesh_test::fill_elements(y, s.n, kind, source);
        for (std::int64_t j = 0; j < s.n; ++j) {
            for (std::int64_t i = 0; i < s.m; ++i)
                a(i, j) = kind == filling::integers ? source.small_integer() : source.uniform();
        }
    }
    void call(float alpha, tesh_blas_sger_fn *routine) const
    {
        const std::int64_t lda = s.m + s.extra_lda;
        routine(&s.m, &s.n, &alpha, x.data(), &s.incx, y.data(), &s.incy, a.data(), &lda);
    }
};

// One call against plain loops, the gaps between columns included.
void check(const path_row &row, const shape &s, filling kind, guard side, tesh_test::worst_ratio &worst)
{
    const bool exact = kind == filling::integers;
    const double alpha = exact ? -2.0 : static_cast<double>(0.7f);
    const operands o(s, kind, side), before(s, kind, side);
    o.call(static_cast<float>(alpha), row.sger);
    for (std::int64_t j = 0; j < s.n; ++j) {
        for (std::int64_t i = 0; i < s.m; ++i) {
            const double product = alpha * static_cast<double>(o.x[i]) * static_cast<double>(o.y[j]);
            const double old = static_cast<double>(before.a(i, j)), expected = old + product;
            const double got = static_cast<double>(o.a(i, j));
            const double bound = exact ? 0.0 : tesh_test::product_bound(1, alpha, std::fabs(product) + std::fabs(old));
            worst.see(got, expected, bound);
            ASSERT_LE(std::fabs(got - expected), bound)
                << row.path << " m " << s.m << " n " << s.n << " incx " << s.incx << " incy " << s.incy;
        }
    }
    ASSERT_TRUE(o.a.gaps_untouched());
}

TEST(sger, agrees_for_shapes_and_increments)
{
    constexpr std::int64_t increments[][2] = {{1, 1}, {2, -1}, {-3, 2}, {0, 0}};
    tesh_test::worst_ratio worst;
    for (const path_row &row : rows())
        for (const std::int64_t m : {1, 2, 7, 15, 16, 17, 33, 100})
            for (const std::int64_t n : {1, 2, 3, 8, 9})
                for (const auto &[incx, incy] : increments)
                    for (const filling kind : {filling::integers, filling::random})
                        for (const guard side : {guard::at_end, guard::at_start})
                            check(row, {m, n, n % 3, incx, incy}, kind, side, worst);
    std::printf("worst error: %.3f of the bound\n", worst.value);
    EXPECT_LE(worst.value, 1.0);
}

TEST(sger, empty_shapes_and_alpha_zero_touch_nothing)
{
    const std::int64_t zero = 0, five = 5, one = 1, minus = -1;
    const float alpha = 1.0f, no_alpha = 0.0f, minus_zero = -0.0f;
    for (const path_row &row : rows()) {
        row.sger(&zero, &five, &alpha, nullptr, &one, nullptr, &one, nullptr, &five);
        row.sger(&five, &zero, &alpha, nullptr, &one, nullptr, &one, nullptr, &five);
        row.sger(&minus, &five, &alpha, nullptr, &one, nullptr, &one, nullptr, &five);
        row.sger(&five, &five, &no_alpha, nullptr, &one, nullptr, &one, nullptr, &five);
        row.sger(&five, &five, &minus_zero, nullptr, &one, nullptr, &minus, nullptr, &five);
    }
}

TEST(sger, zero_in_y_leaves_its_column_even_if_x_holds_nan_or_alpha_is_infinite)
{
    for (const path_row &row : rows()) {
        for (const float zero : {0.0f, -0.0f}) {
            const shape s = {19, 6, 1, 1, -2};
            const operands o(s, filling::random, guard::at_end), before(s, filling::random, guard::at_end);
            o.x[4] = nan_value;
            o.y[1] = o.y[4] = zero;
            o.a(4, 1) = nan_value;
            o.call(1.0f, row.sger);
            const operands infinite(s, filling::random, guard::at_end);
            infinite.y[1] = infinite.y[4] = zero;
            infinite.call(inf_value, row.sger);
            for (std::int64_t j = 0; j < s.n; ++j) {
                for (std::int64_t i = 0; i < s.m; ++i) {
                    if (j == 1 || j == 4) {
                        ASSERT_EQ(infinite.a(i, j), before.a(i, j)) << row.path << ' ' << i << ' ' << j;
                    }
                    const bool nan_expected = i == 4 && j != 4;
                    ASSERT_EQ(std::isnan(o.a(i, j)), nan_expected) << row.path << ' ' << i << ' ' << j;
                    if (!nan_expected && (j == 1 || j == 4)) {
                        ASSERT_EQ(o.a(i, j), before.a(i, j)) << row.path << ' ' << i << ' ' << j;
                    }
                }
            }
        }
    }
}

TEST(sger, nan_in_y_or_alpha_is_not_skipped)
{
    for (const path_row &row : rows()) {
        const shape s = {21, 5, 0, 1, 1};
        const operands o(s, filling::integers, guard::at_end), all(s, filling::integers, guard::at_end);
        o.y[2] = nan_value;
        o.call(1.0f, row.sger);
        for (std::int64_t j = 0; j < s.n; ++j) {
            all.y[j] = 1.0f;
            for (std::int64_t i = 0; i < s.m; ++i)
                ASSERT_EQ(std::isnan(o.a(i, j)), j == 2) << row.path << ' ' << i << ' ' << j;
        }
        all.call(nan_value, row.sger);
        for (std::int64_t j = 0; j < s.n; ++j) {
            for (std::int64_t i = 0; i < s.m; ++i)
                ASSERT_TRUE(std::isnan(all.a(i, j))) << row.path << ' ' << i << ' ' << j;
        }
    }
}

// alpha*y(j) can be zero where neither factor is: the vector routine under it then returns at once.
TEST(sger, factor_that_underflows_to_zero_leaves_its_column)
{
    for (const path_row &row : rows()) {
        const shape s = {9, 2, 0, 1, 1};
        const operands o(s, filling::integers, guard::at_end), before(s, filling::integers, guard::at_end);
        o.y[0] = 0x1p-100f;
        o.y[1] = 1.0f;
        o.x[3] = inf_value;
        o.call(0x1p-100f, row.sger);
        EXPECT_EQ(o.a(3, 0), before.a(3, 0)) << row.path;
        EXPECT_EQ(o.a(3, 1), inf_value) << row.path;
    }
}
} // namespace
