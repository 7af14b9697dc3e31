// SPDX-License-Identifier: BSD-3-Clause
// The internal raw allocator. On many-core processors with high-bandwidth memory it takes blocks from there, through
// the optional memkind library, which is bound by name at run time; everywhere else from the C library.
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "frame/service/memory.h"
#include "frame/service/processor.h"

using namespace tesh_memory;

namespace
{
// The first 32 bytes of a block; the caller's address is behind them.
struct raw_header {
    void *self;          // address of the block
    int32_t kind;        // raw_kind
    uint64_t total;      // [bytes] with this header
    uint64_t page_bytes; // [bytes] of the pages behind it
};
static_assert(sizeof(raw_header) == 32 && offsetof(raw_header, total) == 16, "raw header layout");

enum raw_kind : int32_t { raw_kind_c_library = 0, raw_kind_high_bandwidth = 1 };

constexpr uint64_t small_page_bytes = 4096;
constexpr uint64_t large_page_bytes = 2097152;

// Page sizes as memkind numbers them.
enum hbw_page : int { hbw_page_4k = 1, hbw_page_2m = 2 };
using hbw_posix_memalign_psize_fn = int (*)(void **block, size_t alignment, size_t size, int page);
using hbw_free_fn = void (*)(void *block);
using memkind_get_version_fn = int (*)();

hbw_posix_memalign_psize_fn hbw_posix_memalign_psize;
hbw_free_fn hbw_free;

constexpr char memkind_file[] = "libmemkind.so";
constexpr int oldest_memkind = 1001000; // version 1.1.0

// AVX512F, AVX512ER, AVX512PF, AVX512CD: the processors that have such memory.
constexpr uint64_t high_bandwidth_features = 0x708000000;

constexpr size_t path_bytes = 4096;
[[gnu::used]] char load_error[path_bytes]; // why the last library could not be loaded; for a debugger

int32_t mm_fast_memory_update_limit_lock;
[[gnu::section("tesh_fork_words"), gnu::used]] int32_t *const forked_limit_lock = &mm_fast_memory_update_limit_lock;

template <class Function> Function symbol(void *library, const char *name)
{
    return reinterpret_cast<Function>(dlsym(library, name));
}

int64_t limit_now()
{
    return __atomic_load_n(&mm_fast_memory_limit, __ATOMIC_RELAXED);
}

// Large pages first. The caller holds the lock if a limit is set.
raw_header *take_high_bandwidth(size_t total, uint64_t *page_bytes)
{
    void *block = nullptr;
    *page_bytes = large_page_bytes;
    if (hbw_posix_memalign_psize(&block, large_page_bytes, total, hbw_page_2m) == 0)
        return static_cast<raw_header *>(block);
    *page_bytes = small_page_bytes;
    block = nullptr;
    if (hbw_posix_memalign_psize(&block, small_page_bytes, total, hbw_page_4k) == 0)
        return static_cast<raw_header *>(block);
    return nullptr;
}

// Null if there is no such memory, or not enough of it.
raw_header *try_high_bandwidth(size_t total, uint64_t *page_bytes)
{
    const int64_t limit = limit_now();
    if (!mm_fast_memory_initialized || limit == 0)
        return nullptr;
    if (limit == -1)
        return take_high_bandwidth(total, page_bytes);
    raw_header *block = nullptr;
    tesh_serv_lock(&mm_fast_memory_update_limit_lock);
    const int64_t left = limit_now();
    if (left > 0 && static_cast<uint64_t>(left) > total) {
        block = take_high_bandwidth(total, page_bytes);
        if (block != nullptr)
            __atomic_store_n(&mm_fast_memory_limit, left - static_cast<int64_t>(total), __ATOMIC_RELAXED);
    }
    tesh_serv_unlock(&mm_fast_memory_update_limit_lock);
    return block;
}
} // namespace

