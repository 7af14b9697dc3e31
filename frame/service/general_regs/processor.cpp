// SPDX-License-Identifier: BSD-3-Clause
// CPUID, XGETBV and the arch_prctl system call, each in one place, and in a file of their own: so that they are not
// inlined elsewhere, and a test can put another processor in their place.
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
}
