// SPDX-License-Identifier: BSD-3-Clause
// Checked copies of strings and memory: limits, messages, error numbers, and what is written on success and failure.
#include <gtest/gtest.h>

#include <cstring>
#include <numeric>
#include <string>
#include <vector>

#include "frame/tesh_serv.h"
#include "tests/support/guard_pages.h"

namespace
{
struct call {
    std::string message;
    void *pointer;
    int32_t error;
};
std::vector<call> calls;

void record(const char *message, void *pointer, int32_t error)
{
    calls.push_back({message, pointer, error});
}

class checked_text : public testing::Test
{
protected:
    void SetUp() override
    {
        calls.clear();
        tesh_serv_set_str_constraint_handler_s(record);
        tesh_serv_set_mem_constraint_handler_s(record);
    }
    void TearDown() override
    {
        tesh_serv_set_str_constraint_handler_s(nullptr);
        tesh_serv_set_mem_constraint_handler_s(nullptr);
    }
    // The handler was called once, with this.
    void expect_report(const char *message, int32_t error)
    {
        ASSERT_EQ(calls.size(), 1u) << message;
        EXPECT_EQ(calls[0].message, message);
        EXPECT_EQ(calls[0].pointer, nullptr);
        EXPECT_EQ(calls[0].error, error);
        calls.clear();
    }
};

TEST(constraint_handlers, setter_returns_the_former_one_and_null_means_the_ignoring_one)
{
    for (auto set : {tesh_serv_set_str_constraint_handler_s, tesh_serv_set_mem_constraint_handler_s}) {
        set(record);
        EXPECT_EQ(set(nullptr), record);
        EXPECT_EQ(set(record), tesh_serv_ignore_handler_s);
        set(nullptr);
    }
}

TEST(constraint_handlers, strings_and_memory_have_one_each)
{
    calls.clear();
    char byte = 0;
    tesh_serv_set_str_constraint_handler_s(record);
    tesh_serv_set_mem_constraint_handler_s(nullptr);
    EXPECT_EQ(tesh_serv_memcpy_s(nullptr, 1, &byte, 1), 400);
    EXPECT_TRUE(calls.empty());
    EXPECT_EQ(tesh_serv_strncpy_s(nullptr, 1, &byte, 1), 400);
    EXPECT_EQ(calls.size(), 1u);
    tesh_serv_set_str_constraint_handler_s(nullptr);
}

TEST_F(checked_text, strnlen_counts_up_to_its_bound)
{
    EXPECT_EQ(tesh_serv_strnlen_s("abc", 4096), 3u);
    EXPECT_EQ(tesh_serv_strnlen_s("abc", 3), 3u);
    EXPECT_EQ(tesh_serv_strnlen_s("abc", 2), 2u);
    EXPECT_EQ(tesh_serv_strnlen_s("", 10), 0u);
    EXPECT_TRUE(calls.empty());
}

TEST_F(checked_text, strnlen_of_null_is_0_without_a_message)
{
    EXPECT_EQ(tesh_serv_strnlen_s(nullptr, 10), 0u);
    EXPECT_EQ(tesh_serv_strnlen_s(nullptr, 0), 0u);
    EXPECT_EQ(tesh_serv_strnlen_s(nullptr, 5000), 0u);
    EXPECT_TRUE(calls.empty());
}

TEST_F(checked_text, strnlen_above_4096_reports_403_and_answers_0)
{
    EXPECT_EQ(tesh_serv_strnlen_s("abc", 4097), 0u);
    expect_report("strnlen_s: dmax exceeds max", 403);
}

TEST_F(checked_text, strnlen_of_bound_0_reports_401)
{
    EXPECT_EQ(tesh_serv_strnlen_s("abc", 0), 0u);
    expect_report("strnlen_s: dmax is 0", 401);
}

TEST_F(checked_text, strnlen_reads_nothing_past_its_bound)
{
    const tesh_test::guarded_array<char> page(16);
    std::memset(page.data(), 'x', 16);
    EXPECT_EQ(tesh_serv_strnlen_s(page.data(), 16), 16u);
}

TEST_F(checked_text, strncpy_copies_and_terminates)
{
    char dest[8];
    std::memset(dest, '#', sizeof dest);
    EXPECT_EQ(tesh_serv_strncpy_s(dest, 8, "abc", 8), 0);
    EXPECT_EQ(std::string(dest, 8), std::string("abc\0####", 8));
    std::memset(dest, '#', sizeof dest);
    EXPECT_EQ(tesh_serv_strncpy_s(dest, 8, "abcdef", 2), 0);
    EXPECT_EQ(std::string(dest, 8), std::string("ab\0#####", 8));
    EXPECT_EQ(tesh_serv_strncpy_s(dest, 4, "abc", 4096), 0);
    EXPECT_STREQ(dest, "abc");
    EXPECT_TRUE(calls.empty());
}

TEST_F(checked_text, strncpy_reads_at_most_slen_and_writes_at_most_dmax)
{
    const tesh_test::guarded_array<char> src(5), dest(6);
    std::memcpy(src.data(), "abcde", 5);
    EXPECT_EQ(tesh_serv_strncpy_s(dest.data(), 6, src.data(), 5), 0);
    EXPECT_STREQ(dest.data(), "abcde");
    EXPECT_EQ(tesh_serv_strncpy_s(dest.data() + 1, 5, src.data(), 5), 406);
}

TEST_F(checked_text, strncpy_reports_each_broken_bound_in_order)
{
    char dest[8] = "old", far_src[8] = "abcdefg";
    EXPECT_EQ(tesh_serv_strncpy_s(nullptr, 0, nullptr, 0), 400);
    expect_report("strncpy_s: dest is null", 400);
    EXPECT_EQ(tesh_serv_strncpy_s(dest, 0, nullptr, 0), 401);
    expect_report("strncpy_s: dmax is 0", 401);
    EXPECT_EQ(tesh_serv_strncpy_s(dest, 4097, nullptr, 0), 403);
    expect_report("strncpy_s: dmax exceeds max", 403);
    EXPECT_STREQ(dest, "old") << "dest was not found good";
    const struct {
        const char *src;
        size_t dmax, slen;
        const char *message;
        int32_t error;
    } rows[] = {
        {nullptr, 8, 0, "strncpy_s: src is null", 400},
        {far_src, 8, 0, "strncpy_s: slen is zero", 401},
        {far_src, 8, 4097, "strncpy_s: slen exceeds max", 403},
        {far_src, 7, 7, "strncpy_s: not enough space for src", 406},
        {far_src, 7, 4096, "strncpy_s: not enough space for src", 406},
        {dest + 1, 8, 4, "strncpy_s: overlapping objects", 404},
        {dest, 8, 4, "strncpy_s: overlapping objects", 404},
    };
    for (const auto &row : rows) {
        std::strcpy(dest, "old");
        EXPECT_EQ(tesh_serv_strncpy_s(dest, row.dmax, row.src, row.slen), row.error) << row.message;
        expect_report(row.message, row.error);
        EXPECT_EQ(dest[0], '\0') << row.message;
    }
    std::strcpy(dest, "oldtext");
    EXPECT_EQ(tesh_serv_strncpy_s(dest + 2, 6, dest, 4), 404) << "a source that begins in front of dest";
    EXPECT_EQ(dest[2], '\0');
}

TEST_F(checked_text, strncat_appends_and_terminates)
{
    char dest[8] = "ab";
    EXPECT_EQ(tesh_serv_strncat_s(dest, 8, "cdefg", 3), 0);
    EXPECT_STREQ(dest, "abcde");
    EXPECT_EQ(tesh_serv_strncat_s(dest, 8, "fg", 4096), 0);
    EXPECT_STREQ(dest, "abcdefg");
    EXPECT_EQ(tesh_serv_strncat_s(dest, 8, "x", 0), 0);
    EXPECT_STREQ(dest, "abcdefg");
    EXPECT_TRUE(calls.empty());
}

TEST_F(checked_text, strncat_reports_each_broken_bound_in_order_and_leaves_dest)
{
    char dest[8] = "old";
    EXPECT_EQ(tesh_serv_strncat_s(nullptr, 0, nullptr, 5000), 400);
    expect_report("strncat_s: dest is null", 400);
    EXPECT_EQ(tesh_serv_strncat_s(dest, 0, nullptr, 5000), 400);
    expect_report("strncat_s: src is null", 400);
    EXPECT_EQ(tesh_serv_strncat_s(dest, 0, "x", 4097), 403);
    expect_report("strncat_s: slen exceeds max", 403);
    EXPECT_EQ(tesh_serv_strncat_s(dest, 0, "x", 1), 401);
    expect_report("strncat_s: dmax is 0", 401);
    EXPECT_EQ(tesh_serv_strncat_s(dest, 4097, "x", 1), 403);
    expect_report("strncat_s: dmax exceeds max", 403);
    EXPECT_EQ(tesh_serv_strncat_s(dest, 8, dest + 1, 2), 404);
    expect_report("strncat_s: overlapping objects", 404);
    char nothing_behind[8] = "old";
    EXPECT_EQ(tesh_serv_strncat_s(nothing_behind, 8, nothing_behind + 3, 2), 404) << "the terminators meet";
    expect_report("strncat_s: overlapping objects", 404);
    EXPECT_NE(tesh_serv_strncat_s(dest, 3, "x", 1), 0);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].message, "strncat_s: dest unterminated");
    calls.clear();
    EXPECT_EQ(tesh_serv_strncat_s(dest, 8, "12345", 5), 406);
    expect_report("strncat_s: not enough space for src", 406);
    EXPECT_STREQ(dest, "old");
}

