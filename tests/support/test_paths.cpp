// SPDX-License-Identifier: BSD-3-Clause
// What the machine has, and what the environment asks for.
#include "tests/support/test_paths.h"

#include <cpuid.h>
#include <stdint.h>

#include <cstdio>
#include <cstdlib>

namespace
{
struct machine {
    bool sse42 = false, avx2 = false, avx512 = false;
    machine()
    {
        unsigned a = 0, b = 0, c = 0, d = 0;
        if (!__get_cpuid(1, &a, &b, &c, &d))
            return;
        sse42 = c & (1u << 20);
        const bool fma = c & (1u << 12), osxsave = c & (1u << 27);
        uint32_t xcr0 = 0, high = 0;
        if (osxsave)
            __asm__ volatile("xgetbv" : "=a"(xcr0), "=d"(high) : "c"(0));
        if (!__get_cpuid_count(7, 0, &a, &b, &c, &d))
            return;
        const bool bmi = (b & (1u << 3)) && (b & (1u << 8));
        avx2 = (b & (1u << 5)) && fma && bmi && (xcr0 & 6u) == 6u;
        const uint32_t levels = (1u << 16) | (1u << 17) | (1u << 30) | (1u << 31); // F, DQ, BW, VL
        avx512 = avx2 && (b & levels) == levels && (xcr0 & 0xe6u) == 0xe6u;
    }
};

int test_set()
{
    const char *set = std::getenv("TESH_TEST_SET");
    if (set == nullptr)
        return 0;
    return std::string(set) == "long" ? 2 : std::string(set) == "medium" ? 1 : 0;
}
} // namespace

bool tesh_test::machine_has_path(const std::string &path)
{
    static const machine m;
    if (path == "mc3")
        return m.sse42;
    if (path == "avx2" || path == "def_zen")
        return m.avx2;
    if (path == "avx512")
        return m.avx512;
    return path == "def" || path == "cnr_def";
}

std::vector<std::string> tesh_test::paths_to_run()
{
    const char *only = std::getenv("TESH_TEST_PATH");
    std::vector<std::string> paths;
    for (const char *path : {"def", "cnr_def", "mc3", "avx2", "avx512"}) {
        if (only != nullptr && std::string(only) != path)
            continue;
        if (machine_has_path(path))
            paths.emplace_back(path);
        else
            std::printf("path %s: not on this machine, left out\n", path);
    }
    return paths;
}

bool tesh_test::in_medium_set()
{
    return test_set() >= 1;
}
bool tesh_test::in_long_set()
{
    return test_set() >= 2;
}
