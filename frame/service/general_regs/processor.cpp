// SPDX-License-Identifier: BSD-3-Clause
// CPUID, XGETBV and the arch_prctl system call, each in one place.
#include "frame/service/processor.h"

#include <sys/syscall.h>

extern "C" {
void processor_cpuid(uint32_t leaf, uint32_t subleaf, cpuid_answer *answer)
{
    __asm__ volatile("cpuid"
                     : "=a"(answer->eax), "=b"(answer->ebx), "=c"(answer->ecx), "=d"(answer->edx)
                     : "a"(leaf), "c"(subleaf));
}

uint64_t processor_xcr0(void)
{
    uint32_t low, high;
    __asm__ volatile("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
    return uint64_t{high} << 32 | low;
}

int64_t processor_arch_prctl(int64_t code, uint64_t argument)
{
    int64_t result;
    __asm__ volatile("syscall"
                     : "=a"(result)
                     : "a"(int64_t{SYS_arch_prctl}), "D"(code), "S"(argument)
                     : "rcx", "r11", "memory");
    return result;
}

void processor_cpuid_listed(uint32_t leaf, uint32_t subleaf, cpuid_answer *answer)
{
    const uint32_t first_of_range = leaf & 0x80000000u;
    processor_cpuid(first_of_range, 0, answer);
    bool listed = answer->eax >= leaf && (answer->eax & 0x80000000u) == first_of_range;
    if (listed && leaf == 7 && subleaf > 0) {
        processor_cpuid(leaf, 0, answer); // EAX is the last sub-leaf
        listed = answer->eax >= subleaf;
    }
    if (listed) {
        processor_cpuid(leaf, subleaf, answer);
        return;
    }
    answer->eax = answer->ebx = answer->ecx = answer->edx = 0;
}

int32_t processor_vendor_is(const char *vendor)
{
    cpuid_answer leaf0;
    processor_cpuid(0, 0, &leaf0);
    const uint32_t words[3] = {leaf0.ebx, leaf0.edx, leaf0.ecx}; // the order in which they spell the text
    for (int i = 0; i < 12; ++i) {
        if (static_cast<char>(words[i / 4] >> (i % 4 * 8)) != vendor[i])
            return 0;
    }
    return 1;
}
}
