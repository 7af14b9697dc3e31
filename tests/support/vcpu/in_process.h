// SPDX-License-Identifier: BSD-3-Clause
// For programs that link the archive: this process asks the profile instead of the processor, from the next question
// on. Works everywhere, under sanitizers too; detection must not have run yet. Fork before it where the next case needs
// an untouched library.
#pragma once
#include <functional>
#include <map>
#include <string>

#include "tests/support/child.h"
#include "tests/support/vcpu/profile.h"

namespace tesh_test
{
void become(const vcpu_profile &profile);
// How often a leaf has been asked since then.
int asked(std::uint32_t leaf, std::uint32_t subleaf);

// Runs body in a forked child that sees the profile. Expectations that fail there fail the caller's test, too, and so
// does an end with another code than the given one: what body was to expect may not have been asked then.
child_result on_processor(const vcpu_profile &profile, const std::map<std::string, std::string> &environment,
                          const std::function<void()> &body, int exit_code = 0);
child_result on_processor(const std::string &profile_name, const std::map<std::string, std::string> &environment,
                          const std::function<void()> &body, int exit_code = 0);
} // namespace tesh_test
