// SPDX-License-Identifier: BSD-3-Clause
// SCOPY, SSCAL and SSWAP, every member called by its own name. Moves keep every bit.
#include "tests/vector/level1.h"

using namespace level1;
using tesh_test::guard;

TEST(scopy, lengths_alignments_and_strides)
{
    for (const member_set &m : members())
        ASSERT_NO_FATAL_FAILURE(sweep(
            m,
            [&](std::int64_t n, operand &x, operand &y) {
                for (std::int64_t i = 0; i < n; ++i)
                    y.want(i, x.get(i));
            },
            [&](std::int64_t n, operand &x, operand &y) { m.scopy(&n, x.data(), x.inc(), y.data(), y.inc()); }));
}

TEST(scopy, fill_from_one_element_at_every_length)
{
    tesh_test::random random;
    for (const member_set &m : members())
        for (std::int64_t n : lengths())
            for (std::size_t shift : {0, 3, 4, 20}) {
                operand x(random, 1, 0, guard::at_end), y(random, n, 1, guard::at_end, shift);
                for (std::int64_t i = 0; i < n; ++i)
                    y.want(i, x.get(0));
                m.scopy(&n, x.data(), x.inc(), y.data(), y.inc());
                ASSERT_TRUE(y.holds()) << m.path << " n " << n;
            }
}

TEST(scopy, signalling_nans_and_signed_zeros_keep_their_bits)
{
    for (const member_set &m : members())
        for (std::int64_t inc : {1, 2, -1})
            for (std::size_t skip : {0, 1, 2, 3}) {
                const std::int64_t n = 100;
                std::vector<std::uint32_t> x(210, 0x7fa00001u), y(210, 0u);
                x[8 + skip] = 0x80000000u;
                x[12 + skip] = 0xffbfffffu;
                m.scopy(&n, reinterpret_cast<const float *>(x.data() + skip), &inc, reinterpret_cast<float *>(y.data()),
                        &inc);
                const std::size_t step = inc == 2 ? 2 : 1;
                for (std::size_t i = 0; i < 100; ++i)
                    ASSERT_EQ(y[i * step], x[i * step + skip]) << m.path;
            }
}

TEST(scopy, nothing_but_a_count_of_zero_or_below_is_read)
{
    for (const member_set &m : members())
        for (std::int64_t n : {0, -7}) {
            m.scopy(&n, nullptr, nullptr, nullptr, nullptr);
            m.sswap(&n, nullptr, nullptr, nullptr, nullptr);
            m.sscal(&n, nullptr, nullptr, nullptr);
        }
}

TEST(sswap, lengths_alignments_and_strides)
{
    for (const member_set &m : members())
        ASSERT_NO_FATAL_FAILURE(sweep(
            m,
            [&](std::int64_t n, operand &x, operand &y) {
                for (std::int64_t i = 0; i < n; ++i) {
                    const float old = x.want(i);
                    x.want(i, y.want(i));
                    y.want(i, old);
                }
            },
            [&](std::int64_t n, operand &x, operand &y) { m.sswap(&n, x.data(), x.inc(), y.data(), y.inc()); }));
}

TEST(sscal, lengths_alignments_and_strides)
{
    for (const member_set &m : members())
        for (float alpha : {0.0f, 1.0f, -1.0f, 0.7f})
            ASSERT_NO_FATAL_FAILURE(sweep(
                m,
                [&](std::int64_t n, operand &, operand &y) {
                    for (std::int64_t i = 0; i < n; ++i)
                        y.want(i, alpha * y.want(i));
                },
                [&](std::int64_t n, operand &, operand &y) { m.sscal(&n, &alpha, y.data(), y.inc()); }));
}

TEST(sscal, alpha_zero_leaves_nan_and_makes_nan_of_infinity)
{
    for (const member_set &m : members())
        for (std::int64_t n : {1, 4, 40, 100})
            for (float special : {not_a_number, infinity, -infinity}) {
                std::vector<float> x(static_cast<std::size_t>(n), special);
                const std::int64_t one = 1;
                const float alpha = 0.0f;
                m.sscal(&n, &alpha, x.data(), &one);
                for (float value : x)
                    EXPECT_TRUE(std::isnan(value)) << m.path;
            }
}

TEST(sscal, zero_increment_scales_one_element_every_time)
{
    for (const member_set &m : members()) {
        const std::int64_t n = 10, zero = 0;
        const float alpha = 2.0f;
        float x = 3.0f;
        m.sscal(&n, &alpha, &x, &zero);
        EXPECT_EQ(x, 3072.0f) << m.path;
    }
}
