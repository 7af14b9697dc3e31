// SPDX-License-Identifier: BSD-3-Clause
// SNRM2, every member called by its own name. Expected values are exact sums in long double, or sums that are exact in
// any order.
#include "tests/vector/level1.h"

using namespace level1;
using tesh_test::guard;

namespace
{
float norm(const member_set &m, std::int64_t n, const operand &x)
{
    return m.snrm2(&n, x.data(), x.inc());
}

// Integers: every partial sum of squares is exact, so the result is the rounded root whatever the order.
float expected_norm(std::int64_t n, const operand &x)
{
    double sum = 0.0;
    for (std::int64_t i = 0; i < n; ++i)
        sum += static_cast<double>(x.get(i)) * static_cast<double>(x.get(i));
    return static_cast<float>(std::sqrt(sum));
}
} // namespace

TEST(snrm2, integers_at_all_lengths_and_sides)
{
    tesh_test::random random;
    for (const member_set &m : members())
        for (guard side : {guard::at_end, guard::at_start})
            for (std::int64_t n : lengths())
                for (std::int64_t inc : {1, -1, 2, -2, 7}) {
                    operand x(random, n, inc, side);
                    for (std::int64_t i = 0; i < n; ++i)
                        x.set(i, static_cast<float>(random.below(1000)));
                    ASSERT_EQ(norm(m, n, x), expected_norm(n, x)) << m.path << " n " << n << " inc " << inc;
                }
}

TEST(snrm2, every_alignment_down_to_a_byte)
{
    tesh_test::random random;
    for (const member_set &m : members())
        for (std::int64_t n : {1, 2, 3, 15, 31, 33, 70, 131})
            for (std::int64_t inc : {1, -1, 3})
                for (std::size_t shift = 0; shift <= 64; ++shift) {
                    operand x(random, n, inc, guard::at_end, shift);
                    for (std::int64_t i = 0; i < n; ++i)
                        x.set(i, static_cast<float>(random.below(1000)));
                    ASSERT_EQ(norm(m, n, x), expected_norm(n, x)) << m.path << " n " << n << " shift " << shift;
                }
}

TEST(snrm2, random_data_within_one_rounding)
{
    tesh_test::random random;
    for (const member_set &m : members())
        for (std::int64_t n : {1, 17, 100, 1000, 5000})
            for (int repeat = 0; repeat < 20; ++repeat) {
                operand x(random, n, 1, guard::at_end);
                long double sum = 0.0L;
                for (std::int64_t i = 0; i < n; ++i)
                    sum += static_cast<long double>(x.get(i)) * static_cast<long double>(x.get(i));
                const long double exact = std::sqrt(sum);
                // Half a unit in the last place, and what n additions in double precision may add.
                const long double bound =
                    exact * (std::ldexp(1.0L, -24) + static_cast<long double>(n) * std::ldexp(1.0L, -53));
                EXPECT_LE(std::fabs(static_cast<long double>(norm(m, n, x)) - exact), bound) << m.path;
            }
}

TEST(snrm2, squares_beyond_single_precision_are_finite_and_right)
{
    for (const member_set &m : members())
        for (std::int64_t n : {4, 64, 100}) {
            const float root = std::sqrt(static_cast<float>(n));
            std::vector<float> large(static_cast<std::size_t>(n), std::ldexp(1.0f, 100));
            std::vector<float> small(static_cast<std::size_t>(n), std::ldexp(1.0f, -149));
            for (std::int64_t one : {1, -1}) {
                EXPECT_EQ(m.snrm2(&n, large.data(), &one), std::ldexp(root, 100)) << m.path;
                EXPECT_EQ(m.snrm2(&n, small.data(), &one), std::ldexp(std::round(root), -149)) << m.path;
            }
        }
}

TEST(snrm2, zero_increment_counts_one_element_n_times)
{
    for (const member_set &m : members()) {
        const float x = 3.0f;
        const std::int64_t n = 16, zero = 0;
        EXPECT_EQ(m.snrm2(&n, &x, &zero), 12.0f) << m.path;
    }
}

TEST(snrm2, negative_increment_reads_forward_from_the_array)
{
    for (const member_set &m : members()) {
        const float x[] = {3.0f, 100.0f, 4.0f, 100.0f};
        const std::int64_t n = 2, minus = -2;
        EXPECT_EQ(m.snrm2(&n, x, &minus), 5.0f) << m.path;
    }
}

TEST(snrm2, no_element_gives_zero)
{
    for (const member_set &m : members())
        for (std::int64_t n : {0, -3}) {
            const std::int64_t one = 1;
            const float result = m.snrm2(&n, nullptr, &one);
            EXPECT_EQ(result, 0.0f);
            EXPECT_FALSE(std::signbit(result));
        }
}

TEST(snrm2, nan_and_infinity_anywhere_are_seen)
{
    tesh_test::random random;
    for (const member_set &m : members())
        for (std::int64_t n : {1, 7, 40, 95})
            for (std::int64_t place = 0; place < n; ++place) {
                operand x(random, n, 1, guard::at_end);
                x.set(place, -infinity);
                ASSERT_EQ(norm(m, n, x), infinity) << m.path;
                x.set(place, not_a_number);
                ASSERT_TRUE(std::isnan(norm(m, n, x))) << m.path;
            }
}

