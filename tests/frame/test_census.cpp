// SPDX-License-Identifier: BSD-3-Clause
// The census: every published bit at its place, groups that count only with their state, features taken away by
// ORVAN_ISA_DISABLE, and the caller's vector registers left as they were.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "frame/service/general_regs/feature_table.h"
#include "frame/tesh_serv.h"
#include "tests/support/test_paths.h"
#include "tests/support/vcpu/in_process.h"
#include "tests/support/vcpu/profiles.h"

using tesh_test::on_processor;
using tesh_test::vcpu_profile;

namespace
{
constexpr tesh_test::vcpu_register a = tesh_test::vcpu_eax, b = tesh_test::vcpu_ebx, c = tesh_test::vcpu_ecx,
                                   d = tesh_test::vcpu_edx;
constexpr uint32_t ext1 = 0x80000001u, ext8 = 0x80000008u;

// What has to be there for the feature to count.
enum class needs { nothing, fxsr, ymm, bounds, zmm, tiles };

struct place {
    uint32_t leaf, subleaf;
    tesh_test::vcpu_register part;
    int bit;
    needs group;
};
// Every feature of the table that has one published bit, by its name.
const std::map<std::string, place> places = {
    {"X87", {1, 0, d, 0, needs::nothing}},
    {"CMOV", {1, 0, d, 15, needs::nothing}},
    {"MMX", {1, 0, d, 23, needs::nothing}},
    {"FXSAVE", {1, 0, d, 24, needs::nothing}},
    {"SSE", {1, 0, d, 25, needs::fxsr}},
    {"SSE2", {1, 0, d, 26, needs::fxsr}},
    {"SSE3", {1, 0, c, 0, needs::fxsr}},
    {"PCLMULQDQ", {1, 0, c, 1, needs::fxsr}},
    {"MWAIT", {1, 0, c, 3, needs::nothing}},
    {"SSSE3", {1, 0, c, 9, needs::fxsr}},
    {"FMA", {1, 0, c, 12, needs::ymm}},
    {"SSE4_1", {1, 0, c, 19, needs::fxsr}},
    {"SSE4_2", {1, 0, c, 20, needs::fxsr}},
    {"MOVBE", {1, 0, c, 22, needs::fxsr}},
    {"POPCNT", {1, 0, c, 23, needs::fxsr}},
    {"AES", {1, 0, c, 25, needs::fxsr}},
    {"AVX", {1, 0, c, 28, needs::ymm}},
    {"F16C", {1, 0, c, 29, needs::ymm}},
    {"RDRND", {1, 0, c, 30, needs::nothing}},
    {"MONITORLESS_MWAIT", {5, 0, c, 3, needs::nothing}},
    {"SGX", {7, 0, b, 2, needs::nothing}},
    {"HLE", {7, 0, b, 4, needs::nothing}},
    {"AVX2", {7, 0, b, 5, needs::ymm}},
    {"ERMSB", {7, 0, b, 9, needs::nothing}},
    {"INVPCID", {7, 0, b, 10, needs::nothing}},
    {"RTM", {7, 0, b, 11, needs::nothing}},
    {"MPX", {7, 0, b, 14, needs::bounds}},
    {"AVX512F", {7, 0, b, 16, needs::zmm}},
    {"AVX512DQ", {7, 0, b, 17, needs::zmm}},
    {"RDSEED", {7, 0, b, 18, needs::nothing}},
    {"ADX", {7, 0, b, 19, needs::nothing}},
    {"AVX512IFMA52", {7, 0, b, 21, needs::zmm}},
    {"CLFLUSHOPT", {7, 0, b, 23, needs::nothing}},
    {"CLWB", {7, 0, b, 24, needs::nothing}},
    {"AVX512PF", {7, 0, b, 26, needs::zmm}},
    {"AVX512ER", {7, 0, b, 27, needs::zmm}},
    {"AVX512CD", {7, 0, b, 28, needs::zmm}},
    {"SHA", {7, 0, b, 29, needs::nothing}},
    {"AVX512BW", {7, 0, b, 30, needs::zmm}},
    {"AVX512VL", {7, 0, b, 31, needs::zmm}},
    {"AVX512VBMI", {7, 0, c, 1, needs::zmm}},
    {"PKU", {7, 0, c, 3, needs::nothing}},
    {"WAITPKG", {7, 0, c, 5, needs::nothing}},
    {"AVX512_VBMI2", {7, 0, c, 6, needs::zmm}},
    {"SHSTK", {7, 0, c, 7, needs::nothing}},
    {"GFNI", {7, 0, c, 8, needs::nothing}},
    {"VAES", {7, 0, c, 9, needs::ymm}},
    {"VPCLMULQDQ", {7, 0, c, 10, needs::ymm}},
    {"AVX512_VNNI", {7, 0, c, 11, needs::zmm}},
    {"AVX512_BITALG", {7, 0, c, 12, needs::zmm}},
    {"AVX512_VPOPCNTDQ", {7, 0, c, 14, needs::zmm}},
    {"RDPID", {7, 0, c, 22, needs::nothing}},
    {"KL", {7, 0, c, 23, needs::nothing}},
    {"CLDEMOTE", {7, 0, c, 25, needs::nothing}},
    {"MOVDIRI", {7, 0, c, 27, needs::nothing}},
    {"MOVDIR64B", {7, 0, c, 28, needs::nothing}},
    {"ENQCMD", {7, 0, c, 29, needs::nothing}},
    {"AVX512_4VNNIW", {7, 0, d, 2, needs::zmm}},
    {"AVX512_4FMAPS", {7, 0, d, 3, needs::zmm}},
    {"FSRM", {7, 0, d, 4, needs::nothing}},
    {"UINTR", {7, 0, d, 5, needs::nothing}},
    {"AVX512_VP2INTERSECT", {7, 0, d, 8, needs::zmm}},
    {"SERIALIZE", {7, 0, d, 14, needs::nothing}},
    {"TSXLDTRK", {7, 0, d, 16, needs::nothing}},
    {"PCONFIG", {7, 0, d, 18, needs::nothing}},
    {"IBT", {7, 0, d, 20, needs::nothing}},
    {"AMX-BF16", {7, 0, d, 22, needs::tiles}},
    {"AVX512_FP16", {7, 0, d, 23, needs::zmm}},
    {"AMX-INT8", {7, 0, d, 25, needs::tiles}},
    {"SHA512", {7, 1, a, 0, needs::ymm}},
    {"SM3", {7, 1, a, 1, needs::ymm}},
    {"SM4", {7, 1, a, 2, needs::ymm}},
    {"RAO_INT", {7, 1, a, 3, needs::nothing}},
    {"AVX_VNNI", {7, 1, a, 4, needs::ymm}},
    {"AVX512_BF16", {7, 1, a, 5, needs::zmm}},
    {"CMPCCXADD", {7, 1, a, 7, needs::nothing}},
    {"WRMSRNS", {7, 1, a, 19, needs::nothing}},
    {"AMX-FP16", {7, 1, a, 21, needs::tiles}},
    {"HRESET", {7, 1, a, 22, needs::nothing}},
    {"AVX_IFMA", {7, 1, a, 23, needs::ymm}},
    {"MSRLIST", {7, 1, a, 27, needs::nothing}},
    {"MOVRS", {7, 1, a, 31, needs::nothing}},
    {"PBNDKB", {7, 1, b, 1, needs::nothing}},
    {"AVX_VNNI_INT8", {7, 1, d, 4, needs::ymm}},
    {"AVX_NE_CONVERT", {7, 1, d, 5, needs::ymm}},
    {"AMX-COMPLEX", {7, 1, d, 8, needs::tiles}},
    {"AVX_VNNI_INT16", {7, 1, d, 10, needs::ymm}},
    {"PREFETCHI", {7, 1, d, 14, needs::nothing}},
    {"USER_MSR", {7, 1, d, 15, needs::nothing}},
    {"APXF", {7, 1, d, 21, needs::nothing}},
    {"PTWRITE", {0x14, 0, b, 4, needs::nothing}},
    {"WIDE-KL", {0x19, 0, b, 2, needs::nothing}},
    {"AMX-FP8", {0x1e, 1, a, 4, needs::tiles}},
    {"AMX-TRANSPOSE", {0x1e, 1, a, 5, needs::tiles}},
    {"AMX-TF32", {0x1e, 1, a, 6, needs::tiles}},
    {"AMX-AVX512", {0x1e, 1, a, 7, needs::tiles}},
    {"AMX-MOVRS", {0x1e, 1, a, 8, needs::tiles}},
    {"LAHFSAHF64", {ext1, 0, c, 0, needs::nothing}},
    {"LZCNT", {ext1, 0, c, 5, needs::nothing}},
    {"PREFETCHW", {ext1, 0, c, 8, needs::nothing}},
    {"WBNOINVD", {ext8, 0, b, 9, needs::nothing}},
};
// Features without one bit of their own: the baseline, BMI (two bits), the tile instructions that all of AMX stands on,
// the AVX10 versions (a number), and one that no published bit names.
const char *const others[] = {"GENERIC_X86", "BMI", "AMX-TILE", "AVX_10_1", "AVX_10_2", "HCXNI"};

// A processor with every state saved and FXSAVE, and nothing else.
vcpu_profile bare()
{
    vcpu_profile p;
    tesh_test::set_vendor(&p, "AnotherMaker");
    set_bits(&p, 1, 0, d, 1u << 24);
    set_bits(&p, 1, 0, c, 1u << 27); // OSXSAVE
    set_bits(&p, 7, 1, a, 0);
    set_bits(&p, 0x24, 0, a, 0);
    set_bits(&p, 0x1e, 1, a, 0);
    set_bits(&p, ext8, 0, a, 0);
    p.xcr0 = 0x600ff;
    return p;
}

int row_of(const std::string &name)
{
    for (int row = 1; row < feature_rows; ++row) {
        const char *text = __libtesh_get_feature_name(row);
        if (text != nullptr && name == text)
            return row;
    }
    ADD_FAILURE() << "no row " << name;
    return 0;
}

// The census must find exactly the named features, beside the baseline.
void expect_found(const vcpu_profile &profile, const std::vector<std::string> &names)
{
    on_processor(profile, {}, [&] {
        uint64_t expected[2] = {1, 0};
        for (const std::string &name : names)
            EXPECT_EQ(__libtesh_set_cpu_feature(expected, row_of(name)), 0);
        __orvan_tesh_features_init_x();
        EXPECT_EQ(__orvan_tesh_feature_indicator_x[0], expected[0]) << (names.empty() ? "" : names.back());
        EXPECT_EQ(__orvan_tesh_feature_indicator_x[1], expected[1]) << (names.empty() ? "" : names.back());
        EXPECT_EQ(__orvan_tesh_feature_indicator[0], 0u);
    });
}
} // namespace

