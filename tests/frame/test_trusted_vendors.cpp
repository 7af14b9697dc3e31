// SPDX-License-Identifier: BSD-3-Clause
// Other makers' processors that the user trusts (TESH_TRUSTED_VENDORS): they count as the maker's in everything.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "frame/tesh_serv.h"
#include "tests/support/vcpu/in_process.h"
#include "tests/support/vcpu/profiles.h"

using tesh_test::on_processor;

namespace
{
int vendor_answer(const char *profile, const std::string &list)
{
    const auto child = on_processor(profile, {}, [&] {
        setenv("TESH_TRUSTED_VENDORS", list.c_str(), 1); // an empty value, too
        std::printf("%d", TESH_Orvan_CPU_True_Internal());
    });
    EXPECT_EQ(child.err, "");
    return child.out == "1" ? 1 : child.out == "0" ? 0 : -1;
}
} // namespace

TEST(trusted_vendors, unset_and_empty_trust_the_maker_alone)
{
    for (const char *profile : {"avx2", "amd_zen", "other_maker"}) {
        on_processor(profile, {{"TESH_TRUSTED_VENDORS", ""}},
                     [&] { EXPECT_EQ(TESH_Orvan_CPU_True_Internal(), std::string(profile) == "avx2"); });
    }
    EXPECT_EQ(vendor_answer("avx2", ""), 1);
    EXPECT_EQ(vendor_answer("amd_zen", ""), 0);
}

TEST(trusted_vendors, any_trusts_all)
{
    for (const char *list : {"any", " any ", "any,", ",any", "x,any", "NoSuchVendor,  any  ,y"}) {
        EXPECT_EQ(vendor_answer("amd_zen", list), 1) << list;
        EXPECT_EQ(vendor_answer("other_maker", list), 1) << list;
    }
}

TEST(trusted_vendors, one_name_trusts_one_maker)
{
    EXPECT_EQ(vendor_answer("amd_zen", "AuthenticAMD"), 1);
    EXPECT_EQ(vendor_answer("other_maker", "AuthenticAMD"), 0);
    EXPECT_EQ(vendor_answer("other_maker", "AnotherMaker"), 1);
    EXPECT_EQ(vendor_answer("avx2", "AuthenticAMD"), 1) << "the maker is trusted whatever the list says";
}

TEST(trusted_vendors, a_list_trusts_its_members)
{
    for (const char *list : {"AnotherMaker,AuthenticAMD", "AuthenticAMD,AnotherMaker", "  AuthenticAMD  ,  x",
                             "x,,AuthenticAMD", ",,AuthenticAMD,,"})
        EXPECT_EQ(vendor_answer("amd_zen", list), 1) << list;
    EXPECT_EQ(vendor_answer("amd_zen", "AnotherMaker,GenuineOther"), 0);
}

TEST(trusted_vendors, bad_items_are_ignored)
{
    for (const char *list :
         {"AuthenticAM", "AuthenticAMDx", "authenticamd", "Authentic AMD", "ANY", "Any", "any more", "anyany",
          "AuthenticAMD AnotherMaker", ",", ",,,", " ", " , ", "all", "1", "AuthenticAMD;x"})
        EXPECT_EQ(vendor_answer("amd_zen", list), 0) << list;
}

TEST(trusted_vendors, a_list_may_be_as_long_as_a_value_that_can_be_read)
{
    std::string list;
    for (int i = 0; i < 300; ++i)
        list += "AnotherMaker,";
    EXPECT_EQ(vendor_answer("amd_zen", list + "AuthenticAMD"), 1);
    EXPECT_EQ(vendor_answer("amd_zen", std::string(4091, ',') + " any"), 1);
    EXPECT_EQ(vendor_answer("amd_zen", std::string(4092, ',') + " any"), 0);
}

TEST(trusted_vendors, is_read_once_through_the_gate)
{
    on_processor("amd_zen", {}, [] {
        EXPECT_EQ(TESH_Orvan_CPU_True_Internal(), 0);
        EXPECT_EQ(tesh_test::asked(0, 0), 1);
        setenv("TESH_TRUSTED_VENDORS", "any", 1);
        EXPECT_EQ(TESH_Orvan_CPU_True_Internal(), 0);
        EXPECT_EQ(tesh_test::asked(0, 0), 1);
    });
    on_processor("amd_zen", {{"TESH_TRUSTED_VENDORS", "any"}}, [] {
        tesh_serv_set_envmode_variable(1);
        EXPECT_EQ(TESH_Orvan_CPU_True_Internal(), 0);
    });
}

