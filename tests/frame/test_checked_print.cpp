// SPDX-License-Identifier: BSD-3-Clause
// Checked print, scan and file calls.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "frame/tesh_serv.h"
#include "tests/support/child.h"

namespace
{
struct outcome {
    int32_t result;
    std::string bytes; // of the whole buffer, filled with '#' before
};

outcome print_text(size_t buffer_bytes, size_t dmax, size_t count, const char *text)
{
    std::string buffer(buffer_bytes, '#');
    const int32_t result = tesh_serv_snprintf_s(buffer.data(), dmax, count, "%s", text);
    return {result, buffer};
}

TEST(snprintf, answers_the_length_of_a_text_that_fits)
{
    const outcome o = print_text(8, 8, 7, "abc");
    EXPECT_EQ(o.result, 3);
    EXPECT_STREQ(o.bytes.c_str(), "abc");
    EXPECT_EQ(o.bytes[7], '\0') << "the last byte of the bound is always a terminator";
}

TEST(snprintf, longer_than_count_with_room_is_cut_and_answers_minus_1)
{
    const outcome o = print_text(10, 10, 4, "abcdefgh");
    EXPECT_EQ(o.result, -1);
    EXPECT_EQ(o.bytes, std::string("abcd\0#####", 10));
    const outcome longer = print_text(10, 10, 4, "abcdefghijklmn");
    EXPECT_EQ(longer.result, -1);
    EXPECT_STREQ(longer.bytes.c_str(), "abcd");
}

TEST(snprintf, of_exactly_count_characters_is_no_cut)
{
    const outcome o = print_text(10, 10, 4, "abcd");
    EXPECT_EQ(o.result, 4);
    EXPECT_STREQ(o.bytes.c_str(), "abcd");
}

TEST(snprintf, that_meets_dmax_before_count_leaves_an_empty_string)
{
    const outcome o = print_text(10, 5, 7, "abcdefgh");
    EXPECT_EQ(o.result, -1);
    EXPECT_STREQ(o.bytes.c_str(), "");
    EXPECT_EQ(o.bytes.substr(5), "#####");
    EXPECT_EQ(print_text(10, 5, 5, "abcde").result, -1);
    EXPECT_STREQ(print_text(10, 5, 5, "abcde").bytes.c_str(), "");
    EXPECT_EQ(print_text(10, 5, 7, "abcd").result, 4);
}

TEST(snprintf, with_count_of_all_ones_keeps_what_fits)
{
    const outcome o = print_text(10, 5, SIZE_MAX, "abcdefgh");
    EXPECT_EQ(o.result, -1);
    EXPECT_EQ(o.bytes, std::string("abcd\0#####", 10));
    EXPECT_EQ(print_text(10, 5, SIZE_MAX, "abcd").result, 4);
}

TEST(snprintf, of_null_or_no_space_answers_minus_1_and_writes_nothing)
{
    char buffer[4] = "###";
    EXPECT_EQ(tesh_serv_snprintf_s(nullptr, 4, 3, "x"), -1);
    EXPECT_EQ(tesh_serv_snprintf_s(buffer, 0, 3, "x"), -1);
    EXPECT_EQ(tesh_serv_snprintf_s(buffer, 4, 3, nullptr), -1);
    EXPECT_STREQ(buffer, "###");
}

TEST(snprintf, of_the_verbose_record_keeps_449_characters)
{
    const std::string text(600, 'v');
    const outcome o = print_text(460, 450, 449, text.c_str());
    EXPECT_EQ(o.result, -1);
    EXPECT_EQ(o.bytes, std::string(449, 'v') + '\0' + std::string(10, '#'));
}

// A wide character without a form in the current locale makes the C library fail.
TEST(snprintf, that_the_c_library_refuses_leaves_an_empty_string)
{
    char buffer[16] = "###############";
    EXPECT_EQ(tesh_serv_snprintf_s(buffer, 16, 15, "ab%lc", static_cast<wint_t>(0x20ac)), -1);
    EXPECT_STREQ(buffer, "");
}

TEST(sprintf, is_bounded_and_answers_the_whole_length)
{
    char buffer[5];
    EXPECT_EQ(tesh_serv_sprintf_s(buffer, sizeof buffer, "%d", 1234567), 7);
    EXPECT_STREQ(buffer, "1234");
    EXPECT_EQ(tesh_serv_sprintf_char_s(buffer, sizeof buffer, "<%c>", 'x'), 3);
    EXPECT_STREQ(buffer, "<x>");
}

TEST(printf, forms_go_to_their_streams)
{
    const auto result = tesh_test::run_forked([] {
        return tesh_serv_printf_s("%d", 1) == 1 && tesh_serv_fprintf_stdout_s("%s", "22") == 2 &&
                       tesh_serv_fprintf_s(stdout, "%c", '3') == 1 && tesh_serv_fprintf_stderr_s("%s", "e1") == 2 &&
                       tesh_serv_fprintf_s(stderr, "%x", 0x1f) == 2
                   ? 0
                   : 1;
    });
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(result.out, "1223");
    EXPECT_EQ(result.err, "e11f");
}

TEST(scanf, reads_text_and_files)
{
    int a = 0, b = 0;
    EXPECT_EQ(tesh_serv_sscanf_s("12 x34", "%d x%d", &a, &b), 2);
    EXPECT_EQ(a, 12);
    EXPECT_EQ(b, 34);
    const std::string name = testing::TempDir() + "checked_print_" + std::to_string(getpid());
    FILE *file = tesh_serv_fopen(name.c_str(), "w");
    ASSERT_NE(file, nullptr);
    tesh_serv_fprintf_s(file, "%d", 77);
    EXPECT_EQ(tesh_serv_fclose(file), 0);
    file = tesh_serv_fopen(name.c_str(), "r");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(tesh_serv_fscanf_s(file, "%d", &a), 1);
    EXPECT_EQ(a, 77);
    tesh_serv_fclose(file);
    std::remove(name.c_str());
    EXPECT_EQ(tesh_serv_fopen("/nonexistent/file", "r"), nullptr);
}
} // namespace
