// SPDX-License-Identifier: BSD-3-Clause
// The reproducibility setting: what the environment's texts mean, what the call accepts on which processor.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "frame/tesh_serv.h"
#include "tests/support/vcpu/in_process.h"
#include "tests/support/vcpu/profiles.h"

using tesh_test::on_processor;

namespace
{
constexpr int strict = 0x10000;
constexpr char warning_ssse3[] =
    "Orvan Tesh WARNING: Support of Orvan(R) Supplemental Streaming SIMD Extensions 3 (Orvan(R) SSSE3) enabled only "
    "processors "
    "has been deprecated. Orvan Tesh Numeric Library will use Orvan(R) Streaming SIMD 2 Extensions (Orvan(R) SSE2) "
    "instructions instead.\n";
constexpr char warning_avx[] =
    "Orvan Tesh WARNING: Support of Orvan(R) Advanced Vector Extensions (Orvan(R) AVX) enabled only "
    "processors has been deprecated. Orvan Tesh Numeric Library will use Orvan(R) Streaming SIMD "
    "Extensions 4.2 (Orvan(R) SSE4.2) instructions instead.\n";

void expect_setting(const char *profile, const std::string &text, int value)
{
    const auto child = on_processor(profile, {{"TESH_CBWR", text}}, [&] {
        EXPECT_EQ(tesh_serv_cbwr_get(-1), value) << text;
        EXPECT_EQ(tesh_serv_cbwr_get(1), value & 0xffff) << text;
        EXPECT_EQ(tesh_cbwr, value);
    });
    EXPECT_EQ(child.out + child.err, "") << text;
}
} // namespace

TEST(cbwr_text, unset_is_off)
{
    for (const char *profile : {"avx2", "other_maker"})
        expect_setting(profile, "", 1);
}

TEST(cbwr_text, branch_prefix_is_taken_off_once)
{
    expect_setting("avx2", "BRANCH=AVX2", 10);
    expect_setting("avx2", "BRANCH=COMPATIBLE", 3);
    expect_setting("avx2", "BRANCH=BRANCH=AVX2", 2);
    expect_setting("avx2", "branch=AVX2", 2);
    expect_setting("avx2", "BRANCH=", 2);
}

TEST(cbwr_text, a_branch_beyond_the_processor_is_auto)
{
    expect_setting("avx2", "AVX512", 2);
    expect_setting("avx2", "AVX512,STRICT", strict | 2);
    expect_setting("avx512", "AVX512_E1", 2);
    expect_setting("sse3", "SSE4_1", 2);
}

TEST(cbwr_text, unknown_names_are_auto)
{
    for (const char *text : {"avx2", "X", "1", "OFF", "AVX2 ", " AVX2", "AVX", "10", "SSE4.2", "AVX512_E2", "AVX22"})
        expect_setting("avx2", text, std::string(text) == "AVX" ? 8 : 2);
}

TEST(cbwr_text, sse3_and_ssse3_are_sse2)
{
    expect_setting("avx2", "SSE3", 4);
    expect_setting("avx2", "SSSE3", 4);
}

TEST(cbwr_text, strict_needs_a_comma)
{
    expect_setting("avx2", "AVX2,STRICT", strict | 10);
    expect_setting("avx2", "AVX2 , STRICT", strict | 10);
    expect_setting("avx2", "AVX2,   STRICT", strict | 10);
    expect_setting("avx2", "AVX2   ,STRICT", strict | 10);
    expect_setting("avx2", "BRANCH=AVX2,STRICT", strict | 10);
    expect_setting("avx2", "AUTO,STRICT", strict | 2);
    expect_setting("avx2", "COMPATIBLE,STRICT", strict | 3);
    for (const char *text :
         {"AVX2 STRICT", "AVX2STRICT", "STRICT", " STRICT", "AVX2,strict", "AVX2,STRICT ", "AVX2,STRICT,STRICT"})
        expect_setting("avx2", text, 2);
}

TEST(cbwr_text, strict_is_not_kept_without_a_known_name)
{
    for (const char *text : {"nothing,STRICT", ",STRICT", "  ,STRICT", "avx2,STRICT"})
        expect_setting("avx2", text, 2);
}

TEST(cbwr_text, a_text_too_long_for_its_buffer_is_no_setting)
{
    expect_setting("avx2", std::string(127, 'x'), 2);
    expect_setting("avx2", std::string(128, 'x'), 1);
    expect_setting("avx2", "AVX2" + std::string(124, ' ') + ",STRICT", 1);
}

