// SPDX-License-Identifier: BSD-3-Clause
// Children: fatal exits, settings read from the environment and first uses are tested in a process of their own.
#pragma once
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace tesh_test
{
struct child_result {
    int exit_code = -1; // of exit or _exit; -1 if a signal ended the child
    int signal = 0;     // that ended the child, or 0
    std::string out;    // standard output, every byte
    std::string err;    // standard error, every byte
};

// Forks; the child runs body and ends through exit(body's answer). Use it before the parent has touched the library
// where the child needs an untouched one: services keep what they settled across a fork.
child_result run_forked(const std::function<int()> &body, const std::map<std::string, std::string> &environment = {});

// Starts a program with arguments; environment entries are added to this process's (an empty value unsets the name).
child_result run_program(const std::vector<std::string> &command,
                         const std::map<std::string, std::string> &environment = {});
} // namespace tesh_test
