// SPDX-License-Identifier: BSD-3-Clause
// The copy routines by their public names: reports in their order, arrays untouched, letters, aliases, verbose lines. Calls
// whose output or first use counts run in children.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <regex>
#include <string>
#include <vector>

#include "frame/entry/entry.h"
#include "frame/tesh.h"
#include "tests/support/child.h"
#include "tests/trans/trans_members.h"

namespace
{
using tesh_test::run_forked;
using trans_test::copy_case;

struct reported {
    std::string name;
    int64_t parameter = 0;
    int calls = 0;
};
reported last_report;

void remember_report(const char *name, const int64_t *code, int32_t length)
{
    last_report = {std::string(name, static_cast<size_t>(length)), *code, last_report.calls + 1};
}

// Puts a handler of the test's own in for its life.
class matcopy_entry : public testing::Test
{
protected:
    void SetUp() override
    {
        former_ = tesh_serv_set_xerbla(remember_report);
        last_report = {};
    }
    void TearDown() override { tesh_serv_set_xerbla(former_); }

private:
    tesh_serv_xerbla_fn former_ = nullptr;
};

struct bad_call {
    char ordering, trans;
    size_t rows, cols, lda, ldb;
    int64_t parameter; // 8 stands for ldb: 9 out of place
};

constexpr size_t huge_size = size_t(1) << 63;
constexpr bad_call bad_calls[] = {
    {'X', 'N', 3, 4, 3, 3, 1},         {'X', 'Q', 3, 4, 0, 0, 1},         {0, 'N', 3, 4, 3, 3, 1},
    {'T', 'N', 3, 4, 3, 3, 1},         {'C', 'N', 3, 4, 2, 3, 7},         {'c', 'Q', 3, 4, 0, 0, 7},
    {'C', 'N', 0, 0, 0, 0, 7},         {'R', 'N', 0, 0, 0, 1, 7},         {'R', 'Z', 3, 4, 3, 4, 7},
    {'r', 'N', 3, 4, 3, 4, 7},         {'R', 'Z', 3, 4, 4, 4, 2},         {'C', 'Q', 3, 4, 3, 0, 2},
    {'C', 'S', 3, 4, 3, 3, 2},         {'C', 0, 3, 4, 3, 3, 2},           {'C', 'N', 3, 4, 3, 2, 8},
    {'C', 'r', 3, 4, 3, 0, 8},         {'C', 'T', 3, 4, 3, 3, 8},         {'C', 'c', 3, 4, 3, 3, 8},
    {'R', 'N', 3, 4, 4, 3, 8},         {'R', 'T', 4, 3, 3, 3, 8},         {'R', 't', 0, 0, 1, 0, 8},
    {'C', 'N', huge_size, 1, 5, 5, 7}, {'R', 'T', huge_size, 1, 1, 5, 8},
};

TEST_F(matcopy_entry, reports_the_first_bad_argument_and_touches_nothing)
{
    for (const bad_call &bad : bad_calls) {
        float a[20], b[20];
        std::memset(a, 0x5a, sizeof a);
        std::memset(b, 0xa5, sizeof b);
        const int64_t rows = static_cast<int64_t>(bad.rows), cols = static_cast<int64_t>(bad.cols);
        const int64_t lda = static_cast<int64_t>(bad.lda), ldb = static_cast<int64_t>(bad.ldb);
        const float alpha = 2.0f;
        const int64_t out_of_place = bad.parameter == 8 ? 9 : bad.parameter;
        for (bool by_address : {false, true}) {
            last_report = {};
            if (by_address)
                TESH_SIMATCOPY(&bad.ordering, &bad.trans, &rows, &cols, &alpha, a, &lda, &ldb);
            else
                TESH_Simatcopy(bad.ordering, bad.trans, bad.rows, bad.cols, alpha, a, bad.lda, bad.ldb);
            EXPECT_EQ(last_report.name, "tesh_simatcopy");
            EXPECT_EQ(last_report.parameter, bad.parameter) << bad.ordering << bad.trans << bad.lda << bad.ldb;
            EXPECT_EQ(last_report.calls, 1);
            last_report = {};
            if (by_address)
                TESH_SOMATCOPY(&bad.ordering, &bad.trans, &rows, &cols, &alpha, a, &lda, b, &ldb);
            else
                TESH_Somatcopy(bad.ordering, bad.trans, bad.rows, bad.cols, alpha, a, bad.lda, b, bad.ldb);
            EXPECT_EQ(last_report.name, "tesh_somatcopy");
            EXPECT_EQ(last_report.parameter, out_of_place) << bad.ordering << bad.trans << bad.lda << bad.ldb;
            EXPECT_EQ(last_report.calls, 1);
        }
        for (size_t k = 0; k < sizeof a; ++k) {
            ASSERT_EQ(reinterpret_cast<unsigned char *>(a)[k], 0x5a);
            ASSERT_EQ(reinterpret_cast<unsigned char *>(b)[k], 0xa5);
        }
    }
}

TEST_F(matcopy_entry, checks_answer_1_after_a_report_and_0_without_one)
{
    float x[20] = {};
    EXPECT_EQ(tesh_trans_errchk_tesh_simatcopy('C', 'T', 3, 4, 1.0f, x, 3, 3), 1);
    EXPECT_EQ(last_report.parameter, 8);
    EXPECT_EQ(tesh_trans_errchk_tesh_somatcopy('C', 'T', 3, 4, 1.0f, x, 3, x, 3), 1);
    EXPECT_EQ(last_report.parameter, 9);
    EXPECT_EQ(last_report.calls, 2);
    EXPECT_EQ(tesh_trans_errchk_tesh_simatcopy('C', 'T', 3, 4, 1.0f, x, 3, 4), 0);
    EXPECT_EQ(tesh_trans_errchk_tesh_somatcopy('R', 'n', 3, 4, 1.0f, x, 4, x, 4), 0);
    EXPECT_EQ(tesh_trans_errchk_tesh_simatcopy('C', 'T', 0, 0, 1.0f, x, 1, 1), 0);
    EXPECT_EQ(last_report.calls, 2);
}

TEST_F(matcopy_entry, every_letter_and_shape_by_value_and_by_address)
{
    for (const char ordering : {'C', 'c', 'R', 'r'})
        for (const char trans : {'N', 'n', 'R', 'r', 'T', 't', 'C', 'c'})
            for (uint64_t rows : {0, 1, 7, 16, 100})
                for (uint64_t cols : {0, 1, 5, 17, 100}) {
                    copy_case c{ordering, trans, rows, cols, -1.5f, 0, 0};
                    c.lda = c.least_lda() + 2;
                    c.ldb = c.least_ldb() + 1;
                    std::vector<float> a(c.source_size()), b(c.target_size(), 7.0f);
                    trans_test::fill_source(c, a.data());
                    std::vector<float> by_address = b, expected = b;
                    reference_copy(c, a.data(), expected.data(), true);
                    TESH_Somatcopy(ordering, trans, rows, cols, c.alpha, a.data(), c.lda, b.data(), c.ldb);
                    EXPECT_EQ(b, expected) << c.name();
                    const int64_t m = static_cast<int64_t>(rows), n = static_cast<int64_t>(cols);
                    const int64_t lda = static_cast<int64_t>(c.lda), ldb = static_cast<int64_t>(c.ldb);
                    tesh_somatcopy_(&ordering, &trans, &m, &n, &c.alpha, a.data(), &lda, by_address.data(), &ldb);
                    EXPECT_EQ(by_address, expected) << c.name();

                    a.resize(std::max(c.source_size(), c.target_size()), 9.0f);
                    expected = a;
                    reference_copy(c, a.data(), expected.data(), true);
                    by_address = a;
                    TESH_Simatcopy(ordering, trans, rows, cols, c.alpha, a.data(), c.lda, c.ldb);
                    EXPECT_EQ(a, expected) << c.name();
                    tesh_simatcopy(&ordering, &trans, &m, &n, &c.alpha, by_address.data(), &lda, &ldb);
                    EXPECT_EQ(by_address, expected) << c.name();
                }
    EXPECT_EQ(last_report.calls, 0);
}

TEST_F(matcopy_entry, alpha_may_lie_in_the_matrix)
{
    float a[4] = {2, 3, 4, 5};
    const int64_t n = 2;
    TESH_SIMATCOPY("C", "T", &n, &n, &a[1], a, &n, &n);
    EXPECT_EQ(a[0], 6);
    EXPECT_EQ(a[1], 12);
    EXPECT_EQ(a[2], 9);
    EXPECT_EQ(a[3], 15);
}

TEST(matcopy_names, by_address_names_are_one_entry_and_by_value_ones_are_their_own)
{
    EXPECT_EQ(tesh_simatcopy, TESH_SIMATCOPY);
    EXPECT_EQ(tesh_simatcopy_, TESH_SIMATCOPY);
    EXPECT_EQ(tesh_somatcopy, TESH_SOMATCOPY);
    EXPECT_EQ(tesh_somatcopy_, TESH_SOMATCOPY);
    EXPECT_NE(reinterpret_cast<void *>(TESH_Simatcopy), reinterpret_cast<void *>(TESH_SIMATCOPY));
    EXPECT_NE(reinterpret_cast<void *>(TESH_Somatcopy), reinterpret_cast<void *>(TESH_SOMATCOPY));
}

TEST(matcopy_report, is_printed_once_under_the_lower_case_name)
{
    const auto child = run_forked([] {
        float x[12] = {};
        TESH_Simatcopy('C', 'N', 0, 0, 1.0f, x, 0, 0);
        TESH_Somatcopy('C', 'T', 3, 4, 1.0f, x, 3, x, 3);
        return 0;
    });
    EXPECT_EQ(child.exit_code, 0);
    EXPECT_EQ(child.out, "\nOrvan Tesh ERROR: Parameter 7 was incorrect on entry to tesh_simatcopy.\n"
                         "\nOrvan Tesh ERROR: Parameter 9 was incorrect on entry to tesh_somatcopy.\n");
}

std::string address(const void *p)
{
    char text[32];
    std::snprintf(text, sizeof text, "%p", p);
    return text;
}

TEST(matcopy_verbose, lines_of_the_four_names)
{
    static float a[12], b[12];
    const auto child = run_forked(
        [] {
            const int64_t m = 3, n = 4, lda = (int64_t(7) << 32) + 5, ldb = (int64_t(1) << 32) - 1; // -1 in 32 bits
            const float alpha = 0.5f;
            TESH_Simatcopy('R', 't', 3, 4, 0.5f, a, 4, 3);
            TESH_Somatcopy('c', 'N', 3, 4, -2.0f, a, 3, b, 3);
            const int64_t none = 0;
            TESH_SIMATCOPY("R", "N", &m, &none, &alpha, a, &lda, &ldb);
            TESH_SOMATCOPY("C", "R", &none, &n, &alpha, a, &lda, b, &ldb);
            return 0;
        },
        {{"TESH_VERBOSE", "1"}});
    EXPECT_EQ(child.exit_code, 0);
    const std::string time = " [0-9.]+(ns|us|ms|s) CNR:OFF Dyn:1 FastMM:1\n", open = "TESH_VERBOSE TESH_";
    const std::string pa = address(a), pb = address(b);
    const std::regex lines("TESH_VERBOSE Tesh 2025 [^\n]*, ilp64, sequential\n" + open +
                           "SIMATCOPY\\(R, t, 3, 4, 0\\.500000, " + pa + ", 4, 3\\)" + time + open +
                           "SOMATCOPY\\(c, N, 3, 4, -2\\.000000, " + pa + ", 3, " + pb + ", 3\\)" + time + open +
                           "SIMATCOPY\\(R, N, 3, 0, 0\\.500000, " + pa + ", 5, -1\\)" + time + open +
                           "SOMATCOPY\\(C, R, 0, 4, 0\\.500000, " + pa + ", 5, " + pb + ", -1\\)" + time);
    EXPECT_TRUE(std::regex_match(child.out, lines)) << child.out;
}

TEST(matcopy_verbose, failed_check_prints_its_report_and_a_line)
{
    static float a[12];
    const auto child = run_forked(
        [] {
            const int64_t rows = (int64_t(3) << 32) - 2, cols = 4, ld = 4;
            const float alpha = 1.0f;
            TESH_SOMATCOPY("C", "N", &rows, &cols, &alpha, a, &ld, a, &ld);
            return 0;
        },
        {{"TESH_VERBOSE", "2"}});
    EXPECT_NE(child.out.find("Parameter 7 was incorrect on entry to tesh_somatcopy."), std::string::npos);
    EXPECT_NE(child.out.find("TESH_SOMATCOPY(C, N, -2, 4, 1.000000, " + address(a) + ", 4, " + address(a) + ", 4) "),
              std::string::npos)
        << child.out;
}

TEST(matcopy_verbose, level_is_asked_for_at_every_call)
{
    const auto child = run_forked([] {
        float a[1] = {1};
        for (int32_t level : {0, 1, 0, 2}) {
            tesh_serv_verbose(level);
            TESH_Simatcopy('C', 'N', 1, 1, 1.0f, a, 1, 1);
        }
        return 0;
    });
    size_t lines = 0;
    for (size_t at = child.out.find("TESH_SIMATCOPY("); at != std::string::npos;
         at = child.out.find("TESH_SIMATCOPY(", at + 1))
        ++lines;
    EXPECT_EQ(lines, 2u) << child.out;
}

TEST(matcopy_dispatch, settles_the_verbose_level_on_entry)
{
    const auto child = run_forked(
        [] {
            float a[1] = {1}, b[1];
            if (tesh_verbose_val != -1)
                return 1;
            tesh_trans_tesh_somatcopy('C', 'N', 1, 1, 1.0f, a, 1, b, 1);
            return tesh_verbose_val == 1 ? 0 : 2;
        },
        {{"TESH_VERBOSE", "1"}});
    EXPECT_EQ(child.exit_code, 0);
    EXPECT_EQ(child.out, ""); // the line is the entry's
    const auto in_place = run_forked(
        [] {
            float a[1] = {1};
            tesh_trans_tesh_simatcopy('C', 'N', 1, 1, 1.0f, a, 1, 1);
            return tesh_verbose_val == 1 ? 0 : 2;
        },
        {{"TESH_VERBOSE", "1"}});
    EXPECT_EQ(in_place.exit_code, 0);
}

TEST(matcopy_dispatch, team_entry_of_the_square_answers_not_done)
{
    float a[1] = {1};
    EXPECT_EQ(tesh_trans_tesh_simatcopy_square_t_par(1, a, 1, tesh_trans_def_tesh_simatcopy_square_t_team), 0);
    EXPECT_EQ(a[0], 1.0f);
}

// A branch that fixes the results of sums has no member of its own here: a copy is the same on every path.
TEST(matcopy_dispatch, reproducibility_branch_runs_the_same_copy)
{
    for (const char *branch : {"COMPATIBLE", "AUTO", "OFF"}) {
        const auto child = run_forked(
            [] {
                float a[6] = {1, 2, 3, 4, 5, 6}, b[6];
                TESH_Somatcopy('R', 'T', 2, 3, 2.0f, a, 3, b, 2);
                TESH_Simatcopy('R', 'T', 2, 3, 2.0f, a, 3, 2);
                const float expected[6] = {2, 8, 4, 10, 6, 12};
                return std::memcmp(a, expected, sizeof a) == 0 && std::memcmp(b, expected, sizeof b) == 0 ? 0 : 1;
            },
            {{"TESH_CBWR", branch}});
        EXPECT_EQ(child.exit_code, 0) << branch;
    }
}
} // namespace
