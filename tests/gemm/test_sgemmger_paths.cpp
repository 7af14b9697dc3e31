// SPDX-License-Identifier: BSD-3-Clause
// The fused rank-1 update, every member called by its own name, against its element formula.
#include "gemm/sgemmger_paths.h"
#include "tests/support/guard_pages.h"
#include "tests/support/random.h"
#include "tests/support/test_paths.h"

#include <gtest/gtest.h>

#include <cfenv>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

namespace
{
using tesh_test::guard;
using tesh_test::guarded_array;

struct member {
    std::string path;
    bool fused; // product and sum in one rounding
    tesh_blas_sgemmger_fn *call;
};

std::vector<member> members()
{
    const member all[] = {{"def", false, tesh_blas_def_xsgemmger},
                          {"cnr_def", false, tesh_blas_cnr_def_xsgemmger},
                          {"mc3", false, tesh_blas_mc3_xsgemmger},
                          {"avx2", true, tesh_blas_avx2_xsgemmger},
                          {"avx512", true, tesh_blas_avx512_xsgemmger}};
    return tesh_test::rows_to_run(all);
}

// Operands of one call: every array ends at a page that faults, or begins behind one.
struct operands {
    std::int64_t m, n, incx, incy, ldc;
    guarded_array<float> x, y, c;
    std::vector<float> before;

    static std::size_t span(std::int64_t count, std::int64_t inc)
    {
        return count <= 0 ? 0 : static_cast<std::size_t>((count - 1) * std::llabs(inc) + 1);
    }
    operands(tesh_test::random &random, std::int64_t rows, std::int64_t columns, std::int64_t inc_x, std::int64_t inc_y,
             std::int64_t gap, guard side)
        : m(rows), n(columns), incx(inc_x), incy(inc_y), ldc(rows + gap), x(span(m, incx), side),
          y(span(n, incy), side), c(m > 0 && n > 0 ? static_cast<std::size_t>((n - 1) * ldc + m) : 0, side)
    {
        random.fill(x);
        random.fill(y);
        random.fill(c);
        before.assign(c.begin(), c.end());
    }
    static float element(const guarded_array<float> &a, std::int64_t count, std::int64_t inc, std::int64_t i)
    {
        return a[static_cast<std::size_t>((inc < 0 ? (1 - count) * inc : 0) + i * inc)];
    }
    void call(const member &who, float alpha, float beta)
    {
        who.call("N", "N", &m, &n, &alpha, x.data(), &incx, y.data(), &incy, &beta, c.data(), &ldc);
    }
    float expected(bool fused, float alpha, float beta, std::int64_t i, std::int64_t j, float old) const
    {
        const float t = element(y, n, incy, j) * alpha, x_i = element(x, m, incx, i);
        const float product = x_i * t;
        if (beta == 0.0f)
            return product;
        const float scaled = beta == 1.0f ? old : beta * old;
        return fused ? std::fma(x_i, t, scaled) : scaled + product;
    }
    ::testing::AssertionResult holds(bool fused, float alpha, float beta) const
    {
        std::vector<float> want(before);
        for (std::int64_t j = 0; j < n; ++j)
            for (std::int64_t i = 0; i < m; ++i) {
                float &w = want[static_cast<std::size_t>(i + j * ldc)];
                w = alpha == 0.0f ? (beta == 0.0f ? 0.0f : beta * w) : expected(fused, alpha, beta, i, j, w);
            }
        for (std::size_t k = 0; k < want.size(); ++k)
            if (std::memcmp(&want[k], &c[k], 4) != 0 && !(std::isnan(want[k]) && std::isnan(c[k])))
                return ::testing::AssertionFailure() << "at " << k << ": " << c[k] << ", not " << want[k];
        return ::testing::AssertionSuccess();
    }
};

constexpr float factors[] = {0.0f, 1.0f, -1.0f, 0.7f};
constexpr float not_a_number = std::numeric_limits<float>::quiet_NaN();
} // namespace

TEST(sgemmger, shapes_and_factors_against_guard_pages)
{
    tesh_test::random random;
    for (const member &who : members())
        for (guard side : {guard::at_end, guard::at_start})
            for (std::int64_t m :
                 {1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 24, 25, 26, 31, 32, 33, 63, 64, 65, 80, 127, 130})
                for (std::int64_t n : {1, 2, 3, 7})
                    for (std::int64_t gap : {0, 1, 16})
                        for (float alpha : factors)
                            for (float beta : factors) {
                                operands o(random, m, n, 1, 1, gap, side);
                                o.call(who, alpha, beta);
                                ASSERT_TRUE(o.holds(who.fused, alpha, beta))
                                    << who.path << " " << m << " x " << n << " alpha " << alpha << " beta " << beta;
                            }
}

TEST(sgemmger, strided_vectors_of_either_sign)
{
    tesh_test::random random;
    for (const member &who : members())
        for (std::int64_t incx : {7, 2, -1, -3, 0})
            for (std::int64_t incy : {1, 5, -1, -2, 0})
                for (std::int64_t m : {1, 7, 8, 9, 15, 16, 64, 67, 511, 512, 513, 1100})
                    for (float beta : factors) {
                        operands o(random, m, 3, incx, incy, 2, guard::at_end);
                        o.call(who, 0.7f, beta);
                        ASSERT_TRUE(o.holds(who.fused, 0.7f, beta)) << who.path << " m " << m << " incx " << incx;
                    }
}

