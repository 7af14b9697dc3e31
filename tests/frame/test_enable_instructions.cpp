// SPDX-License-Identifier: BSD-3-Clause
// The instruction limit as a call and as a variable: what is applied, what it switches off, when it is read.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "frame/service/processor.h"
#include "tests/support/vcpu/in_process.h"
#include "tests/support/vcpu/profiles.h"

using tesh_test::on_processor;

namespace
{
// Answers of the call for the codes 0 to 12, each on an untouched library: 'y' applied.
struct code_row {
    const char *profile;
    const char *applied;
};
constexpr code_row code_rows[] = {
    //                    0123456789abc
    {"none", "-------------"},             //
    {"sse3", "-------------"},             //
    {"sse4_2", "y------------"},           //
    {"avx", "yy-----------"},              //
    {"avx2_without_fma", "yy-----------"}, //
    {"avx2", "yyy----------"},             //
    {"avx2_vnni", "yyy-------y--"},        //
    {"avx512", "yyy-y--------"},           //
    {"avx512_e1", "yyy-y-y------"},        //
    {"avx512_e2", "yyy-y-yy-----"},        //
    {"avx512_e3", "yyy-y-yyy----"},        //
    {"avx512_e4", "yyy-y-yyyyy--"},        //
    {"avx512_e5", "yyy-y-yyyyyy-"},        //
    {"avx10_1", "yyy-y-yyyyyy-"},          //
    {"avx10_2", "yyy-y-yyyyyyy"},          //
    {"avx10_2_short", "yyy-------y-y"},    //
    {"no_zmm_state", "yyy-----yyy--"},     // BF16 and FP16 are asked of CPUID alone
    {"no_osxsave", "y------------"},       //
    {"other_maker", "-------------"},      //
    {"amd_zen", "-------------"},          //
};

// What the is-enabled questions answer once a code has been applied: AVX, AVX2, AVX-512, AVX10.
struct flags_row {
    int code;
    int avx, avx2, avx512, avx10;
};
constexpr flags_row flags_rows[] = {
    {0, 0, 0, 0, 0}, {1, 1, 0, 0, 0}, {2, 1, 1, 0, 0},  {4, 1, 1, 1, 0},  {6, 1, 1, 1, 0},  {7, 1, 1, 1, 0},
    {8, 1, 1, 1, 0}, {9, 1, 1, 1, 0}, {10, 1, 1, 0, 0}, {11, 1, 1, 1, 0}, {12, 1, 1, 1, 1},
};

void expect_flags(int avx, int avx2, int avx512, int avx10)
{
    EXPECT_EQ(tesh_serv_is_sse4_2_enabled(), 1);
    EXPECT_EQ(tesh_serv_is_avx_enabled(), avx);
    EXPECT_EQ(tesh_serv_is_avx2_enabled(), avx2);
    EXPECT_EQ(tesh_serv_is_avx512_enabled(), avx512);
    EXPECT_EQ(tesh_serv_is_avx10_enabled(), avx10);
    EXPECT_EQ(tesh_serv_is_avx512_hcx_enabled(), 0);
}
} // namespace

TEST(enable_instructions, is_applied_where_the_processor_has_the_level)
{
    for (const code_row &row : code_rows) {
        for (int code = 0; code <= 12; ++code) {
            const bool maker = row.profile != std::string("other_maker") && row.profile != std::string("amd_zen");
            const auto child = on_processor(row.profile, {}, [&] {
                EXPECT_EQ(tesh_serv_enable_instructions(code), row.applied[code] == 'y') << row.profile << " " << code;
            });
            EXPECT_EQ(child.out, "");
            const bool warned = child.err ==
                                "Orvan Tesh WARNING: Support of Orvan(R) Advanced Vector Extensions (Orvan(R) AVX) "
                                "enabled only processors has been deprecated. Orvan Tesh Numeric Library will use "
                                "Orvan(R) Streaming SIMD Extensions 4.2 (Orvan(R) SSE4.2) instructions instead.\n";
            EXPECT_TRUE(child.err.empty() || warned) << child.err;
            EXPECT_EQ(warned, maker && code == 1) << row.profile << " " << code;
        }
    }
}

