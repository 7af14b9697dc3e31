// SPDX-License-Identifier: BSD-3-Clause
// The body of the two load-time constructors, that of detection and that of the memory manager. Each stands in the file
// of its service, so that a program linked with the archive has it as soon as it has the service.
#pragma once
#include <stddef.h>

constexpr size_t loader_directory_bytes = 4096;

// Stores the current directory with a "/" behind it, if it fits, in area (loader_directory_bytes long). If the
// directory cannot be read, reports the file that the address self lies in and ends the process with code 2.
void loader_capture_directory(char *area, void *self);
