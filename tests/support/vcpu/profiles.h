// SPDX-License-Identifier: BSD-3-Clause
// The processors that the tests of detection run on, none of which need be there.
#pragma once
#include <string>
#include <vector>

#include "tests/support/vcpu/profile.h"

namespace tesh_test
{
// By name, each level holding those before it:
//   none               SSE2 and no more
//   sse3, ssse3        one of the two
//   sse4_2             SSE3 to SSE4.2
//   sse4_2_aes         the same with AES
//   avx                AVX without AVX2
//   avx2               AVX2, FMA, BMI, LZCNT, PCLMULQDQ, F16C
//   avx2_without_fma   the same less FMA
//   avx2_vnni          avx2 and AVX-VNNI
//   avx512             avx2 and AVX-512 F, CD, BW, DQ, VL
//   avx512_e1          and AVX512-VNNI
//   avx512_e2          and VAES, VPCLMULQDQ
//   avx512_e3          and AVX512-BF16
//   avx512_e4          and AVX512-FP16, AVX-VNNI
//   avx512_e5          and AMX with INT8, BF16, FP16, to be asked for
//   avx10_1, avx10_2   avx512_e5 and AVX10 of that version
//   avx10_2_short      avx2_vnni and AVX10 version 2, without AVX-512
//   no_zmm_state       avx512_e4 on a system that does not save the AVX-512 state
//   no_osxsave         avx2 on a system that saves none of it
//   other_maker        avx512_e5 by another maker
//   amd_zen, amd_bulldozer, amd_barcelona
vcpu_profile profile_named(const std::string &name);
const std::vector<std::string> &profile_names();

void set_vendor(vcpu_profile *profile, const char *twelve_characters);
// The register's bits on or off.
enum vcpu_register { vcpu_eax, vcpu_ebx, vcpu_ecx, vcpu_edx };
void set_bits(vcpu_profile *profile, std::uint32_t leaf, std::uint32_t subleaf, vcpu_register part, std::uint32_t bits);
void clear_bits(vcpu_profile *profile, std::uint32_t leaf, std::uint32_t subleaf, vcpu_register part,
                std::uint32_t bits);
} // namespace tesh_test