namespace tesh_memory
{
int32_t mm_fast_memory_initialized;
int64_t mm_fast_memory_limit = -1;

bool mm_bind_fast_memory()
{
    if (!has_all(processor_features(), high_bandwidth_features) || tesh_serv_libc_is_static())
        return true;
    void *const library = TESHLoadLibrary("");
    if (library == nullptr)
        return true;
    const auto version = symbol<memkind_get_version_fn>(library, "memkind_get_version");
    const bool new_enough = version != nullptr && version() >= oldest_memkind;
    if (new_enough) {
        hbw_posix_memalign_psize = symbol<hbw_posix_memalign_psize_fn>(library, "hbw_posix_memalign_psize");
        hbw_free = symbol<hbw_free_fn>(library, "hbw_free");
        if (hbw_posix_memalign_psize != nullptr && hbw_free != nullptr) {
            mm_fast_memory_initialized = 1;
            return true;
        }
    }
    dlclose(library);
    return new_enough;
}

void *mm_internal_malloc(size_t size)
{
    size_t total;
    if (__builtin_add_overflow(size, sizeof(raw_header), &total))
        return nullptr;
    uint64_t page_bytes = small_page_bytes;
    int32_t kind = raw_kind_high_bandwidth;
    raw_header *block = try_high_bandwidth(total, &page_bytes);
    if (block == nullptr) {
        kind = raw_kind_c_library;
        page_bytes = small_page_bytes;
        block = static_cast<raw_header *>(malloc(total));
        if (block == nullptr)
            return nullptr;
    }
    *block = {block, kind, total, page_bytes};
    return block + 1;
}

void mm_internal_free(void *pointer)
{
    if (pointer == nullptr)
        return;
    raw_header *const block = static_cast<raw_header *>(pointer) - 1;
    if (block->kind != raw_kind_high_bandwidth) {
        free(block);
        return;
    }
    if (limit_now() != -1) {
        tesh_serv_lock(&mm_fast_memory_update_limit_lock);
        __atomic_store_n(&mm_fast_memory_limit, limit_now() + static_cast<int64_t>(block->total), __ATOMIC_RELAXED);
        tesh_serv_unlock(&mm_fast_memory_update_limit_lock);
    }
    hbw_free(block);
}

void *mm_internal_realloc(void *pointer, size_t size)
{
    if (pointer == nullptr)
        return mm_internal_malloc(size);
    if (size == 0) {
        mm_internal_free(pointer);
        return nullptr;
    }
    void *const moved = mm_internal_malloc(size);
    if (moved == nullptr)
        return nullptr;
    const size_t old_size = (static_cast<raw_header *>(pointer) - 1)->total - sizeof(raw_header);
    memcpy(moved, pointer, old_size < size ? old_size : size);
    mm_internal_free(pointer);
    return moved;
}
} // namespace tesh_memory

extern "C" {
// The library of high-bandwidth memory in the directory, or, for none, where the system looks for libraries.
void *TESHLoadLibrary(const char *directory)
{
    char path[path_bytes];
    const size_t given = directory != nullptr ? strlen(directory) : 0;
    const char *const slash = given == 0 || directory[given - 1] == '/' ? "" : "/";
    const int length = snprintf(path, sizeof path, "%s%s%s", given == 0 ? "" : directory, slash, memkind_file);
    if (length < 0 || static_cast<size_t>(length) >= sizeof path)
        return nullptr;
    void *const library = dlopen(path, RTLD_LAZY | RTLD_GLOBAL);
    if (library == nullptr) {
        const char *const reason = dlerror();
        snprintf(load_error, sizeof load_error, "%s", reason != nullptr ? reason : "");
    }
    return library;
}

int32_t tesh_serv_libc_is_static(void)
{
    Dl_info where;
    return dladdr(reinterpret_cast<void *>(&printf), &where) == 0;
}

int32_t tesh_serv_set_memory_limit(int32_t type, size_t mebibytes)
{
    constexpr int32_t type_high_bandwidth = 1;
    mm_init();
    if (type != type_high_bandwidth || !mm_fast_memory_initialized)
        return 0;
    tesh_serv_lock(&mm_fast_memory_update_limit_lock);
    if (limit_now() == -1)
        __atomic_store_n(&mm_fast_memory_limit, mebibytes_to_bytes(mebibytes), __ATOMIC_RELAXED);
    tesh_serv_unlock(&mm_fast_memory_update_limit_lock);
    return 1;
}

int64_t tesh_serv_check_fast_memory_size(void)
{
    mm_read_settings();
    return limit_now();
}
}