TEST_F(checked_text, memcpy_copies_smax_bytes)
{
    unsigned char src[40], dest[48];
    std::iota(src, src + 40, static_cast<unsigned char>(1));
    for (size_t n = 1; n <= 40; ++n) {
        std::memset(dest, 0xee, sizeof dest);
        EXPECT_EQ(tesh_serv_memcpy_s(dest, sizeof dest, src, n), 0);
        EXPECT_EQ(std::memcmp(dest, src, n), 0);
        for (size_t i = n; i < sizeof dest; ++i)
            ASSERT_EQ(dest[i], 0xee);
    }
    EXPECT_TRUE(calls.empty());
}

TEST_F(checked_text, memcpy_reports_each_broken_bound_in_order_and_zeroes_a_good_dest)
{
    char area[20], src[16] = {};
    char *const dest = area + 4;
    EXPECT_EQ(tesh_serv_memcpy_s(nullptr, 0, nullptr, 0), 400);
    expect_report("memcpy_s: dest is NULL", 400);
    EXPECT_EQ(tesh_serv_memcpy_s(dest, 0, nullptr, 0), 401);
    expect_report("memcpy_s: dmax is 0", 401);
    EXPECT_EQ(tesh_serv_memcpy_s(dest, 0x10000001, nullptr, 0), 403);
    expect_report("memcpy_s: dmax exceeds max", 403);
    const struct {
        const char *src;
        size_t smax;
        const char *message;
        int32_t error;
    } rows[] = {
        {nullptr, 0, "memcpy_s: smax is 0", 401},          {nullptr, 13, "memcpy_s: smax exceeds dmax", 403},
        {nullptr, 12, "memcpy_s: src is NULL", 400},       {dest + 2, 4, "memcpy_s: overlap undefined", 404},
        {dest - 2, 4, "memcpy_s: overlap undefined", 404},
    };
    for (const auto &row : rows) {
        std::memset(area, 'x', sizeof area);
        EXPECT_EQ(tesh_serv_memcpy_s(dest, 12, row.src, row.smax), row.error) << row.message;
        expect_report(row.message, row.error);
        EXPECT_EQ(std::string(dest, 16), std::string(12, '\0') + "xxxx") << row.message;
    }
    EXPECT_EQ(tesh_serv_memcpy_s(dest, 0x10000000, area, 4), 0) << "the largest dmax; the source lies in front of dest";
    EXPECT_EQ(tesh_serv_memcpy_s(dest, 8, src, 8), 0);
    EXPECT_EQ(tesh_serv_memcpy_s(dest, 8, dest + 8, 8), 0) << "neighbours do not overlap";
}

