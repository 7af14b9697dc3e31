// SPDX-License-Identifier: BSD-3-Clause
// Arrays between pages without access.
#include "tests/support/guard_pages.h"

#include <sys/mman.h>
#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#endif

#include <cstdio>
#include <cstdlib>

namespace
{
constexpr std::size_t page = 4096;

// An emulator may load a masked register whole; there only stores are held back.
int guard_protection()
{
    return std::getenv("TESH_TEST_EMULATED") != nullptr ? PROT_READ : PROT_NONE;
}
} // namespace

#if defined(__SANITIZE_ADDRESS__)
void tesh_test::hide_bytes(const void *begin, std::size_t bytes)
{
    __asan_poison_memory_region(begin, bytes);
}
void tesh_test::show_bytes(const void *begin, std::size_t bytes)
{
    __asan_unpoison_memory_region(begin, bytes);
}
#else
void tesh_test::hide_bytes(const void *, std::size_t) {}
void tesh_test::show_bytes(const void *, std::size_t) {}
#endif

tesh_test::guarded_bytes::guarded_bytes(std::size_t bytes, guard side, std::size_t shift_bytes)
{
    const std::size_t body = (bytes + shift_bytes + page - 1) / page * page;
    map_bytes_ = body + 2 * page;
    void *map = mmap(nullptr, map_bytes_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (map == MAP_FAILED) {
        std::perror("guarded_bytes: mmap");
        std::abort();
    }
    map_ = static_cast<std::uint8_t *>(map);
    if (mprotect(map_, page, guard_protection()) != 0 || mprotect(map_ + page + body, page, guard_protection()) != 0) {
        std::perror("guarded_bytes: mprotect");
        std::abort();
    }
    data_ = side == guard::at_end ? map_ + page + body - bytes - shift_bytes : map_ + page + shift_bytes;
    hide_bytes(map_ + page, static_cast<std::size_t>(data_ - (map_ + page)));
    hide_bytes(data_ + bytes, body - static_cast<std::size_t>(data_ - (map_ + page)) - bytes);
}

tesh_test::guarded_bytes::~guarded_bytes()
{
    show_bytes(map_, map_bytes_);
    munmap(map_, map_bytes_);
}
