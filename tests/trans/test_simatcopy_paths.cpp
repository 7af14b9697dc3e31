// SPDX-License-Identifier: BSD-3-Clause
// AB := alpha*op(AB) on every path, against plain loops, bit by bit; arrays between guard pages,
// padding under canaries.
#include <gtest/gtest.h>

#include <algorithm>
#include <cfenv>
#include <limits>

#include "tests/trans/trans_members.h"

namespace
{
using trans_test::arena;
using trans_test::copy_case;
using trans_test::first_difference;
using trans_test::members;

constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();
constexpr float infinity = std::numeric_limits<float>::infinity();

class simatcopy : public testing::Test
{
protected:
    static constexpr size_t arena_floats = size_t(1) << 23;
    arena arena_{arena_floats};
    std::vector<float> before_, expected_;

    static bool moves_ones(const copy_case &c) { return c.transposes() && c.rows == c.cols && c.lda == c.ldb; }

    void check(const members &m, const copy_case &c, bool at_end)
    {
        float *a = arena_.cut(std::max(c.source_size(), c.target_size()), at_end);
        fill_source(c, a);
        check_filled(m, c, a, at_end);
    }

    void check_filled(const members &m, const copy_case &c, float *a, bool at_end)
    {
        before_.assign(a, a + std::max(c.source_size(), c.target_size()));
        expected_ = before_;
        reference_copy(c, before_.data(), expected_.data(), moves_ones(c));
        m.simatcopy(c.ordering, c.trans, c.rows, c.cols, c.alpha, a, c.lda, c.ldb);
        const bool payloads = c.alpha == 1.0f && moves_ones(c);
        ASSERT_EQ(first_difference(a, expected_.data(), expected_.size(), payloads), expected_.size())
            << m.path << ' ' << c.name() << (at_end ? " at end" : " at start");
        ASSERT_TRUE(arena_.is_whole_around_cut()) << m.path << ' ' << c.name();
    }
};

TEST_F(simatcopy, all_shapes_to_40_with_every_short_padding)
{
    for (const members *m : trans_test::members_to_run())
        for (uint64_t rows = 0; rows <= 40; ++rows)
            for (uint64_t cols = 0; cols <= 40; ++cols)
                for (const char *form : {"CN", "CT", "RN", "RT"})
                    for (uint64_t pads = 0; pads < 16; ++pads)
                        for (float alpha : {1.0f, 2.0f}) {
                            copy_case c{form[0], form[1], rows, cols, alpha, 0, 0};
                            c.lda = c.least_lda() + pads % 4;
                            c.ldb = c.least_ldb() + pads / 4;
                            if (c.lda == 0 || c.ldb == 0)
                                continue;
                            check(*m, c, (rows + pads + (alpha == 1.0f ? 0 : 1)) % 2 == 0);
                            if (HasFatalFailure())
                                return;
                        }
}

// Sizes around powers of two, both ways between lines of the least length and up to three elements more.
TEST_F(simatcopy, sizes_around_powers_of_two_with_every_short_padding)
{
    std::vector<uint64_t> sizes = {63, 64, 65, 127, 128, 129};
    if (tesh_test::in_medium_set())
        sizes.insert(sizes.end(), {255, 256, 257, 511, 512, 513});
    if (tesh_test::in_long_set())
        sizes.insert(sizes.end(), {1023, 1024, 1025});
    for (const members *m : trans_test::members_to_run())
        for (uint64_t n : sizes)
            for (uint64_t pads = 0; pads < 16; ++pads) {
                const uint64_t pad_a = pads % 4, pad_b = pads / 4;
                check(*m, {'R', 'T', n, n, 1.0f, n + pad_a, n + pad_b}, false);
                check(*m, {'C', 'N', n, n, 2.0f, n + pad_a, n + pad_b}, true);
                check(*m, {'C', 'T', n, n + 1, 2.0f, n + pad_a, n + 1 + pad_b}, true);
                if (HasFatalFailure())
                    return;
            }
}

TEST_F(simatcopy, squares_with_equal_lines)
{
    for (const members *m : trans_test::members_to_run())
        for (uint64_t n : {1,   2,   3,   4,   5,   15,  16,  17,  18,  31,  32,  33,   47,   48,   63,  64,
                           65,  100, 127, 128, 129, 144, 160, 239, 240, 255, 256, 257,  271,  272,  273, 288,
                           300, 320, 321, 400, 511, 512, 513, 528, 529, 777, 800, 1023, 1024, 1025, 1040})
            for (uint64_t pad : {0, 1, 2, 3, 7, 15, 16}) {
                if (n > 300 && pad != 0 && pad != 3 && pad != 15)
                    continue;
                for (uint64_t lead : {n + pad, (n + 15) / 16 * 16}) {
                    check(*m, {'C', 'T', n, n, 1.0f, lead, lead}, true);
                    check(*m, {'R', 't', n, n, 1.0f, lead, lead}, false);
                    if (n <= 300)
                        check(*m, {'R', 'C', n, n, 0.7f, lead, lead}, true);
                    if (HasFatalFailure())
                        return;
                }
            }
}

TEST_F(simatcopy, squares_at_power_of_two_lines)
{
    for (const members *m : trans_test::members_to_run())
        for (uint64_t lead : {64, 128, 256, 512, 1024, 2048, 4096, 8192})
            for (uint64_t n : {lead, lead - 1, lead / 2 + 1, uint64_t(40)}) {
                if (n * lead > arena_floats)
                    continue;
                check(*m, {'C', 'T', n, n, 1.0f, lead, lead}, true);
                check(*m, {'R', 'T', n, n, -1.5f, lead, lead}, true); // stores wait for each other in some of them
                if (HasFatalFailure())
                    return;
            }
}

// alpha = 1 in large squares: the walk in shells with and without prefetches, then what is left of 16.
TEST_F(simatcopy, large_squares)
{
    std::vector<uint64_t> sizes = {1254, 1296, 1300};
    if (tesh_test::in_medium_set())
        sizes.insert(sizes.end(), {1600, 2047, 2048, 2049, 2560});
    for (const members *m : trans_test::members_to_run())
        for (uint64_t n : sizes)
            for (uint64_t lead : {n, n + 1, (n + 31) / 16 * 16, uint64_t(3072)}) {
                check(*m, {'C', 'T', n, n, 1.0f, lead, lead}, true);
                if (HasFatalFailure())
                    return;
            }
}

TEST_F(simatcopy, squares_of_8192_with_every_short_padding)
{
    if (!tesh_test::in_long_set())
        GTEST_SKIP() << "of the long set";
    for (uint64_t n : {8191, 8192, 8193})
        for (uint64_t lead = n; lead < n + 4; ++lead) {
            arena large(n * lead);
            for (const members *m : trans_test::members_to_run()) {
                float *a = large.cut(n * lead, true);
                const auto value = [=](uint64_t i, uint64_t j) { return static_cast<float>((i * n + j) % 16777213); };
                for (uint64_t i = 0; i < n; ++i)
                    for (uint64_t j = 0; j < n; ++j)
                        a[i * lead + j] = value(i, j);
                m->simatcopy('R', 'T', n, n, 1.0f, a, lead, lead);
                for (uint64_t i = 0; i < n; ++i) {
                    for (uint64_t j = 0; j < n; ++j)
                        ASSERT_EQ(a[j * lead + i], value(i, j)) << m->path << ' ' << n << ' ' << lead;
                    for (uint64_t j = n; j < lead; ++j)
                        ASSERT_EQ(std::memcmp(a + i * lead + j, &trans_test::canary_bits, 4), 0) << m->path << ' ' << n;
                }
            }
        }
}

TEST_F(simatcopy, tiles_direct_entry)
{
    for (const members *m : trans_test::members_to_run())
        for (uint64_t n : {0, 1, 15, 16, 17, 32, 40, 64, 255, 256, 257, 272, 300, 512})
            for (uint64_t lead : {n + 1, (n + 15) / 16 * 16 + 16}) {
                const copy_case c{'C', 'T', n, n, 1.0f, lead, lead};
                for (bool whole : {false, true}) {
                    float *a = arena_.cut(c.source_size(), true);
                    fill_source(c, a);
                    expected_.assign(a, a + c.source_size());
                    before_ = expected_;
                    reference_copy(c, before_.data(), expected_.data(), true);
                    if (whole) {
                        ASSERT_EQ(m->ssqtrans(a, n, lead), 0);
                    } else {
                        m->ssqtrans_fit_64(a, n, lead);
                    }
                    ASSERT_EQ(first_difference(a, expected_.data(), expected_.size()), expected_.size())
                        << m->path << ' ' << c.name();
                }
            }
}

TEST_F(simatcopy, tile_kernels)
{
    for (const members *m : trans_test::members_to_run())
        for (uint64_t lead : {m->tile, m->tile + 1, uint64_t(64), uint64_t(1024)}) {
            const uint64_t n = m->tile;
            const copy_case c{'C', 'T', n, n, 1.0f, lead, lead};
            const size_t size = c.source_size();
            float *p = arena_.cut(2 * size + 3, true), *q = p + size + 3;
            fill_source(c, p);
            fill_source(c, q);
            for (uint64_t k = 0; k < n * lead && k < size; ++k)
                if (k % lead < n)
                    q[k] = -q[k];
            before_.assign(p, p + 2 * size + 3);
            expected_ = before_;
            reference_copy(c, &before_[0], &expected_[size + 3], true);
            reference_copy(c, &before_[size + 3], &expected_[0], true);
            m->sswap_blocks(p, q, lead);
            ASSERT_EQ(first_difference(p, expected_.data(), expected_.size()), expected_.size()) << m->path;
            before_ = expected_;
            reference_copy(c, &before_[0], &expected_[0], true);
            m->strans_block(p, lead);
            ASSERT_EQ(first_difference(p, expected_.data(), expected_.size()), expected_.size()) << m->path;
        }
}

TEST_F(simatcopy, tiles_of_64)
{
    for (const members *m : trans_test::members_to_run())
        for (uint64_t lead : {128, 131}) {
            const copy_case c{'C', 'T', 64, 64, 1.0f, lead, lead}, both{'C', 'N', 128, 128, 1.0f, lead, lead};
            float *a = arena_.cut(both.source_size(), true), *q = a + 64 * lead + 64;
            fill_source(both, a);
            before_.assign(a, a + both.source_size());
            expected_ = before_;
            reference_copy(c, &before_[0], &expected_[0], true);
            m->square_t_64x64n(a, a, lead, 1);
            ASSERT_EQ(first_difference(a, expected_.data(), expected_.size()), expected_.size()) << m->path;
            before_ = expected_;
            reference_copy(c, &before_[0], &expected_[64 * lead + 64], true);
            reference_copy(c, &before_[64 * lead + 64], &expected_[0], true);
            m->square_t_64x64n(a, q, lead, 0);
            ASSERT_EQ(first_difference(a, expected_.data(), expected_.size()), expected_.size()) << m->path;
        }
}

TEST_F(simatcopy, workers_of_a_team_do_the_whole_in_any_order)
{
    for (const members *m : trans_test::members_to_run())
        for (uint64_t n : {0, 1, 7, 15, 16, 17, 31, 32, 33, 48, 50, 64, 79, 96, 100, 112, 145, 257, 300})
            for (uint64_t workers : {1, 2, 3, 5, 8, 40}) {
                const copy_case c{'C', 'T', n, n, 1.0f, n + 2, n + 2};
                float *a = arena_.cut(c.source_size(), true);
                fill_source(c, a);
                before_.assign(a, a + c.source_size());
                expected_ = before_;
                reference_copy(c, before_.data(), expected_.data(), true);
                for (uint64_t k = 0; k < workers; ++k)
                    m->team(n, a, n + 2, n % 2 == 0 ? k : workers - 1 - k, workers);
                ASSERT_EQ(first_difference(a, expected_.data(), expected_.size()), expected_.size())
                    << m->path << ' ' << n << ' ' << workers;
            }
}

TEST_F(simatcopy, a_worker_touches_nothing_of_another_one)
{
    for (const members *m : trans_test::members_to_run())
        for (uint64_t n : {50, 113}) {
            constexpr uint64_t workers = 3;
            const copy_case c{'C', 'T', n, n, 1.0f, n, n};
            std::vector<int> writers(n * n, 0);
            for (uint64_t k = 0; k < workers; ++k) {
                float *a = arena_.cut(n * n, true);
                fill_source(c, a);
                before_.assign(a, a + n * n);
                m->team(n, a, n, k, workers);
                for (size_t x = 0; x < n * n; ++x)
                    writers[x] += a[x] != before_[x];
            }
            for (size_t x = 0; x < n * n; ++x)
                ASSERT_EQ(writers[x], x / n == x % n ? 0 : 1) << m->path << ' ' << n << ' ' << x;
        }
}

TEST(simatcopy_team, class_is_6)
{
    for (const members *m : trans_test::members_to_run()) {
        float a[4] = {1, 2, 3, 4};
        int32_t team_class = 0;
        m->ssqtrans_team(a, 2, 2, 0, 1, &team_class);
        EXPECT_EQ(team_class, 6);
        EXPECT_EQ(a[1], 2.0f);
    }
}

TEST_F(simatcopy, rectangles_whose_lines_change_length_both_ways)
{
    constexpr uint64_t shapes[][2] = {{2, 3},   {3, 2},    {1, 50},   {50, 1},  {7, 11},    {64, 48},
                                      {48, 64}, {100, 30}, {33, 129}, {17, 17}, {128, 128}, {61, 300}};
    for (const members *m : trans_test::members_to_run())
        for (const auto &shape : shapes)
            for (uint64_t pad_a : {0, 1, 3, 20})
                for (uint64_t pad_b : {0, 2, 5, 31})
                    for (const char *form : {"CN", "CT", "RN", "RT"}) {
                        copy_case c{form[0], form[1], shape[0], shape[1], -2.0f, 0, 0};
                        c.lda = c.least_lda() + pad_a;
                        c.ldb = c.least_ldb() + pad_b;
                        check(*m, c, (pad_a + pad_b) % 2 == 0);
                        if (HasFatalFailure())
                            return;
                    }
}

// 3 x 2 by rows with lda 5 and ldb 7: sources 0 1 5 6 10 11, targets 0 7 1 8 2 9. What is no target keeps its bytes.
TEST_F(simatcopy, positions_between_lines_that_are_no_target_stay)
{
    for (const members *m : trans_test::members_to_run()) {
        float *a = arena_.cut(12, true);
        for (int k = 0; k < 12; ++k)
            a[k] = static_cast<float>(100 + k);
        m->simatcopy('R', 'T', 3, 2, 2.0f, a, 5, 7);
        const float expected[12] = {200, 210, 220, 103, 104, 105, 106, 202, 212, 222, 110, 111};
        for (int k = 0; k < 12; ++k)
            EXPECT_EQ(a[k], expected[k]) << m->path << ' ' << k;
    }
}

TEST_F(simatcopy, fixed_points_of_a_2_by_3_transposition_are_scaled_once)
{
    for (const members *m : trans_test::members_to_run()) {
        float a[6] = {1, 2, 3, 4, 5, 6};
        m->simatcopy('R', 'T', 2, 3, 3.0f, a, 3, 2);
        const float expected[6] = {3, 12, 6, 15, 9, 18};
        for (int k = 0; k < 6; ++k)
            EXPECT_EQ(a[k], expected[k]) << m->path << ' ' << k;
    }
}

TEST_F(simatcopy, one_by_one_is_scaled_by_every_routine)
{
    for (const members *m : trans_test::members_to_run()) {
        float a = 3.0f;
        m->square_n(1, &a, 2.0f);
        EXPECT_EQ(a, 6.0f);
        m->mipt_n(1, 1, &a, 4, 2, 2.0f);
        EXPECT_EQ(a, 12.0f);
        m->mipt_n(1, 1, &a, 2, 4, 2.0f);
        EXPECT_EQ(a, 24.0f);
        m->mipt_t(1, 1, &a, 1, 1, 2.0f);
        EXPECT_EQ(a, 48.0f);
        m->mipt_t(1, 1, &a, 3, 2, 2.0f);
        EXPECT_EQ(a, 96.0f);
        m->square_t(1, &a, 1, 2.0f);
        EXPECT_EQ(a, 192.0f);
        m->simatcopy('C', 'T', 1, 1, 0.5f, &a, 1, 1);
        EXPECT_EQ(a, 96.0f);
        m->simatcopy('R', 'N', 1, 1, 0.5f, &a, 1, 1);
        EXPECT_EQ(a, 48.0f);
    }
}

TEST_F(simatcopy, values_travel_as_the_product_says)
{
    const float values[] = {0.0f, -0.0f, 1.0f, infinity, -infinity, nan_value, 1e-44f, 3e38f, -2.5f};
    for (const members *m : trans_test::members_to_run())
        for (float alpha : {0.0f, -0.0f, 1.0f, nan_value, infinity, 0.5f, -1.0f})
            for (const char *form : {"RN", "RT", "CN", "CT"})
                for (uint64_t n : {1, 3, 8, 21, 40})
                    for (uint64_t more : {0, 2}) {
                        const copy_case c{form[0], form[1], n, n + more, alpha, n + 3, n + 3};
                        float *a = arena_.cut(std::max(c.source_size(), c.target_size()), true);
                        for (uint64_t i = 0; i < c.outer(); ++i)
                            for (uint64_t j = 0; j < c.inner(); ++j)
                                a[i * c.lda + j] = values[(3 * i + j) % std::size(values)];
                        check_filled(*m, c, a, true);
                        if (HasFatalFailure())
                            return;
                    }
}

TEST_F(simatcopy, an_infinite_alpha_raises_no_flag_of_its_own)
{
    for (const members *m : trans_test::members_to_run())
        for (uint64_t rows = 1; rows <= 20; ++rows)
            for (uint64_t cols : {uint64_t(1), uint64_t(5), rows})
                for (const char trans : {'N', 'T'})
                    for (uint64_t pads : {0, 1, 2}) {
                        copy_case c{'C', trans, rows, cols, infinity, 0, 0};
                        c.lda = c.least_lda() + pads;
                        c.ldb = c.least_ldb() + pads / 2;
                        std::vector<float> a(std::max(c.source_size(), c.target_size()), 1.0f);
                        std::feclearexcept(FE_ALL_EXCEPT);
                        m->simatcopy(c.ordering, c.trans, c.rows, c.cols, c.alpha, a.data(), c.lda, c.ldb);
                        EXPECT_EQ(std::fetestexcept(FE_ALL_EXCEPT), 0) << m->path << ' ' << c.name();
                        EXPECT_EQ(a[0], infinity);
                    }
}

TEST_F(simatcopy, accepts_every_letter_and_ignores_others)
{
    for (const members *m : trans_test::members_to_run())
        for (int ordering = -128; ordering < 128; ++ordering)
            for (int trans = -128; trans < 128; ++trans)
                for (uint64_t cols : {3, 4}) {
                    const bool known = ordering != 0 && trans != 0 && std::strchr("CcRr", ordering) != nullptr &&
                                       std::strchr("NnRrTtCc", trans) != nullptr;
                    const copy_case c{static_cast<char>(ordering), static_cast<char>(trans), 3, cols, 2.0f, 4, 4};
                    float *a = arena_.cut(16, true);
                    if (known)
                        fill_source(c, a);
                    before_.assign(a, a + 16);
                    expected_ = before_;
                    if (known)
                        reference_copy(c, before_.data(), expected_.data(), true);
                    m->simatcopy(c.ordering, c.trans, 3, cols, 2.0f, a, 4, 4);
                    ASSERT_EQ(first_difference(a, expected_.data(), 16, false), 16u) << ordering << ' ' << trans;
                }
}

TEST_F(simatcopy, empty_shapes_touch_nothing)
{
    for (const members *m : trans_test::members_to_run())
        for (uint64_t rows : {0, 5})
            for (char trans : {'N', 'T'}) {
                m->simatcopy('C', trans, rows, 5 - rows, 2.0f, nullptr, 5, 5);
                m->mipt_n(rows, 5 - rows, nullptr, 7, 5, 2.0f);
                m->mipt_n(rows, 5 - rows, nullptr, 5, 7, 2.0f);
                m->mipt_t(rows, 5 - rows, nullptr, 7, 5, 2.0f);
            }
}

TEST_F(simatcopy, transposing_twice_gives_the_matrix_back)
{
    constexpr uint64_t shapes[][2] = {{1000, 3}, {3, 1000}, {200, 301}, {128, 1024}, {97, 103}};
    for (const members *m : trans_test::members_to_run())
        for (const auto &s : shapes) {
            const copy_case c{'R', 'T', s[0], s[1], 1.0f, s[1], s[0]};
            float *a = arena_.cut(c.source_size(), true);
            fill_source(c, a);
            before_.assign(a, a + c.source_size());
            m->simatcopy('R', 'T', s[0], s[1], 2.0f, a, s[1], s[0]);
            m->simatcopy('R', 'T', s[1], s[0], 0.5f, a, s[0], s[1]);
            ASSERT_EQ(first_difference(a, before_.data(), before_.size()), before_.size()) << c.name();
        }
}
} // namespace