TEST(census, every_published_bit_stands_at_its_place)
{
    expect_found(bare(), {"FXSAVE"});
    for (const auto &[name, at] : places) {
        vcpu_profile p = bare();
        std::vector<std::string> found = {"FXSAVE"};
        if (at.group == needs::tiles) {
            set_bits(&p, 7, 0, d, 1u << 24);
            found.emplace_back("AMX-TILE");
        }
        set_bits(&p, at.leaf, at.subleaf, at.part, 1u << at.bit);
        if (name != "FXSAVE")
            found.push_back(name);
        expect_found(p, found);
    }
}

TEST(census, every_row_of_the_table_is_covered)
{
    std::map<std::string, int> listed;
    for (const auto &entry : places)
        ++listed[entry.first];
    for (const char *name : others)
        ++listed[name];
    int named_rows = 0;
    for (int row = 0; row < feature_rows; ++row) {
        const char *name = __libtesh_get_feature_name(row);
        if (name == nullptr)
            continue;
        ++named_rows;
        EXPECT_EQ(listed[name], 1) << name;
    }
    EXPECT_EQ(named_rows, 107);
    EXPECT_EQ(listed.size(), 107u);
}

TEST(census, a_group_counts_only_with_its_state)
{
    struct {
        needs group;
        uint64_t state_bits[3]; // taking away any of them is enough
    } const rows[] = {{needs::ymm, {1u << 1, 1u << 2, 0}},
                      {needs::bounds, {1u << 3, 1u << 4, 0}},
                      {needs::zmm, {1u << 5, 1u << 6, 1u << 7}},
                      {needs::zmm, {1u << 1, 1u << 2, 0}},
                      {needs::tiles, {1u << 17, 1u << 18, 0}}};
    for (const auto &row : rows) {
        vcpu_profile p = bare();
        set_bits(&p, 7, 0, d, row.group == needs::tiles ? 1u << 24 : 0);
        for (const auto &entry : places) {
            const place &at = entry.second;
            if (at.group == row.group)
                set_bits(&p, at.leaf, at.subleaf, at.part, 1u << at.bit);
        }
        for (const uint64_t state : row.state_bits) {
            if (state == 0)
                continue;
            vcpu_profile without = p;
            without.xcr0 &= ~state;
            expect_found(without, {"FXSAVE"});
        }
        vcpu_profile no_osxsave = p;
        clear_bits(&no_osxsave, 1, 0, c, 1u << 27);
        expect_found(no_osxsave, {"FXSAVE"});
    }
}

