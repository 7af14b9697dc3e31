// SPDX-License-Identifier: BSD-3-Clause
// Run by test_trusted_vendors_default: a library built with a list of its own becomes the profile in TESH_VCPU_PROFILE,
// takes the census that checks the vendor, and prints whether it went beyond the baseline.
#define TESH_TRUSTED_VENDORS_DEFAULT "AuthenticAMD"
#include "frame/service/general_regs/trusted_vendors.cpp"

#include <cstdio>
#include <cstdlib>

#include "tests/support/vcpu/in_process.h"

int main()
{
    const char *text = std::getenv("TESH_VCPU_PROFILE");
    tesh_test::vcpu_profile profile;
    if (text == nullptr || !tesh_test::vcpu_parse(text, &profile))
        return 2;
    tesh_test::become(profile);
    __orvan_tesh_features_init();
    std::printf("%s", __orvan_tesh_feature_indicator[0] == 1 ? "stops" : "goes on");
    return 0;
}
