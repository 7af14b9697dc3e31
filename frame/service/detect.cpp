// SPDX-License-Identifier: BSD-3-Clause
// Which processor this is: the vendor test, the fine number, the stored type and its binding. Decided once per process.
// The instruction limit that a user can set beforehand is in enable_instructions.cpp.
#include "frame/service/enable_instructions.h"
#include "frame/service/getenv.h"
#include "frame/service/loader.h"
#include "frame/service/processor.h"

namespace
{
enum message : int32_t {
    message_bad_cbwr = 1223,
    message_below_minimum = 1224,
    message_needs_sse3 = 1451,
};

constexpr int32_t status_failed = 1; // ends the process with this code

// Fine numbers.
enum fine : int32_t {
    fine_baseline = 0,
    fine_sse4_2 = 3,
    fine_avx = 4,
    fine_avx2 = 5,
    fine_avx512 = 7,
    fine_avx512_e1 = 9,
    fine_avx512_e2 = 10,
    fine_avx512_e3 = 12,
    fine_avx512_e4 = 14,
    fine_avx2_e1 = 15,
    fine_avx512_e5 = 16,
    fine_avx10 = 17,
};

// Types with a kernel library and a vector-mathematics library: 0, 1, 3, 5, 7, 9, 10, 12, 14 to 17.
constexpr uint32_t usable_types = 0x3d6ab;

// From fine to stored for the numbers 6 to 16: levels of a type are stored as the type.
constexpr int32_t stored_of_fine_from_6[11] = {5, 7, 5, 7, 7, 11, 7, 13, 7, 5, 7};

// A reproducibility branch b from 3 up, by b - 3: whether it names a type, the type, and the number that is held
// against the code of an instruction limit. The two scales differ; held together they say which limits win over which
// branches.
constexpr uint32_t branch_names_type = 0x1aff;
constexpr int32_t branches = 13;
constexpr int32_t type_of_branch[branches] = {1, 0, 0, 0, 0, 3, 3, 5, 0, 7, 0, 7, 17};
constexpr int32_t rank_of_branch[branches] = {1, 0, 0, 0, 0, 3, 3, 5, 0, 7, 0, 9, 17};

int32_t avx10_version_answer = -1, amx_fp16_answer = -1, fp16_answer = -1, bf16_answer = -1, avx_vnni_answer = -1;
int32_t orvan_answer = -1; // of TESH_Orvan_CPU_Internal
int32_t orvan_lock = 0;
// frame/service/fork_guard.h
[[gnu::section("tesh_fork_words"), gnu::used]] int32_t *const forked_orvan = &orvan_lock;
[[gnu::section("tesh_fork_words"), gnu::used]] int32_t *const forked_detection = &TESH_Detect_Cpu_Global_Lock;

bool is_usable(int32_t type)
{
    return type >= 0 && type < 32 && (usable_types >> type & 1) != 0;
}

// 0 or 1: bit of one register of leaf 7.
int32_t leaf7_bit(uint32_t subleaf, uint32_t cpuid_answer::*part, int bit)
{
    cpuid_answer answer;
    processor_cpuid_listed(7, subleaf, &answer);
    return static_cast<int32_t>(answer.*part >> bit & 1);
}

// The levels above plain AVX-512, highest first.
int32_t fine_avx512_level(uint64_t features)
{
    if (limit_allows(limit_avx10) && detect_avx10_version() > 1)
        return fine_avx10;
    if (limit_allows(limit_avx512_e5) && detect_amx_fp16())
        return fine_avx512_e5;
    if (limit_allows(limit_avx512_e4) && detect_fp16())
        return fine_avx512_e4;
    if (limit_allows(limit_avx512_e3) && detect_bf16())
        return fine_avx512_e3;
    if (limit_allows(limit_avx512_e2) && has_all(features, features_vaes_level))
        return fine_avx512_e2;
    if (limit_allows(limit_avx512_e1) && has_all(features, feature_avx512_vnni))
        return fine_avx512_e1;
    return fine_avx512;
}

int32_t fine_avx2_level(void)
{
    if (limit_allows(limit_avx10) && detect_avx10_version() > 1)
        return fine_avx2;
    if (limit_allows(limit_avx2_e1) && detect_avx_vnni())
        return fine_avx2_e1;
    return limit_allows(limit_avx2) ? fine_avx2 : fine_sse4_2;
}

int32_t fine_below_avx(uint64_t features, int32_t *status)
{
    if (has_all(features, feature_sse4_2))
        return fine_sse4_2;
    if ((features & (feature_sse3 | feature_ssse3)) != 0)
        return fine_baseline;
    tesh_serv_print(0, message_below_minimum, 0);
    tesh_serv_print(0, message_needs_sse3, 0);
    *status = status_failed;
    return -1;
}

// The real processor's stored type, or a status.
int32_t stored_type_of_processor(int32_t *type)
{
    int32_t status = 0;
    const int32_t number = __detect_real_cpu(&status);
    if (status != 0)
        return status;
    *type = number >= 6 && number <= 16 ? stored_of_fine_from_6[number - 6] : number;
    return *type > fine_avx10 ? status_failed : 0;
}

// The type that a named branch stands for, unless an instruction limit wins over it or the branch names none.
bool branch_gives_type(int32_t branch, int32_t *type)
{
    int32_t limit_code;
    __read_enable_instructions_env(&limit_code);
    const int32_t index = branch - 3;
    if (index >= branches || (branch_names_type >> index & 1) == 0) {
        tesh_serv_print(0, message_bad_cbwr, 0);
        return false;
    }
    *type = type_of_branch[index];
    const bool limit_wins = limit_code >= 0 && rank_of_branch[index] > limit_code && cpu_supports_mei(limit_code);
    return is_usable(*type) && !limit_wins;
}

int32_t vendor_answer_from_processor(void)
{
    if (processor_vendor_is("GenuineOrvan"))
        return 1;
    char list[trusted_vendors_bytes];
    const int32_t length =
        tesh_serv_getenv("TESH_TRUSTED_VENDORS", list, sizeof list); // negative: too long, so ignored
    const bool is_set = length > 0 || (length == 0 && getenv_is_set("TESH_TRUSTED_VENDORS"));
    return trusted_vendor_listed(is_set ? list : nullptr);
}

// Double-checked detection; answers the global that *type is.
int32_t detect_once(const int32_t *type)
{
    if (__atomic_load_n(type, __ATOMIC_ACQUIRE) < 0) {
        int32_t status = 0;
        tesh_serv_lock(&TESH_Detect_Cpu_Global_Lock);
        if (__atomic_load_n(type, __ATOMIC_RELAXED) < 0)
            status = __tesh_cpu_detect_and_load_dll();
        tesh_serv_unlock(&TESH_Detect_Cpu_Global_Lock);
        if (status != 0)
            tesh_serv_exit(status);
    }
    return __atomic_load_n(type, __ATOMIC_RELAXED);
}
} // namespace