TEST(census, the_sse_group_counts_only_with_fxsave)
{
    vcpu_profile p = bare();
    clear_bits(&p, 1, 0, d, 1u << 24);
    for (const auto &entry : places) {
        if (entry.second.group == needs::fxsr)
            set_bits(&p, 1, 0, entry.second.part, 1u << entry.second.bit);
    }
    expect_found(p, {});
    set_bits(&p, 1, 0, c, 1u << 30 | 1u << 3);
    expect_found(p, {"RDRND", "MWAIT"});
}

TEST(census, amx_counts_only_with_its_tiles)
{
    vcpu_profile p = bare();
    set_bits(&p, 7, 0, d, 1u << 22 | 1u << 25);
    set_bits(&p, 7, 1, a, 1u << 21);
    set_bits(&p, 0x1e, 1, a, 0x1f0);
    expect_found(p, {"FXSAVE"});
}

TEST(census, bmi_needs_both_halves)
{
    for (const uint32_t bits : {1u << 3, 1u << 8}) {
        vcpu_profile p = bare();
        set_bits(&p, 7, 0, b, bits);
        expect_found(p, {"FXSAVE"});
    }
    vcpu_profile p = bare();
    set_bits(&p, 7, 0, b, 1u << 3 | 1u << 8);
    expect_found(p, {"FXSAVE", "BMI"});
}

