// SPDX-License-Identifier: BSD-3-Clause
// The model predicates, each on every profile; the table is worked out by hand. Then the branches that silence them.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "frame/service/processor.h"
#include "frame/tesh_serv.h"
#include "tests/support/detour.h"
#include "tests/support/vcpu/in_process.h"
#include "tests/support/vcpu/profiles.h"

using tesh_test::on_processor;

namespace
{
// In the order of the table's columns.
int32_t has_amx()
{
    return tesh_serv_cpuhasamx(nullptr);
}
struct predicate {
    const char *name;
    int32_t (*ask)();
};
const predicate predicates[] = {
    {"hasash_true", tesh_serv_cpuhasash_true},
    {"hasash", tesh_serv_cpuhasash},
    {"hasbirch", tesh_serv_cpuhasbirch},
    {"iscedar", tesh_serv_cpuiscedar},
    {"iselm", tesh_serv_cpuiselm},
    {"isjunipersse4_2", tesh_serv_cpuisjunipersse4_2},
    {"isjuniperssse3", tesh_serv_cpuisjuniperssse3},
    {"isbulldozer", tesh_serv_cpuisbulldozer},
    {"iszen", tesh_serv_cpuiszen},
    {"isitbarcelona", tesh_serv_cpuisitbarcelona},
    {"isfir", tesh_serv_cpuisfir},
    {"ishazel", tesh_serv_cpuishazel},
    {"islarch", tesh_serv_cpuislarch},
    {"hasavxvnni", tesh_serv_cpuhasavxvnni},
    {"hasf16c", tesh_serv_cpuhasf16c},
    {"hasfp16", tesh_serv_cpuhasfp16},
    {"hasamxfp16", tesh_serv_cpuhasamxfp16},
    {"hasamxfp8", tesh_serv_cpuhasamxfp8},
    {"has256bit_vector", tesh_serv_cpuhas256bit_vector},
    {"has512bit_vector", tesh_serv_cpuhas512bit_vector},
    {"hasamx", has_amx},
};
constexpr std::size_t predicate_count = std::size(predicates);

struct predicate_row {
    const char *profile;
    const char *answers; // a digit per predicate
    int avx10_version, microarchitecture;
};
// clang-format off
const predicate_row predicate_rows[] = {
    // ash_true ash birch | cedar elm | juniper4_2 juniper3 | bulldozer zen barcelona | fir hazel larch |
    // avxvnni f16c fp16 amxfp16 amxfp8 | 256 512 | amx
    {"sse3",             "000" "00" "00" "000" "000" "00000" "00" "0", 0, 0},
    {"ssse3",            "000" "00" "00" "000" "000" "00000" "00" "0", 0, 0},
    {"sse4_2",           "111" "00" "00" "000" "000" "00000" "00" "0", 0, 64},
    {"sse4_2_aes",       "111" "00" "00" "000" "000" "00000" "00" "0", 0, 66},
    {"avx",              "111" "00" "00" "000" "000" "00000" "00" "0", 0, 66},
    {"avx2",             "111" "00" "11" "000" "000" "01000" "00" "0", 0, 0},
    {"avx2_without_fma", "111" "00" "11" "000" "000" "00000" "00" "0", 0, 66},
    {"avx2_vnni",        "111" "00" "11" "000" "000" "11000" "00" "0", 0, 0},
    {"avx512",           "111" "00" "11" "000" "000" "01000" "00" "0", 0, 0},
    {"avx512_e1",        "111" "00" "11" "000" "100" "01000" "00" "0", 0, 0},
    {"avx512_e2",        "111" "00" "11" "000" "110" "01000" "00" "0", 0, 0},
    {"avx512_e3",        "111" "00" "11" "000" "111" "01000" "00" "0", 0, 0},
    {"avx512_e4",        "111" "00" "11" "000" "111" "01100" "00" "0", 0, 0},
    {"avx512_e5",        "111" "00" "11" "000" "111" "01110" "00" "1", 0, 0},
    {"avx10_1",          "111" "00" "11" "000" "111" "01110" "11" "1", 1, 0},
    {"avx10_2",          "111" "00" "11" "000" "111" "01110" "11" "1", 1, 0},
    {"avx10_2_short",    "111" "00" "11" "000" "000" "11000" "10" "0", 0, 0},
    {"no_zmm_state",     "111" "00" "11" "000" "000" "11000" "00" "0", 0, 0},
    {"no_osxsave",       "111" "00" "11" "000" "000" "00000" "00" "0", 0, 66},
    {"other_maker",      "110" "00" "00" "000" "000" "00000" "00" "0", 0, 0},
    {"amd_zen",          "110" "00" "00" "010" "000" "00000" "00" "0", 0, 0},
    {"amd_bulldozer",    "110" "00" "00" "100" "000" "00000" "00" "0", 0, 0},
    {"amd_barcelona",    "000" "00" "00" "001" "000" "00000" "00" "0", 0, 0},
};
// clang-format on

void expect_row(const predicate_row &row)
{
    ASSERT_EQ(std::strlen(row.answers), predicate_count);
    for (int repetition = 0; repetition < 2; ++repetition) {
        for (std::size_t i = 0; i < predicate_count; ++i)
            EXPECT_EQ(predicates[i].ask(), row.answers[i] - '0') << row.profile << " " << predicates[i].name;
        EXPECT_EQ(tesh_serv_get_avx10_version(), row.avx10_version) << row.profile;
        EXPECT_EQ(tesh_serv_get_microarchitecture(), row.microarchitecture) << row.profile;
    }
}

void expect(const char *profile, const std::map<std::string, std::string> &environment, int32_t (*ask)(), int answer)
{
    on_processor(profile, environment, [&] {
        EXPECT_EQ(ask(), answer) << profile << " " << (environment.empty() ? "" : environment.begin()->second.c_str());
    });
}
} // namespace