TEST(enable_instructions, codes_without_a_level_are_refused)
{
    on_processor("avx10_2", {}, [] {
        for (const int code : {-1, 3, 5, 13, 100, -2147483647 - 1, 2147483647})
            EXPECT_EQ(tesh_serv_enable_instructions(code), 0) << code;
        expect_flags(1, 1, 1, 0);
    });
}

TEST(enable_instructions, switches_levels_off_and_on)
{
    for (const flags_row &row : flags_rows) {
        on_processor("avx10_2", {}, [&] {
            EXPECT_EQ(tesh_serv_enable_instructions(row.code), 1);
            expect_flags(row.avx, row.avx2, row.avx512, row.avx10);
        });
    }
    on_processor("avx10_2", {}, [] { expect_flags(1, 1, 1, 0); });
}

TEST(enable_instructions, a_later_call_replaces_an_earlier_one)
{
    on_processor("avx10_2", {}, [] {
        struct {
            int code, fine;
        } const steps[] = {{0, 3}, {2, 5}, {12, 17}, {10, 15}, {11, 16}, {4, 7}, {9, 14}, {6, 9}, {8, 12}, {7, 10}};
        for (const auto &step : steps) {
            EXPECT_EQ(tesh_serv_enable_instructions(step.code), 1);
            EXPECT_EQ(tesh_serv_get_cpu_type(1), step.fine) << step.code;
        }
    });
}

TEST(enable_instructions, a_refused_call_changes_no_flag)
{
    on_processor("avx512", {}, [] {
        EXPECT_EQ(tesh_serv_enable_instructions(2), 1);
        EXPECT_EQ(tesh_serv_enable_instructions(6), 0);
        EXPECT_EQ(tesh_serv_get_cpu_type(1), 5);
    });
}

TEST(enable_instructions, any_call_keeps_the_variable_from_being_read)
{
    for (const int code : {-1, 6, 12}) { // none of them applies on this processor
        on_processor("avx512", {{"TESH_ENABLE_INSTRUCTIONS", "AVX2"}}, [&] {
            EXPECT_EQ(tesh_serv_enable_instructions(code), 0);
            EXPECT_EQ(tesh_serv_get_cpu_type(1), 7);
            int32_t cached = 0;
            __read_enable_instructions_env(&cached);
            EXPECT_EQ(cached, -1);
        });
    }
}

TEST(enable_instructions, the_variable_is_read_once)
{
    on_processor("avx512", {{"TESH_ENABLE_INSTRUCTIONS", "AVX2"}}, [] {
        EXPECT_EQ(tesh_serv_is_avx512_enabled(), 0);
        setenv("TESH_ENABLE_INSTRUCTIONS", "SSE4_2", 1);
        EXPECT_EQ(tesh_serv_get_cpu_type(1), 5);
    });
}

TEST(enable_instructions, the_question_for_avx10_reads_no_variable)
{
    on_processor("avx10_2", {{"TESH_ENABLE_INSTRUCTIONS", "AVX10"}}, [] {
        EXPECT_EQ(tesh_serv_is_avx10_enabled(), 0);
        EXPECT_EQ(tesh_serv_is_sse4_2_enabled(), 1); // reads it
        EXPECT_EQ(tesh_serv_is_avx10_enabled(), 1);
    });
}

TEST(enable_instructions, texts_and_their_codes)
{
    struct {
        const char *text;
        int32_t code;
    } const rows[] = {{"", -1},          {"SSE4_2", 0},     {"AVX", 1},
                      {"AVX2", 2},       {"AVX512", 4},     {"AVX512_E1", 6},
                      {"AVX512_E2", 7},  {"AVX512_E3", 8},  {"AVX512_E4", 9},
                      {"AVX2_E1", 10},   {"AVX512_E5", 11}, {"AVX10", 12},
                      {"avx2", -1},      {"AVX2 ", -1},     {" AVX2", -1},
                      {"AVX512_E6", -1}, {"2", -1},         {"AVX512_E1xxxxxxxxxxxxxxxxxxxxxxxxxxxx", -1}};
    for (const auto &row : rows) {
        on_processor("avx512_e5", {{"TESH_ENABLE_INSTRUCTIONS", row.text}}, [&] {
            int32_t code = -7;
            __read_enable_instructions_env(&code);
            EXPECT_EQ(code, row.code) << row.text;
            __read_enable_instructions_env(nullptr);
        });
    }
}