TEST(census, avx10_by_version)
{
    for (uint32_t version = 0; version <= 3; ++version) {
        vcpu_profile p = bare();
        set_bits(&p, 0x24, 0, b, version | 7u << 16);
        expect_found(p, {"FXSAVE"}); // without the bit that announces the leaf
        set_bits(&p, 7, 1, d, 1u << 19);
        std::vector<std::string> found = {"FXSAVE"};
        if (version >= 1)
            found.emplace_back("AVX_10_1");
        if (version >= 2)
            found.emplace_back("AVX_10_2");
        expect_found(p, found);
    }
}

TEST(census, a_processor_without_leaves_has_the_baseline)
{
    vcpu_profile p;
    tesh_test::set_vendor(&p, "GenuineOrvan");
    expect_found(p, {});
    on_processor(p, {}, [] {
        __orvan_tesh_features_init();
        EXPECT_EQ(__orvan_tesh_feature_indicator[0], 1u);
        EXPECT_EQ(__orvan_tesh_feature_indicator_x[0], 1u);
    });
}

TEST(census, vendor_checking_form)
{
    on_processor("avx2", {}, [] {
        __orvan_tesh_features_init();
        EXPECT_EQ(__orvan_tesh_feature_indicator[0], __orvan_tesh_feature_indicator_x[0]);
        EXPECT_EQ(__orvan_tesh_feature_indicator[0] & 0x9c2000, 0x9c2000u);
    });
    on_processor("other_maker", {}, [] {
        __orvan_tesh_features_init();
        EXPECT_EQ(__orvan_tesh_feature_indicator[0], 1u);
        EXPECT_EQ(__orvan_tesh_feature_indicator[1], 0u);
        EXPECT_EQ(__orvan_tesh_feature_indicator_x[0], 0u);
        __orvan_tesh_features_init_x();
        EXPECT_EQ(__orvan_tesh_feature_indicator_x[0] & 0x9c2000, 0x9c2000u);
        EXPECT_EQ(__orvan_tesh_feature_indicator[0], 1u);
    });
}

