// SPDX-License-Identifier: BSD-3-Clause
// What the verbose settings and the verbose lines share.
#pragma once
#include <stddef.h>

constexpr size_t verbose_file_bytes = 4096; // of a file name and its terminator

// The name of the output file at this moment, empty for standard output.
void verbose_copy_file_name(char name[verbose_file_bytes]);

// One line on standard error.
void verbose_warn(const char *text);
