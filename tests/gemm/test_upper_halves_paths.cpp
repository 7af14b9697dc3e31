// SPDX-License-Identifier: BSD-3-Clause
// No path's SGEMM leaves the upper halves of the vector registers in use: shapes of every road, with rests of rows and
// columns in every width.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "gemm/sgemm_paths.h"
#include "tests/support/test_paths.h"
#include "tests/support/upper_halves.h"

namespace
{
struct path_row {
    const char *path;
    tesh_blas_sgemm_fn *sgemm;
};
constexpr path_row rows[] = {
    {"def", tesh_blas_def_xsgemm},   {"cnr_def", tesh_blas_cnr_def_xsgemm}, {"mc3", tesh_blas_mc3_xsgemm},
    {"avx2", tesh_blas_avx2_xsgemm}, {"avx512", tesh_blas_avx512_xsgemm},
};
constexpr std::int64_t ld = 272;

struct product {
    const char *trans; // of A and of B
    float beta;
    std::int64_t m, n, k;
};

// Every m with every n.
std::vector<product> products(const char *trans, float beta, std::int64_t k)
{
    std::vector<product> all;
    for (const std::int64_t m : {1, 2, 3, 5, 8, 12, 17, 24, 33, 65, 257})
        for (const std::int64_t n : {1, 2, 3, 5, 9, 17, 33, 66, 257})
            all.push_back({trans, beta, m, n, k});
    return all;
}

class upper_halves : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!tesh_test::upper_halves_can_be_seen())
            GTEST_SKIP() << "whether upper halves are in use cannot be seen here";
    }
    void expect_clear_after(const path_row &row, const product &p)
    {
        tesh_test::clear_upper_halves();
        row.sgemm(p.trans, p.trans + 1, &p.m, &p.n, &p.k, &alpha_, a_.data(), &ld, b_.data(), &ld, &p.beta, c_.data(),
                  &ld);
        const bool in_use = tesh_test::upper_halves_in_use();
        EXPECT_FALSE(in_use) << row.path << ' ' << p.trans << " m " << p.m << " n " << p.n << " k " << p.k << " beta "
                             << p.beta;
    }
    void check(const path_row &row)
    {
        for (const char *trans : {"NN", "NT", "TN", "TT"})
            for (const float beta : {0.0f, 1.0f, 2.0f})
                for (const std::int64_t k : {1, 4, 17, 260})
                    for (const product &p : products(trans, beta, k))
                        expect_clear_after(row, p);
    }

private:
    const float alpha_ = 1.5f;
    std::vector<float> a_ = std::vector<float>(ld * ld), b_ = a_, c_ = a_;
};

TEST_F(upper_halves, are_clear_after_every_product)
{
    for (const path_row &row : tesh_test::rows_to_run(rows))
        check(row);
}
} // namespace