TEST(feature_table, rows_names_and_bits)
{
    EXPECT_EQ(__libtesh_get_feature_name(0), nullptr);
    EXPECT_EQ(__libtesh_get_feature_name(32), nullptr);
    EXPECT_STREQ(__libtesh_get_feature_name(1), "GENERIC_X86");
    EXPECT_STREQ(__libtesh_get_feature_name(16), "AVX");
    EXPECT_STREQ(__libtesh_get_feature_name(17), "F16C");
    EXPECT_STREQ(__libtesh_get_feature_name(25), "AVX512F");
    EXPECT_STREQ(__libtesh_get_feature_name(33), "AVX512ER");
    EXPECT_STREQ(__libtesh_get_feature_name(108), "MONITORLESS_MWAIT");
    EXPECT_EQ(__libtesh_get_feature_name(109), nullptr);
    EXPECT_EQ(__libtesh_get_feature_name(-1), nullptr);
    struct {
        int row, bit;
    } const bits[] = {{0, -1},  {1, 0},   {16, 16}, {17, 15},   {25, 27},  {26, 24}, {32, -1},
                      {33, 32}, {57, 56}, {58, 60}, {108, 113}, {109, -1}, {-1, -1}};
    for (const auto &row : bits)
        EXPECT_EQ(__libtesh_get_feature_bitpos(row.row), row.bit) << row.row;
    EXPECT_EQ(__libtesh_isa_info_initialized, 1);
}

TEST(feature_table, masks)
{
    uint64_t mask[2] = {0, 0};
    EXPECT_EQ(__libtesh_set_cpu_feature(mask, 16), 0);
    EXPECT_EQ(__libtesh_set_cpu_feature(mask, 108), 0);
    EXPECT_EQ(mask[0], uint64_t{1} << 16);
    EXPECT_EQ(mask[1], uint64_t{1} << (113 - 64));
    EXPECT_EQ(__libtesh_get_cpu_feature(mask, 16), 1);
    EXPECT_EQ(__libtesh_get_cpu_feature(mask, 17), 0);
    EXPECT_EQ(__libtesh_get_cpu_feature(mask, 108), 1);
    EXPECT_EQ(__libtesh_get_cpu_feature(mask, 0), -1);
    EXPECT_EQ(__libtesh_set_cpu_feature(mask, 32), -1);
    EXPECT_EQ(mask[0], uint64_t{1} << 16);
}

// ---- ORVAN_ISA_DISABLE ----
namespace
{
std::string report(const std::string &profile, const std::string &disabled, const char *argument = "all")
{
    const auto child = tesh_test::run_program(
        {TESH_BUILD_DIR "/tests/frame_child_census", argument},
        {{"ORVAN_ISA_DISABLE", disabled}, {"TESH_VCPU_PROFILE", vcpu_text(tesh_test::profile_named(profile))}});
    EXPECT_EQ(child.exit_code, 0) << child.out << child.err;
    return child.out;
}

struct census_report {
    unsigned long long low = 0, high = 0;
    int stored = -1, fine = -1;
};
census_report census(const std::string &profile, const std::string &disabled)
{
    census_report r;
    EXPECT_EQ(std::sscanf(report(profile, disabled).c_str(), "%llx %llx %d %d", &r.low, &r.high, &r.stored, &r.fine),
              4);
    return r;
}
} // namespace

TEST(isa_disable, avx512f_clears_one_bit_and_leaves_avx2)
{
    const census_report all = census("avx512_e5", ""), less = census("avx512_e5", "avx512f");
    EXPECT_EQ(all.stored, 7);
    EXPECT_EQ(all.low ^ less.low, 1ull << 27);
    EXPECT_EQ(all.high, less.high);
    EXPECT_EQ(less.stored, 5);
    EXPECT_EQ(less.fine, 15);
}

TEST(isa_disable, commas_in_a_row_are_skipped)
{
    const census_report all = census("avx512_e5", ""), less = census("avx512_e5", ",,avx2,");
    EXPECT_EQ(all.low ^ less.low, 1ull << 23);
    EXPECT_EQ(less.stored, 3);
    EXPECT_EQ(census("avx512_e5", "avx2,,,sse4,").low ^ all.low, 1ull << 23 | 1ull << 10);
}

