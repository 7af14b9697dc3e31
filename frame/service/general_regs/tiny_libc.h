// SPDX-License-Identifier: BSD-3-Clause
// What the census needs of a C library, for general registers only. The three file calls are bare system calls and
// answer a negative error number on failure.
#pragma once
#include "frame/tesh_types.h"

extern "C" {
TESH_API size_t __libtesh_libc_strlen(const char *s);
TESH_API int32_t __libtesh_libc_strncmp(const char *a, const char *b, size_t count);
TESH_API void *__libtesh_libc_memset(void *dest, int32_t value, size_t bytes);
TESH_API int32_t __libtesh_libc_open(const char *name, int32_t flags);
TESH_API int64_t __libtesh_libc_read(int32_t file, void *buffer, size_t bytes);
TESH_API int32_t __libtesh_libc_close(int32_t file);
}
