// SPDX-License-Identifier: BSD-3-Clause
// Settings of the memory manager and the raw allocators below both layers.
#include <stdlib.h>

#include "frame/service/loader.h"
#include "frame/service/memory.h"

// A program that stores its own functions here before the library's first allocation replaces the raw allocators.
extern "C" {
void *(*i_malloc)(size_t size) = malloc;
void *(*i_calloc)(size_t count, size_t size) = calloc;
void *(*i_realloc)(void *pointer, size_t size) = realloc;
void (*i_free)(void *pointer) = free;

int32_t tesh_fast_mm_lock = 0;
}

using namespace tesh_memory;

namespace
{
constexpr int32_t setting_bytes = 32; // room for the text of a setting

uint8_t env_has_been_cached; // 1 once the settings are read, or fixed by tesh_serv_disable_fast_mm
int32_t mm_init_lock;
[[gnu::section("tesh_fork_words"), gnu::used]] int32_t *const forked_tesh_fast_mm_lock = &tesh_fast_mm_lock;
[[gnu::section("tesh_fork_words"), gnu::used]] int32_t *const forked_mm_init_lock = &mm_init_lock;

bool settings_are_read()
{
    return __atomic_load_n(&env_has_been_cached, __ATOMIC_ACQUIRE) == 1;
}

void set_allocators()
{
    const bool untouched = i_malloc == malloc && i_calloc == calloc && i_realloc == realloc && i_free == free;
    sys_alloc = untouched ? mm_internal_malloc : i_malloc;
    sys_free = untouched ? mm_internal_free : i_free;
    sys_realloc = untouched ? mm_internal_realloc : i_realloc;
    sys_allocate = sys_alloc;
    sys_deallocate = sys_free;
}
} // namespace

namespace tesh_memory
{
void *(*sys_alloc)(size_t size);
void (*sys_free)(void *pointer);
void *(*sys_realloc)(void *pointer, size_t size);
void *(*sys_allocate)(size_t size);
void (*sys_deallocate)(void *pointer);
int32_t mm_init_done = -1;
int32_t disable_fast_mm;

void mm_read_settings()
{
    if (settings_are_read())
        return;
    tesh_serv_lock(&tesh_fast_mm_lock);
    if (!settings_are_read()) {
        char text[setting_bytes];
        if (tesh_serv_getenv("TESH_DISABLE_FAST_MM", text, setting_bytes) > 0)
            disable_fast_mm = 1;
        if (tesh_serv_getenv("TESH_FAST_MEMORY_LIMIT", text, setting_bytes) > 0) {
            const long mebibytes = strtol(text, nullptr, 10);
            mm_fast_memory_limit = mebibytes < 0 ? -1 : mebibytes_to_bytes(static_cast<size_t>(mebibytes));
        }
        __atomic_store_n(&env_has_been_cached, static_cast<uint8_t>(1), __ATOMIC_RELEASE);
    }
    tesh_serv_unlock(&tesh_fast_mm_lock);
}

void mm_init_once()
{
    bool too_old = false;
    tesh_serv_lock(&mm_init_lock);
    if (__atomic_load_n(&mm_init_done, __ATOMIC_ACQUIRE) != 1) {
        mm_read_settings();
        too_old = !mm_bind_fast_memory();
        set_allocators();
        __atomic_store_n(&mm_init_done, 1, __ATOMIC_RELEASE);
    }
    tesh_serv_unlock(&mm_init_lock);
    // Behind the lock, since the verbose mode's own set-up may come back here.
    if (too_old && *tesh_serv_verbose_mode() != 0)
        tesh_serv_printf_s("Minimal supported version of the memkind library is 1.1.0\n");
}
} // namespace tesh_memory

extern "C" {
int32_t tesh_serv_disable_fast_mm(void)
{
    if (settings_are_read())
        return 0;
    tesh_serv_lock(&tesh_fast_mm_lock);
    const bool first = !settings_are_read();
    if (first) {
        disable_fast_mm = 1;
        __atomic_store_n(&env_has_been_cached, static_cast<uint8_t>(1), __ATOMIC_RELEASE);
    }
    tesh_serv_unlock(&tesh_fast_mm_lock);
    return first;
}

int32_t tesh_serv_get_fast_mm_status(void)
{
    mm_read_settings();
    return disable_fast_mm;
}

// At load.
[[gnu::used]] static char DispLibCWD[loader_directory_bytes];

[[gnu::constructor]] static void _Init_TESH_Loader(void)
{
    loader_capture_directory(DispLibCWD, reinterpret_cast<void *>(&_Init_TESH_Loader));
}
}