TEST(isa_disable, the_baseline_and_unknown_names_change_nothing)
{
    const std::string all = report("avx512_e5", "");
    for (const char *list : {"generic_x86", "nothing", ",", ",,,", "AVX2", "avx2 ", " avx2", "avx", "avx2x", "hcxni",
                             "HCXNI", "generic_x86,nothing", "avx;avx2"}) {
        if (std::string(list) == "avx")
            EXPECT_NE(report("avx512_e5", list), all);
        else
            EXPECT_EQ(report("avx512_e5", list), all) << list;
    }
}

TEST(isa_disable, special_spellings)
{
    struct {
        const char *name;
        int bit;
    } const rows[] = {{"sse4.1", 9},       {"sse4", 10},     {"pclmul", 13},   {"avx512vnni", 48}, {"avx512_bf16", 68},
                      {"avx512_fp16", 60}, {"amx-tile", 71}, {"avx_vnni", 70}, {"amx-fp16", 84},   {"f16c", 15}};
    const census_report all = census("avx512_e5", "");
    for (const auto &row : rows) {
        const census_report less = census("avx512_e5", row.name);
        EXPECT_EQ(all.low ^ less.low, row.bit < 64 ? 1ull << row.bit : 0) << row.name;
        EXPECT_EQ(all.high ^ less.high, row.bit < 64 ? 0 : 1ull << (row.bit - 64)) << row.name;
    }
    for (const char *plain : {"sse4_1", "sse4_2", "pclmulqdq", "avx512_vnni", "avx512bf16"})
        EXPECT_EQ(report("avx512_e5", plain), report("avx512_e5", "")) << plain;
}

TEST(isa_disable, lower_case_names_of_the_table)
{
    const std::map<std::string, std::string> special = {{"SSE4_1", "sse4.1"},
                                                        {"SSE4_2", "sse4"},
                                                        {"PCLMULQDQ", "pclmul"},
                                                        {"RDRND", "rdrnd"},
                                                        {"AVX512IFMA52", "avx512ifma"},
                                                        {"AVX512_4FMAPS", "avx5124fmaps"},
                                                        {"AVX512_4VNNIW", "avx5124vnniw"},
                                                        {"AVX512_VPOPCNTDQ", "avx512vpopcntdq"},
                                                        {"AVX512_BITALG", "avx512bitalg"},
                                                        {"AVX512_VBMI2", "avx512vbmi2"},
                                                        {"AVX512_VNNI", "avx512vnni"},
                                                        {"AVX512_VP2INTERSECT", "avx512vp2intersect"},
                                                        {"AVX_VNNI_INT8", "avxvnniint8"},
                                                        {"AVX_IFMA", "avxifma"},
                                                        {"AVX_NE_CONVERT", "avxneconvert"},
                                                        {"RAO_INT", "raoint"},
                                                        {"AVX_VNNI_INT16", "avxvnniint16"},
                                                        {"USER_MSR", "usermsr"},
                                                        {"AVX_10_1", "avx10.1"},
                                                        {"AVX_10_2", "avx10.2"}};
    for (const feature_row &row : proc_info_features) {
        if (row.name == nullptr || std::string(row.name) == "HCXNI") {
            EXPECT_EQ(row.lower_name, nullptr);
            continue;
        }
        std::string expected = row.name;
        for (char &letter : expected)
            letter = static_cast<char>(std::tolower(letter));
        const auto found = special.find(row.name);
        EXPECT_EQ(row.lower_name, found == special.end() ? expected : found->second);
    }
}

TEST(isa_disable, reaches_both_indicators_of_the_vendor_checking_form)
{
    unsigned long long w[4];
    ASSERT_EQ(std::sscanf(report("avx2", "fma", "vendor").c_str(), "%llx %llx %llx %llx", &w[0], &w[1], &w[2], &w[3]),
              4);
    EXPECT_EQ(w[0], w[2]);
    EXPECT_EQ(w[1], w[3]);
    EXPECT_EQ(w[0] & 1u << 18, 0u);
    EXPECT_NE(w[0] & 1u << 23, 0u);
}

TEST(isa_disable, a_list_beyond_its_buffer_is_cut)
{
    const census_report all = census("avx512_e5", "");
    EXPECT_EQ(census("avx512_e5", std::string(507, ',') + "avx2").low ^ all.low, 1ull << 23);
    EXPECT_EQ(census("avx512_e5", std::string(508, ',') + "avx2").low ^ all.low, 1ull << 16) << "what is left is avx";
    EXPECT_EQ(census("avx512_e5", std::string(511, ',') + "avx2").low, all.low);
}

