// SPDX-License-Identifier: BSD-3-Clause
// The public headers stand alone as C99 and C++11, without a warning.
#include <gtest/gtest.h>

#include "tests/support/child.h"

namespace
{
using tesh_test::run_program;

TEST(public_headers, compile_alone_as_c99_and_cpp11)
{
    for (const char *header :
         {"tesh.h", "tesh_types.h", "tesh_serv.h", "tesh_blas.h", "tesh_lapack.h", "tesh_trans.h"}) {
        for (const char *language : {"-xc -std=c99", "-xc++ -std=c++11"}) {
            const std::string command = std::string("cc -fsyntax-only -Wall -Wextra -pedantic -Werror ") + language +
                                        " -include " TESH_SOURCE_DIR "/frame/" + header + " /dev/null";
            const auto result = run_program({"/bin/sh", "-c", command});
            EXPECT_EQ(result.exit_code, 0) << header << ' ' << language << '\n' << result.err;
        }
    }
}
} // namespace
