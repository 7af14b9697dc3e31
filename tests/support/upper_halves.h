// SPDX-License-Identifier: BSD-3-Clause
// The halves of the vector registers that SSE code does not know. Where a routine leaves them in use, its caller's SSE
// code runs slowly on many processors until they are cleared.
#pragma once

namespace tesh_test
{
// Whether the processor tells which halves are in use, and the compiler's build of the library cares for them: a build
// for sanitizers does not.
bool upper_halves_can_be_seen();

void clear_upper_halves();
bool upper_halves_in_use();
} // namespace tesh_test