TEST(cbwr_text, other_makers_have_auto_and_compatible_only)
{
    for (const char *profile : {"other_maker", "amd_zen"}) {
        expect_setting(profile, "AUTO", 2);
        expect_setting(profile, "COMPATIBLE", 3);
        expect_setting(profile, "COMPATIBLE,STRICT", strict | 3);
        for (const char *text : {"SSE2", "SSE4_2", "AVX2", "AVX512", "AVX10"})
            expect_setting(profile, text, 2);
    }
}

TEST(cbwr_get, other_questions_answer_minus_2)
{
    on_processor("avx2", {{"TESH_CBWR", "AVX2"}}, [] {
        for (const int what : {0, 2, -2, 16})
            EXPECT_EQ(tesh_serv_cbwr_get(what), -2);
        EXPECT_EQ(tesh_serv_cbwr_get_nolock(1), 10);
        EXPECT_EQ(tesh_serv_cbwr_get_nolock(-1), 10);
        EXPECT_EQ(tesh_serv_cbwr_get_nolock(5), -2);
    });
}

namespace
{
// What the set call answers for the values 3 to 15 on a processor whose best branch is known; 'y' 0, '-' -3.
struct accepted_row {
    const char *profile, *limit;
    const char *from_3_to_15;
};
constexpr accepted_row accepted_rows[] = {
    //                          3456789012345
    {"sse3", "", "yy-----------"},                                                // best 4
    {"sse4_2", "", "yyyyyy-------"},                                              // best 8
    {"avx2", "", "yyyyyyyy-----"},                                                // best 10
    {"avx2_vnni", "", "yyyyyyyy-----"},   {"avx512", "", "yyyyyyyy-y---"},        // best 12
    {"avx512_e1", "", "yyyyyyyy-y-y-"},                                           // best 14
    {"avx512_e5", "", "yyyyyyyy-y-y-"},   {"avx512_e5", "AVX2", "yyyyyyyy-----"}, // as limited
    {"avx10_2", "", "yyyyyyyy-y-y-"},     {"avx10_2", "AVX10", "yyyyyyyyyyyyy"},  // best 15
    {"other_maker", "", "y------------"}, {"amd_zen", "", "y------------"},
};
} // namespace

TEST(cbwr_set, accepts_what_the_processor_can_honour)
{
    for (const accepted_row &row : accepted_rows) {
        const std::string accepted = row.from_3_to_15;
        const auto child = on_processor(row.profile, {{"TESH_ENABLE_INSTRUCTIONS", row.limit}}, [&] {
            for (int branch = 3; branch <= 15; ++branch) {
                const bool yes = accepted[static_cast<std::size_t>(branch) - 3] == 'y';
                tesh_cbwr = 1;
                EXPECT_EQ(tesh_serv_cbwr_set(branch), yes ? 0 : -3) << row.profile << row.limit << branch;
                EXPECT_EQ(tesh_serv_cbwr_get(-1), yes ? branch : 1);
                EXPECT_EQ(tesh_serv_cbwr_set(strict | branch), yes ? 0 : -3);
                EXPECT_EQ(tesh_serv_cbwr_get(-1), yes ? strict | branch : 1);
            }
        });
        std::string warnings;
        if (accepted[3] == 'y')
            warnings += std::string(warning_ssse3) + warning_ssse3;
        if (accepted[6] == 'y')
            warnings += std::string(warning_avx) + warning_avx;
        EXPECT_EQ(child.err, warnings) << row.profile;
        EXPECT_EQ(child.out, "") << row.profile;
    }
}

TEST(cbwr_set, small_values_and_values_without_a_branch)
{
    for (const char *profile : {"avx512_e5", "other_maker"}) {
        const auto child = on_processor(profile, {}, [] {
            EXPECT_EQ(tesh_serv_cbwr_set(2), 0);
            EXPECT_EQ(tesh_serv_cbwr_get(-1), 2);
            EXPECT_EQ(tesh_serv_cbwr_set(0), 0);
            EXPECT_EQ(tesh_serv_cbwr_get(-1), 1);
            EXPECT_EQ(tesh_serv_cbwr_set(1), 0);
            EXPECT_EQ(tesh_serv_cbwr_get(-1), 1);
            EXPECT_EQ(tesh_serv_cbwr_set(strict | 2), 0);
            EXPECT_EQ(tesh_serv_cbwr_get(-1), strict | 2);
            for (const int value : {16, 17, 1000, 0xffff, strict, strict | 1, strict | 16, 0x1ffff})
                EXPECT_EQ(tesh_serv_cbwr_set(value), -2) << value;
            for (const int value : {0x20000, 0x20003, 0x2000a, 0x7fffffff, -1})
                EXPECT_EQ(tesh_serv_cbwr_set(value), -3) << value;
            EXPECT_EQ(tesh_serv_cbwr_get(-1), strict | 2);
        });
        EXPECT_EQ(child.out + child.err, "");
    }
}

