// SPDX-License-Identifier: BSD-3-Clause
// Run by test_getenv: prints "read<VALUE>" for the variable TESH_PROC as the reader of the proc file finds it with a
// buffer of the given size, which ends at a guard page.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "frame/tesh_serv.h"
#include "tests/support/guard_pages.h"

int main(int argc, char **argv)
{
    const std::size_t size = argc > 1 ? static_cast<std::size_t>(std::atoll(argv[1])) : 0;
    if (size == 0)
        return 2;
    tesh_test::guarded_array<char> buffer(size);
    std::memset(buffer.data(), '#', size);
    __libtesh_libc_getenv_from_proc("TESH_PROC", buffer.data(), static_cast<std::int64_t>(size));
    if (buffer[size - 1] != 0)
        return 3;
    std::printf("read<%s>\n", buffer.data());
    return 0;
}
