// SPDX-License-Identifier: BSD-3-Clause
// A definition of a handler's name in the program takes the rest of the chain over, in both forms of the library.
#include <gtest/gtest.h>

#include "tests/support/child.h"

namespace
{
TEST(handlers, a_programs_own_xerbla_is_honoured)
{
    for (const char *program : {"/tests/frame_child_abi_own_handler", "/tests/frame_child_archive_own_handler"}) {
        const auto child = tesh_test::run_program({std::string(TESH_BUILD_DIR) + program});
        EXPECT_EQ(child.exit_code, 0) << program;
        EXPECT_EQ(child.out, "own handler: SGEMM  3\nown handler: cblas_sgemm 3\n") << program;
    }
}
} // namespace