TEST(cbwr_set, a_named_branch_on_another_makers_processor_is_refused)
{
    on_processor("other_maker", {{"TESH_CBWR", "AVX2"}}, [] {
        EXPECT_EQ(tesh_serv_cbwr_get(1), 2);
        EXPECT_EQ(tesh_serv_cbwr_set(4), -3);
        EXPECT_EQ(tesh_serv_cbwr_get(1), 2);
    });
}

TEST(cbwr_set, overrides_the_environment_until_detection)
{
    on_processor("avx512", {{"TESH_CBWR", "AVX2"}}, [] {
        EXPECT_EQ(tesh_serv_cbwr_get(1), 10);
        EXPECT_EQ(tesh_serv_cbwr_set(8), 0);
        EXPECT_EQ(tesh_serv_cpu_detect(), 3);
        EXPECT_EQ(tesh_serv_cbwr_set(8), 0);
        for (const int value : {10, 1, 0, 2, 99, 0x20000})
            EXPECT_EQ(tesh_serv_cbwr_set(value), -8);
        EXPECT_EQ(tesh_serv_cbwr_get(1), 8);
    });
}

TEST(cbwr_set, branches_without_a_type_take_the_real_processor_and_say_so)
{
    for (const int branch : {11, 13}) {
        const auto child = on_processor("avx10_2", {{"TESH_ENABLE_INSTRUCTIONS", "AVX10"}}, [&] {
            EXPECT_EQ(tesh_serv_cbwr_set(branch), 0);
            EXPECT_EQ(tesh_serv_cpu_detect(), 17);
        });
        EXPECT_EQ(child.out,
                  "Orvan Tesh WARNING: incorrect conditional numerical reproducibility mode, TESH_CBWR_AUTO is set\n");
    }
}

TEST(cbwr_set, branch_values_without_names_bind_their_types)
{
    struct {
        int branch, stored, vml;
    } const rows[] = {{5, 0, 0}, {6, 0, 0}, {9, 3, 5}, {14, 7, 9}};
    for (const auto &row : rows) {
        on_processor("avx512_e5", {}, [&] {
            EXPECT_EQ(tesh_serv_cbwr_set(row.branch), 0);
            EXPECT_EQ(tesh_serv_cpu_detect(), row.stored);
            EXPECT_EQ(tesh_serv_vml_cpu_detect(), row.vml);
        });
    }
}

TEST(cbwr_set, detection_by_the_other_question_settles_it_too)
{
    on_processor("avx2", {}, [] {
        EXPECT_EQ(tesh_serv_vml_cpu_detect(), 7);
        EXPECT_EQ(tesh_serv_get_cpu_type(0), 5);
        EXPECT_EQ(tesh_serv_cbwr_set(2), -8);
    });
}

TEST(cbwr_internal_question, follows_the_branch)
{
    struct {
        const char *profile, *text;
        int true_answer, answer;
    } const rows[] = {
        {"avx2", "", 1, 1},
        {"avx2", "AUTO", 1, 1},
        {"avx2", "COMPATIBLE", 1, 0},
        {"avx2", "SSE2", 1, 1},
        {"other_maker", "", 0, 0},
        {"other_maker", "AUTO", 0, 0},
        {"other_maker", "COMPATIBLE", 0, 0},
    };
    for (const auto &row : rows) {
        on_processor(row.profile, {{"TESH_CBWR", row.text}}, [&] {
            EXPECT_EQ(tesh_serv_get_cpu_true(), TESH_Orvan_CPU_True_Internal);
            EXPECT_EQ(tesh_serv_get_cpu(), TESH_Orvan_CPU_Internal);
            EXPECT_EQ(tesh_serv_get_cpu()(), row.answer) << row.profile << row.text;
            EXPECT_EQ(tesh_serv_get_cpu_true()(), row.true_answer) << row.profile << row.text;
        });
    }
}
