// SPDX-License-Identifier: BSD-3-Clause
// Puts another function in the place of one, in this process: every call of it goes there, from inside the library,
// too. Nothing of the library is built otherwise for that.
#pragma once

namespace tesh_test
{
// Overwrites the first 14 bytes of the function at from by a jump to the one at to. Ends the process where the system
// does not let code be written.
void detour_address(void *from, void *to);

template <class Function> void detour(Function *from, Function *to)
{
    detour_address(reinterpret_cast<void *>(from), reinterpret_cast<void *>(to));
}
} // namespace tesh_test
