// SPDX-License-Identifier: BSD-3-Clause
// Pages for generated code: written first, then made executable; never both at once.
#include <sys/mman.h>

#include "frame/service/memory.h"

using namespace tesh_memory;

namespace
{
constexpr size_t page_bytes = 4096;

size_t whole_pages(size_t size)
{
    return (size + page_bytes - 1) & ~(page_bytes - 1);
}
} // namespace

extern "C" {
void *tesh_serv_jit_alloc(size_t size)
{
    if (size == 0)
        return nullptr;
    mm_init();
    const size_t length = whole_pages(size);
    void *const address = mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (address == MAP_FAILED)
        return nullptr;
    mm_account_add(static_cast<int64_t>(length), 1);
    mm_stat_add(static_cast<int64_t>(length), 1);
    return address;
}

int32_t tesh_serv_jit_set_exec(void *address, size_t size, int32_t executable)
{
    const int protection = PROT_READ | (executable ? PROT_EXEC : PROT_WRITE);
    return mprotect(address, size, protection) == 0;
}

// The thread's account goes down by the block; of the bytes in use the length is not taken off but added once more, so
// that they count the pages ever mapped and unmapped.
void tesh_serv_jit_free(void *address, size_t size)
{
    if (address == nullptr)
        return;
    mm_init();
    const size_t length = whole_pages(size);
    mm_account_add(-static_cast<int64_t>(length), -1);
    mm_stat_add(static_cast<int64_t>(length), -1);
    munmap(address, length);
}
}
