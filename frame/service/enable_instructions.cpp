// SPDX-License-Identifier: BSD-3-Clause
// TESH_ENABLE_INSTRUCTIONS and the call behind it: detection goes no higher than the level that is named, provided that
// the processor has it.
#include "frame/service/enable_instructions.h"

#include <string.h>

#include "frame/service/processor.h"

namespace
{
constexpr int32_t message_avx_deprecated = 1455;
constexpr int32_t code_none = -1, code_avx = 1, codes = 13;
constexpr int32_t value_bytes = 30; // room for a value [bytes]; a longer one is none of the names

constexpr uint32_t on(limit_level level)
{
    return 1u << level;
}
constexpr uint32_t on_avx2 = on(limit_avx) | on(limit_avx2);
constexpr uint32_t on_avx512 = on_avx2 | on(limit_avx512);
constexpr uint32_t on_e1 = on_avx512 | on(limit_avx512_e1);
constexpr uint32_t on_e2 = on_e1 | on(limit_avx512_e2);
constexpr uint32_t on_e3 = on_e2 | on(limit_avx512_e3);
constexpr uint32_t on_e4 = on_e3 | on(limit_avx512_e4);
constexpr uint32_t on_e5 = on_e4 | on(limit_avx512_e5);

// By code: the text, the fine number that the processor must support (cpu_supports_mei), and the levels left on.
struct limit_row {
    const char *text; // null: no such code
    int32_t required;
    uint32_t levels;
};
// clang-format off
constexpr limit_row limit_rows[codes] = {
    {"SSE4_2",     3, 0},
    {"AVX",        4, on(limit_avx)},
    {"AVX2",       5, on_avx2},
    {nullptr,      0, 0},
    {"AVX512",     7, on_avx512},
    {nullptr,      0, 0},
    {"AVX512_E1",  9, on_e1},
    {"AVX512_E2", 10, on_e2},
    {"AVX512_E3", 12, on_e3},
    {"AVX512_E4", 14, on_e4},
    {"AVX2_E1",   15, on_avx2 | on(limit_avx2_e1)},
    {"AVX512_E5", 16, on_e5},
    {"AVX10",     17, on_e5 | on(limit_avx10)},
};
// clang-format on

int32_t cached_mei = code_none;
int32_t mei_was_called = 0; // 1: a limit was asked for, or the environment read; set last, with what it guards
int32_t limit_lock = 0;
[[gnu::section("tesh_fork_words"), gnu::used]] int32_t *const forked_limit = &limit_lock; // frame/service/fork_guard.h

int32_t code_of_text(const char *text)
{
    for (int32_t code = 0; code < codes; ++code) {
        if (limit_rows[code].text != nullptr && strcmp(text, limit_rows[code].text) == 0)
            return code;
    }
    return code_none;
}

// With the lock held.
int32_t apply_limit(int32_t code)
{
    if (!detect_is_maker() || code < 0 || code >= codes || limit_rows[code].text == nullptr)
        return 0;
    if (code == code_avx)
        tesh_serv_print(1, message_avx_deprecated, 0);
    if (!cpu_supports_mei(limit_rows[code].required))
        return 0;
    __atomic_store_n(&limit_levels_on, limit_rows[code].levels, __ATOMIC_RELEASE);
    return 1;
}
} // namespace

extern "C" {
uint32_t limit_levels_on = on_e5 | on(limit_avx2_e1);

int32_t tesh_serv_enable_instructions(int32_t code)
{
    tesh_serv_lock(&limit_lock);
    const int32_t applied = apply_limit(code);
    __atomic_store_n(&mei_was_called, 1, __ATOMIC_RELEASE);
    tesh_serv_unlock(&limit_lock);
    return applied;
}

void __read_enable_instructions_env(int32_t *out)
{
    if (__atomic_load_n(&mei_was_called, __ATOMIC_ACQUIRE) == 0) {
        tesh_serv_lock(&limit_lock);
        if (__atomic_load_n(&mei_was_called, __ATOMIC_RELAXED) == 0) {
            char text[value_bytes];
            if (tesh_serv_getenv("TESH_ENABLE_INSTRUCTIONS", text, sizeof text) > 0)
                __atomic_store_n(&cached_mei, code_of_text(text), __ATOMIC_RELAXED);
            apply_limit(__atomic_load_n(&cached_mei, __ATOMIC_RELAXED));
            __atomic_store_n(&mei_was_called, 1, __ATOMIC_RELEASE);
        }
        tesh_serv_unlock(&limit_lock);
    }
    if (out != nullptr)
        *out = __atomic_load_n(&cached_mei, __ATOMIC_RELAXED);
}

int32_t tesh_serv_is_sse4_2_enabled(void)
{
    __read_enable_instructions_env(nullptr);
    return 1;
}

int32_t tesh_serv_is_avx_enabled(void)
{
    __read_enable_instructions_env(nullptr);
    return limit_allows(limit_avx);
}

int32_t tesh_serv_is_avx2_enabled(void)
{
    __read_enable_instructions_env(nullptr);
    return limit_allows(limit_avx2);
}

int32_t tesh_serv_is_avx512_enabled(void)
{
    __read_enable_instructions_env(nullptr);
    return limit_allows(limit_avx512);
}

// The level that starts switched off. The flag as it stands: unlike the questions above, this one reads no variable.
int32_t tesh_serv_is_avx10_enabled(void)
{
    return limit_allows(limit_avx10);
}

int32_t tesh_serv_is_avx512_hcx_enabled(void)
{
    return 0;
}
}