TEST(predicates, every_profile)
{
    for (const predicate_row &row : predicate_rows) {
        const auto child = on_processor(row.profile, {}, [&] { expect_row(row); });
        EXPECT_EQ(child.out + child.err, "") << row.profile;
    }
}

TEST(predicates, auto_is_as_good_as_off_but_for_the_microarchitecture)
{
    for (predicate_row row : predicate_rows) {
        if (row.microarchitecture == 66)
            row.microarchitecture = 64;
        on_processor(row.profile, {{"TESH_CBWR", "AUTO"}}, [&] { expect_row(row); });
    }
}

TEST(predicates, ash_and_birch_follow_a_named_branch)
{
    struct {
        const char *branch;
        int ash, birch;
    } const rows[] = {{"COMPATIBLE", 0, 0}, {"SSE2", 0, 0}, {"SSE4_1", 1, 0}, {"SSE4_2", 1, 1}, {"AVX2", 1, 1}};
    for (const auto &row : rows) {
        expect("avx2", {{"TESH_CBWR", row.branch}}, tesh_serv_cpuhasash, row.ash);
        expect("avx2", {{"TESH_CBWR", row.branch}}, tesh_serv_cpuhasbirch, row.birch);
        expect("avx2", {{"TESH_CBWR", row.branch}}, tesh_serv_cpuhasash_true, 1);
    }
}

TEST(predicates, a_named_branch_silences_the_models)
{
    for (const char *branch : {"COMPATIBLE", "AUTO"}) {
        const int kept = branch[0] == 'A';
        expect("amd_zen", {{"TESH_CBWR", branch}}, tesh_serv_cpuiszen, kept);
        expect("amd_bulldozer", {{"TESH_CBWR", branch}}, tesh_serv_cpuisbulldozer, kept);
        expect("amd_barcelona", {{"TESH_CBWR", branch}}, tesh_serv_cpuisitbarcelona, kept);
        expect("avx2", {{"TESH_CBWR", branch}}, tesh_serv_cpuisjunipersse4_2, kept);
        expect("avx2", {{"TESH_CBWR", branch}}, tesh_serv_cpuisjuniperssse3, kept);
    }
    expect("avx512_e5", {{"TESH_CBWR", "AVX2"}}, tesh_serv_cpuisfir, 0);
    expect("avx512_e5", {{"TESH_CBWR", "AVX512"}}, tesh_serv_cpuisfir, 0);
    expect("avx512_e5", {{"TESH_CBWR", "AVX512_E1"}}, tesh_serv_cpuisfir, 1);
    expect("avx512_e5", {{"TESH_CBWR", "AVX2"}}, tesh_serv_cpuishazel, 1);
    expect("avx512_e5", {{"TESH_CBWR", "COMPATIBLE"}}, tesh_serv_cpuislarch, 1);
}

