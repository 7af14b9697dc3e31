// SPDX-License-Identifier: BSD-3-Clause
// The environment as the process was started with it, from /proc/self/environ, without the C runtime: the census can
// run before that is set up, and while the caller's vector registers are live. The loops hold a barrier each, so that
// the compiler does not replace them by calls of the C library's (vector) memcpy, memset or strlen.
#include "frame/service/general_regs/tiny_libc.h"

#include <fcntl.h>
#include <sys/syscall.h>

#include "frame/service/processor.h"

namespace
{
inline void keep_loop(void)
{
    __asm__ volatile("" ::: "memory");
}

int64_t system_call(int64_t number, int64_t a, int64_t b, int64_t c)
{
    int64_t result;
    __asm__ volatile("syscall" : "=a"(result) : "a"(number), "D"(a), "S"(b), "d"(c) : "rcx", "r11", "memory");
    return result;
}

void memcpy_forward(char *dest, const char *src, size_t bytes)
{
    for (size_t i = 0; i < bytes; ++i) {
        dest[i] = src[i];
        keep_loop();
    }
}

struct wanted {
    const char *name;
    size_t name_length;
    char *buffer;
    size_t buffer_bytes;
};

// An entry is "NAME=value", length characters without a terminator.
bool take_if_wanted(const wanted &want, const char *entry, size_t length)
{
    if (length <= want.name_length || entry[want.name_length] != '=' ||
        __libtesh_libc_strncmp(entry, want.name, want.name_length) != 0)
        return false;
    const size_t value_length = length - want.name_length - 1;
    const size_t bytes = value_length < want.buffer_bytes ? value_length : want.buffer_bytes;
    memcpy_forward(want.buffer, entry + want.name_length + 1, bytes);
    want.buffer[want.buffer_bytes - 1] = 0;
    return true;
}

// Walks the file through one block; an unfinished entry moves to the start of the block before the next read, and one
// that is longer than the block is skipped whole.
bool search(int32_t file, const wanted &want)
{
    constexpr size_t block_bytes = 1024;
    char block[block_bytes];
    size_t held = 0;
    bool skipping = false;
    for (;;) {
        const int64_t got = __libtesh_libc_read(file, block + held, block_bytes - held);
        if (got < 0)
            return false;
        if (got == 0)
            return held > 0 && take_if_wanted(want, block, held);
        const size_t end = held + static_cast<size_t>(got);
        size_t start = 0;
        for (size_t i = held; i < end; ++i) {
            if (block[i] != 0)
                continue;
            if (!skipping && take_if_wanted(want, block + start, i - start))
                return true;
            skipping = false;
            start = i + 1;
        }
        held = end - start;
        skipping = skipping || held == block_bytes;
        if (skipping)
            held = 0;
        memcpy_forward(block, block + start, held);
    }
}
} // namespace

extern "C" {
size_t __libtesh_libc_strlen(const char *s)
{
    size_t length = 0;
    for (; s[length] != 0; ++length)
        keep_loop();
    return length;
}

int32_t __libtesh_libc_strncmp(const char *a, const char *b, size_t count)
{
    for (size_t i = 0; i < count; ++i) {
        const int32_t difference = static_cast<uint8_t>(a[i]) - static_cast<uint8_t>(b[i]);
        if (difference != 0 || a[i] == 0)
            return difference;
    }
    return 0;
}

void *__libtesh_libc_memset(void *dest, int32_t value, size_t bytes)
{
    for (size_t i = 0; i < bytes; ++i) {
        static_cast<char *>(dest)[i] = static_cast<char>(value);
        keep_loop();
    }
    return dest;
}

int32_t __libtesh_libc_open(const char *name, int32_t flags)
{
    return static_cast<int32_t>(system_call(SYS_open, reinterpret_cast<int64_t>(name), flags, 0));
}

int64_t __libtesh_libc_read(int32_t file, void *buffer, size_t bytes)
{
    return system_call(SYS_read, file, reinterpret_cast<int64_t>(buffer), static_cast<int64_t>(bytes));
}

int32_t __libtesh_libc_close(int32_t file)
{
    return static_cast<int32_t>(system_call(SYS_close, file, 0, 0));
}

bool proc_getenv(const char *name, char *buffer, int64_t size)
{
    if (size <= 0)
        return false;
    const wanted want = {name, __libtesh_libc_strlen(name), buffer, static_cast<size_t>(size)};
    __libtesh_libc_memset(buffer, 0, want.buffer_bytes);
    const int32_t file = __libtesh_libc_open("/proc/self/environ", O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return false;
    const bool found = search(file, want);
    __libtesh_libc_close(file);
    return found;
}

void __libtesh_libc_getenv_from_proc(const char *name, char *buffer, int64_t size)
{
    proc_getenv(name, buffer, size);
}
}
