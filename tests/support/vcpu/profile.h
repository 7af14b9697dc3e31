// SPDX-License-Identifier: BSD-3-Clause
// A processor that need not be there: what CPUID, XGETBV and the permission calls answer. A profile is plain data, so
// that a signal handler can read it, and has a text form, so that it can be handed to a child process
// (TESH_VCPU_PROFILE).
//
// The text form is a list of items with blanks or line ends between them; numbers in hexadecimal:
//   LEAF[.SUBLEAF]=EAX:EBX:ECX:EDX   a CPUID answer; leaves that are not listed answer zeros
//   vendor=TWELVECHARACTERS          into leaf 0, whose EAX is the highest basic leaf listed
//   xcr0=MASK                        what XGETBV answers
//   permitted=MASK                   the state components that the process may use from the start
//   grantable=MASK                   those that it gets when it asks
//   refuse_arch_prctl                the permission calls do not exist
//   beyond_last_repeats              a leaf beyond the highest answers as the highest does
#pragma once
#include <cstdint>
#include <string>

namespace tesh_test
{
struct vcpu_leaf {
    std::uint32_t leaf, subleaf;
    std::uint32_t registers[4]; // EAX, EBX, ECX, EDX
};

struct vcpu_profile {
    static constexpr int leaf_bound = 40;
    vcpu_leaf leaves[leaf_bound] = {};
    int leaf_count = 0;
    std::uint64_t xcr0 = 0;
    std::uint64_t permitted = 0, grantable = 0; // state components
    bool refuse_arch_prctl = false;
    bool beyond_last_repeats = false;
};

// False where the text is no profile.
bool vcpu_parse(const char *text, vcpu_profile *profile);

std::string vcpu_text(const vcpu_profile &profile);

// The registers of a leaf, made with zeros if it is not there.
std::uint32_t *vcpu_registers(vcpu_profile *profile, std::uint32_t leaf, std::uint32_t subleaf);

// Safe in a signal handler.
void vcpu_cpuid(const vcpu_profile *profile, std::uint32_t leaf, std::uint32_t subleaf, std::uint32_t registers[4]);
// Codes 0x1021 to 0x1025 of arch_prctl; updates permitted.
std::int64_t vcpu_arch_prctl(vcpu_profile *profile, std::int64_t code, std::uint64_t argument);
} // namespace tesh_test
