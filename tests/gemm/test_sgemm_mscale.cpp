// SPDX-License-Identifier: BSD-3-Clause
// C := beta*C on the wide paths.
#include <cfenv>
#include <cmath>

#include "tests/gemm/wide_paths.h"
#include "tests/support/guard_pages.h"
#include "tests/support/random.h"

namespace
{
using tesh_test::guard;
using tesh_test::guarded_array;
using tesh_test::wide_path;

class sgemm_mscale : public testing::TestWithParam<const wide_path *>
{
protected:
    void check(std::int64_t m, std::int64_t n, std::int64_t ldc, float beta, guard side, bool by_view)
    {
        guarded_array<float> c(n == 0 ? 0 : static_cast<std::size_t>((n - 1) * ldc + m), side);
        tesh_test::random random;
        random.fill(c);
        const std::vector<float> old(c.begin(), c.end());
        if (beta == 0.0f)
            for (std::int64_t j = 0; j < n; ++j)
                for (std::int64_t i = 0; i < m; ++i)
                    c[static_cast<std::size_t>(j * ldc + i)] = std::nanf("");
        if (by_view) {
            blas_matrix_view view = {};
            view.base = c.data();
            view.rows = m;
            view.cols = n;
            view.ld = ldc;
            GetParam()->mscale_wrapper(&view, &beta);
        } else {
            GetParam()->mscale(&m, &n, &beta, c.data(), &ldc);
        }
        for (std::size_t i = 0; i < c.size(); ++i) {
            const float want = static_cast<std::int64_t>(i) % ldc >= m ? old[i] : beta == 0.0f ? 0.0f : beta * old[i];
            if (std::isnan(want))
                ASSERT_TRUE(std::isnan(c[i]));
            else
                ASSERT_EQ(c[i], want) << "m=" << m << " n=" << n << " beta=" << beta << " element " << i;
        }
    }
};

TEST_P(sgemm_mscale, every_row_count_clears_without_reading_or_multiplies)
{
    for (std::int64_t m = 1; m <= 150; ++m) {
        for (const float beta : {0.0f, -0.0f, 0.7f, -1.0f}) {
            for (const guard side : {guard::at_end, guard::at_start})
                check(m, 1 + m % 4, m + m % 3, beta, side, m % 5 == 0);
            if (HasFatalFailure())
                return;
        }
    }
}

TEST_P(sgemm_mscale, nan_multiplies)
{
    check(37, 3, 40, std::nanf(""), guard::at_end, false);
}

TEST_P(sgemm_mscale, an_infinite_factor_raises_no_flag)
{
    for (std::int64_t m = 1; m < 70; ++m) {
        std::vector<float> c(210, 1.0f);
        const std::int64_t n = 3;
        const float beta = INFINITY;
        std::feclearexcept(FE_ALL_EXCEPT);
        GetParam()->mscale(&m, &n, &beta, c.data(), &m);
        EXPECT_EQ(std::fetestexcept(FE_INVALID | FE_OVERFLOW), 0) << m;
        EXPECT_EQ(c[0], INFINITY);
    }
}

TEST_P(sgemm_mscale, nothing_to_scale_touches_nothing)
{
    check(5, 0, 5, 2.0f, guard::at_end, false);
    const guarded_array<float> c(0);
    const std::int64_t ldc = 1;
    for (const float beta : {0.0f, 2.0f}) {
        for (std::int64_t m = -100; m <= 0; ++m) {
            const std::int64_t n = 1;
            GetParam()->mscale(&m, &n, &beta, c.data(), &ldc);
        }
        for (const std::int64_t n : {0, -1, -2}) {
            const std::int64_t m = 100;
            GetParam()->mscale(&m, &n, &beta, c.data(), &ldc);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(paths, sgemm_mscale, testing::ValuesIn(tesh_test::wide_paths_to_run()), tesh_test::path_name);
} // namespace
