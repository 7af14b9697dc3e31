// SPDX-License-Identifier: BSD-3-Clause
// SAXPBY, every member called by its own name, against y(i) := alpha*x(i) + beta*y(i) element by element.
#include "tests/vector/level1.h"

#include <cfenv>
#include <immintrin.h>

using namespace level1;
using tesh_test::guard;

namespace
{
void expect(const member_set &m, std::int64_t n, float alpha, const operand &x, float beta, operand &y)
{
    for (std::int64_t i = 0; i < n; ++i)
        y.want(i, beta == 0.0f ? alpha * x.get(i) : axpby(m.fused, alpha, x.get(i), beta, y.want(i)));
}

void run(const member_set &m, std::int64_t n, float alpha, const operand &x, float beta, operand &y)
{
    m.saxpby(&n, &alpha, x.data(), x.inc(), &beta, y.data(), y.inc());
}
} // namespace

TEST(saxpby, every_length_and_factor_against_guard_pages)
{
    tesh_test::random random;
    for (const member_set &m : members())
        for (guard side : {guard::at_end, guard::at_start})
            for (std::int64_t n : lengths())
                for (float alpha : {0.0f, 1.0f, -1.0f, 0.7f})
                    for (float beta : {0.0f, 1.0f, -1.0f, 0.7f}) {
                        if (alpha == 0.0f && beta == 1.0f)
                            continue;
                        operand x(random, n, 1, side), y(random, n, 1, side);
                        expect(m, n, alpha, x, beta, y);
                        run(m, n, alpha, x, beta, y);
                        ASSERT_TRUE(y.holds()) << m.path << " n " << n << " alpha " << alpha << " beta " << beta;
                        ASSERT_TRUE(x.holds());
                    }
}

TEST(saxpby, every_alignment_of_both_vectors)
{
    tesh_test::random random;
    for (const member_set &m : members())
        for (std::int64_t n : {1, 3, 7, 16, 35, 90, 150, 200})
            for (std::size_t shift_x = 0; shift_x <= 64; shift_x += 4)
                for (std::size_t shift_y = 0; shift_y <= 64; shift_y += 4)
                    for (float beta : {0.0f, 0.3f}) {
                        operand x(random, n, 1, guard::at_start, shift_x), y(random, n, 1, guard::at_start, shift_y);
                        expect(m, n, 0.7f, x, beta, y);
                        run(m, n, 0.7f, x, beta, y);
                        ASSERT_TRUE(y.holds()) << m.path << " n " << n << " shifts " << shift_x << " " << shift_y;
                    }
}

TEST(saxpby, addresses_off_four_bytes_still_work)
{
    tesh_test::random random;
    for (const member_set &m : members())
        for (std::int64_t n : {1, 2, 5, 16, 31, 64, 100, 257})
            for (std::size_t shift_x : {0, 1, 2, 3, 5, 16})
                for (std::size_t shift_y : {0, 1, 2, 3, 7, 18})
                    for (float beta : {0.0f, 0.3f}) {
                        operand x(random, n, 1, guard::at_end, shift_x), y(random, n, 1, guard::at_end, shift_y);
                        expect(m, n, 0.7f, x, beta, y);
                        run(m, n, 0.7f, x, beta, y);
                        ASSERT_TRUE(y.holds()) << m.path << " n " << n << " shifts " << shift_x << " " << shift_y;
                    }
}

TEST(saxpby, strides_of_every_sign_and_zero)
{
    tesh_test::random random;
    for (const member_set &m : members())
        for (const case_of_strides &s : strides)
            for (std::int64_t n = 0; n < 70; ++n)
                for (float beta : {0.0f, 0.3f})
                    for (std::size_t shift : {0, 2}) {
                        operand x(random, n, s.incx, guard::at_end, shift), y(random, n, s.incy, guard::at_end, shift);
                        expect(m, n, 0.7f, x, beta, y);
                        run(m, n, 0.7f, x, beta, y);
                        ASSERT_TRUE(y.holds()) << m.path << " n " << n << " strides " << s.incx << " " << s.incy;
                        ASSERT_TRUE(x.holds());
                    }
}