TEST(predicates, vector_lengths_follow_the_branch)
{
    struct {
        const char *branch;
        int has256, has512;
    } const rows[] = {{"SSE4_2", 0, 0}, {"AVX2", 1, 0}, {"AVX512", 1, 1}, {"AVX512_E1", 1, 1}, {"AUTO", 1, 1}};
    for (const auto &row : rows) {
        expect("avx10_1", {{"TESH_CBWR", row.branch}}, tesh_serv_cpuhas256bit_vector, row.has256);
        expect("avx10_1", {{"TESH_CBWR", row.branch}}, tesh_serv_cpuhas512bit_vector, row.has512);
    }
    on_processor("avx10_1", {}, [] {
        EXPECT_EQ(tesh_serv_cbwr_set(9), 0);
        EXPECT_EQ(tesh_serv_cpuhas256bit_vector(), 0) << "branches above 9";
    });
    expect("avx10_2_short", {}, tesh_serv_cpuhas512bit_vector, 0);
    expect("avx10_1", {{"TESH_ENABLE_INSTRUCTIONS", "AVX2"}}, tesh_serv_cpuhas256bit_vector, 1);
    expect("avx10_1", {{"TESH_ENABLE_INSTRUCTIONS", "AVX2"}}, tesh_serv_cpuhas512bit_vector, 0);
    expect("avx10_1", {{"TESH_ENABLE_INSTRUCTIONS", "AVX2_E1"}}, tesh_serv_cpuhas512bit_vector, 0);
    expect("avx10_1", {{"TESH_ENABLE_INSTRUCTIONS", "SSE4_2"}}, tesh_serv_cpuhas256bit_vector, 0);
}

TEST(predicates, avx10_version)
{
    const auto version = tesh_serv_get_avx10_version;
    expect("avx10_2", {{"TESH_ENABLE_INSTRUCTIONS", "AVX10"}}, version, 2);
    expect("avx10_2_short", {{"TESH_ENABLE_INSTRUCTIONS", "AVX10"}}, version, 2);
    expect("avx10_1", {{"TESH_ENABLE_INSTRUCTIONS", "AVX10"}}, version, 1);
    expect("avx10_1", {{"TESH_ENABLE_INSTRUCTIONS", "AVX512_E4"}}, version, 0); // fine 14
    expect("avx10_1", {{"TESH_CBWR", "AUTO"}}, version, 1);
    expect("avx10_1", {{"TESH_CBWR", "AVX512_E1"}}, version, 0);
    expect("avx10_2_short", {{"TESH_ENABLE_INSTRUCTIONS", "AVX2"}}, version, 0); // fine 5, AVX10 not asked for
    on_processor("avx10_2", {{"TESH_ENABLE_INSTRUCTIONS", "AVX10"}, {"TESH_CBWR", "AVX10"}},
                 [&] { EXPECT_EQ(version(), 2); });
}

TEST(predicates, avxvnni_under_limits)
{
    expect("avx10_2_short", {{"TESH_ENABLE_INSTRUCTIONS", "AVX10"}}, tesh_serv_cpuhasavxvnni, 1); // fine 5 with AVX10
    expect("avx512_e5", {{"TESH_ENABLE_INSTRUCTIONS", "AVX2_E1"}}, tesh_serv_cpuhasavxvnni, 1);
    expect("avx2_vnni", {{"TESH_ENABLE_INSTRUCTIONS", "AVX2"}}, tesh_serv_cpuhasavxvnni, 0);
}

TEST(predicates, amxfp8_needs_avx10_and_the_bit)
{
    auto profile = tesh_test::profile_named("avx10_2");
    set_bits(&profile, 0x1e, 1, tesh_test::vcpu_eax, 1u << 4);
    on_processor(profile, {{"TESH_ENABLE_INSTRUCTIONS", "AVX10"}}, [] { EXPECT_EQ(tesh_serv_cpuhasamxfp8(), 1); });
    on_processor(profile, {}, [] { EXPECT_EQ(tesh_serv_cpuhasamxfp8(), 0); });
    expect("avx10_2", {{"TESH_ENABLE_INSTRUCTIONS", "AVX10"}}, tesh_serv_cpuhasamxfp8, 0);
    for (const auto ask : {tesh_serv_cpuhasfp16, tesh_serv_cpuhasamxfp16, tesh_serv_cpuislarch, tesh_serv_cpuisfir})
        expect("avx10_2", {{"TESH_ENABLE_INSTRUCTIONS", "AVX10"}}, ask, 1);
}