extern "C" {
int32_t tesh_cpu_type = -1;
int32_t tesh_vml_cpu_type = -1;
int32_t TESH_Detect_Cpu_Global_Lock = 0;
int32_t detect_vendor_answer = -1;

int32_t detect_avx10_version(void)
{
    return asked_once(&avx10_version_answer, [] {
        if (leaf7_bit(1, &cpuid_answer::edx, 19) == 0)
            return 0;
        cpuid_answer answer;
        processor_cpuid_listed(0x24, 0, &answer);
        return static_cast<int32_t>(answer.ebx & 0xff);
    });
}

int32_t detect_amx_fp16(void)
{
    return asked_once(&amx_fp16_answer, [] { return leaf7_bit(1, &cpuid_answer::eax, 21); });
}

int32_t detect_fp16(void)
{
    return asked_once(&fp16_answer, [] { return leaf7_bit(0, &cpuid_answer::edx, 23); });
}

int32_t detect_bf16(void)
{
    return asked_once(&bf16_answer, [] { return leaf7_bit(1, &cpuid_answer::eax, 5); });
}

int32_t detect_avx_vnni(void)
{
    return asked_once(&avx_vnni_answer, [] { return leaf7_bit(1, &cpuid_answer::eax, 4); });
}

int32_t detect_is_maker(void)
{
    return asked_once(&detect_vendor_answer, vendor_answer_from_processor);
}

int32_t detect_is_maker_by_branch(void)
{
    constexpr int32_t branch_compatible = 3;
    if (__atomic_load_n(&orvan_answer, __ATOMIC_ACQUIRE) < 0) {
        const int32_t branch = tesh_serv_cbwr_get(1); // can end the process, so not with the lock held
        tesh_serv_lock(&orvan_lock);
        if (__atomic_load_n(&orvan_answer, __ATOMIC_RELAXED) < 0) {
            const bool named = branch != 1 && branch != 2;
            const int32_t answer = named ? branch != branch_compatible : detect_is_maker();
            __atomic_store_n(&orvan_answer, answer, __ATOMIC_RELEASE);
        }
        tesh_serv_unlock(&orvan_lock);
    }
    return __atomic_load_n(&orvan_answer, __ATOMIC_RELAXED);
}

[[gnu::alias("detect_is_maker")]] decltype(TESH_Orvan_CPU_True_Internal) TESH_Orvan_CPU_True_Internal;
[[gnu::alias("detect_is_maker_by_branch")]] decltype(TESH_Orvan_CPU_Internal) TESH_Orvan_CPU_Internal;

tesh_serv_cpu_question_fn tesh_serv_get_cpu_true(void)
{
    return TESH_Orvan_CPU_True_Internal;
}

tesh_serv_cpu_question_fn tesh_serv_get_cpu(void)
{
    return TESH_Orvan_CPU_Internal;
}

int32_t __detect_real_cpu(int32_t *status)
{
    const uint64_t features = processor_features();
    __read_enable_instructions_env(nullptr);
    if (!detect_is_maker())
        return fine_baseline;
    if (!limit_allows(limit_avx) || !has_all(features, feature_avx))
        return fine_below_avx(features, status);
    if (!has_all(features, features_avx2_level))
        return fine_sse4_2;
    if (limit_allows(limit_avx512) && has_all(features, features_avx512_level))
        return fine_avx512_level(features);
    return fine_avx2_level();
}

int32_t cpu_supports_mei(int32_t level)
{
    const uint64_t features = processor_features();
    switch (level) {
    case fine_sse4_2:
        return has_all(features, feature_sse4_2);
    case fine_avx:
        return has_all(features, feature_avx);
    case fine_avx2:
        return has_all(features, features_avx2_level);
    case fine_avx512:
        return has_all(features, features_avx512_level);
    case fine_avx512_e1:
        return has_all(features, feature_avx512_vnni);
    case fine_avx512_e2:
        return has_all(features, features_vaes_level);
    case fine_avx512_e3:
        return detect_bf16();
    case fine_avx512_e4:
        return detect_fp16();
    case fine_avx2_e1:
        return detect_avx_vnni();
    case fine_avx512_e5:
        return detect_amx_fp16();
    case fine_avx10:
        return detect_avx10_version() > 1;
    default:
        return 0;
    }
}

// Called with TESH_Detect_Cpu_Global_Lock held.
int32_t __tesh_cpu_detect_and_load_dll(void)
{
    if (__atomic_load_n(&tesh_cpu_type, __ATOMIC_RELAXED) >= 0 &&
        __atomic_load_n(&tesh_vml_cpu_type, __ATOMIC_RELAXED) >= 0)
        return 0;
    int32_t status = cbwr_resolve();
    if (status != 0)
        return status;
    const int32_t branch = tesh_serv_cbwr_get_nolock(1);
    int32_t type = -1;
    if (branch < 3 || !branch_gives_type(branch, &type)) {
        status = stored_type_of_processor(&type);
        if (status != 0)
            return status;
    }
    if (!is_usable(type))
        return status_failed;
    const int32_t vml_type = type == 1 ? 2 : type < 2 ? type : type + 2;
    // Whoever finds the second finds the first: "detection has run" means the first.
    __atomic_store_n(&tesh_cpu_type, type == 1 ? 0 : type, __ATOMIC_RELEASE);
    __atomic_store_n(&tesh_vml_cpu_type, vml_type, __ATOMIC_RELEASE);
    return 0;
}

int32_t tesh_serv_cpu_detect(void)
{
    return detect_once(&tesh_cpu_type);
}

int32_t tesh_serv_vml_cpu_detect(void)
{
    return detect_once(&tesh_vml_cpu_type);
}

int32_t tesh_serv_get_cpu_type(int32_t fresh)
{
    if (fresh == 0)
        return __atomic_load_n(&tesh_cpu_type, __ATOMIC_ACQUIRE);
    int32_t status = 0;
    const int32_t number = __detect_real_cpu(&status);
    if (status != 0)
        tesh_serv_exit(status);
    return number;
}

// No processor table of a single application was ever asked for here.
int32_t tesh_serv_sngl_was_called(void)
{
    return 0;
}

// At load.
[[gnu::used]] static char DispLibCWD[loader_directory_bytes];

[[gnu::constructor]] static void _Init_TESH_Loader(void)
{
    loader_capture_directory(DispLibCWD, reinterpret_cast<void *>(&_Init_TESH_Loader));
}
}
