// SPDX-License-Identifier: BSD-3-Clause
// The norm by a running scale.
#include "tests/support/random.h"
#include "vector/vector.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace
{
float norm(const std::vector<float> &x, std::int64_t n, std::int64_t inc)
{
    return tesh_lapack_snrm20(&n, x.data(), &inc);
}
} // namespace

TEST(snrm20, zero_where_count_or_increment_is_below_one)
{
    const std::vector<float> x = {3.0f, 4.0f};
    EXPECT_EQ(norm(x, 0, 1), 0.0f);
    EXPECT_EQ(norm(x, -1, 1), 0.0f);
    EXPECT_EQ(norm(x, 2, 0), 0.0f);
    EXPECT_EQ(norm(x, 2, -1), 0.0f);
}

TEST(snrm20, magnitude_of_a_single_element)
{
    EXPECT_EQ(norm({-7.5f}, 1, 1), 7.5f);
    EXPECT_EQ(norm({std::numeric_limits<float>::denorm_min()}, 1, 3), std::numeric_limits<float>::denorm_min());
}

TEST(snrm20, zeros_are_skipped_and_nothing_overflows)
{
    EXPECT_EQ(norm({0.0f, 0.0f, -0.0f}, 3, 1), 0.0f);
    EXPECT_EQ(norm({0.0f, 3e38f, 0.0f}, 3, 1), 3e38f);
    const float large = std::ldexp(1.0f, 125), small = std::ldexp(1.0f, -130);
    EXPECT_EQ(norm({3 * large, 0.0f, 4 * large}, 3, 1), std::ldexp(5.0f, 125));
    EXPECT_EQ(norm({3 * small, 9.0f, 4 * small, 9.0f}, 2, 2), 5 * small);
}

TEST(snrm20, scale_and_sum_are_updated_in_single_precision_in_order)
{
    tesh_test::random random;
    for (std::int64_t n : {2, 3, 10, 100}) {
        std::vector<float> x(static_cast<std::size_t>(n));
        random.fill(x);
        x[1] = 0.0f;
        volatile float scale = 0.0f, ssq = 1.0f; // every step is rounded to single precision
        for (float value : x) {
            if (value == 0.0f)
                continue;
            const float a = std::fabs(value);
            if (scale < a) {
                const volatile float ratio = scale / a, square = ratio * ratio, product = ssq * square;
                ssq = 1.0f + product;
                scale = a;
            } else {
                const volatile float ratio = a / scale, square = ratio * ratio;
                ssq = ssq + square;
            }
        }
        EXPECT_EQ(norm(x, n, 1), scale * std::sqrt(static_cast<float>(ssq)));
    }
}

TEST(snrm20, nan_is_seen)
{
    EXPECT_TRUE(std::isnan(norm({1.0f, std::numeric_limits<float>::quiet_NaN(), 2.0f}, 3, 1)));
}
