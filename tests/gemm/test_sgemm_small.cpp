// SPDX-License-Identifier: BSD-3-Clause
// The roads of single shapes: long dot products with few columns, and a left factor of 6 by 6.
#include <immintrin.h>

#include <algorithm>
#include <cmath>

#include "gemm/sgemm_paths.h"
#include "tests/support/reference_gemm.h"
#include "tests/support/test_paths.h"

namespace
{
using tesh_test::gemm_shape;
using tesh_test::guard;

gemm_shape dots(std::int64_t m, std::int64_t n, std::int64_t k, float beta)
{
    gemm_shape s;
    s.transa = 'T';
    s.m = m;
    s.n = n;
    s.k = k;
    s.beta = beta;
    return s;
}

class sgemm_t_smalln : public testing::Test
{
protected:
    tesh_test::worst_ratio worst;
    void SetUp() override
    {
        if (!tesh_test::machine_has_path("avx512"))
            GTEST_SKIP() << "this processor has no avx512 path";
    }
    void TearDown() override { EXPECT_LE(worst.value, 1.0); }
    bool check(gemm_shape s)
    {
        for (const guard side : {guard::at_end, guard::at_start}) {
            s.side = side;
            tesh_test::expect_gemm(tesh_blas_avx512_sgemm_t_smalln, s, &worst);
            if (HasFatalFailure())
                return false;
        }
        return true;
    }
};

TEST_F(sgemm_t_smalln, every_n_and_m_through_the_row_stages)
{
    for (std::int64_t n = 2; n <= 15; ++n)
        for (std::int64_t m = 1; m <= 9; ++m)
            for (const float beta : {0.0f, 1.0f, -0.5f})
                if (!check(dots(m, n, 24 * n + m, beta)))
                    return;
}

TEST_F(sgemm_t_smalln, every_depth_around_the_strides)
{
    std::vector<std::int64_t> depths;
    for (std::int64_t k = 1; k <= 20; ++k)
        depths.push_back(k);
    for (const std::int64_t edge : {32, 48, 63, 64, 80, 127, 128, 191, 192, 193, 360, 1000})
        depths.push_back(edge);
    for (const std::int64_t k : depths)
        for (const std::int64_t n : {2, 3, 5})
            if (!check(dots(7, n, k, static_cast<float>(k % 2))))
                return;
}

TEST_F(sgemm_t_smalln, gaps_and_alignments)
{
    for (std::size_t shift = 0; shift < 64; shift += 4) {
        gemm_shape s = dots(6, 7, 200, 0.25f);
        s.alpha = -1.5f;
        s.pad_a = static_cast<std::int64_t>(shift) % 3;
        s.pad_b = 3;
        s.pad_c = 1;
        s.shift_bytes = shift;
        if (!check(s))
            return;
    }
}

TEST_F(sgemm_t_smalln, many_rows)
{
    for (const std::int64_t k : {400, 20000})
        for (const std::int64_t n : {2, 7}) {
            gemm_shape s = dots(k == 400 ? 331 : 11, n, k, 1.0f);
            s.pad_c = 2;
            if (!check(s))
                return;
        }
}

// With B zero but for every sixteenth step, one lane of a register holds the whole sum: the others add zeros to it.
TEST_F(sgemm_t_smalln, four_rows_keep_one_sum_a_lane)
{
    constexpr std::int64_t lanes = 16;
    for (const std::int64_t k : {63, 64, 200, 331})
        for (std::int64_t lane = 0; lane < lanes; lane += 5) {
            const gemm_shape s = dots(8, 7, k, 0.0f);
            const tesh_test::gemm_operands x(s);
            for (std::size_t l = 0; l < x.b.size(); ++l)
                if (static_cast<std::int64_t>(l) % k % lanes != lane)
                    x.b[l] = 0.0f;
            tesh_blas_avx512_sgemm_t_smalln("T", "N", &s.m, &s.n, &s.k, &s.alpha, x.a.data(), &k, x.b.data(), &k,
                                            &s.beta, x.c.data(), &s.m);
            for (std::int64_t j = 0; j < s.n; ++j)
                for (std::int64_t i = 0; i < s.m; ++i) {
                    float sum = 0.0f;
                    for (std::int64_t l = lane; l < k; l += lanes)
                        sum = std::fmaf(x.a.data()[l + i * k], x.b.data()[l + j * k], sum);
                    ASSERT_EQ(x.c.data()[i + j * s.m], sum) << s.name() << " lane " << lane << " " << i << " " << j;
                }
        }
}

TEST_F(sgemm_t_smalln, no_depth_scales_c)
{
    for (const float beta : {0.0f, 1.0f, 2.0f})
        if (!check(dots(7, 5, 0, beta)))
            return;
}

TEST_F(sgemm_t_smalln, empty_shapes_touch_nothing)
{
    const std::int64_t n = 5, k = 200, ld = 200, none = 0, below = -1, three_below = -3;
    const float one = 1.0f, two = 2.0f;
    for (const std::int64_t *rows : {&none, &below, &three_below})
        tesh_blas_avx512_sgemm_t_smalln("T", "N", rows, &n, &k, &one, nullptr, &ld, nullptr, &ld, &two, nullptr, &ld);
    for (const std::int64_t *columns : {&none, &below})
        tesh_blas_avx512_sgemm_t_smalln("T", "N", &n, columns, &k, &one, nullptr, &ld, nullptr, &ld, &two, nullptr,
                                        &ld);
}

// The last steps of the depth are masked in the sums as well.
TEST_F(sgemm_t_smalln, infinity_in_the_last_step_stays_in_its_row)
{
    gemm_shape s = dots(5, 3, 77, 1.0f);
    tesh_test::gemm_operands x(s);
    x.a[static_cast<std::size_t>(76 + 4 * s.lda())] = INFINITY;
    x.run(tesh_blas_avx512_sgemm_t_smalln);
    tesh_test::expect_gemm_result(x, false, &worst);
}

class sgemm_6_by_6 : public testing::Test
{
protected:
    tesh_test::worst_ratio worst;
    void SetUp() override
    {
        if (!tesh_test::machine_has_path("avx2"))
            GTEST_SKIP() << "this processor has no avx2 path";
    }
    void TearDown() override { EXPECT_LE(worst.value, 1.0); }
};

TEST_F(sgemm_6_by_6, every_count_of_columns_and_every_beta)
{
    for (std::int64_t n = 1; n <= 13; ++n)
        for (const float beta : {0.0f, 1.0f, 0.5f})
            for (const std::int64_t pad : {0, 1, 5})
                for (const guard side : {guard::at_end, guard::at_start}) {
                    gemm_shape s;
                    s.m = s.k = 6;
                    s.n = n;
                    s.alpha = 1.25f;
                    s.beta = beta;
                    s.pad_a = s.pad_b = s.pad_c = pad;
                    s.side = side;
                    tesh_test::expect_gemm(beta == 0.0f ? tesh_blas_avx2_sgemm_nocopy_anbn_meq6_keq6_b0
                                                        : tesh_blas_avx2_sgemm_nocopy_anbn_meq6_keq6,
                                           s, &worst);
                    if (HasFatalFailure())
                        return;
                }
}

// With ldc = 6 the columns are neighbours: each is right although the next one starts where it ends.
TEST_F(sgemm_6_by_6, neighbouring_columns_do_not_spill_into_each_other)
{
    for (const float beta : {0.0f, 2.0f}) {
        gemm_shape s;
        s.m = s.k = 6;
        s.n = 7;
        s.beta = beta;
        const tesh_test::gemm_operands x(s, tesh_test::gemm_values::integers);
        ASSERT_EQ(s.ldc(), 6);
        x.run(beta == 0.0f ? tesh_blas_avx2_sgemm_nocopy_anbn_meq6_keq6_b0
                           : tesh_blas_avx2_sgemm_nocopy_anbn_meq6_keq6);
        tesh_test::expect_gemm_result(x, true);
    }
}

TEST_F(sgemm_6_by_6, no_columns_touch_nothing)
{
    const std::int64_t six = 6, none = 0, below = -4;
    const float one = 1.0f, two = 2.0f;
    for (const std::int64_t *columns : {&none, &below})
        for (tesh_blas_sgemm_fn *const product :
             {tesh_blas_avx2_sgemm_nocopy_anbn_meq6_keq6, tesh_blas_avx2_sgemm_nocopy_anbn_meq6_keq6_b0})
            product("N", "N", &six, columns, &six, &one, nullptr, &six, nullptr, &six, &two, nullptr, &six);
}

// What stands in a register beside the six rows raises no flag against an infinite factor.
TEST_F(sgemm_6_by_6, an_infinite_factor_raises_no_flag)
{
    for (const char *where : {"alpha", "beta", "B"}) {
        gemm_shape s;
        s.m = s.k = 6;
        s.n = 5;
        s.alpha = where[0] == 'a' ? INFINITY : 1.0f;
        s.beta = where[0] == 'b' ? INFINITY : 1.0f;
        const tesh_test::gemm_operands x(s);
        for (const tesh_test::guarded_array<float> *operand : {&x.a, &x.b, &x.c})
            std::fill(operand->begin(), operand->end(), 1.0f);
        if (where[0] == 'B')
            x.b[29] = INFINITY;
        _mm_setcsr(_mm_getcsr() & ~0x3fu);
        x.run(tesh_blas_avx2_sgemm_nocopy_anbn_meq6_keq6);
        EXPECT_EQ(_mm_getcsr() & 0x3fu, 0u) << where;
        EXPECT_EQ(x.c[29], INFINITY) << where;
        EXPECT_EQ(x.c[0], where[0] == 'B' ? 7.0f : INFINITY) << where;
    }
}

// A sum begins with zero: products that are all -0 give +0.
TEST_F(sgemm_6_by_6, six_sums_begin_at_zero)
{
    gemm_shape s;
    s.m = s.k = 6;
    s.n = 5;
    const tesh_test::gemm_operands x(s);
    std::fill(x.a.begin(), x.a.end(), -0.0f);
    std::fill(x.b.begin(), x.b.end(), 1.0f);
    x.run(tesh_blas_avx2_sgemm_nocopy_anbn_meq6_keq6_b0);
    for (const float value : x.c)
        EXPECT_FALSE(std::signbit(value));
}

TEST_F(sgemm_6_by_6, nan_in_a_row_and_nan_beta)
{
    gemm_shape s;
    s.m = s.k = 6;
    s.n = 5;
    s.beta = 1.0f;
    tesh_test::gemm_operands x(s);
    x.a[5] = NAN;
    x.run(tesh_blas_avx2_sgemm_nocopy_anbn_meq6_keq6);
    tesh_test::expect_gemm_result(x, false, &worst);
    s.beta = NAN;
    tesh_test::gemm_operands y(s);
    y.run(tesh_blas_avx2_sgemm_nocopy_anbn_meq6_keq6);
    for (const float value : y.c)
        EXPECT_TRUE(std::isnan(value));
}
} // namespace
