// SPDX-License-Identifier: BSD-3-Clause
// Message texts: every byte, on the stream that they belong to.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "frame/tesh_serv.h"
#include "tests/support/child.h"

namespace
{
using tesh_test::run_forked;

// What the body prints on both streams.
tesh_test::child_result printed(const std::function<void()> &body)
{
    return run_forked([&] {
        body();
        return 0;
    });
}

TEST(message, number_0_is_a_line_end_alone)
{
    const auto result = printed([] { tesh_serv_print(0, 0, 0); });
    EXPECT_EQ(result.out, "\n");
    EXPECT_EQ(result.err, "");
}

TEST(message, destination_1_is_standard_error_and_all_else_standard_output)
{
    const auto error = printed([] { tesh_serv_print(1, 1451, 0); });
    EXPECT_EQ(error.out, "");
    EXPECT_EQ(error.err,
              "The processor must support the Orvan(R) Streaming SIMD 3 Extensions (Orvan(R) SSE3) instructions.\n");
    const auto output = printed([] { tesh_serv_print(2, 1451, 0); });
    EXPECT_EQ(output.out, error.err);
    EXPECT_EQ(output.err, "");
}

TEST(message, every_text_is_exact)
{
    const auto result = printed([] {
        tesh_serv_print(0, 1, 1, "/lib/libtesh.so");
        tesh_serv_print(0, 6, 2, 3, "SGEMM ");
        tesh_serv_print(0, 7, 2, 3, "NAME");
        tesh_serv_print(0, 8, 1, "NAME");
        tesh_serv_print(0, 9, 1, "NAME");
        tesh_serv_print(0, 1103, 1, "NAME");
        tesh_serv_print(0, 1223, 0);
        tesh_serv_print(0, 1224, 0);
        tesh_serv_print(0, 1226, 1, "NAME");
        tesh_serv_print(0, 1227, 1, 17);
        tesh_serv_print(0, 1454, 0);
        tesh_serv_print(0, 1455, 0);
    });
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(
        result.out,
        "Orvan Tesh FATAL ERROR: Cannot load /lib/libtesh.so.\n"
        "Orvan Tesh ERROR: Parameter 3 was incorrect on entry to SGEMM .\n"
        "Orvan Tesh INTERNAL ERROR: Condition 3 detected in function NAME.\n"
        "Orvan Tesh INTERNAL ERROR: Insufficient workspace available in function NAME.\n"
        "Orvan Tesh ERROR: Incompatible optional parameters on entry to NAME.\n"
        "Orvan Tesh INTERNAL ERROR: Not enough work memory in function NAME\n"
        "Orvan Tesh WARNING: incorrect conditional numerical reproducibility mode, TESH_CBWR_AUTO is set\n"
        "Orvan Tesh FATAL ERROR: This system does not meet the minimum requirements for use of the Orvan(R) Tesh "
        "Numeric Library.\n"
        "Orvan Tesh INTERNAL ERROR: Issue accessing coprocessor NAME.\n"
        "Orvan Tesh ERROR: CPU 17 is not supported.\n"
        "Orvan Tesh WARNING: Support of Orvan(R) Supplemental Streaming SIMD Extensions 3 (Orvan(R) SSSE3) enabled "
        "only processors has been deprecated. Orvan Tesh Numeric Library will use Orvan(R) Streaming SIMD 2 Extensions "
        "(Orvan(R) SSE2) instructions instead.\n"
        "Orvan Tesh WARNING: Support of Orvan(R) Advanced Vector Extensions (Orvan(R) AVX) enabled only processors has "
        "been deprecated. Orvan Tesh Numeric Library will use Orvan(R) Streaming SIMD Extensions 4.2 (Orvan(R) SSE4.2) "
        "instructions instead.\n");
}

TEST(message, longer_than_511_characters_is_cut)
{
    const std::string name(600, 'n');
    const auto result = printed([&] { tesh_serv_print(0, 8, 1, name.c_str()); });
    const std::string head = "Orvan Tesh INTERNAL ERROR: Insufficient workspace available in function ";
    EXPECT_EQ(result.out, head + std::string(511 - head.size(), 'n') + "\n");
}

TEST(message, of_a_number_without_text_is_a_line_end)
{
    EXPECT_EQ(printed([] { tesh_serv_print(0, 5, 0); }).out, "\n");
    EXPECT_STREQ(tesh_serv_get_msg(5, 0), "");
}

TEST(get_msg, number_0_is_empty)
{
    EXPECT_STREQ(tesh_serv_get_msg(0, 0), "");
    EXPECT_STREQ(tesh_serv_get_msg(0, 3), "");
}

TEST(get_msg, is_raw_without_arguments_and_formatted_with_them)
{
    EXPECT_STREQ(tesh_serv_get_msg(6, 0), "Orvan Tesh ERROR: Parameter %d was incorrect on entry to %s.");
    EXPECT_STREQ(tesh_serv_get_msg(6, -1), "Orvan Tesh ERROR: Parameter %d was incorrect on entry to %s.");
    EXPECT_STREQ(tesh_serv_get_msg(8, 1, "X"),
                 "Orvan Tesh INTERNAL ERROR: Insufficient workspace available in function X.");
    EXPECT_STREQ(tesh_serv_get_msg(6, 2, 12, "X"), "Orvan Tesh ERROR: Parameter 12 was incorrect on entry to X.");
}

TEST(format_print, prints_without_a_line_end_and_only_with_a_count)
{
    const auto result = printed([] {
        tesh_serv_format_print(0, "a%d", 1, 5);
        tesh_serv_format_print(1, "b%s", 1, "6");
        tesh_serv_format_print(0, "never", 0);
        tesh_serv_format_print(1, "never", -1);
        tesh_serv_file_format_print(stdout, "c%d", 1, 7);
        tesh_serv_file_format_print(stderr, "d", 1);
        tesh_serv_file_format_print(stderr, "never", 0);
    });
    EXPECT_EQ(result.out, "a5c7");
    EXPECT_EQ(result.err, "b6d");
}

TEST(puts, does_not_interpret_the_text)
{
    EXPECT_EQ(printed([] { tesh_puts(0, "100 %s"); }).out, "100 %s");
    EXPECT_EQ(printed([] { tesh_puts(1, "100 %s"); }).err, "100 %s");
}

TEST(puts, takes_standard_output_where_there_is_no_standard_error)
{
    const auto result = printed([] {
        FILE *const before = stderr;
        stderr = nullptr;
        tesh_puts(1, "x ");
        tesh_serv_print(1, 8, 1, "F");
        stderr = before;
    });
    EXPECT_EQ(result.out, "x Orvan Tesh INTERNAL ERROR: Insufficient workspace available in function F.\n");
    EXPECT_EQ(result.err, "");
}

TEST(puts, flushes_all_streams)
{
    const auto result = run_forked([]() -> int {
        std::fputs("before ", stdout);
        tesh_puts(1, "x");
        std::_Exit(0); // without the C library's flush
    });
    EXPECT_EQ(result.out, "before ");
    EXPECT_EQ(result.err, "x");
}
} // namespace