TEST(enable_instructions, limits_on_a_processor_with_all_levels)
{
    struct {
        const char *text;
        int fine, stored;
    } const rows[] = {{"AVX2", 5, 5}, {"AVX512_E3", 12, 7}, {"avx2", 16, 7}, {"AVX", 3, 3}};
    for (const auto &row : rows) {
        on_processor("avx512_e5", {{"TESH_ENABLE_INSTRUCTIONS", row.text}}, [&] {
            EXPECT_EQ(tesh_serv_get_cpu_type(0), -1);
            EXPECT_EQ(tesh_serv_cpu_detect(), row.stored) << row.text;
            EXPECT_EQ(tesh_serv_get_cpu_type(0), row.stored);
            EXPECT_EQ(tesh_serv_get_cpu_type(1), row.fine) << row.text;
        });
    }
}

TEST(supported_levels, are_fine_numbers)
{
    struct {
        const char *profile;
        const char *from_0_to_18;
    } const rows[] = {
        //                0123456789012345678
        {"sse4_2", "---y---------------"},    {"avx2", "---yyy-------------"},
        {"avx2_vnni", "---yyy---------y---"}, {"avx512_e2", "---yyy-y-yy--------"},
        {"avx512_e5", "---yyy-y-yy-y-yyy--"}, {"avx10_1", "---yyy-y-yy-y-yyy--"},
        {"avx10_2", "---yyy-y-yy-y-yyyy-"},   {"no_zmm_state", "---yyy------y-yy---"},
    };
    for (const auto &row : rows) {
        on_processor(row.profile, {}, [&] {
            for (int level = 0; level <= 18; ++level)
                EXPECT_EQ(cpu_supports_mei(level), row.from_0_to_18[level] == 'y') << row.profile << " " << level;
            EXPECT_EQ(cpu_supports_mei(-1), 0);
        });
    }
}

TEST(detection, asks_each_level_of_cpuid_once)
{
    on_processor("avx512_e4", {}, [] {
        tesh_serv_get_cpu_type(1);
        const int asked = tesh_test::asked(7, 1) + tesh_test::asked(7, 0) + tesh_test::asked(0, 0);
        EXPECT_GT(asked, 0);
        tesh_serv_get_cpu_type(1);
        EXPECT_EQ(tesh_test::asked(7, 1) + tesh_test::asked(7, 0) + tesh_test::asked(0, 0), asked);
    });
}

TEST(detection, leaves_beyond_the_last_are_not_believed)
{
    // The highest leaf is 1, all of its bits are set, and leaves beyond it answer with its data.
    auto profile = tesh_test::profile_named("sse4_2");
    for (const auto part : {tesh_test::vcpu_ebx, tesh_test::vcpu_ecx, tesh_test::vcpu_edx})
        set_bits(&profile, 1, 0, part, ~0u);
    profile.xcr0 = 0xe7;
    profile.beyond_last_repeats = true;
    on_processor(profile, {}, [] {
        EXPECT_EQ(tesh_serv_get_cpu_type(1), 3);
        EXPECT_EQ(__orvan_tesh_feature_indicator_x[0] & (0x980000 | 0x6009000000), 0u);
        EXPECT_EQ(tesh_serv_cpuhas256bit_vector(), 0);
    });
}

TEST(detection, sub_leaves_beyond_the_last_are_not_believed)
{
    auto profile = tesh_test::profile_named("avx512_e3");
    EXPECT_EQ(on_processor(profile, {}, [] { EXPECT_EQ(tesh_serv_get_cpu_type(1), 12); }).exit_code, 0);
    clear_bits(&profile, 7, 0, tesh_test::vcpu_eax, ~0u); // no sub-leaf behind 0, and yet 1 would answer
    EXPECT_EQ(on_processor(profile, {}, [] { EXPECT_EQ(tesh_serv_get_cpu_type(1), 10); }).exit_code, 0);
}

