// SPDX-License-Identifier: BSD-3-Clause
// The questions at the bottom of detection, asked of the real processor and system.
#include <cpuid.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "frame/service/processor.h"

TEST(processor, cpuid_is_the_processors)
{
    uint32_t a, b, c, d;
    __cpuid(0, a, b, c, d);
    cpuid_answer answer;
    processor_cpuid(0, 0, &answer);
    EXPECT_EQ(answer.eax, a);
    EXPECT_EQ(answer.ebx, b);
    EXPECT_EQ(answer.ecx, c);
    EXPECT_EQ(answer.edx, d);
    if (a >= 7) {
        __cpuid_count(7, 0, a, b, c, d);
        processor_cpuid(7, 0, &answer);
        EXPECT_EQ(answer.ebx, b);
        processor_cpuid_listed(7, 0, &answer);
        EXPECT_EQ(answer.ebx, b);
        const uint32_t last_subleaf = a;
        processor_cpuid_listed(7, last_subleaf + 1, &answer);
        EXPECT_EQ(answer.eax | answer.ebx | answer.ecx | answer.edx, 0u);
    }
}

TEST(processor, leaves_that_are_not_listed_are_zeros)
{
    uint32_t basic, extended, b, c, d;
    __cpuid(0, basic, b, c, d);
    __cpuid(0x80000000u, extended, b, c, d);
    for (const uint32_t leaf : {basic + 1, 0x7fffffffu, extended + 1, 0xfffffff0u}) {
        cpuid_answer answer;
        processor_cpuid_listed(leaf, 0, &answer);
        EXPECT_EQ(answer.eax | answer.ebx | answer.ecx | answer.edx, 0u) << leaf;
    }
    cpuid_answer answer;
    processor_cpuid_listed(extended, 0, &answer);
    processor_cpuid_listed(0x80000000u, 0, &answer);
    EXPECT_EQ(answer.eax, extended);
}

TEST(processor, vendor_is_compared_in_all_twelve_characters)
{
    uint32_t a, words[3];
    __cpuid(0, a, words[0], words[2], words[1]);
    char vendor[13] = {};
    std::memcpy(vendor, words, 12);
    EXPECT_EQ(processor_vendor_is(vendor), 1) << vendor;
    for (int i = 0; i < 12; ++i) {
        char other[13];
        std::memcpy(other, vendor, sizeof other);
        other[i] = static_cast<char>(other[i] ^ 1);
        EXPECT_EQ(processor_vendor_is(other), 0) << other;
    }
}

TEST(processor, xcr0_is_the_systems)
{
    uint32_t a, b, c, d;
    __cpuid(1, a, b, c, d);
    if ((c & 1u << 27) == 0)
        GTEST_SKIP() << "no XGETBV on this machine";
    uint32_t low, high;
    __asm__ volatile("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
    EXPECT_EQ(processor_xcr0(), uint64_t{high} << 32 | low);
    EXPECT_EQ(processor_xcr0() & 1, 1u) << "x87 state is always saved";
}

TEST(processor, arch_prctl_is_the_system_call)
{
    constexpr int64_t get_fs = 0x1003, no_such_code = 0x7777;
    uint64_t through_library = 1, through_libc = 2;
    EXPECT_EQ(processor_arch_prctl(get_fs, reinterpret_cast<uint64_t>(&through_library)), 0);
    EXPECT_EQ(syscall(SYS_arch_prctl, get_fs, &through_libc), 0);
    EXPECT_EQ(through_library, through_libc);
    EXPECT_EQ(processor_arch_prctl(no_such_code, 0), -EINVAL);
}

TEST(processor, census_agrees_with_the_published_bits)
{
    const uint64_t features = processor_features();
    EXPECT_EQ(features & 1, 1u);
    uint32_t a, b, c, d;
    ASSERT_TRUE(__get_cpuid(1, &a, &b, &c, &d));
    EXPECT_EQ(has_all(features, feature_sse3), (c & bit_SSE3) != 0);
    EXPECT_EQ(has_all(features, feature_ssse3), (c & bit_SSSE3) != 0);
    EXPECT_EQ(has_all(features, feature_sse4_1), (c & bit_SSE4_1) != 0);
    EXPECT_EQ(has_all(features, feature_sse4_2), (c & bit_SSE4_2) != 0);
    EXPECT_EQ(has_all(features, feature_aes), (c & bit_AES) != 0);
}
