// SPDX-License-Identifier: BSD-3-Clause
// Conditional numerical reproducibility: one process-wide setting, a branch (low 16 bits) and the strict flag (bit 16).
// It is read from TESH_CBWR at first use, or set by a call before detection, and stands from then on.
#include <string.h>

#include "frame/service/processor.h"

namespace
{
enum branch : int32_t {
    branch_off = 1,
    branch_auto = 2,
    branch_compatible = 3,
    branch_sse2 = 4,
    branch_ssse3 = 6,
    branch_sse4_1 = 7,
    branch_sse4_2 = 8,
    branch_avx = 9,
    branch_avx2 = 10,
    branch_avx512 = 12,
    branch_avx512_e1 = 14,
    branch_avx10 = 15,
};
constexpr int32_t branch_unknown = -4; // best branch of a processor number without one
constexpr int32_t branch_mask = 0xffff, strict_flag = 0x10000;
constexpr uint32_t highest_value = 0x1ffff;

constexpr int32_t answer_accepted = 0, answer_no_such_branch = -2, answer_not_honoured = -3, answer_too_late = -8;
constexpr int32_t message_ssse3_deprecated = 1454, message_avx_deprecated = 1455;

// Several texts may stand for one branch; 6 and 9 have none, and 5, 11 and 13 are no branches.
struct branch_text {
    const char *text;
    int32_t branch;
};
constexpr branch_text branch_texts[] = {
    {"AUTO", branch_auto},           {"COMPATIBLE", branch_compatible},
    {"SSE2", branch_sse2},           {"SSE3", branch_sse2},
    {"SSSE3", branch_sse2},          {"SSE4_1", branch_sse4_1},
    {"SSE4_2", branch_sse4_2},       {"AVX", branch_sse4_2},
    {"AVX2", branch_avx2},           {"AVX512_HCX", branch_avx2},
    {"AVX512", branch_avx512},       {"AVX512_HCX_E1", branch_avx2},
    {"AVX512_E1", branch_avx512_e1}, {"AVX10", branch_avx10},
};

// The highest branch that a processor of the maker can honour, by its fine number. A processor below the minimum leaves
// the code that the process has to end with in *status: it ends once no lock is held, since what runs at the exit may
// come back here.
int32_t best_branch(int32_t *status)
{
    switch (__detect_real_cpu(status)) {
    case 0:
    case 1:
        return branch_sse2;
    case 2:
        return tesh_serv_cpuhasash_true() ? branch_sse4_1 : branch_sse2;
    case 3:
    case 4:
        return branch_sse4_2;
    case 5:
    case 15:
        return branch_avx2;
    case 7:
        return branch_avx512;
    case 9:
    case 10:
    case 12:
    case 14:
    case 16:
        return branch_avx512_e1;
    case 17:
        return branch_avx10;
    default:
        return branch_unknown;
    }
}

bool beyond_processor(int32_t asked, int32_t *status)
{
    const int32_t best = best_branch(status);
    return (asked > best && asked < 16) || (best == branch_avx512 && asked == 11) ||
           (best == branch_avx512_e1 && (asked == 11 || asked == 13));
}

// What check_cbwr_settings answers.
int32_t check_value(int32_t value, int32_t *status)
{
    const int32_t asked = value & branch_mask;
    const bool maker = detect_is_maker() == 1;
    if (maker) {
        if (beyond_processor(asked, status))
            return answer_not_honoured;
        if (asked == branch_ssse3)
            tesh_serv_print(1, message_ssse3_deprecated, 0);
        if (asked == branch_avx)
            tesh_serv_print(1, message_avx_deprecated, 0);
    }
    if (static_cast<uint32_t>(value) > highest_value)
        return answer_not_honoured;
    if (asked == branch_auto || asked == branch_compatible)
        return answer_accepted;
    if (asked >= branch_sse2 && asked <= branch_avx10)
        return maker ? answer_accepted : answer_not_honoured;
    return answer_no_such_branch;
}

void exit_if_failed(int32_t status)
{
    if (status != 0)
        tesh_serv_exit(status);
}

// Cuts ",STRICT" off the end of the text, blanks on both sides of the comma included.
bool cut_strict(char *text, size_t length)
{
    constexpr char word[] = "STRICT";
    constexpr size_t word_length = sizeof word - 1;
    if (length <= word_length || strcmp(text + length - word_length, word) != 0)
        return false;
    char *last = text + length - word_length - 1;
    while (last > text && *last == ' ')
        --last;
    if (*last != ',')
        return false;
    while (last > text && last[-1] == ' ')
        --last;
    *last = 0;
    return true;
}

// The setting that TESH_CBWR asks for.
int32_t value_of_text(char *text, size_t length, int32_t *status)
{
    constexpr char prefix[] = "BRANCH=";
    constexpr size_t prefix_length = sizeof prefix - 1;
    const int32_t strict = cut_strict(text, length) ? strict_flag : 0;
    const char *name = strncmp(text, prefix, prefix_length) == 0 ? text + prefix_length : text;
    for (const branch_text &row : branch_texts) {
        if (strcmp(name, row.text) == 0)
            return (check_value(row.branch, status) == answer_accepted ? row.branch : branch_auto) | strict;
    }
    return branch_auto;
}

// The first use. Apart, so that a later one saves no register.
[[gnu::cold, gnu::noinline]] void resolve_under_lock()
{
    tesh_serv_lock(&TESH_Detect_Cpu_Global_Lock);
    const int32_t status = cbwr_resolve();
    tesh_serv_unlock(&TESH_Detect_Cpu_Global_Lock);
    exit_if_failed(status);
}

int32_t part_of(int32_t value, int32_t what)
{
    if (what == -1)
        return value;
    return what == 1 ? value & branch_mask : -2;
}
} // namespace

