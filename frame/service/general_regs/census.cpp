// SPDX-License-Identifier: BSD-3-Clause
// The census of the processor's instruction sets: CPUID's bits, less those whose registers the system does not save
// (XCR0), less those that ORVAN_ISA_DISABLE takes away. It can run before the C runtime is set up and while the
// caller's vector registers are live: general registers only, no allocation, the environment from the proc file.
#include "frame/service/general_regs/feature_table.h"
#include "frame/service/general_regs/tiny_libc.h"
#include "frame/service/processor.h"

namespace
{
// The registers that hold published bits: leaf, sub-leaf, register.
enum source : uint8_t {
    leaf1_ecx,
    leaf1_edx,
    leaf5_ecx,
    leaf7_ebx,
    leaf7_ecx,
    leaf7_edx,
    leaf7_1_eax,
    leaf7_1_ebx,
    leaf7_1_edx,
    leaf14_ebx,
    leaf19_ebx,
    leaf1e_1_eax,
    ext1_ecx, // leaf 0x80000001
    ext8_ebx, // leaf 0x80000008
    source_count
};

// A feature counts only if its group does.
enum group : uint8_t {
    alone,
    needs_fxsr,   // FXSAVE and FXRSTOR
    needs_avx,    // XCR0 bits 1, 2: XMM and YMM state
    needs_mpx,    // XCR0 bits 3, 4: bound registers
    needs_avx512, // XCR0 bits 1, 2, 5, 6, 7: opmask and ZMM state beside those of AVX
    needs_amx,    // XCR0 bits 17, 18: tile configuration and data; and the tile instructions themselves
    group_count
};

constexpr uint64_t xcr0_avx = 0x6, xcr0_mpx = 0x18, xcr0_avx512 = 0xe6, xcr0_amx = 0x60000;
constexpr uint32_t leaf1_edx_fxsr = 1u << 24, leaf1_ecx_osxsave = 1u << 27, leaf7_edx_amx_tile = 1u << 24;
constexpr uint32_t leaf7_ebx_bmi1 = 1u << 3, leaf7_ebx_bmi2 = 1u << 8, leaf7_1_edx_avx10 = 1u << 19;
constexpr int bit_bmi = 19, bit_avx10_1 = 91, bit_avx10_2 = 92;

struct published_bit {
    uint8_t feature; // bit of the indicator
    uint8_t from;    // enum source
    uint8_t position;
    uint8_t in; // enum group
};

// clang-format off
const published_bit published[] = {
    {1, leaf1_edx, 0, alone}, {2, leaf1_edx, 15, alone}, {3, leaf1_edx, 23, alone}, {4, leaf1_edx, 24, alone},      // X87 CMOV MMX FXSAVE
    {5, leaf1_edx, 25, needs_fxsr}, {6, leaf1_edx, 26, needs_fxsr}, {7, leaf1_ecx, 0, needs_fxsr},                  // SSE SSE2 SSE3
    {8, leaf1_ecx, 9, needs_fxsr}, {9, leaf1_ecx, 19, needs_fxsr}, {10, leaf1_ecx, 20, needs_fxsr},                 // SSSE3 SSE4_1 SSE4_2
    {11, leaf1_ecx, 22, needs_fxsr}, {12, leaf1_ecx, 23, needs_fxsr}, {13, leaf1_ecx, 1, needs_fxsr},               // MOVBE POPCNT PCLMULQDQ
    {14, leaf1_ecx, 25, needs_fxsr},                                                                                // AES
    {15, leaf1_ecx, 29, needs_avx}, {16, leaf1_ecx, 28, needs_avx}, {18, leaf1_ecx, 12, needs_avx},                 // F16C AVX FMA
    {17, leaf1_ecx, 30, alone}, {112, leaf1_ecx, 3, alone}, {113, leaf5_ecx, 3, alone},                             // RDRND MWAIT MONITORLESS_MWAIT
    {20, ext1_ecx, 5, alone}, {105, ext1_ecx, 8, alone}, {107, ext1_ecx, 0, alone}, {54, ext8_ebx, 9, alone},       // LZCNT PREFETCHW LAHFSAHF64 WBNOINVD
    {25, leaf14_ebx, 4, alone}, {75, leaf19_ebx, 2, alone},                                                         // PTWRITE WIDE-KL
    {53, leaf7_ebx, 2, alone}, {21, leaf7_ebx, 4, alone}, {23, leaf7_ebx, 5, needs_avx}, {111, leaf7_ebx, 9, alone},// SGX HLE AVX2 ERMSB
    {103, leaf7_ebx, 10, alone}, {22, leaf7_ebx, 11, alone}, {36, leaf7_ebx, 14, needs_mpx},                        // INVPCID RTM MPX
    {27, leaf7_ebx, 16, needs_avx512}, {24, leaf7_ebx, 17, needs_avx512}, {29, leaf7_ebx, 18, alone},               // AVX512F AVX512DQ RDSEED
    {28, leaf7_ebx, 19, alone}, {30, leaf7_ebx, 21, needs_avx512}, {106, leaf7_ebx, 23, alone},                     // ADX AVX512IFMA52 CLFLUSHOPT
    {49, leaf7_ebx, 24, alone}, {33, leaf7_ebx, 26, needs_avx512}, {32, leaf7_ebx, 27, needs_avx512},               // CLWB AVX512PF AVX512ER
    {34, leaf7_ebx, 28, needs_avx512}, {35, leaf7_ebx, 29, alone}, {37, leaf7_ebx, 30, needs_avx512},               // AVX512CD SHA AVX512BW
    {38, leaf7_ebx, 31, needs_avx512},                                                                              // AVX512VL
    {39, leaf7_ecx, 1, needs_avx512}, {104, leaf7_ecx, 3, alone}, {67, leaf7_ecx, 5, alone},                        // AVX512VBMI PKU WAITPKG
    {44, leaf7_ecx, 6, needs_avx512}, {52, leaf7_ecx, 7, alone}, {45, leaf7_ecx, 8, alone},                         // AVX512_VBMI2 SHSTK GFNI
    {46, leaf7_ecx, 9, needs_avx}, {47, leaf7_ecx, 10, needs_avx}, {48, leaf7_ecx, 11, needs_avx512},               // VAES VPCLMULQDQ AVX512_VNNI
    {43, leaf7_ecx, 12, needs_avx512}, {42, leaf7_ecx, 14, needs_avx512}, {50, leaf7_ecx, 22, alone},               // AVX512_BITALG AVX512_VPOPCNTDQ RDPID
    {74, leaf7_ecx, 23, alone}, {64, leaf7_ecx, 25, alone}, {65, leaf7_ecx, 27, alone}, {66, leaf7_ecx, 28, alone}, // KL CLDEMOTE MOVDIRI MOVDIR64B
    {69, leaf7_ecx, 29, alone},                                                                                     // ENQCMD
    {41, leaf7_edx, 2, needs_avx512}, {40, leaf7_edx, 3, needs_avx512}, {110, leaf7_edx, 4, alone},                 // AVX512_4VNNIW AVX512_4FMAPS FSRM
    {77, leaf7_edx, 5, alone}, {56, leaf7_edx, 8, needs_avx512}, {108, leaf7_edx, 14, alone},                       // UINTR AVX512_VP2INTERSECT SERIALIZE
    {109, leaf7_edx, 16, alone}, {55, leaf7_edx, 18, alone}, {51, leaf7_edx, 20, alone},                            // TSXLDTRK PCONFIG IBT
    {73, leaf7_edx, 22, needs_amx}, {60, leaf7_edx, 23, needs_avx512}, {71, leaf7_edx, 24, needs_amx},              // AMX-BF16 AVX512_FP16 AMX-TILE
    {72, leaf7_edx, 25, needs_amx},                                                                                 // AMX-INT8
    {86, leaf7_1_eax, 0, needs_avx}, {87, leaf7_1_eax, 1, needs_avx}, {88, leaf7_1_eax, 2, needs_avx},              // SHA512 SM3 SM4
    {83, leaf7_1_eax, 3, alone}, {70, leaf7_1_eax, 4, needs_avx}, {68, leaf7_1_eax, 5, needs_avx512},               // RAO_INT AVX_VNNI AVX512_BF16
    {80, leaf7_1_eax, 7, alone}, {95, leaf7_1_eax, 19, alone}, {84, leaf7_1_eax, 21, needs_amx},                    // CMPCCXADD WRMSRNS AMX-FP16
    {76, leaf7_1_eax, 22, alone}, {81, leaf7_1_eax, 23, needs_avx}, {94, leaf7_1_eax, 27, alone},                   // HRESET AVX_IFMA MSRLIST
    {102, leaf7_1_eax, 31, alone}, {96, leaf7_1_ebx, 1, alone},                                                     // MOVRS PBNDKB
    {79, leaf7_1_edx, 4, needs_avx}, {82, leaf7_1_edx, 5, needs_avx}, {85, leaf7_1_edx, 8, needs_amx},              // AVX_VNNI_INT8 AVX_NE_CONVERT AMX-COMPLEX
    {89, leaf7_1_edx, 10, needs_avx}, {78, leaf7_1_edx, 14, alone}, {90, leaf7_1_edx, 15, alone},                   // AVX_VNNI_INT16 PREFETCHI USER_MSR
    {93, leaf7_1_edx, 21, alone},                                                                                   // APXF
    {97, leaf1e_1_eax, 4, needs_amx}, {99, leaf1e_1_eax, 5, needs_amx}, {98, leaf1e_1_eax, 6, needs_amx},           // AMX-FP8 AMX-TRANSPOSE AMX-TF32
    {101, leaf1e_1_eax, 7, needs_amx}, {100, leaf1e_1_eax, 8, needs_amx},                                           // AMX-AVX512 AMX-MOVRS
};
// clang-format on

struct feature_mask {
    uint64_t word[2];
};

void set_bit(feature_mask *mask, int bit)
{
    mask->word[bit / 64] |= uint64_t{1} << (bit % 64);
}

// Which groups count, by leaf 1 and the saved state; the answer holds a bit per group.
uint32_t groups_in_force(const uint32_t *registers, uint64_t xcr0)
{
    uint32_t groups = 1u << alone;
    if ((registers[leaf1_edx] & leaf1_edx_fxsr) != 0)
        groups |= 1u << needs_fxsr;
    if (has_all(xcr0, xcr0_avx))
        groups |= 1u << needs_avx;
    if (has_all(xcr0, xcr0_mpx))
        groups |= 1u << needs_mpx;
    if (has_all(xcr0, xcr0_avx512))
        groups |= 1u << needs_avx512;
    if (has_all(xcr0, xcr0_amx) && (registers[leaf7_edx] & leaf7_edx_amx_tile) != 0)
        groups |= 1u << needs_amx;
    return groups;
}

void find_features(feature_mask *found)
{
    uint32_t registers[source_count];
    cpuid_answer answer;
    processor_cpuid(1, 0, &answer);
    registers[leaf1_ecx] = answer.ecx;
    registers[leaf1_edx] = answer.edx;
    const uint64_t xcr0 = (answer.ecx & leaf1_ecx_osxsave) != 0 ? processor_xcr0() : 0;
    processor_cpuid_listed(5, 0, &answer);
    registers[leaf5_ecx] = answer.ecx;
    processor_cpuid_listed(7, 0, &answer);
    registers[leaf7_ebx] = answer.ebx;
    registers[leaf7_ecx] = answer.ecx;
    registers[leaf7_edx] = answer.edx;
    processor_cpuid_listed(7, 1, &answer);
    registers[leaf7_1_eax] = answer.eax;
    registers[leaf7_1_ebx] = answer.ebx;
    registers[leaf7_1_edx] = answer.edx;
    processor_cpuid_listed(0x14, 0, &answer);
    registers[leaf14_ebx] = answer.ebx;
    processor_cpuid_listed(0x19, 0, &answer);
    registers[leaf19_ebx] = answer.ebx;
    processor_cpuid_listed(0x1e, 1, &answer);
    registers[leaf1e_1_eax] = answer.eax;
    processor_cpuid_listed(0x80000001u, 0, &answer);
    registers[ext1_ecx] = answer.ecx;
    processor_cpuid_listed(0x80000008u, 0, &answer);
    registers[ext8_ebx] = answer.ebx;

    const uint32_t groups = groups_in_force(registers, xcr0);
    for (const published_bit &bit : published) {
        if ((groups >> bit.in & 1) != 0 && (registers[bit.from] >> bit.position & 1) != 0)
            set_bit(found, bit.feature);
    }
    constexpr uint32_t both_bmi = leaf7_ebx_bmi1 | leaf7_ebx_bmi2;
    if ((registers[leaf7_ebx] & both_bmi) == both_bmi)
        set_bit(found, bit_bmi);
    if ((registers[leaf7_1_edx] & leaf7_1_edx_avx10) != 0) {
        processor_cpuid_listed(0x24, 0, &answer);
        const uint32_t version = answer.ebx & 0xff;
        if (version >= 1)
            set_bit(found, bit_avx10_1);
        if (version >= 2)
            set_bit(found, bit_avx10_2);
    }
}

// The row that the item of the given length names, or 0.
int32_t row_of_item(const char *item, size_t length)
{
    for (int32_t row = 1; row < feature_rows; ++row) {
        const char *name = proc_info_features[row].lower_name;
        if (name != nullptr && __libtesh_libc_strlen(name) == length && __libtesh_libc_strncmp(name, item, length) == 0)
            return row;
    }
    return 0;
}

// Takes away what ORVAN_ISA_DISABLE lists. The baseline (row 1) cannot be taken away.
void disable_features(feature_mask *found)
{
    char list[512];
    __libtesh_libc_getenv_from_proc("ORVAN_ISA_DISABLE", list, sizeof list);
    __libtesh_isa_init_once();
    uint64_t disabled[2]; // not by an initialiser: that can become a call of the C library's (vector) memset
    disabled[0] = disabled[1] = 0;
    for (const char *item = list; *item != 0;) {
        const char *end = item;
        while (*end != 0 && *end != ',')
            ++end;
        const int32_t row = row_of_item(item, static_cast<size_t>(end - item));
        if (row >= 2)
            __libtesh_set_cpu_feature(disabled, row);
        item = *end == ',' ? end + 1 : end;
    }
    found->word[0] &= ~disabled[0];
    found->word[1] &= ~disabled[1];
}

// The first word is the one that readers test: it is written last.
void store(uint64_t *indicator, const feature_mask *found)
{
    __atomic_store_n(&indicator[1], found->word[1], __ATOMIC_RELAXED);
    __atomic_store_n(&indicator[0], found->word[0], __ATOMIC_RELEASE);
}

// The vendor test's answer where it has been asked; otherwise the same question of the proc file's environment, since
// the vendor test goes through the C runtime.
bool is_maker(void)
{
    const int32_t asked = __atomic_load_n(&detect_vendor_answer, __ATOMIC_RELAXED);
    if (asked >= 0)
        return asked != 0;
    if (processor_vendor_is("GenuineOrvan"))
        return true;
    char list[trusted_vendors_bytes];
    const bool is_set = proc_getenv("TESH_TRUSTED_VENDORS", list, sizeof list);
    return trusted_vendor_listed(is_set ? list : nullptr) != 0;
}

// The baseline bit and, if the processor lists any leaf, all the rest.
bool start_census(feature_mask *found)
{
    found->word[0] = 1;
    found->word[1] = 0;
    cpuid_answer leaf0;
    processor_cpuid(0, 0, &leaf0);
    return leaf0.eax != 0;
}
} // namespace

extern "C" {
uint64_t __orvan_tesh_feature_indicator_x[2] = {0, 0};
uint64_t __orvan_tesh_feature_indicator[2] = {0, 0};

void __orvan_tesh_features_init_x(void)
{
    feature_mask found;
    if (start_census(&found)) {
        find_features(&found);
        disable_features(&found);
    }
    store(__orvan_tesh_feature_indicator_x, &found);
}

void __orvan_tesh_features_init(void)
{
    feature_mask found;
    if (start_census(&found)) {
        if (!is_maker()) {
            store(__orvan_tesh_feature_indicator, &found);
            return;
        }
        find_features(&found);
        disable_features(&found);
    }
    store(__orvan_tesh_feature_indicator_x, &found);
    store(__orvan_tesh_feature_indicator, &found);
}
}