TEST_F(checked_text, memmove_moves_overlapping_regions_both_ways)
{
    for (int shift = -9; shift <= 9; ++shift) {
        for (size_t n = 1; n <= 40; ++n) {
            std::string text(64, '.');
            std::iota(text.begin() + 12, text.begin() + 52, ' ');
            std::string expected = text;
            expected.replace(static_cast<size_t>(12 + shift), n, text.substr(12, n));
            EXPECT_EQ(tesh_serv_memmove_unbounded_s(&text[static_cast<size_t>(12 + shift)], n, &text[12], n), 0);
            ASSERT_EQ(text, expected) << "shift " << shift << " n " << n;
        }
    }
    EXPECT_TRUE(calls.empty());
}

TEST_F(checked_text, memmove_reports_each_broken_bound_in_order)
{
    char dest[8];
    EXPECT_EQ(tesh_serv_memmove_unbounded_s(nullptr, 0, nullptr, 0), 400);
    expect_report("memmove_s: dest is null", 400);
    EXPECT_EQ(tesh_serv_memmove_unbounded_s(dest, 0, nullptr, 0), 401);
    expect_report("memmove_s: dmax is 0", 401);
    EXPECT_EQ(tesh_serv_memmove_unbounded_s(dest, 8, nullptr, 0), 401);
    expect_report("memmove_s: smax is 0", 401);
    EXPECT_EQ(tesh_serv_memmove_unbounded_s(dest, 8, nullptr, 9), 403);
    expect_report("memmove_s: smax exceeds max", 403);
    EXPECT_EQ(tesh_serv_memmove_unbounded_s(dest, 8, nullptr, 8), 400);
    expect_report("memmove_s: src is null", 400);
}

