// SPDX-License-Identifier: BSD-3-Clause
// What the load-time constructors do: keep the directory that the program was started in.
#include "frame/service/loader.h"

#include <dlfcn.h>
#include <unistd.h>

#include "frame/tesh_serv.h"

namespace
{
constexpr int32_t destination_stderr = 1;
constexpr int32_t message_cannot_load = 1;
constexpr int32_t exit_code_no_directory = 2;
} // namespace

void loader_capture_directory(char *area, void *self)
{
    Dl_info info = {};
    const bool known = dladdr(self, &info) != 0 && info.dli_fname != nullptr;
    if (getcwd(area, loader_directory_bytes) == nullptr) {
        tesh_serv_print(destination_stderr, message_cannot_load, 1, known ? info.dli_fname : "libtesh.so");
        tesh_serv_exit(exit_code_no_directory);
        return;
    }
    const size_t length = tesh_serv_strnlen_s(area, loader_directory_bytes);
    if (length < loader_directory_bytes - 1) {
        area[length] = '/';
        area[length + 1] = '\0';
    }
}