TEST(detection, a_failure_ends_the_process_or_asks_the_exit_hook)
{
    const auto child = on_processor("none", {}, [] {
        static int codes[2], calls = 0;
        tesh_serv_set_exit_handler([](int32_t code) { codes[calls++ % 2] = code; });
        EXPECT_EQ(tesh_serv_cpu_detect(), -1);
        EXPECT_EQ(calls, 1);
        EXPECT_EQ(codes[0], 1);
        EXPECT_EQ(tesh_serv_trylock(&TESH_Detect_Cpu_Global_Lock), 1) << "the lock is free again";
        tesh_serv_unlock(&TESH_Detect_Cpu_Global_Lock);
        EXPECT_EQ(tesh_serv_get_cpu_type(1), -1);
        EXPECT_EQ(calls, 2);
        tesh_serv_set_exit_handler(nullptr);
    });
    EXPECT_EQ(child.exit_code, 0);
}

namespace
{
// Every first question that meets a processor below the minimum.
struct fatal_question {
    const char *name, *cbwr;
    void (*ask)();
};
constexpr fatal_question fatal_questions[] = {
    {"cpu_detect", "", [] { tesh_serv_cpu_detect(); }},
    {"cpu_detect with a branch", "SSE2", [] { tesh_serv_cpu_detect(); }},
    {"vml_cpu_detect with a branch", "SSE2", [] { tesh_serv_vml_cpu_detect(); }},
    {"get_cpu_type", "", [] { tesh_serv_get_cpu_type(1); }},
    {"cbwr_get", "SSE2", [] { tesh_serv_cbwr_get(1); }},
    {"cbwr_get_nolock", "SSE2", [] { tesh_serv_cbwr_get_nolock(1); }},
    {"cbwr_set", "", [] { tesh_serv_cbwr_set(4); }},
    {"cbwr_get_auto_branch", "", [] { tesh_serv_cbwr_get_auto_branch(); }},
    {"Orvan_CPU_Internal", "SSE2", [] { TESH_Orvan_CPU_Internal(); }},
    {"check_cbwr_settings", "", [] { check_cbwr_settings(4); }},
    {"cpuhasamx", "", [] { tesh_serv_cpuhasamx(nullptr); }},
};
} // namespace

TEST(detection, what_runs_at_a_fatal_exit_can_ask_again)
{
    for (const fatal_question &question : fatal_questions) {
        SCOPED_TRACE(question.name);
        const auto child = on_processor(
            "none", {{"TESH_CBWR", question.cbwr}},
            [&] {
                alarm(10); // a lock that is still held would be waited for without end
                std::atexit([] {
                    tesh_serv_set_exit_handler([](int32_t) {}); // exit may not be called a second time
                    std::fflush(stdout);
                    std::printf("at exit\n");
                    tesh_serv_cbwr_get(1);
                    TESH_Orvan_CPU_Internal();
                    tesh_serv_cpuhasamx(nullptr);
                    tesh_serv_cbwr_set(4);
                    tesh_serv_cpu_detect();
                });
                question.ask();
                ADD_FAILURE() << "still here";
            },
            1);
        const std::string once =
            "Orvan Tesh FATAL ERROR: This system does not meet the minimum requirements for use of the Orvan(R) Tesh "
            "Numeric Library.\nThe processor must support the Orvan(R) Streaming SIMD 3 Extensions (Orvan(R) SSE3) "
            "instructions.\nat exit\n";
        EXPECT_EQ(child.out.substr(0, once.size()), once);
    }
}

TEST(detection, the_exit_hook_is_asked_once_with_the_locks_free)
{
    for (const fatal_question &question : fatal_questions) {
        SCOPED_TRACE(question.name);
        on_processor("none", {{"TESH_CBWR", question.cbwr}}, [&] {
            static int calls = 0, lock_was_free = 0;
            tesh_serv_set_exit_handler([](int32_t code) {
                EXPECT_EQ(code, 1);
                ++calls;
                lock_was_free = tesh_serv_trylock(&TESH_Detect_Cpu_Global_Lock);
                tesh_serv_unlock(&TESH_Detect_Cpu_Global_Lock);
            });
            question.ask();
            EXPECT_EQ(calls, 1);
            EXPECT_EQ(lock_was_free, 1);
        });
    }
}

TEST(detection, has_no_single_use_record)
{
    EXPECT_EQ(tesh_serv_sngl_was_called(), 0);
}
