// SPDX-License-Identifier: BSD-3-Clause
// Verbose lines and first uses of the copy routines. Everything runs in children:
// this process never touches the library.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <regex>
#include <string>

#include "frame/tesh.h"
#include "tests/support/child.h"
#include "trans/trans.h"

namespace
{
using tesh_test::run_forked;

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
