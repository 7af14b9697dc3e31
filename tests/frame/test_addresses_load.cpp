// SPDX-License-Identifier: BSD-3-Clause
// A program that is not position-independent has addresses of its own for the library's functions, and keeps the
// library's variables in its own image. What the library hands out and looks at must be the same.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "tests/support/child.h"

namespace
{
using tesh_test::run_program;

constexpr const char *program = R"(
#include "tesh_blas.h"
#include "tesh_serv.h"
static void own_report(const char *name, const int64_t *code, int32_t length) { (void)name, (void)code, (void)length; }
static void own_note(const char *message, void *pointer, int32_t error) { (void)message, (void)pointer, (void)error; }
static int32_t own_progress(const int64_t *thread, const int64_t *step, const char *stage, int64_t length)
{
    return (void)thread, (void)step, (void)stage, (void)length, 0;
}
#define CHECK(condition) do { if (!(condition)) { puts(#condition); ++wrong; } } while (0)
int main(void)
{
    const float one = 1;
    float c = 0;
    int wrong = 0;
    CHECK(tesh_serv_set_xerbla(own_report) == tesh_serv_default_xerbla);
    CHECK(tesh_serv_set_xerbla(0) == own_report);
    CHECK(tesh_cpu_type == -1);
    cblas_sgemm(101, 111, 111, 1, 1, 1, 1, &one, 1, &one, 1, 0, &c, 1);
    CHECK(tesh_serv_set_xerbla(0) == cdecl_xerbla);
    CHECK(tesh_cpu_type == tesh_serv_cpu_detect());
    CHECK(tesh_serv_set_progress(own_progress) == tesh_serv_default_progress);
    CHECK(tesh_serv_get_cpu_true() == TESH_Orvan_CPU_True_Internal);
    CHECK(tesh_serv_get_cpu() == TESH_Orvan_CPU_Internal);
    tesh_serv_set_str_constraint_handler_s(0);
    CHECK(tesh_serv_set_str_constraint_handler_s(own_note) == tesh_serv_ignore_handler_s);
    tesh_serv_set_mem_constraint_handler_s(0);
    CHECK(tesh_serv_set_mem_constraint_handler_s(own_note) == tesh_serv_ignore_handler_s);
    return wrong;
}
)";

TEST(addresses, are_the_same_in_every_kind_of_program)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a program without the sanitizer cannot load the library";
#endif
    for (const std::string kind : {"-no-pie -fno-pie", "-pie -fPIE"}) {
        const std::string file = testing::TempDir() + "addresses_" + std::to_string(getpid());
        const auto made = run_program({"/bin/sh", "-c",
                                       "printf '%s' \"$0\" | cc " + kind +
                                           " -xc - -I\"$2/frame\" -o \"$1\" -xnone \"$3/libtesh.so\" -Wl,-rpath,\"$3\"",
                                       program, file, TESH_SOURCE_DIR, TESH_BUILD_DIR});
        ASSERT_EQ(made.exit_code, 0) << made.err;
        const auto child = run_program({file});
        std::remove(file.c_str());
        EXPECT_EQ(child.exit_code, 0) << kind;
        EXPECT_EQ(child.out, "") << kind;
    }
}
} // namespace
