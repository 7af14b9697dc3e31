// SPDX-License-Identifier: BSD-3-Clause
// The load-time step of processor detection.
#include "frame/service/loader.h"

extern "C" {
[[gnu::used]] static char DispLibCWD[loader_directory_bytes];

[[gnu::constructor]] static void _Init_TESH_Loader(void)
{
    loader_capture_directory(DispLibCWD, reinterpret_cast<void *>(&_Init_TESH_Loader));
}
}
