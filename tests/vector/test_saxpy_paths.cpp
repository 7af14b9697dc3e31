// SPDX-License-Identifier: BSD-3-Clause
// SAXPY, every member called by its own name, against y(i) := alpha*x(i) + y(i) element by element.
#include "tests/vector/level1.h"

#include <cfenv>

using namespace level1;
using tesh_test::guard;

namespace
{
float axpy(const member_set &m, float alpha, float x, float y)
{
    if (m.fused)
        return std::fma(alpha, x, y);
    const float product = alpha * x;
    return product + y;
}

void expect(const member_set &m, std::int64_t n, float alpha, const operand &x, operand &y)
{
    if (m.is_def() && *y.inc() == 0 && n > 0) { // two sums, joined once; then a product that has no partner
        float even = y.want(0), odd = 0.0f;
        for (std::int64_t i = 0; i + 1 < n; i += 2) {
            even = axpy(m, alpha, x.get(i), even);
            odd = axpy(m, alpha, x.get(i + 1), odd);
        }
        float sum = n > 1 ? even + odd : even;
        if (n % 2 != 0)
            sum = axpy(m, alpha, x.get(n - 1), sum);
        y.want(0, sum);
        return;
    }
    for (std::int64_t i = 0; i < n; ++i)
        y.want(i, axpy(m, alpha, x.get(i), y.want(i)));
}

void run(const member_set &m, std::int64_t n, float alpha, const operand &x, operand &y)
{
    m.saxpy(&n, &alpha, x.data(), x.inc(), y.data(), y.inc());
}
} // namespace

TEST(saxpy, lengths_alignments_and_strides)
{
    for (const member_set &m : members())
        for (float alpha : {1.0f, -1.0f, 0.7f})
            ASSERT_NO_FATAL_FAILURE(sweep(
                m, [&](std::int64_t n, operand &x, operand &y) { expect(m, n, alpha, x, y); },
                [&](std::int64_t n, operand &x, operand &y) { run(m, n, alpha, x, y); }));
}

TEST(saxpy, zero_incy_on_def_sums_even_and_odd_products_apart)
{
    // 2^24 + 1 is no float: in one sum both ones would be lost, in two their sum of 2 arrives.
    const float x[] = {16777216.0f, 1.0f, -16777216.0f, 1.0f, 0.25f};
    for (const member_set &m : members()) {
        const std::int64_t n = 5, one = 1, zero = 0;
        const float alpha = 1.0f;
        float y = 0.0f;
        m.saxpy(&n, &alpha, x, &one, &y, &zero);
        EXPECT_EQ(y, m.is_def() ? 2.25f : 1.25f) << m.path;
    }
}

TEST(saxpy, alpha_zero_touches_no_vector)
{
    for (const member_set &m : members())
        for (float alpha : {0.0f, -0.0f}) {
            const std::int64_t n = 100;
            m.saxpy(&n, &alpha, nullptr, nullptr, nullptr, nullptr);
        }
}

TEST(saxpy, nothing_but_a_count_of_zero_or_below_is_read)
{
    for (const member_set &m : members())
        for (std::int64_t n : {0, -7})
            m.saxpy(&n, nullptr, nullptr, nullptr, nullptr, nullptr);
}

TEST(saxpy, nan_and_infinity_reach_their_own_element_only)
{
    tesh_test::random random;
    for (const member_set &m : members())
        for (std::int64_t n : {1, 4, 33, 70, 135})
            for (std::int64_t place = 0; place < n; ++place)
                for (float special : {not_a_number, infinity}) {
                    operand x(random, n, 1, guard::at_end, 4), y(random, n, 1, guard::at_end);
                    x.set(place, special);
                    expect(m, n, 0.5f, x, y);
                    run(m, n, 0.5f, x, y);
                    ASSERT_TRUE(y.holds()) << m.path;
                    ASSERT_FALSE(std::isfinite(y.get(place)));
                }
}

TEST(saxpy, nan_factor_does_not_return_early)
{
    tesh_test::random random;
    for (const member_set &m : members()) {
        operand x(random, 50, 1, guard::at_end), y(random, 50, 1, guard::at_end);
        run(m, 50, not_a_number, x, y);
        for (std::int64_t i = 0; i < 50; ++i)
            EXPECT_TRUE(std::isnan(y.get(i))) << m.path;
    }
}

TEST(saxpy, an_infinite_factor_raises_no_flag)
{
    for (const member_set &m : members())
        for (std::int64_t n = 1; n < 70; ++n) {
            std::vector<float> x(70, 1.0f), y(70, 1.0f);
            const std::int64_t one = 1;
            std::feclearexcept(FE_ALL_EXCEPT);
            m.saxpy(&n, &infinity, x.data(), &one, y.data(), &one);
            EXPECT_EQ(std::fetestexcept(FE_INVALID | FE_OVERFLOW), 0) << m.path << " n " << n;
            EXPECT_EQ(y[0], infinity);
        }
}
