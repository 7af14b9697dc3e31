// SPDX-License-Identifier: BSD-3-Clause
// A library built with a list of its own: what an unset TESH_TRUSTED_VENDORS means there. This program brings the one
// file that the list is built into.
#define TESH_TRUSTED_VENDORS_DEFAULT "AuthenticAMD, SiteMachines"
#include "frame/service/general_regs/trusted_vendors.cpp"

#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/support/vcpu/in_process.h"
#include "tests/support/vcpu/profiles.h"

namespace
{
void expect_vendor(const char *vendor, const char *list, int answer)
{
    auto profile = tesh_test::profile_named("avx2");
    tesh_test::set_vendor(&profile, vendor);
    tesh_test::on_processor(profile, {{"TESH_TRUSTED_VENDORS", list}},
                            [&] { EXPECT_EQ(TESH_Orvan_CPU_True_Internal(), answer) << vendor << " " << list; });
}
} // namespace

TEST(trusted_vendors_default, stands_for_an_unset_variable)
{
    expect_vendor("GenuineOrvan", "", 1);
    expect_vendor("AuthenticAMD", "", 1);
    expect_vendor("SiteMachines", "", 1);
    expect_vendor("AnotherMaker", "", 0);
}

TEST(trusted_vendors_default, gives_way_to_a_variable_that_is_set)
{
    expect_vendor("AuthenticAMD", "SiteMachines", 0);
    expect_vendor("AuthenticAMD", "none", 0);
    expect_vendor("AnotherMaker", "AnotherMaker", 1);
    expect_vendor("AnotherMaker", "any", 1);
}

TEST(trusted_vendors_default, gives_way_to_an_empty_variable)
{
    auto profile = tesh_test::profile_named("avx2");
    tesh_test::set_vendor(&profile, "AuthenticAMD");
    tesh_test::on_processor(profile, {}, [] {
        setenv("TESH_TRUSTED_VENDORS", "", 1);
        EXPECT_EQ(TESH_Orvan_CPU_True_Internal(), 0);
    });
    tesh_test::on_processor("avx2", {}, [] {
        setenv("TESH_TRUSTED_VENDORS", "", 1);
        EXPECT_EQ(TESH_Orvan_CPU_True_Internal(), 1);
    });
}

TEST(trusted_vendors_default, stands_for_a_variable_that_is_not_read)
{
    auto profile = tesh_test::profile_named("avx2");
    tesh_test::set_vendor(&profile, "AuthenticAMD");
    tesh_test::on_processor(profile, {{"TESH_TRUSTED_VENDORS", std::string(4096, ',')}},
                            [] { EXPECT_EQ(TESH_Orvan_CPU_True_Internal(), 1) << "too long for its buffer"; });
    tesh_test::on_processor(profile, {{"TESH_TRUSTED_VENDORS", "nobody"}}, [] {
        tesh_serv_set_envmode_variable(1);
        EXPECT_EQ(TESH_Orvan_CPU_True_Internal(), 1) << "not visible";
    });
}

// The census that checks the vendor reads the environment that the program was started with.
TEST(trusted_vendors_default, the_census_tells_empty_from_unset)
{
    auto profile = tesh_test::profile_named("avx2");
    tesh_test::set_vendor(&profile, "AuthenticAMD");
    const std::string child = TESH_BUILD_DIR "/tests/frame_child_trusted_default";
    const std::map<std::string, std::string> unset = {{"TESH_TRUSTED_VENDORS", ""},
                                                      {"TESH_VCPU_PROFILE", vcpu_text(profile)}};
    EXPECT_EQ(tesh_test::run_program({child}, unset).out, "goes on");
    EXPECT_EQ(tesh_test::run_program({"/usr/bin/env", "TESH_TRUSTED_VENDORS=", child}, unset).out, "stops");
    EXPECT_EQ(tesh_test::run_program({"/usr/bin/env", "TESH_TRUSTED_VENDORS=nobody", child}, unset).out, "stops");
}
