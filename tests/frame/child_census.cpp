// SPDX-License-Identifier: BSD-3-Clause
// Run by test_census with an environment of its own: becomes the profile in TESH_VCPU_PROFILE, takes the census and
// prints "WORD0 WORD1 STORED_TYPE FINE_NUMBER", the words in hexadecimal. With the argument "vendor", takes the census
// that checks the vendor, and prints both indicators.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "frame/tesh_serv.h"
#include "tests/support/vcpu/in_process.h"

int main(int argc, char **argv)
{
    const char *text = std::getenv("TESH_VCPU_PROFILE");
    tesh_test::vcpu_profile profile;
    if (text == nullptr || !tesh_test::vcpu_parse(text, &profile))
        return 2;
    tesh_test::become(profile);
    const auto word = [](std::uint64_t value) { return static_cast<unsigned long long>(value); };
    if (argc > 1 && std::strcmp(argv[1], "vendor") == 0) {
        __orvan_tesh_features_init();
        std::printf("%llx %llx %llx %llx\n", word(__orvan_tesh_feature_indicator[0]),
                    word(__orvan_tesh_feature_indicator[1]), word(__orvan_tesh_feature_indicator_x[0]),
                    word(__orvan_tesh_feature_indicator_x[1]));
        return 0;
    }
    const int stored = tesh_serv_cpu_detect();
    std::printf("%llx %llx %d %d\n", word(__orvan_tesh_feature_indicator_x[0]),
                word(__orvan_tesh_feature_indicator_x[1]), stored, tesh_serv_get_cpu_type(1));
    return 0;
}
