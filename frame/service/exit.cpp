// SPDX-License-Identifier: BSD-3-Clause
// The one place where the library ends the process.
#include <stdlib.h>

#include "frame/tesh_serv.h"

namespace
{
tesh_serv_exit_fn custom_core_exit = nullptr;
}

extern "C" {
void tesh_serv_set_exit_handler(tesh_serv_exit_fn handler)
{
    __atomic_store_n(&custom_core_exit, handler, __ATOMIC_RELEASE);
}

// A hook that returns lets the failed code go on.
void tesh_serv_exit(int32_t code)
{
    const tesh_serv_exit_fn hook = __atomic_load_n(&custom_core_exit, __ATOMIC_ACQUIRE);
    if (hook == nullptr)
        exit(code);
    hook(code);
}
}