TEST(mem_prim, set_fills_exactly_the_length_at_every_alignment)
{
    for (size_t offset = 0; offset < 8; ++offset) {
        for (size_t n = 0; n <= 40; ++n) {
            std::string text(64, '.');
            tesh_serv_mem_prim_set(&text[offset], n, 0xa5);
            std::string expected(64, '.');
            expected.replace(offset, n, n, '\xa5');
            ASSERT_EQ(text, expected);
        }
    }
}

TEST(fortran_copy, cuts_or_fills_with_blanks)
{
    char dest[6];
    const auto copied = [&](const char *src, int64_t src_length, int64_t dest_length) {
        std::memset(dest, '#', sizeof dest);
        tesh_serv_strcpy(dest, src, src_length, dest_length);
        return std::string(dest, 6);
    };
    EXPECT_EQ(copied("abc", 3, 5), "abc  #");
    EXPECT_EQ(copied("abcdef", 6, 4), "abcd##");
    EXPECT_EQ(copied("abc", 0, 3), "   ###");
    EXPECT_EQ(copied("abc", -1, 3), "   ###");
    EXPECT_EQ(copied("abc", 3, 0), "######");
}

TEST(fortran_copy, joins_two_sources)
{
    char dest[8];
    const auto joined = [&](const char *a, const char *b, int64_t la, int64_t lb, int64_t dest_length) {
        std::memset(dest, '#', sizeof dest);
        tesh_serv_strcat2(dest, a, b, la, lb, dest_length);
        return std::string(dest, 8);
    };
    EXPECT_EQ(joined("SG", "EQRF", 2, 4, 7), "SGEQRF #");
    EXPECT_EQ(joined("SG", "EQRF", 2, 4, 6), "SGEQRF##");
    EXPECT_EQ(joined("SG", "EQRF", 2, 4, 3), "SGE#####");
    EXPECT_EQ(joined("SG", "EQRF", 2, 4, 1), "S#######");
    EXPECT_EQ(joined("SG", "EQRF", 0, 4, 4), "EQRF####");
    EXPECT_EQ(joined("SG", "EQRF", 2, 0, 4), "SG  ####");
}
} // namespace
