// SPDX-License-Identifier: BSD-3-Clause
// Which code paths a test program runs: all that this processor has, or the one that TESH_TEST_PATH names.
#pragma once
#include <cstddef>
#include <string>
#include <vector>

namespace tesh_test
{
// Whether the processor and the system have what the path's kernels use ("def", "cnr_def", "def_zen", "mc3", "avx2",
// "avx512").
bool machine_has_path(const std::string &path);

// The paths to run, in the order def, cnr_def, mc3, avx2, avx512. One that the machine lacks is left out and named on
// stdout.
std::vector<std::string> paths_to_run();

// The rows of a table that stand for the paths to run, in the order of the paths. A row names its path.
template <class Row, std::size_t count> std::vector<Row> rows_to_run(const Row (&table)[count])
{
    std::vector<Row> chosen;
    for (const std::string &path : paths_to_run()) {
        for (const Row &row : table) {
            if (path == row.path)
                chosen.push_back(row);
        }
    }
    return chosen;
}

// True for the set asked for by TESH_TEST_SET: "short" (default), "medium", "long". Longer sets hold the shorter ones.
bool in_medium_set();
bool in_long_set();
} // namespace tesh_test
