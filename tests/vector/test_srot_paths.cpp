// SPDX-License-Identifier: BSD-3-Clause
// SROT and SROTM, every member called by its own name, against the rotation element by element.
#include "tests/vector/level1.h"

#include <cfenv>

using namespace level1;
using tesh_test::guard;

namespace
{
void turn(bool fused, float c, float s, float &x, float &y)
{
    const float w = x, z = y;
    if (fused) {
        x = std::fma(z, s, c * w);
        y = std::fma(c, z, -s * w);
        return;
    }
    const float cw = c * w, sz = s * z, cz = c * z, sw = s * w;
    x = cw + sz;
    y = cz - sw;
}

// param: flag, h11, h21, h12, h22.
void turn_modified(const float *param, float &x, float &y)
{
    const float w = x, z = y;
    if (param[0] < 0.0f) {
        x = std::fma(z, param[3], param[1] * w);
        y = std::fma(param[4], z, param[2] * w);
    } else if (param[0] == 0.0f) {
        x = std::fma(z, param[3], w);
        y = z + param[2] * w;
    } else {
        x = z + param[1] * w;
        y = std::fma(param[4], z, -w);
    }
}

template <class Turn> void expect(std::int64_t n, operand &x, operand &y, Turn turn_one)
{
    for (std::int64_t i = 0; i < n; ++i) {
        float w = x.want(i), z = y.want(i);
        turn_one(w, z);
        x.want(i, w);
        y.want(i, z);
    }
}
} // namespace

TEST(srot, lengths_alignments_and_strides)
{
    for (const member_set &m : members())
        for (auto [c, s] :
             {std::pair(0.8f, 0.6f), std::pair(0.0f, 1.0f), std::pair(1.0f, 0.0f), std::pair(-0.3f, 0.9f)})
            ASSERT_NO_FATAL_FAILURE(sweep(
                m,
                [&, c = c, s = s](std::int64_t n, operand &x, operand &y) {
                    expect(n, x, y, [&](float &w, float &z) { turn(m.fused, c, s, w, z); });
                },
                [&, c = c, s = s](std::int64_t n, operand &x, operand &y) {
                    m.srot(&n, x.data(), x.inc(), y.data(), y.inc(), &c, &s);
                }));
}

TEST(srotm, every_flag_at_all_lengths_alignments_and_strides)
{
    bool ran = false;
    for (const member_set &m : members()) {
        if (m.srotm == nullptr)
            continue;
        ran = true;
        for (float flag : {-1.0f, -5.0f, 0.0f, -0.0f, 1.0f, 3.0f}) {
            const float param[5] = {flag, 0.7f, -0.4f, 0.3f, 1.1f};
            ASSERT_NO_FATAL_FAILURE(sweep(
                m,
                [&](std::int64_t n, operand &x, operand &y) {
                    expect(n, x, y, [&](float &w, float &z) { turn_modified(param, w, z); });
                },
                [&](std::int64_t n, operand &x, operand &y) {
                    m.srotm(&n, x.data(), x.inc(), y.data(), y.inc(), param);
                }));
        }
    }
    if (!ran)
        GTEST_SKIP() << "this path has no modified rotation";
}

TEST(srotm, entries_that_a_flag_fixes_are_not_used)
{
    bool ran = false;
    for (const member_set &m : members()) {
        if (m.srotm == nullptr)
            continue;
        ran = true;
        const float diagonal[5] = {0.0f, not_a_number, 0.5f, 0.25f, not_a_number};
        const float off_diagonal[5] = {1.0f, 0.5f, not_a_number, not_a_number, 0.25f};
        for (std::int64_t inc : {1, 2})
            for (const float *param : {diagonal, off_diagonal}) {
                std::vector<float> x(80, 2.0f), y(80, 4.0f);
                const std::int64_t n = 40;
                m.srotm(&n, x.data(), &inc, y.data(), &inc, param);
                for (std::size_t i = 0; i < 40; ++i) {
                    const std::size_t at_i = i * static_cast<std::size_t>(inc);
                    EXPECT_EQ(x[at_i], param == diagonal ? 3.0f : 5.0f);
                    EXPECT_EQ(y[at_i], param == diagonal ? 5.0f : -1.0f);
                }
            }
    }
    if (!ran)
        GTEST_SKIP() << "this path has no modified rotation";
}

TEST(srotm, flag_minus_two_touches_no_vector)
{
    bool ran = false;
    for (const member_set &m : members()) {
        if (m.srotm == nullptr)
            continue;
        ran = true;
        const float param[5] = {-2.0f, 1.0f, 1.0f, 1.0f, 1.0f};
        const std::int64_t n = 5, one = 1;
        m.srotm(&n, nullptr, &one, nullptr, &one, param);
    }
    if (!ran)
        GTEST_SKIP() << "this path has no modified rotation";
}

TEST(srot, nothing_but_a_count_of_zero_or_below_is_read)
{
    for (const member_set &m : members())
        for (std::int64_t n : {0, -7}) {
            m.srot(&n, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
            if (m.srotm != nullptr)
                m.srotm(&n, nullptr, nullptr, nullptr, nullptr, nullptr);
        }
}

TEST(srot, nan_in_one_pair_stays_there)
{
    tesh_test::random random;
    for (const member_set &m : members())
        for (std::int64_t n : {1, 5, 20, 70})
            for (std::int64_t place = 0; place < n; ++place) {
                operand x(random, n, 1, guard::at_end, 4), y(random, n, 1, guard::at_end);
                x.set(place, not_a_number);
                x.keep();
                const float c = 0.8f, s = 0.6f;
                expect(n, x, y, [&](float &w, float &z) { turn(m.fused, c, s, w, z); });
                m.srot(&n, x.data(), x.inc(), y.data(), y.inc(), &c, &s);
                ASSERT_TRUE(x.holds()) << m.path;
                ASSERT_TRUE(y.holds()) << m.path;
            }
}

TEST(srotm, an_infinite_entry_raises_no_flag)
{
    bool ran = false;
    for (const member_set &m : members()) {
        if (m.srotm == nullptr)
            continue;
        ran = true;
        for (float flag : {-1.0f, 0.0f, 1.0f})
            for (std::int64_t n = 1; n < 70; ++n) {
                const float param[5] = {flag, infinity, infinity, infinity, infinity};
                std::vector<float> x(70, 1.0f), y(70, 1.0f);
                const std::int64_t one = 1;
                std::feclearexcept(FE_ALL_EXCEPT);
                m.srotm(&n, x.data(), &one, y.data(), &one, param);
                EXPECT_EQ(std::fetestexcept(FE_INVALID | FE_OVERFLOW), 0) << m.path << " n " << n << " flag " << flag;
                EXPECT_EQ(x[0], infinity);
                EXPECT_EQ(y[0], infinity);
            }
    }
    if (!ran)
        GTEST_SKIP() << "this path has no modified rotation";
}