// A vector whose norm lies at a tie between two floats, within the roundings of the sum in double precision: another
// order of the additions gives the other float about every second time. L^2 + the other squares = (L + 1/2)^2.
static std::vector<float> norm_at_a_tie(tesh_test::random &random)
{
    std::vector<float> x(1003);
    long double others = 0.0L;
    for (std::size_t i = 0; i < x.size(); ++i) {
        x[i] = 100.0f + 10.0f * random.uniform();
        if (i != 2 && i != 7)
            others += static_cast<long double>(x[i]) * static_cast<long double>(x[i]);
    }
    const long double large = std::ceil(others) + 1.0L; // between 2^23 and 2^24: a float
    x[2] = static_cast<float>(large);
    x[7] = static_cast<float>(std::sqrt(large + 0.25L - others));
    return x;
}

TEST(snrm2, same_bits_at_all_alignments)
{
    tesh_test::random random;
    for (const member_set &m : members())
        for (int repeat = 0; repeat < 40; ++repeat) {
            const std::vector<float> values = norm_at_a_tie(random);
            const std::int64_t n = static_cast<std::int64_t>(values.size());
            float wanted = 0.0f;
            for (std::size_t shift = 0; shift < 64; ++shift) {
                operand x(random, n, 1, guard::at_start, shift);
                std::memcpy(x.raw(), values.data(), values.size() * 4);
                if (shift == 0)
                    wanted = norm(m, n, x);
                ASSERT_EQ(norm(m, n, x), wanted) << m.path << " shift " << shift;
            }
        }
}

TEST(snrm2, more_than_two_to_the_31_elements)
{
    if (!tesh_test::in_long_set())
        GTEST_SKIP() << "long set";
    for (const member_set &m : members()) {
        const std::int64_t n = (std::int64_t(1) << 31) + 5, one = 1, stride = n - 1, two = 2;
        tesh_test::guarded_bytes far(static_cast<std::size_t>(n) * 4, guard::at_end);
        float *x = static_cast<float *>(far.data());
        x[0] = 3.0f;
        x[n - 1] = 4.0f;
        EXPECT_EQ(m.snrm2(&n, x, &one), 5.0f) << m.path;
        EXPECT_EQ(m.snrm2(&two, x, &stride), 5.0f) << m.path;
    }
}

// Squares whose sum lies near the middle between two results, so that the last bits of the sum decide: the middle
// itself, 1 + 2^-23 + 2^-48, in four of the elements of one chain, and a few squares around the last place of that sum.
TEST(snrm2, sixteen_chains_are_added_pairwise_with_neighbours_first)
{
    constexpr int chains = 16;
    const float middle[] = {1.0f, 0x1p-12f, 0x1p-12f, 0x1p-24f}, few[] = {0x1p-27f, 0x1p-26f, 0x3p-27f, 0x1.8p-26f};
    tesh_test::random random;
    int at_middle = 0, beyond = 0;
    for (const member_set &m : members()) {
        if (m.fused)
            continue; // the wide paths have other chains
        for (int repeat = 0; repeat < 3000; ++repeat) {
            const std::int64_t n = 128;
            operand x(random, n, 1, guard::at_end);
            double chain[chains] = {};
            const std::int64_t own = random.below(chains);
            for (std::int64_t i = 0; i < n; ++i) {
                const bool in_own = i % chains == own && i / chains < 4;
                const float value = in_own ? middle[i / chains] : random.below(32) == 0 ? few[random.below(4)] : 0.0f;
                x.set(i, value);
                chain[i % chains] += static_cast<double>(value) * static_cast<double>(value);
            }
            for (int step = 2; step < chains; step *= 2)
                for (int c = 0; c + step < chains; c += 2 * step) {
                    chain[c] += chain[c + step];
                    chain[c + 1] += chain[c + step + 1];
                }
            const float expected = static_cast<float>(std::sqrt(chain[0] + chain[1]));
            ++(expected == 1.0f ? at_middle : beyond);
            ASSERT_EQ(norm(m, n, x), expected) << m.path << " repeat " << repeat;
        }
        EXPECT_GT(at_middle, 30);
        EXPECT_GT(beyond, 30);
    }
}

TEST(snrm2, wide_paths_sum_a_strided_vector_in_one_chain)
{
    tesh_test::random random;
    for (const member_set &m : members()) {
        if (!m.fused)
            continue;
        for (int repeat = 0; repeat < 3000; ++repeat) {
            const std::int64_t n = 4 + random.below(60);
            operand x(random, n, 3, guard::at_end);
            const std::int64_t own = random.below(n - 3);
            double sum = 0.0;
            for (std::int64_t i = 0; i < n; ++i) { // each square below half the last place of the sum is lost behind 1
                const float value = i == own                  ? 1.0f
                                    : i > own && i <= own + 2 ? 0x1p-12f
                                    : i == own + 3            ? 0x1p-24f
                                                              : 0x1p-27f;
                x.set(i, value);
                sum = std::fma(static_cast<double>(value), static_cast<double>(value), sum);
            }
            ASSERT_EQ(norm(m, n, x), static_cast<float>(std::sqrt(sum))) << m.path << " n " << n << " own " << own;
        }
    }
}
