// SPDX-License-Identifier: BSD-3-Clause
// What is asked of CPUID in several places.
#include "frame/service/processor.h"

extern "C" {
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