// ---- Registers ----
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
namespace
{
// Seven registers of 64 bytes and two masks, or all sixteen of 16 bytes: filled from in, then the census, then stored
// to out, one behind the other.
__asm__(R"(
    .text
    .type census_with_zmm, @function
census_with_zmm:
    pushq %rsi
    vmovdqu64 0(%rdi), %zmm0
    vmovdqu64 64(%rdi), %zmm1
    vmovdqu64 128(%rdi), %zmm7
    vmovdqu64 192(%rdi), %zmm8
    vmovdqu64 256(%rdi), %zmm15
    vmovdqu64 320(%rdi), %zmm16
    vmovdqu64 384(%rdi), %zmm31
    kmovw 448(%rdi), %k1
    kmovw 450(%rdi), %k7
    call __orvan_tesh_features_init_x
    popq %rsi
    vmovdqu64 %zmm0, 0(%rsi)
    vmovdqu64 %zmm1, 64(%rsi)
    vmovdqu64 %zmm7, 128(%rsi)
    vmovdqu64 %zmm8, 192(%rsi)
    vmovdqu64 %zmm15, 256(%rsi)
    vmovdqu64 %zmm16, 320(%rsi)
    vmovdqu64 %zmm31, 384(%rsi)
    kmovw %k1, 448(%rsi)
    kmovw %k7, 450(%rsi)
    vzeroupper
    ret
    .type census_with_xmm, @function
census_with_xmm:
    pushq %rsi
    movdqu 0(%rdi), %xmm0
    movdqu 16(%rdi), %xmm1
    movdqu 32(%rdi), %xmm2
    movdqu 48(%rdi), %xmm3
    movdqu 64(%rdi), %xmm4
    movdqu 80(%rdi), %xmm5
    movdqu 96(%rdi), %xmm6
    movdqu 112(%rdi), %xmm7
    movdqu 128(%rdi), %xmm8
    movdqu 144(%rdi), %xmm9
    movdqu 160(%rdi), %xmm10
    movdqu 176(%rdi), %xmm11
    movdqu 192(%rdi), %xmm12
    movdqu 208(%rdi), %xmm13
    movdqu 224(%rdi), %xmm14
    movdqu 240(%rdi), %xmm15
    call __orvan_tesh_features_init_x
    popq %rsi
    movdqu %xmm0, 0(%rsi)
    movdqu %xmm1, 16(%rsi)
    movdqu %xmm2, 32(%rsi)
    movdqu %xmm3, 48(%rsi)
    movdqu %xmm4, 64(%rsi)
    movdqu %xmm5, 80(%rsi)
    movdqu %xmm6, 96(%rsi)
    movdqu %xmm7, 112(%rsi)
    movdqu %xmm8, 128(%rsi)
    movdqu %xmm9, 144(%rsi)
    movdqu %xmm10, 160(%rsi)
    movdqu %xmm11, 176(%rsi)
    movdqu %xmm12, 192(%rsi)
    movdqu %xmm13, 208(%rsi)
    movdqu %xmm14, 224(%rsi)
    movdqu %xmm15, 240(%rsi)
    ret
)");
extern "C" void census_with_zmm(const unsigned char *in, unsigned char *out);
extern "C" void census_with_xmm(const unsigned char *in, unsigned char *out);

void expect_registers_kept(void (*take)(const unsigned char *, unsigned char *), std::size_t bytes)
{
    std::vector<unsigned char> in(bytes), out(bytes);
    for (std::size_t i = 0; i < bytes; ++i)
        in[i] = static_cast<unsigned char>(i * 37 + 11);
    take(in.data(), out.data());
    EXPECT_EQ(in, out);
    EXPECT_EQ(__orvan_tesh_feature_indicator_x[0] & 1, 1u);
}
} // namespace

TEST(census_registers, sse_registers_are_kept)
{
    expect_registers_kept(census_with_xmm, 256);
}

TEST(census_registers, avx512_registers_and_masks_are_kept)
{
    if (!tesh_test::machine_has_path("avx512"))
        GTEST_SKIP() << "no AVX-512 on this machine";
    expect_registers_kept(census_with_zmm, 452);
}
#endif
