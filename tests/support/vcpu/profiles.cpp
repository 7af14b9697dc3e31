// SPDX-License-Identifier: BSD-3-Clause
// The processors, each built on one below it.
#include "tests/support/vcpu/profiles.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace
{
using tesh_test::set_bits;
using tesh_test::vcpu_eax;
using tesh_test::vcpu_ebx;
using tesh_test::vcpu_ecx;
using tesh_test::vcpu_edx;
using tesh_test::vcpu_profile;

constexpr std::uint32_t bit(int n)
{
    return 1u << n;
}

// What every x86-64 processor has, in leaf 1 EDX: FPU, CX8, CMOV, MMX, FXSR, SSE, SSE2.
constexpr std::uint32_t base_edx = bit(0) | bit(8) | bit(15) | bit(23) | bit(24) | bit(25) | bit(26);
constexpr std::uint32_t sse3 = bit(0), pclmulqdq = bit(1), ssse3 = bit(9), fma = bit(12), sse4_1 = bit(19),
                        sse4_2 = bit(20), popcnt = bit(23), aes = bit(25), xsave = bit(26), osxsave = bit(27),
                        avx = bit(28), f16c = bit(29);
constexpr std::uint64_t state_avx = 0x7, state_avx512 = 0xe7, state_amx = 0x60000;

// The levels of one maker's processors, in rising order.
enum level {
    level_none,
    level_sse4_2,
    level_avx,
    level_avx2,
    level_avx512,
    level_e1,
    level_e2,
    level_e3,
    level_e4,
    level_e5,
};

void add_avx512(vcpu_profile *p, level upto)
{
    set_bits(p, 7, 0, vcpu_ebx, bit(16) | bit(17) | bit(28) | bit(30) | bit(31)); // F DQ CD BW VL
    p->xcr0 |= state_avx512;
    if (upto >= level_e1)
        set_bits(p, 7, 0, vcpu_ecx, bit(11)); // AVX512_VNNI
    if (upto >= level_e2)
        set_bits(p, 7, 0, vcpu_ecx, bit(9) | bit(10)); // VAES VPCLMULQDQ
    if (upto >= level_e3)
        set_bits(p, 7, 1, vcpu_eax, bit(5)); // AVX512_BF16
    if (upto >= level_e4) {
        set_bits(p, 7, 0, vcpu_edx, bit(23)); // AVX512_FP16
        set_bits(p, 7, 1, vcpu_eax, bit(4));  // AVX_VNNI
    }
    if (upto >= level_e5) {
        set_bits(p, 7, 0, vcpu_edx, bit(22) | bit(24) | bit(25)); // AMX BF16 TILE INT8
        set_bits(p, 7, 1, vcpu_eax, bit(21));                     // AMX_FP16
        set_bits(p, 0x1d, 0, vcpu_eax, 1);                        // palettes
        set_bits(p, 0x1d, 1, vcpu_eax, 1024u << 16 | 8192u);      // bytes of a tile, of all
        set_bits(p, 0x1d, 1, vcpu_ebx, 8u << 16 | 64u);           // tiles, bytes of a row
        set_bits(p, 0x1d, 1, vcpu_ecx, 16);                       // rows
        set_bits(p, 0x1e, 0, vcpu_ebx, 64u << 8 | 16u);           // bytes of n, rows of k
        p->xcr0 |= state_amx;
        p->permitted = state_avx512 | bit(17);
        p->grantable = bit(18);
    }
}

vcpu_profile make(const char *vendor, level upto)
{
    vcpu_profile p;
    tesh_test::set_vendor(&p, vendor);
    set_bits(&p, 1, 0, vcpu_eax, 0x000806f8);
    set_bits(&p, 1, 0, vcpu_edx, base_edx);
    set_bits(&p, 0x80000001u, 0, vcpu_edx, bit(29)); // 64-bit mode
    p.xcr0 = 3;
    if (upto >= level_sse4_2)
        set_bits(&p, 1, 0, vcpu_ecx, sse3 | ssse3 | sse4_1 | sse4_2 | popcnt);
    if (upto >= level_avx) {
        set_bits(&p, 1, 0, vcpu_ecx, xsave | osxsave | avx | pclmulqdq | aes);
        p.xcr0 |= state_avx;
    }
    if (upto >= level_avx2) {
        set_bits(&p, 1, 0, vcpu_ecx, fma | f16c | bit(22));      // and MOVBE
        set_bits(&p, 7, 0, vcpu_ebx, bit(3) | bit(5) | bit(8));  // BMI1 AVX2 BMI2
        set_bits(&p, 0x80000001u, 0, vcpu_ecx, bit(0) | bit(5)); // LAHF LZCNT
    }
    if (upto >= level_avx512)
        add_avx512(&p, upto);
    return p;
}

void add_avx10(vcpu_profile *p, std::uint32_t version, std::uint32_t lengths)
{
    set_bits(p, 7, 1, vcpu_edx, bit(19));
    set_bits(p, 0x24, 0, vcpu_ebx, version | lengths);
}

constexpr char maker[] = "GenuineOrvan";

vcpu_profile make_amd(const std::string &name)
{
    if (name == "amd_zen") {
        vcpu_profile p = make("AuthenticAMD", level_avx2);
        clear_bits(&p, 1, 0, vcpu_eax, ~0u);
        set_bits(&p, 1, 0, vcpu_eax, 0x00a20f12);
        return p;
    }
    if (name == "amd_bulldozer") {
        vcpu_profile p = make("AuthenticAMD", level_avx);
        clear_bits(&p, 1, 0, vcpu_eax, ~0u);
        set_bits(&p, 1, 0, vcpu_eax, 0x00600f12);
        set_bits(&p, 0x80000001u, 0, vcpu_ecx, bit(0) | bit(5) | bit(6) | bit(11) | bit(16)); // LZCNT SSE4A XOP FMA4
        return p;
    }
    vcpu_profile p = make("AuthenticAMD", level_none);
    clear_bits(&p, 1, 0, vcpu_eax, ~0u);
    set_bits(&p, 1, 0, vcpu_eax, 0x00100f42);
    set_bits(&p, 1, 0, vcpu_ecx, sse3 | popcnt);
    set_bits(&p, 0x80000001u, 0, vcpu_ecx, bit(0) | bit(5) | bit(6)); // LAHF LZCNT SSE4A
    return p;
}

struct named_level {
    const char *name;
    level upto;
};
constexpr named_level plain_levels[] = {
    {"none", level_none},     {"sse4_2", level_sse4_2}, {"avx", level_avx},      {"avx2", level_avx2},
    {"avx512", level_avx512}, {"avx512_e1", level_e1},  {"avx512_e2", level_e2}, {"avx512_e3", level_e3},
    {"avx512_e4", level_e4},  {"avx512_e5", level_e5},
};
constexpr std::uint32_t length_256 = 1u << 17, length_512 = 1u << 18;
} // namespace

