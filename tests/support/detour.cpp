// SPDX-License-Identifier: BSD-3-Clause
// The jump that is written over a function, on pages that are writable for so long.
#include "tests/support/detour.h"

#include <sys/mman.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

void tesh_test::detour_address(void *from, void *to)
{
    constexpr std::uintptr_t page = 4096;
    unsigned char jump[14] = {0xff, 0x25, 0, 0, 0, 0}; // jmp *0(%rip), then the address
    std::memcpy(jump + 6, &to, sizeof to);
    const std::uintptr_t address = reinterpret_cast<std::uintptr_t>(from), first = address / page * page;
    const std::size_t bytes = (address + sizeof jump - first + page - 1) / page * page;
    if (mprotect(reinterpret_cast<void *>(first), bytes, PROT_READ | PROT_WRITE | PROT_EXEC) != 0) {
        std::perror("detour: mprotect");
        std::abort();
    }
    std::memcpy(from, jump, sizeof jump);
    if (mprotect(reinterpret_cast<void *>(first), bytes, PROT_READ | PROT_EXEC) != 0) {
        std::perror("detour: mprotect");
        std::abort();
    }
}
