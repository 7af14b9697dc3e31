// SPDX-License-Identifier: BSD-3-Clause
// For programs that link the archive: this process asks the profile instead of the processor, from the next question on.
// Works everywhere, under sanitizers too; detection must not have run yet. Fork before it where the next case needs an
// untouched library.
#pragma once
#include "tests/support/vcpu/profile.h"

namespace tesh_test
{
void become(const vcpu_profile &profile);
// How often a leaf has been asked since then.
int asked(std::uint32_t leaf, std::uint32_t subleaf);
} // namespace tesh_test
