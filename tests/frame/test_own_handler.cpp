// SPDX-License-Identifier: BSD-3-Clause
// A definition of a handler's name in the program takes the rest of the chain over, in both forms of the library. No
// other name of the library can be taken over.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>

#include "tests/support/child.h"

namespace
{
using tesh_test::run_program;

TEST(handlers, a_programs_own_xerbla_is_honoured)
{
    for (const char *program : {"/tests/frame_child_abi_own_handler", "/tests/frame_child_archive_own_handler"}) {
        const auto child = run_program({std::string(TESH_BUILD_DIR) + program});
        EXPECT_EQ(child.exit_code, 0) << program;
        EXPECT_EQ(child.out, "own handler: SGEMM  3\nown handler: cblas_sgemm 3\n") << program;
    }
}

// Calls with bad arguments in a program that has the definition before the library's in its search order.
tesh_test::child_result with_definition(const std::string &definition)
{
    const std::string file = testing::TempDir() + "own_handler_" + std::to_string(getpid()) + ".so";
    const auto made = run_program({"/bin/sh", "-c",
                                   "printf '%s\n' '#include <stdint.h>' '#include <stdio.h>' \"$0\" | "
                                   "cc -shared -fPIC -xc -o \"$1\" -",
                                   definition, file});
    EXPECT_EQ(made.exit_code, 0) << made.err;
    const auto child = run_program({TESH_BUILD_DIR "/tests/frame_child_abi_bad_arguments"}, {{"LD_PRELOAD", file}});
    std::remove(file.c_str());
    EXPECT_EQ(child.exit_code, 0);
    EXPECT_EQ(child.err, "");
    return child;
}

class interposed : public testing::Test
{
protected:
    void SetUp() override
    {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
        GTEST_SKIP() << "a sanitizer's own library must be loaded first";
#endif
    }
};

constexpr const char *library_reports[] = {
    "\nOrvan Tesh ERROR: Parameter 3 was incorrect on entry to SGEMM .\n",
    "\nOrvan Tesh ERROR: Parameter 1 was incorrect on entry to cblas_sgemm.\n",
    "\nOrvan Tesh ERROR: Parameter 1 was incorrect on entry to tesh_simatcopy.\n",
    "\nOrvan Tesh INTERNAL ERROR: Insufficient workspace available in function cblas_sgemm.\n",
};

std::string all_reports()
{
    std::string text;
    for (const char *report : library_reports)
        text += report;
    return text;
}

TEST_F(interposed, each_link_of_the_chain_can_be_taken_over)
{
    for (const char *name : {"cdecl_xerbla", "xerbla", "xerbla_", "XERBLA_", "XERBLA"}) {
        const auto child = with_definition(std::string("void ") + name +
                                           "(const char *name, const int64_t *code, int32_t length)"
                                           "{ printf(\"[%.*s] %d %d\\n\", length, name, (int)*code, length); }");
        EXPECT_EQ(child.out, "[SGEMM ] 3 6\n[cblas_sgemm] 1 11\n[tesh_simatcopy] 1 14\n[cblas_sgemm] 1000 11\n")
            << name;
    }
}

TEST_F(interposed, the_c_interface_has_a_handler_of_its_own)
{
    const auto child = with_definition("void cblas_xerbla(const char *name, int64_t parameter)"
                                       "{ printf(\"%s %d\\n\", name, (int)parameter); fflush(stdout); }");
    EXPECT_EQ(child.out, std::string(library_reports[0]) + "cblas_sgemm 1\n" + library_reports[2] + library_reports[3]);
}

TEST_F(interposed, nothing_else_can_be_taken_over)
{
    for (const char *name : {"tesh_serv_default_xerbla", "tesh_serv_xerbla", "tesh_serv_iface_xerbla",
                             "tesh_set_xerbla_interface", "tesh_serv_print", "tesh_blas__sgemm", "tesh_blas_sgemm",
                             "tesh_trans_errchk_tesh_simatcopy", "tesh_serv_strnlen_s"}) {
        const auto child = with_definition(std::string("int ") + name + "(void) { puts(\"taken over\"); return 0; }");
        EXPECT_EQ(child.out, all_reports()) << name;
    }
}
} // namespace
