// SPDX-License-Identifier: BSD-3-Clause
// Questions by which kernels choose: is this processor one of a given model, has it a given instruction set. Read-only,
// safe to repeat, cached. The fine number is 0 on every processor that is not the maker's (or trusted), so all
// questions of the fine number answer 0 there.
#include "frame/service/processor.h"

namespace
{
constexpr uint64_t features_juniper_sse4_2 = 0x7f8a, features_juniper_ssse3 = 0x98a;
constexpr uint32_t ext1_ecx_fma4 = 1u << 16, leaf1_ecx_f16c = 1u << 29;
constexpr uint32_t barcelona_mask = 0xff00f00, barcelona_family = 0x100f00; // of CPUID leaf 1 EAX
constexpr uint32_t leaf24_ebx_256 = 1u << 17, leaf24_ebx_512 = 1u << 18;    // AVX10 vector lengths
constexpr uint32_t leaf1e_1_eax_amx_fp8 = 1u << 4;

int32_t amd_answer = -1, birch_answer = -1, juniper_sse4_2_answer = -1, juniper_ssse3_answer = -1;
int32_t bulldozer_answer = -1, zen_answer = -1, barcelona_answer = -1, fir_answer = -1, hazel_answer = -1;
int32_t larch_answer = -1, avxvnni_answer = -1, f16c_answer = -1, fp16_answer = -1, amxfp16_answer = -1;
int32_t amxfp8_answer = -1, vector256_answer = -1, vector512_answer = -1, avx10_answer = -1;
int32_t microarchitecture_answer = -1;

bool no_named_branch(void)
{
    const int32_t branch = tesh_serv_cbwr_get(1);
    return branch == 1 || branch == 2;
}

bool has_sse4_1(void)
{
    return has_all(processor_features(), feature_sse4_1);
}

// The other maker whose models have kernels of their own.
bool is_authentic_amd(void)
{
    return asked_once(&amd_answer, [] { return processor_vendor_is("AuthenticAMD"); }) != 0;
}

bool fine_is_one_of(uint32_t numbers)
{
    const int32_t fine = tesh_serv_get_cpu_type(1);
    return fine >= 0 && (numbers >> fine & 1) != 0;
}

constexpr uint32_t bit_of(int number)
{
    return 1u << number;
}
constexpr uint32_t fine_larch = bit_of(12) | bit_of(14) | bit_of(16) | bit_of(17);
constexpr uint32_t fine_hazel = fine_larch | bit_of(10);
constexpr uint32_t fine_fir = fine_hazel | bit_of(9);
constexpr uint32_t fine_fp16 = bit_of(14) | bit_of(16) | bit_of(17);
constexpr uint32_t fine_amxfp16 = bit_of(16) | bit_of(17);

bool has_vector_length(uint32_t leaf24_ebx_bit)
{
    cpuid_answer leaf24;
    processor_cpuid_listed(0x24, 0, &leaf24);
    return (leaf24.ebx & leaf24_ebx_bit) != 0;
}

int32_t avx10_version_in_use(void)
{
    const int32_t fine = tesh_serv_get_cpu_type(1), version = detect_avx10_version();
    const bool limit_on = tesh_serv_is_avx10_enabled() != 0;
    if (fine != 17 && !(fine == 16 && version != 0) && !(fine == 5 && limit_on && version != 0))
        return 0;
    const int32_t branch = tesh_serv_cbwr_get(1);
    if (branch != 15 && branch != 1 && branch != 2)
        return 0;
    return version >= 2 && !limit_on ? 1 : version;
}

// Numbers by which tuning tables know a model. Stored types with wide registers have none.
int32_t microarchitecture(void)
{
    constexpr int32_t model_sse4_2 = 64, model_sse4_2_aes = 66;
    if (!detect_is_maker_by_branch() || tesh_serv_cpu_detect() != 3)
        return 0;
    return has_all(processor_features(), feature_aes) && tesh_serv_cbwr_get(1) == 1 ? model_sse4_2_aes : model_sse4_2;
}
} // namespace