TEST(predicates, cedar_has_bound_registers_and_no_avx512dq)
{
    auto profile = tesh_test::profile_named("avx2");
    set_bits(&profile, 7, 0, tesh_test::vcpu_ebx, 1u << 14);
    on_processor(profile, {}, [] { EXPECT_EQ(tesh_serv_cpuiscedar(), 0) << "the state is not saved"; });
    profile.xcr0 |= 0x18;
    on_processor(profile, {}, [] { EXPECT_EQ(tesh_serv_cpuiscedar(), 1); });
    on_processor(profile, {{"TESH_CBWR", "AVX2"}}, [] { EXPECT_EQ(tesh_serv_cpuiscedar(), 0); });
    tesh_test::set_vendor(&profile, "AnotherMaker");
    on_processor(profile, {}, [] { EXPECT_EQ(tesh_serv_cpuiscedar(), 1) << "no question of the vendor"; });
    profile = tesh_test::profile_named("avx512");
    set_bits(&profile, 7, 0, tesh_test::vcpu_ebx, 1u << 14);
    profile.xcr0 |= 0x18;
    on_processor(profile, {}, [] { EXPECT_EQ(tesh_serv_cpuiscedar(), 0); });
}

TEST(predicates, barcelona_is_a_family_with_models_and_steppings)
{
    struct {
        uint32_t signature;
        int answer;
    } const rows[] = {{0x100f42, 1}, {0x100f00, 1}, {0x100fff, 1}, {0xf0100f00u, 1},
                      {0x200f42, 0}, {0x100e42, 0}, {0x1100f42, 0}};
    for (const auto &row : rows) {
        auto profile = tesh_test::profile_named("amd_barcelona");
        vcpu_registers(&profile, 1, 0)[0] = row.signature;
        on_processor(profile, {}, [&] { EXPECT_EQ(tesh_serv_cpuisitbarcelona(), row.answer) << row.signature; });
    }
}

TEST(predicates, bulldozer_needs_the_extended_leaf)
{
    auto profile = tesh_test::profile_named("amd_bulldozer");
    vcpu_registers(&profile, 0x80000000u, 0)[0] = 0x80000000u;
    on_processor(profile, {}, [] { EXPECT_EQ(tesh_serv_cpuisbulldozer(), 0); });
}

// ---- Matrix tiles ----
namespace
{
void expect_amx(const tesh_test::vcpu_profile &profile, const char *limit, int answer)
{
    on_processor(profile, {{"TESH_ENABLE_INSTRUCTIONS", limit}}, [&] {
        tesh_serv_amx_record record;
        std::memset(&record, 0x55, sizeof record);
        EXPECT_EQ(tesh_serv_cpuhasamx(&record), answer);
        for (const int32_t flag :
             {record.amx_tile, record.amx_int8, record.amx_bf16, record.amx_fp16, record.amx_fp8}) {
            if (answer == 0)
                EXPECT_EQ(flag, 0);
            else
                EXPECT_TRUE(flag == 0 || flag == 1) << flag;
        }
        EXPECT_EQ(tesh_serv_cpuhasamx(nullptr), answer);
    });
}
} // namespace

TEST(amx, record_of_a_processor_with_tiles)
{
    for (const char *limit : {"", "AVX512_E4"}) { // fine 16 and 14
        on_processor("avx512_e5", {{"TESH_ENABLE_INSTRUCTIONS", limit}}, [] {
            EXPECT_EQ(tesh_serv_cpuhasamx(nullptr), 1);
            tesh_serv_amx_record r;
            EXPECT_EQ(tesh_serv_cpuhasamx(&r), 1);
            EXPECT_EQ(r.amx_tile, 1);
            EXPECT_EQ(r.amx_int8, 1);
            EXPECT_EQ(r.amx_bf16, 1);
            EXPECT_EQ(r.amx_fp16, 1);
            EXPECT_EQ(r.amx_fp8, 0);
            EXPECT_EQ(r.max_palette, 1);
            EXPECT_EQ(r.total_tile_bytes, 8192);
            EXPECT_EQ(r.bytes_per_tile, 1024);
            EXPECT_EQ(r.bytes_per_row, 64);
            EXPECT_EQ(r.max_names, 8);
            EXPECT_EQ(r.max_rows, 16);
            EXPECT_EQ(r.tmul_maxk, 16);
            EXPECT_EQ(r.tmul_maxn, 64);
        });
    }
}