extern "C" {
int32_t tesh_cbwr = -1;

int32_t check_cbwr_settings(int32_t value)
{
    int32_t status = 0;
    const int32_t answer = check_value(value, &status);
    exit_if_failed(status);
    return answer;
}

int32_t get_tesh_cbwr_from_env(void)
{
    char text[128];
    int32_t status = 0;
    const int32_t length = tesh_serv_getenv("TESH_CBWR", text, sizeof text);
    const int32_t value = length < 1 ? branch_off : value_of_text(text, static_cast<size_t>(length), &status);
    __atomic_store_n(&tesh_cbwr, value, __ATOMIC_RELEASE);
    return status;
}

int32_t cbwr_resolve(void)
{
    return __atomic_load_n(&tesh_cbwr, __ATOMIC_ACQUIRE) == -1 ? get_tesh_cbwr_from_env() : 0;
}

int32_t tesh_serv_cbwr_get_nolock(int32_t what)
{
    exit_if_failed(cbwr_resolve());
    return part_of(__atomic_load_n(&tesh_cbwr, __ATOMIC_RELAXED), what);
}

int32_t tesh_serv_cbwr_get(int32_t what)
{
    if (__atomic_load_n(&tesh_cbwr, __ATOMIC_ACQUIRE) == -1)
        resolve_under_lock();
    return part_of(__atomic_load_n(&tesh_cbwr, __ATOMIC_RELAXED), what);
}

int32_t tesh_serv_cbwr_get_auto_branch(void)
{
    if (!detect_is_maker())
        return branch_auto;
    int32_t status = 0;
    const int32_t best = best_branch(&status);
    exit_if_failed(status);
    return best;
}

int32_t tesh_serv_cbwr_set(int32_t value)
{
    constexpr int32_t value_of_small[3] = {branch_off, branch_off, branch_auto};
    if (tesh_serv_get_cpu_type(0) >= 0)
        return value == __atomic_load_n(&tesh_cbwr, __ATOMIC_ACQUIRE) ? answer_accepted : answer_too_late;
    int32_t answer = answer_accepted, status = 0;
    tesh_serv_lock(&TESH_Detect_Cpu_Global_Lock);
    if (tesh_serv_get_cpu_type(0) >= 0)
        answer = answer_too_late;
    else if (static_cast<uint32_t>(value) >= 3)
        answer = check_value(value, &status);
    else
        value = value_of_small[value];
    if (answer == answer_accepted)
        __atomic_store_n(&tesh_cbwr, value, __ATOMIC_RELEASE);
    tesh_serv_unlock(&TESH_Detect_Cpu_Global_Lock);
    exit_if_failed(status);
    return answer;
}
}
