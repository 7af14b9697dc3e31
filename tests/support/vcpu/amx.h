// SPDX-License-Identifier: BSD-3-Clause
// Matrix tiles (AMX) for machines without them: called by a SIGILL handler. The tiles are the thread's own.
#pragma once
#include <ucontext.h>

namespace tesh_test
{
enum class amx_outcome {
    none,       // no tile instruction: nothing is changed
    done,       // done, and stepped over
    undefined,  // a tile instruction that the processor would refuse (#UD, or no permission): SIGILL
    protection, // a configuration that the processor would refuse (#GP): SIGSEGV
};

// permitted: whether the process may use tile data.
amx_outcome emulate_amx(ucontext_t *context, bool permitted);

// Installs a SIGILL handler that does so in this process, with permission; refused instructions end it as usual.
void install_amx_emulation();
} // namespace tesh_test
