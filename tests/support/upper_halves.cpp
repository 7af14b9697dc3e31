// SPDX-License-Identifier: BSD-3-Clause
// Which register state is in use, by XGETBV.
#include "tests/support/upper_halves.h"

#include <cpuid.h>
#include <cstdint>

#include "tests/support/test_paths.h"

namespace
{
constexpr std::uint32_t upper_halves = 4; // of the 16 lower registers: a component of the processor's state
} // namespace

void tesh_test::clear_upper_halves()
{
    __asm__ volatile("vzeroupper" ::: "memory");
}

bool tesh_test::upper_halves_in_use()
{
    std::uint32_t in_use = 0, high = 0;
    __asm__ volatile("xgetbv" : "=a"(in_use), "=d"(high) : "c"(1) : "memory");
    return (in_use & upper_halves) != 0;
}

bool tesh_test::upper_halves_can_be_seen()
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || !defined(__OPTIMIZE__)
    return false;
#else
    constexpr unsigned tells = 4; // XGETBV with ECX = 1
    unsigned a = 0, b = 0, c = 0, d = 0;
    if (!machine_has_path("avx2") || !__get_cpuid_count(0xd, 1, &a, &b, &c, &d) || (a & tells) == 0)
        return false;
    clear_upper_halves();
    return !upper_halves_in_use(); // an emulator calls everything in use
#endif
}
