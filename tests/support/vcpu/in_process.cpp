// SPDX-License-Identifier: BSD-3-Clause
// The library's questions to the processor, answered by a profile.
#include "tests/support/vcpu/in_process.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

#include "frame/service/processor.h"
#include "tests/support/detour.h"
#include "tests/support/vcpu/profiles.h"

namespace
{
tesh_test::vcpu_profile current;

// Counts of the questions, by leaf and sub-leaf in one number. Threads ask at the same time.
constexpr std::uint64_t nothing_yet = ~std::uint64_t(0);
struct question {
    std::atomic<std::uint64_t> leaves = nothing_yet;
    std::atomic<int> count = 0;
};
question questions[64];

std::uint64_t leaves_of(std::uint32_t leaf, std::uint32_t subleaf)
{
    return std::uint64_t(leaf) << 32 | subleaf;
}

void count_question(std::uint32_t leaf, std::uint32_t subleaf)
{
    const std::uint64_t asked = leaves_of(leaf, subleaf);
    for (question &q : questions) {
        std::uint64_t there = nothing_yet;
        if (q.leaves.compare_exchange_strong(there, asked) || there == asked) {
            ++q.count;
            return;
        }
    }
}

void cpuid_of_profile(uint32_t leaf, uint32_t subleaf, cpuid_answer *answer)
{
    count_question(leaf, subleaf);
    std::uint32_t registers[4];
    tesh_test::vcpu_cpuid(&current, leaf, subleaf, registers);
    *answer = {registers[0], registers[1], registers[2], registers[3]};
}

uint64_t xcr0_of_profile()
{
    cpuid_answer leaf1;
    cpuid_of_profile(1, 0, &leaf1);
    if ((leaf1.ecx & 1u << 27) == 0) {
        std::fprintf(stderr, "XGETBV without OSXSAVE\n"); // an undefined instruction there
        std::abort();
    }
    return current.xcr0;
}

int64_t arch_prctl_of_profile(int64_t code, uint64_t argument)
{
    return tesh_test::vcpu_arch_prctl(&current, code, argument);
}
} // namespace

void tesh_test::become(const vcpu_profile &profile)
{
    current = profile;
    detour(processor_cpuid, cpuid_of_profile);
    detour(processor_xcr0, xcr0_of_profile);
    detour(processor_arch_prctl, arch_prctl_of_profile);
}

int tesh_test::asked(std::uint32_t leaf, std::uint32_t subleaf)
{
    int count = 0;
    for (const question &q : questions) {
        if (q.leaves.load() == leaves_of(leaf, subleaf))
            count += q.count.load();
    }
    return count;
}

// Expectations of the running test that failed so far. A child starts with its parent's.
static int failures()
{
    const testing::TestResult &result = *testing::UnitTest::GetInstance()->current_test_info()->result();
    int count = 0;
    for (int i = 0; i < result.total_part_count(); ++i)
        count += result.GetTestPartResult(i).failed();
    return count;
}

tesh_test::child_result tesh_test::on_processor(const vcpu_profile &profile,
                                                const std::map<std::string, std::string> &environment,
                                                const std::function<void()> &body, int exit_code)
{
    constexpr int expectation_failed = 99;
    const child_result result = run_forked(
        [&] {
            const int failed_before = failures();
            become(profile);
            body();
            return failures() > failed_before ? expectation_failed : 0;
        },
        environment);
    EXPECT_EQ(result.exit_code, exit_code) << result.out << result.err;
    EXPECT_EQ(result.signal, 0) << result.out << result.err;
    return result;
}

tesh_test::child_result tesh_test::on_processor(const std::string &profile_name,
                                                const std::map<std::string, std::string> &environment,
                                                const std::function<void()> &body, int exit_code)
{
    SCOPED_TRACE(profile_name);
    return on_processor(profile_named(profile_name), environment, body, exit_code);
}
