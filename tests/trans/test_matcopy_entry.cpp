// SPDX-License-Identifier: BSD-3-Clause
// The copy routines by their public names: reports in their order, arrays untouched, letters, aliases.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
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
    // Read at run time: a compiler may take it that two names are two addresses.
    const auto address = [](auto *name) {
        auto *volatile routine = name;
        return reinterpret_cast<void *>(routine);
    };
    EXPECT_EQ(address(tesh_simatcopy), address(TESH_SIMATCOPY));
    EXPECT_EQ(address(tesh_simatcopy_), address(TESH_SIMATCOPY));
    EXPECT_EQ(address(tesh_somatcopy), address(TESH_SOMATCOPY));
    EXPECT_EQ(address(tesh_somatcopy_), address(TESH_SOMATCOPY));
    EXPECT_NE(address(TESH_Simatcopy), address(TESH_SIMATCOPY));
    EXPECT_NE(address(TESH_Somatcopy), address(TESH_SOMATCOPY));
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

TEST(matcopy_dispatch, team_entry_of_the_square_answers_not_done)
{
    float a[1] = {1};
    EXPECT_EQ(tesh_trans_tesh_simatcopy_square_t_par(1, a, 1, tesh_trans_def_tesh_simatcopy_square_t_team), 0);
    EXPECT_EQ(a[0], 1.0f);
}
} // namespace
