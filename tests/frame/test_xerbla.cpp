// SPDX-License-Identifier: BSD-3-Clause
// Reports of bad arguments: the library's own report and the slot of the handler in force.
#include <gtest/gtest.h>

#include <string>

#include "frame/tesh_serv.h"
#include "tests/support/child.h"

namespace
{
using tesh_test::run_forked;

tesh_test::child_result reported(const char *name, int64_t code, int32_t length)
{
    return run_forked([&] {
        tesh_serv_default_xerbla(name, &code, length);
        return 0;
    });
}

TEST(default_report, goes_to_standard_output_behind_a_blank_line)
{
    const auto result = reported("SGEMM ", 3, 6);
    EXPECT_EQ(result.out, "\nOrvan Tesh ERROR: Parameter 3 was incorrect on entry to SGEMM .\n");
    EXPECT_EQ(result.err, "");
}

TEST(default_report, shows_20_characters_of_a_longer_name)
{
    EXPECT_EQ(reported("abcdefghijklmnopqrstuvwxyz1234", 1, 30).out,
              "\nOrvan Tesh ERROR: Parameter 1 was incorrect on entry to abcdefghijklmnopqrst.\n");
}

TEST(default_report, shows_as_much_of_the_name_as_its_length_tells)
{
    EXPECT_EQ(reported("SGEMMxxx", 1, 5).out, "\nOrvan Tesh ERROR: Parameter 1 was incorrect on entry to SGEMM.\n");
    EXPECT_EQ(reported("SGEMM", 1, 0).out, "\nOrvan Tesh ERROR: Parameter 1 was incorrect on entry to .\n");
}

TEST(default_report, of_a_code_below_1_is_an_internal_condition)
{
    EXPECT_EQ(reported("N", 0, 1).out, "\nOrvan Tesh INTERNAL ERROR: Condition 0 detected in function N.\n");
    EXPECT_EQ(reported("N", -3, 1).out, "\nOrvan Tesh INTERNAL ERROR: Condition 3 detected in function N.\n");
    EXPECT_EQ(reported("N", INT64_MIN, 1).out, "\nOrvan Tesh INTERNAL ERROR: Condition 0 detected in function N.\n");
}

TEST(default_report, has_texts_of_its_own_for_four_codes)
{
    EXPECT_EQ(reported("N", 1000, 1).out,
              "\nOrvan Tesh INTERNAL ERROR: Insufficient workspace available in function N.\n");
    EXPECT_EQ(reported("N", 1001, 1).out, "\nOrvan Tesh ERROR: Incompatible optional parameters on entry to N.\n");
    EXPECT_EQ(reported("N", 1103, 1).out, "\nOrvan Tesh INTERNAL ERROR: Not enough work memory in function N\n");
    EXPECT_EQ(reported("N", 1226, 1).out, "\nOrvan Tesh INTERNAL ERROR: Issue accessing coprocessor N.\n");
    EXPECT_EQ(reported("N", 1002, 1).out, "\nOrvan Tesh ERROR: Parameter 1002 was incorrect on entry to N.\n");
}

TEST(default_report, shows_the_low_32_bits_of_a_code)
{
    EXPECT_EQ(reported("N", (int64_t(1) << 32) + 7, 1).out,
              "\nOrvan Tesh ERROR: Parameter 7 was incorrect on entry to N.\n");
    EXPECT_EQ(reported("N", (int64_t(1) << 32) + 1000, 1).out,
              "\nOrvan Tesh ERROR: Parameter 1000 was incorrect on entry to N.\n");
    EXPECT_EQ(reported("N", 0xffffffff, 1).out, "\nOrvan Tesh ERROR: Parameter -1 was incorrect on entry to N.\n");
}

TEST(default_report, is_silent_for_null_or_a_negative_length)
{
    const auto result = run_forked([] {
        const int64_t code = 1;
        tesh_serv_default_xerbla(nullptr, &code, 1);
        tesh_serv_default_xerbla("N", nullptr, 1);
        tesh_serv_default_xerbla("N", &code, -1);
        return 0;
    });
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
}

struct seen {
    std::string name;
    int64_t code;
    int32_t length;
    int calls;
} last;

void record(const char *name, const int64_t *code, int32_t length)
{
    last = {name, *code, length, last.calls + 1};
}

void other(const char *, const int64_t *, int32_t) {}

class handler_slot : public testing::Test
{
protected:
    void SetUp() override
    {
        tesh_serv_set_xerbla(nullptr);
        last = {};
    }
    void TearDown() override { tesh_serv_set_xerbla(nullptr); }
};

TEST_F(handler_slot, answers_the_default_report_when_it_was_empty)
{
    EXPECT_EQ(tesh_serv_set_xerbla(record), tesh_serv_default_xerbla);
    EXPECT_EQ(tesh_serv_set_xerbla(other), record);
    EXPECT_EQ(tesh_serv_set_xerbla(nullptr), other);
    EXPECT_EQ(tesh_serv_set_xerbla(nullptr), tesh_serv_default_xerbla);
}

TEST_F(handler_slot, interface_registration_fills_only_an_empty_slot)
{
    tesh_serv_set_xerbla_interface(record);
    EXPECT_EQ(tesh_serv_set_xerbla(other), record);
    tesh_serv_set_xerbla_interface(record);
    EXPECT_EQ(tesh_serv_set_xerbla(nullptr), other);
    tesh_serv_set_xerbla_interface(record);
    EXPECT_EQ(tesh_serv_set_xerbla(nullptr), record);
}

TEST_F(handler_slot, report_passes_the_three_values_on)
{
    tesh_serv_set_xerbla(record);
    const int64_t code = -77;
    tesh_serv_xerbla("SOMETHING", &code, 4);
    EXPECT_EQ(last.calls, 1);
    EXPECT_EQ(last.name, "SOMETHING");
    EXPECT_EQ(last.code, -77);
    EXPECT_EQ(last.length, 4);
}

TEST_F(handler_slot, report_of_null_reaches_no_handler)
{
    tesh_serv_set_xerbla(record);
    const int64_t code = 1;
    tesh_serv_xerbla(nullptr, &code, 1);
    tesh_serv_xerbla("N", nullptr, 1);
    EXPECT_EQ(last.calls, 0);
}

TEST_F(handler_slot, empty_means_the_default_report)
{
    const auto result = run_forked([] {
        const int64_t code = 2;
        tesh_serv_xerbla("N", &code, 1);
        return 0;
    });
    EXPECT_EQ(result.out, "\nOrvan Tesh ERROR: Parameter 2 was incorrect on entry to N.\n");
}

TEST_F(handler_slot, check_ptr_reports_code_1103_for_null)
{
    tesh_serv_set_xerbla(record);
    int x = 0;
    EXPECT_EQ(tesh_serv_check_ptr(&x, "NAME"), 0);
    EXPECT_EQ(last.calls, 0);
    EXPECT_EQ(tesh_serv_check_ptr(nullptr, "NAME"), 1);
    EXPECT_EQ(last.calls, 1);
    EXPECT_EQ(last.name, "NAME");
    EXPECT_EQ(last.code, 1103);
    EXPECT_EQ(last.length, 4);
    EXPECT_EQ(tesh_serv_check_ptr(nullptr, nullptr), 1);
    EXPECT_EQ(last.calls, 1);
}

TEST_F(handler_slot, check_ptr_and_warn_answers_and_prints_nothing)
{
    const auto result = run_forked([] {
        int x = 0;
        return tesh_serv_check_ptr_and_warn(&x, "NAME") * 2 + tesh_serv_check_ptr_and_warn(nullptr, "NAME");
    });
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_EQ(result.out + result.err, "");
}
} // namespace