TEST(amx, record_takes_whole_fields)
{
    auto profile = tesh_test::profile_named("avx512_e5");
    struct {
        uint32_t leaf, subleaf;
        tesh_test::vcpu_register part;
        uint32_t bits;
    } const rows[] = {{0x1d, 0, tesh_test::vcpu_eax, 0x89abcdef},
                      {0x1d, 1, tesh_test::vcpu_eax, 0xfedc8765},
                      {0x1d, 1, tesh_test::vcpu_ebx, 0xabcdefa9},
                      {0x1d, 1, tesh_test::vcpu_ecx, 0x1234f0e1},
                      {0x1e, 0, tesh_test::vcpu_ebx, 0x7698badc}};
    for (const auto &row : rows) {
        clear_bits(&profile, row.leaf, row.subleaf, row.part, ~0u);
        set_bits(&profile, row.leaf, row.subleaf, row.part, row.bits);
    }
    on_processor(profile, {}, [] {
        tesh_serv_amx_record r;
        EXPECT_EQ(tesh_serv_cpuhasamx(&r), 1);
        EXPECT_EQ(static_cast<uint32_t>(r.max_palette), 0x89abcdefu);
        EXPECT_EQ(r.total_tile_bytes, 0x8765);
        EXPECT_EQ(r.bytes_per_tile, 0xfedc);
        EXPECT_EQ(r.bytes_per_row, 0xefa9);
        EXPECT_EQ(r.max_names, 0xabcd);
        EXPECT_EQ(r.max_rows, 0xf0e1);
        EXPECT_EQ(r.tmul_maxk, 0xdc);
        EXPECT_EQ(r.tmul_maxn, 0x98ba);
    });
}

TEST(amx, needs_the_fine_number)
{
    const auto profile = tesh_test::profile_named("avx512_e5");
    expect_amx(profile, "", 1);
    expect_amx(profile, "AVX512_E4", 1);
    for (const char *limit : {"AVX512_E3", "AVX512", "AVX2", "SSE4_2"})
        expect_amx(profile, limit, 0);
    expect_amx(tesh_test::profile_named("other_maker"), "", 0);
    expect_amx(tesh_test::profile_named("avx10_2"), "AVX10", 1);
}

TEST(amx, needs_tiles_and_a_product)
{
    auto profile = tesh_test::profile_named("avx512_e5");
    clear_bits(&profile, 7, 0, tesh_test::vcpu_edx, 1u << 24);
    expect_amx(profile, "", 0);
    profile = tesh_test::profile_named("avx512_e5");
    clear_bits(&profile, 7, 0, tesh_test::vcpu_edx, 1u << 22 | 1u << 25);
    clear_bits(&profile, 7, 1, tesh_test::vcpu_eax, 1u << 21);
    expect_amx(profile, "", 0); // fine 14, tiles without products
    set_bits(&profile, 0x1e, 1, tesh_test::vcpu_eax, 1u << 4);
    expect_amx(profile, "", 1); // FP8 alone
    set_bits(&profile, 7, 0, tesh_test::vcpu_edx, 1u << 22);
    clear_bits(&profile, 0x1e, 1, tesh_test::vcpu_eax, 1u << 4);
    expect_amx(profile, "", 1); // BF16 alone
}

TEST(amx, needs_the_systems_permission)
{
    auto profile = tesh_test::profile_named("avx512_e5");
    profile.grantable = 0;
    expect_amx(profile, "", 0); // asked and refused
    profile.permitted |= 1u << 18;
    expect_amx(profile, "", 1); // there already
    profile.refuse_arch_prctl = true;
    expect_amx(profile, "", 0); // no such call
}

namespace
{
// A system that refuses the request and yet shows the permission from then on.
int64_t contradictory_system(int64_t code, uint64_t argument)
{
    constexpr int64_t ask_for = 0x1023;
    static uint64_t components = 0;
    if (code == ask_for) {
        components = 1u << 18;
        return -1;
    }
    *reinterpret_cast<uint64_t *>(argument) = components;
    return 0;
}
} // namespace

TEST(amx, needs_a_request_that_succeeds)
{
    on_processor("avx512_e5", {}, [] {
        tesh_test::detour(processor_arch_prctl, contradictory_system);
        EXPECT_EQ(tesh_serv_cpuhasamx(nullptr), 0);
    });
}

TEST(amx, many_threads_get_one_answer)
{
    on_processor("avx512_e5", {}, [] {
        std::vector<std::thread> threads;
        std::vector<tesh_serv_amx_record> records(8);
        for (auto &record : records)
            threads.emplace_back([&record] { EXPECT_EQ(tesh_serv_cpuhasamx(&record), 1); });
        for (auto &thread : threads)
            thread.join();
        for (const auto &record : records)
            EXPECT_EQ(record.max_rows, 16);
    });
}
