// SPDX-License-Identifier: BSD-3-Clause
// Scalar functions: signs, powers, truncation, complex moduli and roots, workspace answers.
#include <gtest/gtest.h>

#include <cctype>
#include <cmath>
#include <limits>

#include "frame/tesh_serv.h"
#include "tests/support/random.h"

namespace
{
constexpr double infinity = std::numeric_limits<double>::infinity();
const double not_a_number = std::numeric_limits<double>::quiet_NaN();

// Each routine in both precisions, by value.
float s_sign(float a, float b)
{
    return tesh_serv_s_sign(&a, &b);
}
double d_sign(double a, double b)
{
    return tesh_serv_d_sign(&a, &b);
}
float s_powi(float x, int64_t n)
{
    return tesh_serv_s_powi(&x, &n);
}
double d_powi(double x, int64_t n)
{
    return tesh_serv_d_powi(&x, &n);
}
float s_int(float x)
{
    return tesh_serv_s_int(&x);
}
double d_int(double x)
{
    return tesh_serv_d_int(&x);
}
float s_round(float x)
{
    return tesh_serv_s_round(&x);
}
double d_round(double x)
{
    return tesh_serv_d_round(&x);
}

TEST(lsame, folds_ascii_letters_only_and_ignores_the_lengths)
{
    EXPECT_TRUE(tesh_serv_lsame("n", "N", 0, 0));
    EXPECT_TRUE(tesh_serv_lsame("N", "n", 1, 1));
    EXPECT_TRUE(tesh_serv_lsame("Nx", "ny", 2, 2));
    EXPECT_FALSE(tesh_serv_lsame("n", "T", 1, 1));
    EXPECT_FALSE(tesh_serv_lsame("@", "`", 1, 1));
    EXPECT_FALSE(tesh_serv_lsame("[", "{", 1, 1));
    EXPECT_FALSE(tesh_serv_lsame("\xc4", "\xe4", 1, 1));
    EXPECT_TRUE(tesh_serv_lsame("1", "1", 1, 1));
    for (int a = 0; a < 128; ++a) {
        for (int b = 0; b < 128; ++b) {
            const char x = static_cast<char>(a), y = static_cast<char>(b);
            ASSERT_EQ(tesh_serv_lsame(&x, &y, 1, 1), a == b || (std::isalpha(a) && (a ^ b) == 0x20)) << a << ' ' << b;
        }
    }
}

TEST(lsame, is_false_for_null)
{
    EXPECT_FALSE(tesh_serv_lsame(nullptr, "N", 1, 1));
    EXPECT_FALSE(tesh_serv_lsame("N", nullptr, 1, 1));
    EXPECT_FALSE(tesh_serv_lsame(nullptr, nullptr, 1, 1));
}

TEST(sign, gives_the_magnitude_the_sign_and_takes_negative_zero_as_not_negative)
{
    for (const double magnitude : {2.5, -2.5}) {
        EXPECT_EQ(s_sign(float(magnitude), 3.0f), 2.5f);
        EXPECT_EQ(s_sign(float(magnitude), -3.0f), -2.5f);
        EXPECT_EQ(s_sign(float(magnitude), 0.0f), 2.5f);
        EXPECT_EQ(s_sign(float(magnitude), -0.0f), 2.5f);
        EXPECT_EQ(d_sign(magnitude, 3.0), 2.5);
        EXPECT_EQ(d_sign(magnitude, -3.0), -2.5);
        EXPECT_EQ(d_sign(magnitude, -0.0), 2.5);
    }
    EXPECT_FALSE(std::signbit(s_sign(-0.0f, 1.0f)));
    EXPECT_TRUE(std::signbit(s_sign(-0.0f, -1.0f)));
    EXPECT_TRUE(std::signbit(d_sign(0.0, -infinity)));
}

TEST(powi, squares_repeatedly)
{
    EXPECT_EQ(s_powi(3.0f, 5), 243.0f);
    EXPECT_EQ(s_powi(-2.0f, 3), -8.0f);
    EXPECT_EQ(s_powi(2.0f, -3), 0.125f);
    EXPECT_EQ(s_powi(7.0f, 0), 1.0f);
    EXPECT_EQ(s_powi(0.0f, 0), 1.0f);
    EXPECT_EQ(s_powi(0.0f, -1), std::numeric_limits<float>::infinity());
    EXPECT_EQ(d_powi(10.0, 15), 1e15);
    EXPECT_EQ(d_powi(2.0, 1023), 0x1p1023);
    EXPECT_EQ(d_powi(2.0, -1022), 0x1p-1022);
    EXPECT_EQ(d_powi(-1.0, INT64_MAX), -1.0);
    EXPECT_EQ(d_powi(-1.0, INT64_MIN), 1.0);
    EXPECT_EQ(d_powi(0x1p600, 1), 0x1p600) << "no square beyond the last one needed";
}

TEST(int, truncates_toward_zero)
{
    EXPECT_EQ(s_int(2.9f), 2.0f);
    EXPECT_EQ(s_int(-2.9f), -2.0f);
    EXPECT_EQ(s_int(8388607.5f), 8388607.0f);
    EXPECT_EQ(s_int(1e30f), 1e30f);
    EXPECT_EQ(d_int(-4503599627370495.5), -4503599627370495.0);
    EXPECT_EQ(d_int(1e300), 1e300);
    EXPECT_EQ(d_int(-infinity), -infinity);
    EXPECT_TRUE(std::isnan(d_int(not_a_number)));
}

TEST(round, goes_half_away_from_zero)
{
    EXPECT_EQ(s_round(2.5f), 3.0f);
    EXPECT_EQ(s_round(-2.5f), -3.0f);
    EXPECT_EQ(s_round(2.25f), 2.0f);
    EXPECT_EQ(s_round(-2.25f), -2.0f);
    EXPECT_EQ(s_round(0.0f), 0.0f);
    EXPECT_FALSE(std::signbit(s_round(0.0f)));
    EXPECT_EQ(s_round(-0.0f), 0.0f);
    EXPECT_EQ(d_round(0.5), 1.0);
    EXPECT_EQ(d_round(-0.5), -1.0);
    EXPECT_EQ(d_round(-0.25), 0.0);
    EXPECT_EQ(d_round(1e300), 1e300);
}

TEST(cos, is_that_of_double_precision)
{
    for (const float x : {0.0f, 0.5f, 1.5707964f, 3.1415927f, -2.0f, 1e6f})
        EXPECT_EQ(tesh_serv_s_cos(&x), static_cast<float>(std::cos(static_cast<double>(x))));
}

TEST(hypot, neither_overflows_nor_underflows)
{
    EXPECT_EQ(tesh_serv_hypot(3.0, 4.0), 5.0);
    EXPECT_EQ(tesh_serv_hypot(-3.0, -4.0), 5.0);
    EXPECT_EQ(tesh_serv_hypot(0.0, -7.0), 7.0);
    EXPECT_EQ(tesh_serv_hypot(0.0, 0.0), 0.0);
    for (const double scale : {0x1p1020, 0x1p700, 0x1p510, 0x1p-449, 0x1p-460, 0x1p-700, 0x1p-1070, 0x1p-1073})
        EXPECT_EQ(tesh_serv_hypot(3.0 * scale, 4.0 * scale), 5.0 * scale);
    EXPECT_EQ(tesh_serv_hypot(1e308, 1e308), std::hypot(1e308, 1e308));
    EXPECT_EQ(tesh_serv_hypot(1.7e308, 1.7e308), infinity);
    EXPECT_EQ(tesh_serv_hypot(1e300, 1e-300), 1e300);
}

TEST(hypot, infinity_takes_precedence_over_not_a_number)
{
    EXPECT_EQ(tesh_serv_hypot(infinity, not_a_number), infinity);
    EXPECT_EQ(tesh_serv_hypot(not_a_number, -infinity), infinity);
    EXPECT_TRUE(std::isnan(tesh_serv_hypot(not_a_number, 1.0)));
    EXPECT_TRUE(std::isnan(tesh_serv_hypot(0.0, not_a_number)));
}

// One rounding in each square, the sum and the root, and half of the first two show: 1 + 1/2 units at most.
TEST(hypot, is_within_two_units_of_the_last_place)
{
    tesh_test::random random(20251007);
    for (int i = 0; i < 20000; ++i) {
        const double x = std::ldexp(static_cast<double>(random.uniform()), int(random.below(1801)) - 900);
        const double y = std::ldexp(x, int(random.below(81)) - 40) * static_cast<double>(random.uniform());
        const long double exact = std::hypot(static_cast<long double>(x), static_cast<long double>(y));
        const long double unit = std::max(std::ldexp(1.0L, std::ilogb(exact) - 52), 0x1p-1074L);
        ASSERT_LE(std::fabs(tesh_serv_hypot(x, y) - exact), 2 * unit) << x << ' ' << y;
    }
}

TEST(complex_modulus, is_the_hypotenuse)
{
    const tesh_complex16 z = {3e200, -4e200};
    EXPECT_EQ(tesh_serv_z_abs(&z), tesh_serv_hypot(3e200, 4e200));
    const tesh_complex8 c = {-3e30f, 4e30f};
    EXPECT_FLOAT_EQ(tesh_serv_c_abs(&c), 5e30f);
}

TEST(complex_root, squares_back)
{
    for (const double x : {4.0, 1e-3, 0.0, -1e-3, -4.0}) {
        for (const double y : {3.0, 1e-9, 0.0, -1e-9, -3.0}) {
            const tesh_complex16 z = {x, y};
            tesh_complex16 r;
            tesh_serv_z_sqrt(&r, &z);
            const double h = std::hypot(x, y);
            EXPECT_NEAR(r.re * r.re - r.im * r.im, x, 4e-16 * h);
            EXPECT_NEAR(2 * r.re * r.im, y, 4e-16 * h);
            EXPECT_GE(r.re, 0.0);
            EXPECT_FALSE(y != 0 && std::signbit(r.im) != std::signbit(y));
        }
    }
}

TEST(complex_root, of_special_points)
{
    double re = 1, im = 1;
    tesh_serv_sqrt(&re, &im, 0.0, 0.0);
    EXPECT_EQ(re, 0.0);
    EXPECT_EQ(im, 0.0);
    tesh_serv_sqrt(&re, &im, 9.0, 0.0);
    EXPECT_EQ(re, 3.0);
    EXPECT_EQ(im, 0.0);
    tesh_serv_sqrt(&re, &im, -9.0, 0.0);
    EXPECT_EQ(re, 0.0);
    EXPECT_EQ(im, 3.0);
    const tesh_complex8 z = {3.0f, -4.0f};
    tesh_complex8 r;
    tesh_serv_c_sqrt(&r, &z);
    EXPECT_EQ(r.re, 2.0f);
    EXPECT_EQ(r.im, -1.0f);
}

TEST(workspace_answer, in_single_precision_is_never_below_the_size)
{
    EXPECT_EQ(tesh_serv_int2f_ceil(0), 0.0f);
    EXPECT_EQ(tesh_serv_int2f_ceil(16777216), 16777216.0f);
    EXPECT_EQ(tesh_serv_int2f_ceil(16777217), 16777218.0f);
    EXPECT_EQ(tesh_serv_int2f_ceil(16777219), 16777220.0f);
    // 31000001 lies between 31000000 and 31000002 and converts to the former; 31000000 (1 + 2^-23) is 31000003.7.
    EXPECT_EQ(tesh_serv_int2f_ceil(31000001), 31000004.0f);
    tesh_test::random random(7);
    for (int i = 0; i < 200000; ++i) {
        const int64_t n = random.below(INT64_C(9223371487098961920)) >> random.below(41);
        for (const int64_t value : {n, -n}) {
            const float f = tesh_serv_int2f_ceil(value);
            ASSERT_GE(static_cast<long double>(f), static_cast<long double>(value));
            ASSERT_LE(std::fabs(static_cast<long double>(f) - value), 0x1p-22L * n);
        }
    }
}

TEST(workspace_answer, stays_convertible_to_64_bits)
{
    EXPECT_EQ(tesh_serv_int2f_ceil(INT64_MAX), 9223371487098961920.0f);
    EXPECT_EQ(tesh_serv_int2f_ceil(INT64_C(9223371487098961920)), 9223371487098961920.0f);
    EXPECT_EQ(tesh_serv_int2d_ceil(INT64_MAX), 9223372036854774784.0);
}

TEST(workspace_answer, in_double_precision_is_the_next_value)
{
    EXPECT_EQ(tesh_serv_int2d_ceil(16777217), 16777217.0);
    EXPECT_EQ(tesh_serv_int2d_ceil(9007199254740992), 9007199254740992.0);
    EXPECT_EQ(tesh_serv_int2d_ceil(9007199254740993), 9007199254740994.0);
    EXPECT_EQ(tesh_serv_int2d_ceil(9007199254740995), 9007199254740996.0);
}
} // namespace