TEST(saxpby, zero_incy_updates_one_element_in_order)
{
    for (const member_set &m : members()) {
        const float x[] = {1.0f, 2.0f, 4.0f};
        float y = 8.0f;
        const std::int64_t n = 3, one = 1, zero = 0;
        float alpha = 1.0f, beta = 0.5f;
        m.saxpby(&n, &alpha, x, &one, &beta, &y, &zero);
        EXPECT_EQ(y, ((8.0f * 0.5f + 1.0f) * 0.5f + 2.0f) * 0.5f + 4.0f) << m.path;
        beta = 0.0f;
        alpha = 3.0f;
        m.saxpby(&n, &alpha, x, &one, &beta, &y, &zero);
        EXPECT_EQ(y, 12.0f) << "the last write wins: " << m.path;
    }
}

TEST(saxpby, nothing_but_a_count_of_zero_or_below_is_read)
{
    for (const member_set &m : members())
        for (std::int64_t n : {std::int64_t(0), std::int64_t(-1), std::numeric_limits<std::int64_t>::min()})
            m.saxpby(&n, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
}

TEST(saxpby, alpha_zero_and_beta_one_touch_no_vector)
{
    for (const member_set &m : members()) {
        const std::int64_t n = 100, one = 1;
        for (float alpha : {0.0f, -0.0f}) {
            const float beta = 1.0f;
            m.saxpby(&n, &alpha, nullptr, &one, &beta, nullptr, &one);
        }
    }
}

TEST(saxpby, alpha_zero_and_beta_one_keep_signalling_nans)
{
    for (const member_set &m : members()) {
        const std::uint32_t signalling = 0x7fa00001u;
        std::vector<std::uint32_t> y(40, signalling);
        const std::int64_t n = 40, one = 1;
        const float alpha = 0.0f, beta = 1.0f;
        m.saxpby(&n, &alpha, nullptr, &one, &beta, reinterpret_cast<float *>(y.data()), &one);
        EXPECT_EQ(y, std::vector<std::uint32_t>(40, signalling));
    }
}

TEST(saxpby, alpha_zero_still_reads_x)
{
    tesh_test::random random;
    for (const member_set &m : members())
        for (std::int64_t n : {1, 4, 33, 70})
            for (std::int64_t place = 0; place < n; ++place)
                for (float special : {not_a_number, infinity})
                    for (float beta : {0.0f, 0.5f}) {
                        operand x(random, n, 1, guard::at_end), y(random, n, 1, guard::at_end);
                        x.set(place, special);
                        expect(m, n, 0.0f, x, beta, y);
                        run(m, n, 0.0f, x, beta, y);
                        ASSERT_TRUE(std::isnan(y.get(place)));
                        ASSERT_TRUE(y.holds()) << m.path;
                    }
}

TEST(saxpby, alpha_and_beta_zero_give_signed_zeros_of_the_product)
{
    for (const member_set &m : members()) {
        std::vector<float> x(40, -2.0f), y(40, 5.0f);
        const std::int64_t n = 40, one = 1;
        const float zero = 0.0f;
        m.saxpby(&n, &zero, x.data(), &one, &zero, y.data(), &one);
        for (float value : y) {
            EXPECT_EQ(value, 0.0f);
            EXPECT_TRUE(std::signbit(value));
        }
    }
}

TEST(saxpby, beta_zero_of_either_sign_never_reads_y)
{
    tesh_test::random random;
    for (const member_set &m : members())
        for (std::int64_t n : {1, 4, 33, 70, 200})
            for (std::int64_t incy : {1, 2, -1})
                for (float beta : {0.0f, -0.0f})
                    for (float before : {not_a_number, infinity}) {
                        operand x(random, n, 1, guard::at_end), y(random, n, incy, guard::at_end);
                        for (std::int64_t i = 0; i < n; ++i)
                            y.set(i, before);
                        y.keep();
                        expect(m, n, 0.7f, x, 0.0f, y);
                        run(m, n, 0.7f, x, beta, y);
                        ASSERT_TRUE(y.holds()) << m.path;
                        for (std::int64_t i = 0; i < n; ++i)
                            ASSERT_TRUE(std::isfinite(y.get(i)));
                    }
}

TEST(saxpby, nan_factors_do_not_return_early)
{
    tesh_test::random random;
    for (const member_set &m : members())
        for (auto [alpha, beta] :
             {std::pair(not_a_number, 1.0f), std::pair(0.0f, not_a_number), std::pair(not_a_number, 0.0f)}) {
            operand x(random, 50, 1, guard::at_end), y(random, 50, 1, guard::at_end);
            run(m, 50, alpha, x, beta, y);
            for (std::int64_t i = 0; i < 50; ++i)
                EXPECT_TRUE(std::isnan(y.get(i))) << m.path;
        }
}

TEST(saxpby, minus_one_reverses_the_order)
{
    for (const member_set &m : members()) {
        const float x[] = {1.0f, 2.0f, 3.0f};
        float y[] = {10.0f, 20.0f, 30.0f};
        const std::int64_t n = 3, minus = -1, one = 1;
        const float factor = 1.0f;
        m.saxpby(&n, &factor, x, &minus, &factor, y, &one);
        EXPECT_EQ(y[0], 13.0f);
        EXPECT_EQ(y[1], 22.0f);
        EXPECT_EQ(y[2], 31.0f);
    }
}

TEST(saxpby, fused_on_wide_paths_and_rounded_apart_on_the_others)
{
    // alpha*x = 1 + 2^-11 + 2^-24: its last bit is lost in a product of its own, and so is it from the difference.
    const float alpha = 1.0f + std::ldexp(1.0f, -12), beta = -1.0f;
    for (const member_set &m : members()) {
        std::vector<float> x(37, alpha), y(37, 1.0f + std::ldexp(1.0f, -11));
        const std::int64_t n = 37, one = 1;
        m.saxpby(&n, &alpha, x.data(), &one, &beta, y.data(), &one);
        for (float value : y)
            EXPECT_EQ(value, m.fused ? std::ldexp(1.0f, -24) : 0.0f) << m.path;
    }
}

TEST(saxpby, no_flag_is_raised_by_lanes_without_an_element)
{
    for (const member_set &m : members())
        for (std::int64_t n : {1, 3, 5, 9, 17, 21}) {
            std::vector<float> x(64, infinity), y(64, -infinity);
            std::fill(x.begin(), x.begin() + n, 1.0f);
            std::fill(y.begin(), y.begin() + n, 1.0f);
            const std::int64_t one = 1;
            const float alpha = 2.0f, beta = 3.0f;
            const unsigned before = _mm_getcsr() & ~0x3fu;
            _mm_setcsr(before);
            m.saxpby(&n, &alpha, x.data(), &one, &beta, y.data(), &one);
            EXPECT_EQ(_mm_getcsr(), before) << m.path;
            EXPECT_EQ(y[0], 5.0f);
        }
}

TEST(saxpby, an_infinite_factor_raises_no_flag)
{
    for (const member_set &m : members())
        for (std::int64_t n = 1; n < 70; ++n)
            for (auto [alpha, beta] :
                 {std::pair(infinity, 0.0f), std::pair(infinity, 2.0f), std::pair(2.0f, infinity)}) {
                std::vector<float> x(70, 1.0f), y(70, 1.0f);
                const std::int64_t one = 1;
                std::feclearexcept(FE_ALL_EXCEPT);
                m.saxpby(&n, &alpha, x.data(), &one, &beta, y.data(), &one);
                EXPECT_EQ(std::fetestexcept(FE_INVALID | FE_OVERFLOW), 0) << m.path << " n " << n;
                EXPECT_EQ(y[0], infinity);
            }
}

TEST(saxpby, offsets_beyond_two_to_the_31_elements)
{
    if (!tesh_test::in_long_set())
        GTEST_SKIP() << "long set";
    for (const member_set &m : members()) {
        const std::int64_t stride = (std::int64_t(1) << 31) + 5, n = 2, one = 1, minus = -stride;
        tesh_test::guarded_bytes far(static_cast<std::size_t>(stride + 1) * 4, guard::at_end);
        float *x = static_cast<float *>(far.data());
        x[0] = 3.0f;
        x[stride] = 5.0f;
        float y[2] = {1.0f, 2.0f};
        const float alpha = 2.0f, beta = 1.0f;
        m.saxpby(&n, &alpha, x, &stride, &beta, y, &one);
        EXPECT_EQ(y[0], 7.0f);
        EXPECT_EQ(y[1], 12.0f);
        m.saxpby(&n, &alpha, y, &one, &beta, x, &minus);
        EXPECT_EQ(x[stride], 19.0f);
        EXPECT_EQ(x[0], 27.0f);
        const std::int64_t long_n = stride + 1, zero = 0;
        float sum = 1.0f;
        m.saxpby(&long_n, &alpha, x, &one, &beta, &sum, &zero); // all but the first and the last product are 0
        EXPECT_EQ(sum, 1.0f + 2.0f * 27.0f + 2.0f * 19.0f);
    }
}
