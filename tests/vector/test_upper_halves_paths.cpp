// SPDX-License-Identifier: BSD-3-Clause
// No routine of level 1 and 2 leaves the upper halves of the vector registers in use.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "gemm/sgemmger_paths.h"
#include "tests/support/upper_halves.h"
#include "tests/vector/level1.h"
#include "vector/matrix_vector_paths.h"

namespace
{
struct level2_row {
    const char *path;
    tesh_blas_sgemv_fn *sgemv;
    tesh_blas_sger_fn *sger;
    tesh_blas_strmv_fn *strmv;
    tesh_blas_strmv_in_fn *strmv_in;
    tesh_blas_sgemmger_fn *sgemmger;
};
constexpr level2_row level2_rows[] = {
    {"avx2", tesh_blas_avx2_xsgemv, tesh_blas_avx2_xsger, tesh_blas_avx2_xstrmv, tesh_blas_avx2_strmv_in,
     tesh_blas_avx2_xsgemmger},
    {"avx512", tesh_blas_avx512_xsgemv, tesh_blas_avx512_xsger, tesh_blas_avx512_xstrmv, tesh_blas_avx512_strmv_in,
     tesh_blas_avx512_xsgemmger},
};

constexpr std::int64_t increments[] = {1, 2, -1};

class upper_halves : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!tesh_test::upper_halves_can_be_seen())
            GTEST_SKIP() << "whether upper halves are in use cannot be seen here";
    }
    static void expect_clear_after(const std::string &call, const std::function<void()> &body)
    {
        tesh_test::clear_upper_halves();
        body();
        const bool in_use = tesh_test::upper_halves_in_use();
        EXPECT_FALSE(in_use) << call;
    }
};

TEST_F(upper_halves, in_use_are_seen_until_they_are_cleared)
{
    bool in_use = false;
    __asm__ volatile("vpcmpeqd %%ymm15, %%ymm15, %%ymm15" ::: "xmm15");
    in_use = tesh_test::upper_halves_in_use();
    EXPECT_TRUE(in_use);
    tesh_test::clear_upper_halves();
    in_use = tesh_test::upper_halves_in_use();
    EXPECT_FALSE(in_use);
}

TEST_F(upper_halves, are_clear_after_every_vector_routine)
{
    const float two = 2.0f, three = 3.0f, param[5] = {-1.0f, 1.0f, 2.0f, 3.0f, 4.0f};
    for (const level1::member_set &m : level1::members()) {
        for (const std::int64_t n : {1, 5, 8, 16, 33, 200, 4000}) {
            for (const std::int64_t inc : increments) {
                std::vector<float> a(static_cast<std::size_t>(2 * n)), b(a.size());
                float *x = a.data(), *y = b.data();
                const std::string at = m.path + " n " + std::to_string(n) + " inc " + std::to_string(inc);
                expect_clear_after("saxpby " + at, [&] { m.saxpby(&n, &two, x, &inc, &three, y, &inc); });
                expect_clear_after("saxpy " + at, [&] { m.saxpy(&n, &two, x, &inc, y, &inc); });
                expect_clear_after("scopy " + at, [&] { m.scopy(&n, x, &inc, y, &inc); });
                expect_clear_after("sscal " + at, [&] { m.sscal(&n, &two, x, &inc); });
                expect_clear_after("sswap " + at, [&] { m.sswap(&n, x, &inc, y, &inc); });
                expect_clear_after("srot " + at, [&] { m.srot(&n, x, &inc, y, &inc, &two, &three); });
                expect_clear_after("snrm2 " + at, [&] { m.snrm2(&n, x, &inc); });
                if (m.srotm != nullptr)
                    expect_clear_after("srotm " + at, [&] { m.srotm(&n, x, &inc, y, &inc, param); });
            }
        }
    }
}

// m of 4 and 8 with n of 16: whole groups of columns that share registers, and none behind them.
void visit_shapes(const std::function<void(std::int64_t m, std::int64_t n, std::int64_t inc)> &visit)
{
    for (const std::int64_t m : {1, 3, 4, 8, 9, 16, 33, 130})
        for (const std::int64_t n : {1, 3, 4, 8, 16, 17, 70})
            for (const std::int64_t inc : increments)
                visit(m, n, inc);
}

TEST_F(upper_halves, are_clear_after_every_matrix_vector_routine)
{
    const float two = 2.0f, three = 3.0f;
    for (const level2_row &row : tesh_test::rows_to_run(level2_rows)) {
        visit_shapes([&](std::int64_t m, std::int64_t n, std::int64_t inc) {
            std::vector<float> matrix(static_cast<std::size_t>(m * n)), u(300), v(300);
            float *a = matrix.data(), *x = u.data(), *y = v.data();
            const std::string at = row.path + std::string(" m ") + std::to_string(m) + " n " + std::to_string(n) +
                                   " inc " + std::to_string(inc);
            for (const char *trans : {"N", "T"}) {
                expect_clear_after(std::string("sgemv ") + trans + " " + at,
                                   [&] { row.sgemv(trans, &m, &n, &two, a, &m, x, &inc, &three, y, &inc, 1); });
                if (m != n)
                    continue;
                expect_clear_after(std::string("strmv ") + trans + " " + at,
                                   [&] { row.strmv("U", trans, "N", &n, a, &m, x, &inc, 1, 1, 1); });
                expect_clear_after(std::string("strmv_in ") + trans + " " + at,
                                   [&] { row.strmv_in("L", trans, "N", &n, a, &m, x, &inc); });
            }
            expect_clear_after("sger " + at, [&] { row.sger(&m, &n, &two, x, &inc, y, &inc, a, &m); });
            expect_clear_after("sgemmger " + at,
                               [&] { row.sgemmger("N", "N", &m, &n, &two, x, &inc, y, &inc, &three, a, &m); });
        });
    }
}
} // namespace
