// SPDX-License-Identifier: BSD-3-Clause
// Detection and binding on processors that need not be there: every profile, under every instruction limit and every
// reproducibility name, each in a process of its own. Fine numbers and best branches are tables worked out by hand.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "frame/service/dispatch.h"
#include "frame/tesh_serv.h"
#include "tests/support/child.h"
#include "tests/support/vcpu/in_process.h"
#include "tests/support/vcpu/profiles.h"

namespace
{
constexpr char warning_avx[] =
    "Orvan Tesh WARNING: Support of Orvan(R) Advanced Vector Extensions (Orvan(R) AVX) enabled only "
    "processors has been deprecated. Orvan Tesh Numeric Library will use Orvan(R) Streaming SIMD "
    "Extensions 4.2 (Orvan(R) SSE4.2) instructions instead.\n";
constexpr char warning_ssse3[] =
    "Orvan Tesh WARNING: Support of Orvan(R) Supplemental Streaming SIMD Extensions 3 (Orvan(R) SSSE3) enabled only "
    "processors has been deprecated. Orvan Tesh Numeric Library will use Orvan(R) Streaming SIMD 2 Extensions "
    "(Orvan(R) SSE2) instructions instead.\n";
constexpr char below_minimum[] =
    "Orvan Tesh FATAL ERROR: This system does not meet the minimum requirements for use of the Orvan(R) Tesh Numeric "
    "Library.\n"
    "The processor must support the Orvan(R) Streaming SIMD 3 Extensions (Orvan(R) SSE3) instructions.\n";
constexpr char unsupported_17[] = "Orvan Tesh ERROR: CPU 17 is not supported.\n";

// The limits, in the order of the table's columns.
const char *const limits[] = {"",          "SSE4_2",    "AVX",       "AVX2",    "AVX512",    "AVX512_E1",
                              "AVX512_E2", "AVX512_E3", "AVX512_E4", "AVX2_E1", "AVX512_E5", "AVX10"};
constexpr int limit_count = 12;
enum column { no_limit, sse4_2, avx, avx2, avx512, e1, e2, e3, e4, avx2_e1, e5, avx10 };

// The fine number of each profile under each limit; -1: the process ends with code 1. A limit that the processor does
// not have is no limit. no_zmm_state: BF16 and FP16 are asked of CPUID alone, so that their limits apply there,
// and leave AVX2.
struct profile_row {
    const char *name;
    bool maker;
    int fine[limit_count];
};
// clang-format off
const profile_row profiles[] = {
    //                         none SSE42 AVX AVX2 A512  E1  E2  E3  E4 A2E1  E5 AVX10
    {"none",             true,  {-1,  -1, -1,  -1,  -1, -1, -1, -1, -1,  -1, -1,  -1}},
    {"sse3",             true,  { 0,   0,  0,   0,   0,  0,  0,  0,  0,   0,  0,   0}},
    {"ssse3",            true,  { 0,   0,  0,   0,   0,  0,  0,  0,  0,   0,  0,   0}},
    {"sse4_2",           true,  { 3,   3,  3,   3,   3,  3,  3,  3,  3,   3,  3,   3}},
    {"sse4_2_aes",       true,  { 3,   3,  3,   3,   3,  3,  3,  3,  3,   3,  3,   3}},
    {"avx",              true,  { 3,   3,  3,   3,   3,  3,  3,  3,  3,   3,  3,   3}},
    {"avx2",             true,  { 5,   3,  3,   5,   5,  5,  5,  5,  5,   5,  5,   5}},
    {"avx2_without_fma", true,  { 3,   3,  3,   3,   3,  3,  3,  3,  3,   3,  3,   3}},
    {"avx2_vnni",        true,  {15,   3,  3,   5,  15, 15, 15, 15, 15,  15, 15,  15}},
    {"avx512",           true,  { 7,   3,  3,   5,   7,  7,  7,  7,  7,   7,  7,   7}},
    {"avx512_e1",        true,  { 9,   3,  3,   5,   7,  9,  9,  9,  9,   9,  9,   9}},
    {"avx512_e2",        true,  {10,   3,  3,   5,   7,  9, 10, 10, 10,  10, 10,  10}},
    {"avx512_e3",        true,  {12,   3,  3,   5,   7,  9, 10, 12, 12,  12, 12,  12}},
    {"avx512_e4",        true,  {14,   3,  3,   5,   7,  9, 10, 12, 14,  15, 14,  14}},
    {"avx512_e5",        true,  {16,   3,  3,   5,   7,  9, 10, 12, 14,  15, 16,  16}},
    {"avx10_1",          true,  {16,   3,  3,   5,   7,  9, 10, 12, 14,  15, 16,  16}},
    {"avx10_2",          true,  {16,   3,  3,   5,   7,  9, 10, 12, 14,  15, 16,  17}},
    {"avx10_2_short",    true,  {15,   3,  3,   5,  15, 15, 15, 15, 15,  15, 15,   5}},
    {"no_zmm_state",     true,  {15,   3,  3,   5,  15, 15, 15,  5,  5,  15, 15,  15}},
    {"no_osxsave",       true,  { 3,   3,  3,   3,   3,  3,  3,  3,  3,   3,  3,   3}},
    {"other_maker",      false, { 0,   0,  0,   0,   0,  0,  0,  0,  0,   0,  0,   0}},
    {"amd_zen",          false, { 0,   0,  0,   0,   0,  0,  0,  0,  0,   0,  0,   0}},
    {"amd_bulldozer",    false, { 0,   0,  0,   0,   0,  0,  0,  0,  0,   0,  0,   0}},
    {"amd_barcelona",    false, { 0,   0,  0,   0,   0,  0,  0,  0,  0,   0,  0,   0}},
};
// clang-format on

// Per fine number: the type it is stored as and the highest branch.
struct fine_row {
    int stored, best_branch;
};
const std::map<int, fine_row> fines = {{0, {0, 4}},   {3, {3, 8}},   {5, {5, 10}},  {7, {7, 12}},
                                       {9, {7, 14}},  {10, {7, 14}}, {12, {7, 14}}, {14, {7, 14}},
                                       {15, {5, 10}}, {16, {7, 14}}, {17, {17, 15}}};

// The names, the branch they ask for, and the type that branch stands for. Case counts; the last two are no names.
struct name_row {
    const char *text;
    int branch, type, vml_type;
};
const name_row names[] = {
    {"", 1, -1, -1},         {"AUTO", 2, -1, -1},   {"COMPATIBLE", 3, 0, 2},     {"SSE2", 4, 0, 0},
    {"SSE3", 4, 0, 0},       {"SSSE3", 4, 0, 0},    {"SSE4_1", 7, 0, 0},         {"SSE4_2", 8, 3, 5},
    {"AVX", 8, 3, 5},        {"AVX2", 10, 5, 7},    {"AVX512_HCX", 10, 5, 7},    {"AVX512", 12, 7, 9},
    {"AVX512_E1", 14, 7, 9}, {"AVX10", 15, 17, 19}, {"AVX512_HCX_E1", 10, 5, 7}, {"avx2", 2, -1, -1},
    {"SSE4.2", 2, -1, -1},
};

// Families of the test's own: their members say which row was bound.
int blas_row_that_ran = -1, table_row_that_ran = -1;
template <int row> void blas_member()
{
    blas_row_that_ran = row;
}
template <int row> void table_member()
{
    table_row_that_ran = row;
}
using member_fn = void();
member_fn *blas_address = nullptr;
member_fn *table_address = nullptr;
constexpr member_fn *blas_members[dispatch_path_count] = {blas_member<0>, blas_member<1>, blas_member<2>,
                                                          blas_member<3>, blas_member<4>};
constexpr member_fn *table_members[dispatch_path_count] = {table_member<0>, table_member<1>, table_member<2>,
                                                           table_member<3>, table_member<4>};

struct answers {
    int type_before, setting, fine, auto_branch, stored, vml, set_same, set_other, blas_row, table_row;
};

// Asks in a child, in the order of the fields; -9 stands where the child ended before.
struct outcome {
    tesh_test::child_result child;
    answers got;
};

answers *shared_answers()
{
    static answers *page = static_cast<answers *>(
        mmap(nullptr, sizeof(answers), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    return page;
}

void ask_everything(answers *a)
{
    a->type_before = tesh_serv_get_cpu_type(0);
    a->setting = tesh_serv_cbwr_get(-1);
    a->fine = tesh_serv_get_cpu_type(1);
    a->auto_branch = tesh_serv_cbwr_get_auto_branch();
    a->stored = tesh_serv_cpu_detect();
    a->vml = tesh_serv_vml_cpu_detect();
    a->set_same = tesh_serv_cbwr_set(a->setting);
    a->set_other = tesh_serv_cbwr_set(a->setting + 1);
    dispatch<blas_address, blas_members>();
    a->blas_row = blas_row_that_ran;
    dispatch<table_address, table_members, dispatch_choose_table_path>();
    a->table_row = table_row_that_ran;
}

outcome run(const tesh_test::vcpu_profile &profile, const std::map<std::string, std::string> &environment)
{
    answers *a = shared_answers();
    *a = {-9, -9, -9, -9, -9, -9, -9, -9, -9, -9};
    outcome o;
    o.child = tesh_test::run_forked(
        [&] {
            tesh_test::become(profile);
            ask_everything(a);
            return 0;
        },
        environment);
    o.got = *a;
    return o;
}

int row_of_type(int type)
{
    return type == 0   ? dispatch_path_def
           : type == 3 ? dispatch_path_mc3
           : type == 5 ? dispatch_path_avx2
                       : dispatch_path_avx512;
}

// What a run must give. A limit "AVX512" is held against branches by a number of another scale, and wins over the
// branch AVX2 where that is accepted: on AVX-512 processors the AVX-512 path runs then.
void expect(const profile_row &profile, int limit, const name_row &name)
{
    const int fine = profile.fine[limit];
    const outcome o = run(tesh_test::profile_named(profile.name),
                          {{"TESH_ENABLE_INSTRUCTIONS", limits[limit]}, {"TESH_CBWR", name.text}});
    const answers &got = o.got;
    EXPECT_EQ(o.child.err, profile.maker && limit == avx ? warning_avx : "");
    EXPECT_EQ(got.type_before, -1);
    if (fine < 0) {
        EXPECT_EQ(o.child.out, below_minimum);
        EXPECT_EQ(o.child.exit_code, 1);
        EXPECT_EQ(got.fine, -9);
        return;
    }
    const int best = profile.maker ? fines.at(fine).best_branch : 3;
    const int branch = name.branch > best ? 2 : name.branch;
    const bool named = branch >= 3 && !(limit == avx512 && name.branch == 10);
    const int stored = named ? name.type : fines.at(fine).stored;
    EXPECT_EQ(got.setting, branch);
    EXPECT_EQ(got.fine, fine);
    EXPECT_EQ(got.auto_branch, profile.maker ? fines.at(fine).best_branch : 2);
    EXPECT_EQ(got.stored, stored);
    EXPECT_EQ(got.vml, named ? name.vml_type : stored < 2 ? stored : stored + 2);
    EXPECT_EQ(got.set_same, 0);
    EXPECT_EQ(got.set_other, -8);
    if (stored == 17) {
        EXPECT_EQ(o.child.out, unsupported_17);
        EXPECT_EQ(o.child.exit_code, 1);
        EXPECT_EQ(got.blas_row, -9);
        return;
    }
    EXPECT_EQ(o.child.out, "");
    EXPECT_EQ(o.child.exit_code, 0);
    EXPECT_EQ(got.blas_row, stored == 0 && branch != 1 ? dispatch_path_cnr_def : row_of_type(stored));
    EXPECT_EQ(got.table_row, row_of_type(stored));
}

// What the set call answers for a branch where best is the highest of the processor; 0 stands for another maker's.
int set_answer(int best, int branch)
{
    if (branch <= 3)
        return 0;
    const bool between = (best == 12 && branch == 11) || (best == 14 && (branch == 11 || branch == 13));
    return branch > best || between ? -3 : 0;
}

// Asks for every branch before detection, with and without the strict flag.
void expect_set_answers(const profile_row &profile, int limit)
{
    constexpr int strict = 0x10000;
    const int fine = profile.fine[limit];
    const int best = !profile.maker || fine < 0 ? 0 : fines.at(fine).best_branch;
    const bool below = profile.maker && fine < 0; // the first branch that has to be held against the processor is fatal
    const auto child = tesh_test::on_processor(
        profile.name, {{"TESH_ENABLE_INSTRUCTIONS", limits[limit]}},
        [&] {
            for (int branch = 0; branch <= 16; ++branch) {
                const int answer = branch == 16 ? -2 : set_answer(best, branch);
                EXPECT_EQ(tesh_serv_cbwr_set(branch), answer) << branch;
                EXPECT_EQ(tesh_serv_cbwr_set(strict | branch), branch < 2 ? -2 : answer) << branch;
            }
            EXPECT_EQ(tesh_serv_get_cpu_type(0), -1) << "the answers settle nothing";
        },
        below);
    if (below) {
        EXPECT_EQ(child.out, below_minimum);
        return;
    }
    std::string warnings = profile.maker && limit == avx ? warning_avx : "";
    for (const char *warning : {best >= 6 ? warning_ssse3 : "", best >= 9 ? warning_avx : ""})
        warnings += std::string(warning) + warning;
    EXPECT_EQ(child.err, warnings);
    EXPECT_EQ(child.out, "");
}

class dispatch_profiles : public testing::TestWithParam<int>
{
};
} // namespace

TEST_P(dispatch_profiles, every_limit_and_every_reproducibility_name)
{
    const profile_row &profile = profiles[GetParam()];
    for (int limit = 0; limit < limit_count; ++limit) {
        for (const name_row &name : names) {
            SCOPED_TRACE(std::string(profile.name) + " limit=" + limits[limit] + " cbwr=" + name.text);
            expect(profile, limit, name);
        }
    }
}

TEST_P(dispatch_profiles, every_limit_and_every_branch_of_the_set_call)
{
    const profile_row &profile = profiles[GetParam()];
    for (int limit = 0; limit < limit_count; ++limit) {
        SCOPED_TRACE(std::string(profile.name) + " limit=" + limits[limit]);
        expect_set_answers(profile, limit);
    }
}

INSTANTIATE_TEST_SUITE_P(all, dispatch_profiles, testing::Range(0, static_cast<int>(std::size(profiles))),
                         [](const auto &p) { return profiles[p.param].name; });

TEST(dispatch, types_without_kernels_are_fatal)
{
    for (const int32_t type : {2, 4, 6, 8, 9, 10, 15, 16, 17, 32, 1000}) {
        for (const bool of_table : {false, true}) {
            const auto child = tesh_test::run_forked([&] {
                tesh_cpu_type = type;
                of_table ? dispatch<table_address, table_members, dispatch_choose_table_path>()
                         : dispatch<blas_address, blas_members>();
                return 0;
            });
            EXPECT_EQ(child.out, "Orvan Tesh ERROR: CPU " + std::to_string(type) + " is not supported.\n");
            EXPECT_EQ(child.err, "");
            EXPECT_EQ(child.exit_code, 1);
        }
    }
}

TEST(dispatch, an_exit_hook_that_returns_binds_nothing)
{
    const auto child = tesh_test::run_forked([] {
        static int calls = 0;
        tesh_serv_set_exit_handler([](int32_t code) { calls += code; });
        tesh_cpu_type = 2;
        dispatch<blas_address, blas_members>();
        dispatch<table_address, table_members, dispatch_choose_table_path>();
        const bool nothing_ran = blas_row_that_ran == -1 && table_row_that_ran == -1;
        return calls == 2 && nothing_ran && blas_address == nullptr && table_address == nullptr ? 0 : 1;
    });
    EXPECT_EQ(child.exit_code, 0);
}

TEST(dispatch, type_1_is_the_baseline)
{
    const auto child = tesh_test::run_forked(
        [] {
            tesh_cpu_type = 1;
            dispatch<blas_address, blas_members>();
            dispatch<table_address, table_members, dispatch_choose_table_path>();
            return blas_row_that_ran == dispatch_path_def && table_row_that_ran == dispatch_path_def ? 0 : 1;
        },
        {{"TESH_CBWR", ""}});
    EXPECT_EQ(child.exit_code, 0);
}

TEST(dispatch_table, has_every_profile)
{
    std::vector<std::string> listed;
    for (const profile_row &row : profiles)
        listed.emplace_back(row.name);
    EXPECT_EQ(listed, tesh_test::profile_names());
}