TEST(sgemmger, beta_zero_never_reads_c)
{
    tesh_test::random random;
    for (const member &who : members())
        for (std::int64_t m : {1, 7, 24, 25, 70})
            for (std::int64_t incx : {1, 7})
                for (float alpha : {0.0f, 0.7f})
                    for (float beta : {0.0f, -0.0f}) {
                        operands o(random, m, 3, incx, 1, 0, guard::at_end);
                        for (float &value : o.c)
                            value = not_a_number;
                        o.call(who, alpha, beta);
                        ASSERT_TRUE(o.holds(who.fused, alpha, 0.0f)) << who.path;
                        for (float value : o.c)
                            ASSERT_FALSE(std::isnan(value));
                    }
}

TEST(sgemmger, alpha_zero_reads_neither_vector)
{
    for (const member &who : members())
        for (float beta : factors) {
            std::vector<float> c(60, 3.0f);
            const std::int64_t m = 30, n = 2, ldc = 30;
            const float alpha = 0.0f;
            who.call("N", "T", &m, &n, &alpha, nullptr, nullptr, nullptr, nullptr, &beta, c.data(), &ldc);
            EXPECT_EQ(c, std::vector<float>(60, 3.0f * beta)) << who.path;
        }
}

TEST(sgemmger, alpha_zero_and_beta_one_leave_c)
{
    for (const member &who : members()) {
        const std::int64_t m = 30, n = 2, ldc = 30;
        const float alpha = 0.0f, beta = 1.0f;
        who.call("N", "N", &m, &n, &alpha, nullptr, nullptr, nullptr, nullptr, &beta, nullptr, &ldc);
    }
}

TEST(sgemmger, empty_shapes_touch_nothing)
{
    for (const member &who : members())
        for (auto [rows, columns] : {std::pair<std::int64_t, std::int64_t>(0, 5), {5, 0}, {-1, 5}, {5, -1}}) {
            const std::int64_t m = rows, n = columns;
            who.call(nullptr, nullptr, &m, &n, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
        }
}

TEST(sgemmger, special_values_travel)
{
    tesh_test::random random;
    for (const member &who : members())
        for (float special : {not_a_number, std::numeric_limits<float>::infinity()})
            for (float beta : factors)
                for (std::int64_t place : {0, 3, 8, 20, 36}) {
                    operands o(random, 37, 4, 1, 1, 1, guard::at_end);
                    o.x[static_cast<std::size_t>(place)] = special;
                    o.y[2] = 0.0f; // not skipped: 0 times the special value is NaN
                    o.call(who, 0.5f, beta);
                    ASSERT_TRUE(o.holds(who.fused, 0.5f, beta)) << who.path;
                    ASSERT_TRUE(std::isnan(o.c[static_cast<std::size_t>(place + 2 * o.ldc)]));
                }
    for (const member &who : members())
        for (auto [alpha, beta] : {std::pair(not_a_number, 1.0f), std::pair(0.0f, not_a_number)}) {
            operands o(random, 20, 3, 1, 1, 0, guard::at_end);
            o.call(who, alpha, beta);
            for (float value : o.c)
                ASSERT_TRUE(std::isnan(value));
        }
}

TEST(sgemmger, an_infinite_factor_raises_no_flag)
{
    const float infinite = std::numeric_limits<float>::infinity();
    for (const member &who : members())
        for (std::int64_t m = 1; m < 70; ++m)
            for (auto [alpha, beta] : {std::pair(infinite, 0.0f), std::pair(infinite, 1.0f), std::pair(infinite, 2.0f),
                                       std::pair(2.0f, infinite), std::pair(0.0f, infinite)}) {
                const std::vector<float> x(70, 1.0f);
                std::vector<float> c(210, 1.0f);
                const std::int64_t n = 3, one = 1;
                std::feclearexcept(FE_ALL_EXCEPT);
                who.call("N", "T", &m, &n, &alpha, x.data(), &one, x.data(), &one, &beta, c.data(), &m);
                EXPECT_EQ(std::fetestexcept(FE_INVALID | FE_OVERFLOW), 0) << who.path << " m " << m;
                EXPECT_EQ(c[0], infinite);
            }
}

TEST(sgemmger, offsets_beyond_two_to_the_31_elements)
{
    if (!tesh_test::in_long_set())
        GTEST_SKIP() << "long set";
    for (const member &who : members()) {
        const std::int64_t m = 3, n = 2, ldc = (std::int64_t(1) << 31) + 7, one = 1;
        guarded_array<float> c(static_cast<std::size_t>(ldc + 3));
        const float x[] = {1.0f, 2.0f, 3.0f}, y[] = {4.0f, 5.0f}, factor = 1.0f;
        who.call("N", "N", &m, &n, &factor, x, &one, y, &one, &factor, c.data(), &ldc);
        EXPECT_EQ(c[0], 4.0f);
        EXPECT_EQ(c[static_cast<std::size_t>(ldc + 2)], 15.0f) << who.path;
    }
}
