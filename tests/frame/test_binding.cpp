// SPDX-License-Identifier: BSD-3-Clause
// Binding of the processor type: every number that detection could give, those that no processor here gives included,
// and every branch. Detection and the setting are put in place of the real ones.
#include <gtest/gtest.h>

#include <iterator>

#include "frame/service/processor.h"
#include "frame/tesh_serv.h"
#include "tests/support/child.h"
#include "tests/support/detour.h"
#include "tests/support/vcpu/in_process.h"

namespace
{
int32_t number_found, status_found;

int32_t detection(int32_t *status)
{
    *status = status_found;
    return number_found;
}

void expect_binding(int32_t setting, int32_t number, int32_t status, int32_t answer, int32_t type, int32_t vml_type)
{
    SCOPED_TRACE(testing::Message() << "setting " << setting << ", number " << number << ", status " << status);
    const auto child = tesh_test::run_forked(
        [&] {
            number_found = number;
            status_found = status;
            tesh_test::detour(__detect_real_cpu, detection);
            tesh_cbwr = setting;
            EXPECT_EQ(__tesh_cpu_detect_and_load_dll(), answer);
            EXPECT_EQ(tesh_cpu_type, type);
            EXPECT_EQ(tesh_vml_cpu_type, vml_type);
            return testing::Test::HasFailure() ? 99 : 0;
        },
        {{"TESH_ENABLE_INSTRUCTIONS", ""}});
    EXPECT_EQ(child.exit_code, 0) << child.out;
}
} // namespace

TEST(binding, every_number_is_stored_as_its_type_or_refused)
{
    struct {
        int32_t number, answer, type, vml_type;
    } const rows[] = {
        {0, 0, 0, 0},    {1, 0, 0, 2},    {2, 1, -1, -1},  {3, 0, 3, 5},    {4, 1, -1, -1},    {5, 0, 5, 7},
        {6, 0, 5, 7},    {7, 0, 7, 9},    {8, 0, 5, 7},    {9, 0, 7, 9},    {10, 0, 7, 9},     {11, 1, -1, -1},
        {12, 0, 7, 9},   {13, 1, -1, -1}, {14, 0, 7, 9},   {15, 0, 5, 7},   {16, 0, 7, 9},     {17, 0, 17, 19},
        {18, 1, -1, -1}, {31, 1, -1, -1}, {32, 1, -1, -1}, {64, 1, -1, -1}, {1000, 1, -1, -1}, {-1, 1, -1, -1},
    };
    for (const auto &row : rows) {
        for (const int32_t setting : {1, 2, 0x10002})
            expect_binding(setting, row.number, 0, row.answer, row.type, row.vml_type);
    }
}

TEST(binding, a_failed_detection_stores_nothing)
{
    expect_binding(1, 7, 1, 1, -1, -1);
    expect_binding(2, -1, 5, 5, -1, -1);
}

TEST(binding, every_branch_has_its_type_whatever_the_processor_is)
{
    // Detection finds number 9 here, and is asked for the branches that stand for no type.
    struct {
        int32_t branch, type, vml_type;
    } const rows[] = {{3, 0, 2},  {4, 0, 0},  {5, 0, 0},    {6, 0, 0},  {7, 0, 0},
                      {8, 3, 5},  {9, 3, 5},  {10, 5, 7},   {11, 7, 9}, {12, 7, 9},
                      {13, 7, 9}, {14, 7, 9}, {15, 17, 19}, {16, 7, 9}, {0xffff, 7, 9}};
    for (const auto &row : rows) {
        expect_binding(row.branch, 9, 0, 0, row.type, row.vml_type);
        expect_binding(0x10000 | row.branch, 9, 0, 0, row.type, row.vml_type);
    }
}

// The limit's code is held against the branch's number of another scale, and is then asked for as a fine number. On a
// processor that has every level, the limits below win over the branches from the given one up, and over no others.
TEST(binding, a_limit_wins_over_the_branches_of_higher_rank)
{
    struct {
        const char *limit;
        int32_t first_loser; // 16: none
    } const rows[] = {{"SSE4_2", 16},    {"AVX", 16},       {"AVX2", 16},      {"AVX512", 10},
                      {"AVX512_E1", 16}, {"AVX512_E2", 14}, {"AVX512_E3", 16}, {"AVX512_E4", 15},
                      {"AVX2_E1", 15},   {"AVX512_E5", 16}, {"AVX10", 15}};
    constexpr int32_t branches[] = {3, 4, 5, 6, 7, 8, 9, 10, 12, 14, 15};
    constexpr int32_t vml_types[] = {2, 0, 0, 0, 0, 5, 5, 7, 9, 9, 19};
    for (const auto &row : rows) {
        for (size_t i = 0; i < std::size(branches); ++i) {
            SCOPED_TRACE(testing::Message() << row.limit << ", branch " << branches[i]);
            const auto child = tesh_test::on_processor("avx10_2", {{"TESH_ENABLE_INSTRUCTIONS", row.limit}}, [&] {
                number_found = 3; // no winner's branch stands for it
                status_found = 0;
                tesh_test::detour(__detect_real_cpu, detection);
                tesh_cbwr = branches[i];
                EXPECT_EQ(tesh_serv_vml_cpu_detect(), branches[i] >= row.first_loser ? 5 : vml_types[i]);
            });
            EXPECT_EQ(child.exit_code, 0);
        }
    }
}

TEST(binding, is_done_once)
{
    const auto child = tesh_test::run_forked(
        [] {
            number_found = 7;
            tesh_test::detour(__detect_real_cpu, detection);
            tesh_cbwr = 1;
            EXPECT_EQ(tesh_serv_cpu_detect(), 7);
            number_found = 5;
            tesh_cbwr = 8;
            EXPECT_EQ(__tesh_cpu_detect_and_load_dll(), 0);
            EXPECT_EQ(tesh_serv_cpu_detect(), 7);
            EXPECT_EQ(tesh_serv_vml_cpu_detect(), 9);
            EXPECT_EQ(tesh_serv_get_cpu_type(1), 5) << "asked anew";
            EXPECT_EQ(tesh_serv_get_cpu_type(0), 7);
            return testing::Test::HasFailure() ? 99 : 0;
        },
        {{"TESH_ENABLE_INSTRUCTIONS", ""}});
    EXPECT_EQ(child.exit_code, 0) << child.out;
}