extern "C" {
int32_t tesh_serv_cpuhasash_true(void)
{
    return has_sse4_1();
}

int32_t tesh_serv_cpuhasash(void)
{
    return no_named_branch() ? has_sse4_1() : tesh_serv_cbwr_get(1) >= 7;
}

int32_t tesh_serv_cpuhasbirch(void)
{
    return asked_once(&birch_answer, [] {
        return static_cast<int32_t>(no_named_branch() ? tesh_serv_cpu_detect() > 2 : tesh_serv_cbwr_get(1) > 7);
    });
}

int32_t tesh_serv_cpuiscedar(void)
{
    const uint64_t features = processor_features();
    return no_named_branch() && has_all(features, feature_mpx) && !has_all(features, feature_avx512dq);
}

int32_t tesh_serv_cpuiselm(void)
{
    return 0;
}

int32_t tesh_serv_cpuisjunipersse4_2(void)
{
    return asked_once(&juniper_sse4_2_answer, [] {
        return static_cast<int32_t>(no_named_branch() && detect_is_maker() == 1 &&
                                    has_all(processor_features(), features_juniper_sse4_2));
    });
}

int32_t tesh_serv_cpuisjuniperssse3(void)
{
    return asked_once(&juniper_ssse3_answer, [] {
        return static_cast<int32_t>(no_named_branch() && detect_is_maker() == 1 &&
                                    has_all(processor_features(), features_juniper_ssse3));
    });
}

int32_t tesh_serv_cpuisbulldozer(void)
{
    return asked_once(&bulldozer_answer, [] {
        cpuid_answer ext1;
        processor_cpuid_listed(0x80000001u, 0, &ext1);
        return static_cast<int32_t>(no_named_branch() && is_authentic_amd() &&
                                    has_all(processor_features(), feature_avx) && (ext1.ecx & ext1_ecx_fma4) != 0);
    });
}

int32_t tesh_serv_cpuiszen(void)
{
    return asked_once(&zen_answer, [] {
        return static_cast<int32_t>(no_named_branch() && is_authentic_amd() &&
                                    has_all(processor_features(), feature_avx2));
    });
}

int32_t tesh_serv_cpuisitbarcelona(void)
{
    return asked_once(&barcelona_answer, [] {
        cpuid_answer leaf1;
        processor_cpuid_listed(1, 0, &leaf1);
        return static_cast<int32_t>(no_named_branch() && is_authentic_amd() &&
                                    (leaf1.eax & barcelona_mask) == barcelona_family);
    });
}

int32_t tesh_serv_cpuisfir(void)
{
    return asked_once(&fir_answer, [] {
        return static_cast<int32_t>(fine_is_one_of(fine_fir) && (no_named_branch() || tesh_serv_cbwr_get(1) == 14));
    });
}

int32_t tesh_serv_cpuishazel(void)
{
    return asked_once(&hazel_answer, [] { return static_cast<int32_t>(fine_is_one_of(fine_hazel)); });
}

int32_t tesh_serv_cpuislarch(void)
{
    return asked_once(&larch_answer, [] { return static_cast<int32_t>(fine_is_one_of(fine_larch)); });
}

int32_t tesh_serv_cpuhasavxvnni(void)
{
    return asked_once(&avxvnni_answer, [] {
        const int32_t fine = tesh_serv_get_cpu_type(1);
        return static_cast<int32_t>(fine == 15 || (fine == 5 && tesh_serv_get_avx10_version() != 0));
    });
}

int32_t tesh_serv_cpuhasf16c(void)
{
    return asked_once(&f16c_answer, [] {
        const int32_t fine = tesh_serv_get_cpu_type(1);
        cpuid_answer leaf1;
        processor_cpuid_listed(1, 0, &leaf1);
        return static_cast<int32_t>(fine > 4 || (fine == 4 && (leaf1.ecx & leaf1_ecx_f16c) != 0));
    });
}

int32_t tesh_serv_cpuhasfp16(void)
{
    return asked_once(&fp16_answer, [] { return static_cast<int32_t>(fine_is_one_of(fine_fp16)); });
}

int32_t tesh_serv_cpuhasamxfp16(void)
{
    return asked_once(&amxfp16_answer, [] { return static_cast<int32_t>(fine_is_one_of(fine_amxfp16)); });
}

int32_t tesh_serv_cpuhasamxfp8(void)
{
    return asked_once(&amxfp8_answer, [] {
        cpuid_answer leaf1e_1;
        processor_cpuid_listed(0x1e, 1, &leaf1e_1);
        return static_cast<int32_t>(fine_is_one_of(bit_of(17)) && (leaf1e_1.eax & leaf1e_1_eax_amx_fp8) != 0);
    });
}

int32_t tesh_serv_cpuhas256bit_vector(void)
{
    return asked_once(&vector256_answer, [] {
        return static_cast<int32_t>(tesh_serv_get_cpu_type(1) >= 5 &&
                                    (no_named_branch() || tesh_serv_cbwr_get(1) > 9) &&
                                    has_vector_length(leaf24_ebx_256));
    });
}

int32_t tesh_serv_cpuhas512bit_vector(void)
{
    return asked_once(&vector512_answer, [] {
        const int32_t fine = tesh_serv_get_cpu_type(1);
        return static_cast<int32_t>(fine >= 7 && fine != 15 && (no_named_branch() || tesh_serv_cbwr_get(1) >= 12) &&
                                    has_vector_length(leaf24_ebx_512));
    });
}

int32_t tesh_serv_get_avx10_version(void)
{
    return asked_once(&avx10_answer, avx10_version_in_use);
}

int32_t tesh_serv_get_microarchitecture(void)
{
    return asked_once(&microarchitecture_answer, microarchitecture);
}
}
