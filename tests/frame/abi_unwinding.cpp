// SPDX-License-Identifier: BSD-3-Clause
// Hooks of a C++ program that throw: the exception passes the library's frames and arrives at the caller, and the
// library is as before. Needs unwind tables in the shared object, which debuggers and profilers live on as well.
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>

#include "frame/tesh.h"
#include "tests/support/child.h"

namespace
{
constexpr int64_t i1 = 1, im1 = -1;
constexpr float one = 1.0f;

void throwing_handler(const char *name, const int64_t *code, int32_t length)
{
    throw std::invalid_argument(std::string(name, static_cast<size_t>(length)) + std::to_string(*code));
}

[[noreturn]] void throwing_exit(int32_t code)
{
    throw code;
}

std::string thrown_by(const std::function<void()> &call)
{
    try {
        call();
    } catch (const std::invalid_argument &error) {
        return error.what();
    }
    return "nothing";
}

TEST(unwinding, exception_of_an_error_handler_arrives_at_the_caller)
{
    float c = 5;
    const auto former = tesh_serv_set_xerbla(throwing_handler);
    for (const int32_t level : {0, 1}) { // the frame of a silent call and the one that prints lines
        tesh_serv_verbose(level);
        EXPECT_EQ(thrown_by([&] { SGEMM("N", "N", &im1, &i1, &i1, &one, &one, &i1, &one, &i1, &one, &c, &i1); }),
                  "SGEMM 3");
        EXPECT_EQ(thrown_by([&] { cblas_sgemm(100, 111, 111, 1, 1, 1, 1, &one, 1, &one, 1, 1, &c, 1); }),
                  "cblas_sgemm1");
        EXPECT_EQ(thrown_by([&] { TESH_Simatcopy('C', 'N', 1, 1, 2, &c, 0, 1); }), "tesh_simatcopy7");
        EXPECT_EQ(thrown_by([&] { TESH_Somatcopy('R', 'T', 1, 1, 2, &one, 1, &c, 0); }), "tesh_somatcopy9");
        EXPECT_EQ(thrown_by([] { tesh_serv_check_ptr(nullptr, "name"); }), "name1103");
    }
    tesh_serv_verbose(0);
    tesh_serv_set_xerbla(former);
    EXPECT_EQ(c, 5);
    cblas_sgemm(101, 111, 111, 1, 1, 1, 1, &one, 1, &one, 1, 1, &c, 1);
    EXPECT_EQ(c, 6);
}

TEST(unwinding, exception_of_an_exit_hook_arrives_at_the_caller_of_every_room)
{
    const auto child = tesh_test::run_forked([] {
        constexpr int32_t type_without_kernels = 2;
        float a[4] = {1, 2, 3, 4}, c[4] = {};
        const std::function<void()> calls[] = {
            [&] { cblas_sgemm(102, 111, 111, 2, 2, 2, 1, a, 2, a, 2, 0, c, 2); },
            [&] { cblas_saxpby(2, 1, a, 1, 2, c, 1); },
            [&] { TESH_Somatcopy('C', 'T', 2, 2, 1, a, 2, c, 2); },
        };
        tesh_serv_set_exit_handler(throwing_exit);
        tesh_cpu_type = type_without_kernels;
        for (const auto &call : calls) {
            try {
                call();
                return 10;
            } catch (int32_t code) {
                if (code != 1)
                    return 11;
            }
        }
        tesh_cpu_type = 0; // nothing has been bound meanwhile
        calls[0]();
        return c[0] == 7 && c[3] == 22 ? 0 : 12;
    });
    EXPECT_EQ(child.exit_code, 0) << child.err;
}
} // namespace
