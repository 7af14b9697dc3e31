// SPDX-License-Identifier: BSD-3-Clause
// Fronts and dispatchers of level 1, and the public SAXPBY, in children whose environment steers the path.
#include "frame/tesh_blas.h"
#include "gemm/sgemm.h"
#include "tests/support/child.h"
#include "tests/support/test_paths.h"
#include "vector/vector.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <map>
#include <string>

namespace
{
const std::int64_t one = 1, zero = 0;

// Which kind of member answers, by its roundings: "fused" (avx2, avx512); "two sums" (def, cnr_def: a y that every
// product goes to); "one sum" (mc3).
const char *kind_of_member()
{
    const float alpha = 1.0f + std::ldexp(1.0f, -12), minus = -1.0f;
    float y = 1.0f + std::ldexp(1.0f, -11);
    tesh_blas_saxpby(&one, &alpha, &alpha, &one, &minus, &y, &one);
    if (y != 0.0f) // the last bit of alpha^2 has survived
        return "fused";
    const float x[] = {16777216.0f, 1.0f, -16777216.0f, 1.0f}, factor = 1.0f;
    const std::int64_t n = 4;
    float sum = 0.0f;
    tesh_blas_saxpy(&n, &factor, x, &one, &sum, &zero);
    return sum == 2.0f ? "two sums" : "one sum";
}

std::string kind_under(const std::map<std::string, std::string> &environment)
{
    std::map<std::string, std::string> settings = {
        {"TESH_TRUSTED_VENDORS", ""}, {"TESH_ENABLE_INSTRUCTIONS", ""}, {"TESH_CBWR", ""}};
    for (const auto &[name, value] : environment)
        settings[name] = value;
    return tesh_test::run_forked(
               [] {
                   std::printf("%s", kind_of_member());
                   return 0;
               },
               settings)
        .out;
}
} // namespace

TEST(level1, environment_steers_the_member)
{
    if (!tesh_test::machine_has_path("avx2"))
        GTEST_SKIP() << "this processor has no avx2 path";
    EXPECT_EQ(kind_under({{"TESH_TRUSTED_VENDORS", "any"}}), "fused");
    EXPECT_EQ(kind_under({{"TESH_TRUSTED_VENDORS", "any"}, {"TESH_ENABLE_INSTRUCTIONS", "AVX2"}}), "fused");
    EXPECT_EQ(kind_under({{"TESH_TRUSTED_VENDORS", "any"}, {"TESH_ENABLE_INSTRUCTIONS", "SSE4_2"}}), "one sum");
    EXPECT_EQ(kind_under({{"TESH_TRUSTED_VENDORS", "any"}, {"TESH_CBWR", "SSE4_2"}}), "one sum");
    EXPECT_EQ(kind_under({{"TESH_TRUSTED_VENDORS", "any"}, {"TESH_CBWR", "COMPATIBLE"}}), "two sums");
    EXPECT_EQ(kind_under({{"TESH_TRUSTED_VENDORS", "NobodysChips"}}), "two sums");
}

TEST(level1, every_dispatcher_reaches_its_routine)
{
    const tesh_test::child_result child = tesh_test::run_forked(
        [] {
            float x[] = {3.0f, 4.0f}, y[] = {1.0f, 2.0f};
            const std::int64_t n = 2, ldc = 2;
            const float half = 0.5f, two = 2.0f, c = 0.0f, s = 1.0f;
            tesh_blas_xsaxpby(&n, &two, x, &one, &half, y, &one); // y: 6.5 9
            tesh_blas_xsaxpy(&n, &two, x, &one, y, &one);         // y: 12.5 17
            tesh_blas_xsscal(&n, &two, y, &one);                  // y: 25 34
            tesh_blas_xsswap(&n, x, &one, y, &one);               // x: 25 34, y: 3 4
            tesh_blas_xsrot(&n, x, &one, y, &one, &c, &s);        // x: 3 4, y: -25 -34
            const float norm = tesh_blas_xsnrm2(&n, x, &one);
            std::printf("%g %g %g %g %g", static_cast<double>(x[0]), static_cast<double>(x[1]),
                        static_cast<double>(y[0]), static_cast<double>(y[1]), static_cast<double>(norm));
            tesh_blas_xscopy(&n, x, &one, y, &one);
            float matrix[] = {1.0f, 1.0f, 1.0f, 1.0f};
            tesh_blas_sgemmger("N", "N", &n, &n, &two, x, &one, y, &one, &half, matrix, &ldc);
            std::printf(" %g %g %g %g", static_cast<double>(y[0]), static_cast<double>(y[1]),
                        static_cast<double>(matrix[0]), static_cast<double>(matrix[3]));
            return 0;
        },
        {{"TESH_TRUSTED_VENDORS", "any"}});
    EXPECT_EQ(child.exit_code, 0) << child.err;
    EXPECT_EQ(child.out, "3 4 -25 -34 5 3 4 18.5 32.5");
}

TEST(level1, fronts_return_before_they_read)
{
    const float factor_zero = 0.0f, factor_one = 1.0f;
    for (std::int64_t n : {std::int64_t(0), std::int64_t(-1), std::numeric_limits<std::int64_t>::min()}) {
        tesh_blas_saxpby(&n, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
        tesh_blas_saxpy(&n, nullptr, nullptr, nullptr, nullptr, nullptr);
        tesh_blas_scopy(&n, nullptr, nullptr, nullptr, nullptr);
        tesh_blas_sscal(&n, nullptr, nullptr, nullptr);
    }
    const std::int64_t n = 10;
    tesh_blas_saxpby(&n, &factor_zero, nullptr, &one, &factor_one, nullptr, &one);
    tesh_blas_saxpy(&n, &factor_zero, nullptr, &one, nullptr, &one);
}

TEST(level1, front_with_a_nan_factor_goes_on)
{
    const float nan = std::numeric_limits<float>::quiet_NaN(), factor_one = 1.0f, factor_zero = 0.0f, x = 1.0f;
    float y = 2.0f;
    tesh_blas_saxpby(&one, &nan, &x, &one, &factor_one, &y, &one);
    EXPECT_TRUE(std::isnan(y));
    y = 2.0f;
    tesh_blas_saxpby(&one, &factor_zero, &x, &one, &nan, &y, &one);
    EXPECT_TRUE(std::isnan(y));
}

TEST(level1, public_saxpby_reverses_and_scales_under_every_convention)
{
    const float x[] = {1.0f, 2.0f, 3.0f}, alpha = 2.0f, beta = 0.5f;
    const std::int64_t n = 3, minus = -1;
    float y[] = {10.0f, 20.0f, 30.0f}, z[] = {10.0f, 20.0f, 30.0f};
    SAXPBY(&n, &alpha, x, &minus, &beta, y, &one);
    cblas_saxpby(3, 2.0f, x, -1, 0.5f, z, 1);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(y[i], 2.0f * x[2 - i] + 0.5f * static_cast<float>(10 * (i + 1)));
        EXPECT_EQ(z[i], y[i]);
    }
}
