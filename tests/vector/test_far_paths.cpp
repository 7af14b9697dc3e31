// SPDX-License-Identifier: BSD-3-Clause
// Strides and leading dimensions past 2^31 elements in the routines of level 1, and in SGER.
// Few pages are ever touched.
#include "tests/vector/level1.h"
#include "vector/matrix_vector_paths.h"

using namespace level1;

namespace
{
constexpr std::int64_t stride = (std::int64_t(1) << 31) + 5, minus = -stride, one = 1, n = 3;

// Three elements 2^31 and more apart.
struct far_vector {
    tesh_test::guarded_array<float> memory{static_cast<std::size_t>(2 * stride + 1)};
    float *data() const { return memory.data(); }
    float &at(std::int64_t i) const { return memory[static_cast<std::size_t>(i * stride)]; }
    void fill(float first) const
    {
        for (std::int64_t i = 0; i < n; ++i)
            at(i) = first + static_cast<float>(i);
    }
};

class far_strides : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!tesh_test::in_long_set())
            GTEST_SKIP() << "long set";
    }
};

tesh_blas_sger_fn *sger_of(const std::string &path)
{
    return path == "def"       ? tesh_blas_def_xsger
           : path == "cnr_def" ? tesh_blas_cnr_def_xsger
           : path == "mc3"     ? tesh_blas_mc3_xsger
           : path == "avx2"    ? tesh_blas_avx2_xsger
                               : tesh_blas_avx512_xsger;
}
} // namespace

TEST_F(far_strides, of_both_signs_reach_every_element_of_level_1)
{
    for (const member_set &m : members()) {
        const far_vector x, y;
        const float two = 2.0f, zero = 0.0f, unit = 1.0f;
        x.fill(1.0f); // 1 2 3
        y.fill(10.0f);
        m.saxpy(&n, &two, x.data(), &stride, y.data(), &minus);
        for (std::int64_t i = 0; i < n; ++i)
            EXPECT_EQ(y.at(i), 10.0f + static_cast<float>(i) + 2.0f * x.at(n - 1 - i)) << m.path;
        m.scopy(&n, x.data(), &minus, y.data(), &stride);
        for (std::int64_t i = 0; i < n; ++i)
            EXPECT_EQ(y.at(i), static_cast<float>(n - i)) << m.path;
        m.sscal(&n, &two, y.data(), &stride);
        for (std::int64_t i = 0; i < n; ++i)
            EXPECT_EQ(y.at(i), static_cast<float>(2 * (n - i))) << m.path;
        m.sswap(&n, x.data(), &stride, y.data(), &minus);
        for (std::int64_t i = 0; i < n; ++i) {
            EXPECT_EQ(x.at(i), static_cast<float>(2 * (i + 1))) << m.path;
            EXPECT_EQ(y.at(i), static_cast<float>(n - i)) << m.path;
        }
        m.srot(&n, x.data(), &stride, y.data(), &stride, &zero, &unit); // a quarter turn: x := y, y := -x
        for (std::int64_t i = 0; i < n; ++i) {
            EXPECT_EQ(x.at(i), static_cast<float>(n - i)) << m.path;
            EXPECT_EQ(y.at(i), static_cast<float>(-2 * (i + 1))) << m.path;
        }
        x.at(0) = 2.0f;
        x.at(1) = 3.0f;
        x.at(2) = 6.0f;
        EXPECT_EQ(m.snrm2(&n, x.data(), &stride), 7.0f) << m.path;
    }
}

TEST_F(far_strides, of_a_matrix_reach_every_column_of_sger)
{
    for (const std::string &path : tesh_test::paths_to_run()) {
        const std::int64_t m = 21;
        const tesh_test::guarded_array<float> a(static_cast<std::size_t>((n - 1) * stride + m));
        const far_vector y;
        y.fill(4.0f);
        std::vector<float> x;
        for (std::int64_t i = 0; i < m; ++i)
            x.push_back(static_cast<float>(i - 7));
        for (std::int64_t j = 0; j < n; ++j)
            for (std::int64_t i = 0; i < m; ++i)
                a[static_cast<std::size_t>(i + j * stride)] = static_cast<float>(100 * j + i);
        const float two = 2.0f;
        sger_of(path)(&m, &n, &two, x.data(), &one, y.data(), &stride, a.data(), &stride);
        for (std::int64_t j = 0; j < n; ++j)
            for (std::int64_t i = 0; i < m; ++i)
                EXPECT_EQ(a[static_cast<std::size_t>(i + j * stride)],
                          static_cast<float>(100 * j + i) + 2.0f * static_cast<float>(i - 7) * y.at(j))
                    << path << ' ' << i << ' ' << j;
    }
}