TEST(trusted_vendors, have_the_fine_numbers_of_the_maker)
{
    struct {
        const char *profile;
        int fine, stored, auto_branch;
    } const rows[] = {{"sse3", 0, 0, 4},        {"sse4_2", 3, 3, 8},      {"avx", 3, 3, 8},
                      {"avx2", 5, 5, 10},       {"avx2_vnni", 15, 5, 10}, {"avx512", 7, 7, 12},
                      {"avx512_e1", 9, 7, 14},  {"avx512_e2", 10, 7, 14}, {"avx512_e3", 12, 7, 14},
                      {"avx512_e4", 14, 7, 14}, {"avx512_e5", 16, 7, 14}, {"avx10_2", 16, 7, 14}};
    for (const auto &row : rows) {
        auto profile = tesh_test::profile_named(row.profile);
        tesh_test::set_vendor(&profile, "AuthenticAMD");
        const auto child = on_processor(profile, {{"TESH_TRUSTED_VENDORS", "AuthenticAMD"}}, [&] {
            EXPECT_EQ(tesh_serv_get_cpu_type(1), row.fine) << row.profile;
            EXPECT_EQ(tesh_serv_cbwr_get_auto_branch(), row.auto_branch) << row.profile;
            EXPECT_EQ(tesh_serv_cpu_detect(), row.stored) << row.profile;
        });
        EXPECT_EQ(child.out + child.err, "");
        on_processor(profile, {}, [&] {
            EXPECT_EQ(tesh_serv_get_cpu_type(1), 0) << row.profile;
            EXPECT_EQ(tesh_serv_cbwr_get_auto_branch(), 2) << row.profile;
            EXPECT_EQ(tesh_serv_cpu_detect(), 0) << row.profile;
        });
    }
}

TEST(trusted_vendors, take_limits_branches_and_warnings)
{
    const auto child = on_processor("amd_zen", {{"TESH_TRUSTED_VENDORS", "any"}, {"TESH_CBWR", "AVX2"}}, [] {
        EXPECT_EQ(tesh_serv_cbwr_get(1), 10);
        EXPECT_EQ(tesh_serv_enable_instructions(1), 1);
        EXPECT_EQ(tesh_serv_get_cpu_type(1), 3);
        EXPECT_EQ(tesh_serv_cbwr_set(10), -3);
        EXPECT_EQ(TESH_Orvan_CPU_Internal(), 1);
        EXPECT_EQ(tesh_serv_get_microarchitecture(), 0) << "the branch stands for type 5";
    });
    EXPECT_NE(child.err.find("(Orvan(R) AVX) enabled only processors has been deprecated"), std::string::npos);
}

TEST(trusted_vendors, below_the_minimum_is_fatal_for_them_too)
{
    auto profile = tesh_test::profile_named("none");
    tesh_test::set_vendor(&profile, "AuthenticAMD");
    on_processor(
        profile, {{"TESH_TRUSTED_VENDORS", "any"}}, [] { tesh_serv_cpu_detect(); }, 1);
    on_processor(profile, {}, [] { EXPECT_EQ(tesh_serv_cpu_detect(), 0); });
}

TEST(trusted_vendors, predicates_of_a_named_maker_are_not_touched)
{
    for (const char *list : {"", "any"}) {
        on_processor("amd_zen", {{"TESH_TRUSTED_VENDORS", list}}, [] {
            EXPECT_EQ(tesh_serv_cpuiszen(), 1);
            EXPECT_EQ(tesh_serv_cpuisbulldozer(), 0);
        });
        on_processor("avx2", {{"TESH_TRUSTED_VENDORS", list}}, [] { EXPECT_EQ(tesh_serv_cpuiszen(), 0); });
    }
}

TEST(trusted_vendors, the_census_that_checks_the_vendor_goes_on)
{
    for (const char *list : {"", "any"}) {
        on_processor("amd_zen", {{"TESH_TRUSTED_VENDORS", list}}, [&] {
            const bool trusted = TESH_Orvan_CPU_True_Internal() == 1;
            EXPECT_EQ(trusted, list[0] != 0);
            __orvan_tesh_features_init();
            EXPECT_EQ(__orvan_tesh_feature_indicator[0] == 1, !trusted);
            EXPECT_EQ(__orvan_tesh_feature_indicator_x[0] == 0, !trusted);
        });
    }
}
