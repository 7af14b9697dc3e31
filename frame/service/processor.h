// SPDX-License-Identifier: BSD-3-Clause
// Questions to the processor and to the system's processor state, and what detection, the census and the predicates
// share. The three questions at the bottom of everything are routines of their own, in general_regs/, so that code
// which may touch general registers only can ask them.
#pragma once
#include "frame/tesh_serv.h"

struct cpuid_answer {
    uint32_t eax, ebx, ecx, edx;
};

extern "C" {
// ---- general_regs/processor.cpp ----
void processor_cpuid(uint32_t leaf, uint32_t subleaf, cpuid_answer *answer);
uint64_t processor_xcr0(void); // legal only where CPUID leaf 1 ECX bit 27 is set
int64_t processor_arch_prctl(int64_t code, uint64_t argument);

// ---- general_regs/processor_questions.cpp ----
// The same as processor_cpuid, but zeros for a leaf or sub-leaf that the processor does not list: some processors
// answer a leaf beyond the last with the data of another.
void processor_cpuid_listed(uint32_t leaf, uint32_t subleaf, cpuid_answer *answer);
// 1 if leaf 0 spells the twelve characters.
int32_t processor_vendor_is(const char *vendor);

// ---- general_regs/proc_getenv.cpp ----
// __libtesh_libc_getenv_from_proc with an answer: true if the variable is set, be it empty.
bool proc_getenv(const char *name, char *buffer, int64_t size);

// ---- general_regs/trusted_vendors.cpp ----
// 1 if the list (comma-separated, blanks around items ignored) holds `any` or this processor's twelve-character vendor.
// Null stands for the list that the library was built with; an empty list is one, and trusts nobody.
int32_t trusted_vendor_listed(const char *list);
constexpr int32_t trusted_vendors_bytes = 4096; // room for the longest value that can be read at all [bytes]

// ---- detect.cpp ----
extern int32_t detect_vendor_answer; // the vendor test's, -1 until asked
// TESH_Orvan_CPU_True_Internal and TESH_Orvan_CPU_Internal, for calls: those names are bound by dynamic symbol, since
// their addresses are handed out.
int32_t detect_is_maker(void);
int32_t detect_is_maker_by_branch(void);
int32_t __detect_real_cpu(int32_t *status);
int32_t cpu_supports_mei(int32_t level); // level: a fine number
void __read_enable_instructions_env(int32_t *out);
// CPUID answers, each asked once.
int32_t detect_avx10_version(void); // 0 without AVX10
int32_t detect_amx_fp16(void);
int32_t detect_fp16(void);
int32_t detect_bf16(void);
int32_t detect_avx_vnni(void);

// ---- cbwr.cpp ----
int32_t check_cbwr_settings(int32_t value);
// Both store the setting, the second if it is not there yet, for callers that hold TESH_Detect_Cpu_Global_Lock. Not 0
// on a processor below the minimum: the code with which the caller ends the process when it has let go of the lock.
int32_t get_tesh_cbwr_from_env(void);
int32_t cbwr_resolve(void);
}

namespace
{
constexpr uint64_t feature_bit(int bit)
{
    return uint64_t{1} << bit;
}
constexpr uint64_t feature_sse3 = feature_bit(7), feature_ssse3 = feature_bit(8), feature_sse4_1 = feature_bit(9),
                   feature_sse4_2 = feature_bit(10), feature_aes = feature_bit(14), feature_avx = feature_bit(16),
                   feature_avx2 = feature_bit(23), feature_avx512dq = feature_bit(24), feature_mpx = feature_bit(36),
                   feature_avx512_vnni = feature_bit(48);
constexpr uint64_t features_avx2_level = 0x9c2000;       // PCLMULQDQ, FMA, BMI, LZCNT, AVX2
constexpr uint64_t features_avx512_level = 0x6009000000; // AVX512 DQ, F, BW, VL
constexpr uint64_t features_vaes_level = 0xc00008000000; // AVX512F, VAES, VPCLMULQDQ

// The low word of the feature indicator; the baseline bit is always set by the census,
// so zero means that it has not run.
[[maybe_unused]] inline uint64_t processor_features(void)
{
    uint64_t word;
    while ((word = __atomic_load_n(&__orvan_tesh_feature_indicator_x[0], __ATOMIC_ACQUIRE)) == 0)
        __orvan_tesh_features_init_x();
    return word;
}

[[maybe_unused]] inline bool has_all(uint64_t word, uint64_t mask)
{
    return (word & mask) == mask;
}

// A question whose answer does not change: asked at first use and kept in *cache, -1 until then. Threads may ask at
// once; they store the same value.
template <class Question> inline int32_t asked_once(int32_t *cache, Question question)
{
    int32_t answer = __atomic_load_n(cache, __ATOMIC_RELAXED);
    if (answer == -1) {
        answer = question();
        __atomic_store_n(cache, answer, __ATOMIC_RELAXED);
    }
    return answer;
}
} // namespace
