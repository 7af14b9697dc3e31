// SPDX-License-Identifier: BSD-3-Clause
// Verbose level and output file: read from the environment at first use, changed by calls later.
#include <stdlib.h>

#include "frame/service/verbose.h"
#include "frame/tesh_serv.h"

namespace
{
constexpr int32_t level_unknown = -1;
constexpr int32_t level_max = 2;

int32_t level_read_lock = 0, level_store_lock = 0;
int32_t file_read_lock = 0, file_value_lock = 0;
[[gnu::section("tesh_fork_words"), gnu::used]] int32_t *const forked_level_read = &level_read_lock;
[[gnu::section("tesh_fork_words"), gnu::used]] int32_t *const forked_level_store = &level_store_lock;
[[gnu::section("tesh_fork_words"), gnu::used]] int32_t *const forked_file_read = &file_read_lock;
[[gnu::section("tesh_fork_words"), gnu::used]] int32_t *const forked_file_value = &file_value_lock;

char verbose_file_val[verbose_file_bytes]; // empty: standard output; under file_value_lock
int32_t file_known = 0;                    // 1 once the environment was read or a call has set the file

// 0 for all that is no valid level.
int32_t level_of(const char *text)
{
    char *end = nullptr;
    const long value = strtol(text, &end, 0);
    if (end == text || *end != '\0' || value < 0 || value > level_max)
        return 0;
    return static_cast<int32_t>(value);
}

void set_verbose_from_env()
{
    tesh_serv_lock(&level_read_lock);
    if (__atomic_load_n(&tesh_verbose_val, __ATOMIC_RELAXED) == level_unknown) {
        char text[128];
        const int32_t level = tesh_serv_getenv("TESH_VERBOSE", text, sizeof text) > 0 ? level_of(text) : 0;
        tesh_serv_lock(&level_store_lock);
        __atomic_store_n(&tesh_verbose_val, level, __ATOMIC_RELAXED);
        tesh_serv_unlock(&level_store_lock);
    }
    tesh_serv_unlock(&level_read_lock);
}

// The length of the variable's value, which may be more than what name has room for.
size_t read_file_variable(char name[verbose_file_bytes])
{
    const int32_t length = tesh_serv_getenv("TESH_VERBOSE_OUTPUT_FILE", name, verbose_file_bytes);
    return static_cast<size_t>(length < 0 ? -length : length);
}

// Under file_value_lock. 0, or 1 with a warning and the output on standard output.
int32_t set_verbose_file_val(const char *name, size_t length)
{
    if (length == 0 || length >= verbose_file_bytes) {
        verbose_file_val[0] = '\0';
        verbose_warn("incorrect output filename: too long or empty");
        return 1;
    }
    tesh_serv_strncpy_s(verbose_file_val, sizeof verbose_file_val, name, length);
    if (verbose_file_val[0] == '\0')
        read_file_variable(verbose_file_val); // the name was the stored one itself
    FILE *const file = tesh_serv_fopen(verbose_file_val, "a");
    if (file == nullptr) {
        verbose_file_val[0] = '\0';
        verbose_warn("Unable to open verbose output file.");
        return 1;
    }
    tesh_serv_fclose(file);
    return 0;
}

void set_verbose_file_from_env()
{
    if (__atomic_load_n(&file_known, __ATOMIC_ACQUIRE))
        return;
    tesh_serv_lock(&file_read_lock);
    if (!__atomic_load_n(&file_known, __ATOMIC_RELAXED)) {
        char name[verbose_file_bytes];
        const size_t length = read_file_variable(name);
        tesh_serv_lock(&file_value_lock);
        if (!__atomic_load_n(&file_known, __ATOMIC_RELAXED)) {
            if (length > 0)
                set_verbose_file_val(name, length);
            __atomic_store_n(&file_known, 1, __ATOMIC_RELEASE);
        }
        tesh_serv_unlock(&file_value_lock);
    }
    tesh_serv_unlock(&file_read_lock);
}
} // namespace

void verbose_copy_file_name(char name[verbose_file_bytes])
{
    set_verbose_file_from_env();
    tesh_serv_lock(&file_value_lock);
    tesh_serv_mem_prim_move(name, verbose_file_val, tesh_serv_strnlen_s(verbose_file_val, verbose_file_bytes) + 1);
    tesh_serv_unlock(&file_value_lock);
}

void verbose_warn(const char *text)
{
    tesh_serv_fprintf_stderr_s("TESH_VERBOSE WARNING: %s\n", text);
}

extern "C" {
int32_t tesh_verbose_val = level_unknown;

int32_t *tesh_serv_verbose_mode(void)
{
    if (__atomic_load_n(&tesh_verbose_val, __ATOMIC_RELAXED) == level_unknown)
        set_verbose_from_env();
    return &tesh_verbose_val;
}

int32_t tesh_serv_verbose(int32_t level)
{
    int32_t *const live = tesh_serv_verbose_mode();
    if (level < 0 || level > level_max)
        return -1;
    if (__atomic_load_n(live, __ATOMIC_RELAXED) != level) {
        tesh_serv_lock(&level_store_lock);
        __atomic_store_n(live, level, __ATOMIC_RELAXED);
        tesh_serv_unlock(&level_store_lock);
    }
    return level;
}

// Trailing blanks are those of a Fortran character variable. From here on the environment has no say.
int32_t tesh_serv_verbose_output_file(const char *name)
{
    size_t length = tesh_serv_strnlen_s(name, verbose_file_bytes);
    while (length > 0 && name[length - 1] == ' ')
        --length;
    tesh_serv_lock(&file_value_lock);
    const int32_t failed = set_verbose_file_val(name, length);
    __atomic_store_n(&file_known, 1, __ATOMIC_RELEASE);
    tesh_serv_unlock(&file_value_lock);
    return failed;
}

const char *tesh_serv_verbose_output_file_mode(void)
{
    set_verbose_file_from_env();
    return verbose_file_val;
}
}