const std::vector<std::string> &tesh_test::profile_names()
{
    static const std::vector<std::string> names = {"none",        "sse3",          "ssse3",         "sse4_2",
                                                   "sse4_2_aes",  "avx",           "avx2",          "avx2_without_fma",
                                                   "avx2_vnni",   "avx512",        "avx512_e1",     "avx512_e2",
                                                   "avx512_e3",   "avx512_e4",     "avx512_e5",     "avx10_1",
                                                   "avx10_2",     "avx10_2_short", "no_zmm_state",  "no_osxsave",
                                                   "other_maker", "amd_zen",       "amd_bulldozer", "amd_barcelona"};
    return names;
}

tesh_test::vcpu_profile tesh_test::profile_named(const std::string &name)
{
    for (const named_level &row : plain_levels) {
        if (name == row.name)
            return make(maker, row.upto);
    }
    vcpu_profile p;
    if (name == "sse3" || name == "ssse3") {
        p = make(maker, level_none);
        set_bits(&p, 1, 0, vcpu_ecx, name == "sse3" ? sse3 : ssse3);
    } else if (name == "sse4_2_aes") {
        p = make(maker, level_sse4_2);
        set_bits(&p, 1, 0, vcpu_ecx, aes);
    } else if (name == "avx2_without_fma") {
        p = make(maker, level_avx2);
        clear_bits(&p, 1, 0, vcpu_ecx, fma);
    } else if (name == "avx2_vnni" || name == "avx10_2_short") {
        p = make(maker, level_avx2);
        set_bits(&p, 7, 1, vcpu_eax, bit(4));
        if (name == "avx10_2_short")
            add_avx10(&p, 2, length_256);
    } else if (name == "avx10_1" || name == "avx10_2") {
        p = make(maker, level_e5);
        add_avx10(&p, name == "avx10_1" ? 1 : 2, length_256 | length_512);
    } else if (name == "no_zmm_state") {
        p = make(maker, level_e4);
        p.xcr0 = state_avx;
    } else if (name == "no_osxsave") {
        p = make(maker, level_avx2);
        clear_bits(&p, 1, 0, vcpu_ecx, osxsave);
    } else if (name == "other_maker") {
        p = make("AnotherMaker", level_e5);
    } else if (name.compare(0, 4, "amd_") == 0) {
        p = make_amd(name);
    } else {
        std::fprintf(stderr, "no profile named %s\n", name.c_str());
        std::abort();
    }
    return p;
}

void tesh_test::set_vendor(vcpu_profile *profile, const char *twelve_characters)
{
    std::uint32_t *leaf0 = vcpu_registers(profile, 0, 0);
    std::memcpy(&leaf0[vcpu_ebx], twelve_characters, 4);
    std::memcpy(&leaf0[vcpu_edx], twelve_characters + 4, 4);
    std::memcpy(&leaf0[vcpu_ecx], twelve_characters + 8, 4);
}

void tesh_test::set_bits(vcpu_profile *profile, std::uint32_t leaf, std::uint32_t subleaf, vcpu_register part,
                         std::uint32_t bits)
{
    vcpu_registers(profile, leaf, subleaf)[part] |= bits;
}

void tesh_test::clear_bits(vcpu_profile *profile, std::uint32_t leaf, std::uint32_t subleaf, vcpu_register part,
                           std::uint32_t bits)
{
    vcpu_registers(profile, leaf, subleaf)[part] &= ~bits;
}
