// SPDX-License-Identifier: BSD-3-Clause
// FMA4 (four-operand fused multiply-add) for machines without it: called by a SIGILL handler.
#pragma once
#include <ucontext.h>

namespace tesh_test
{
// If the instruction at the context's instruction pointer is FMA4: does it on the context's registers, rounding as the
// context's MXCSR says, and steps over it. Otherwise false, and nothing is changed.
bool emulate_fma4(ucontext_t *context);

// Installs a SIGILL handler that does so in this process; another illegal instruction ends it as usual.
void install_fma4_emulation();
} // namespace tesh_test
