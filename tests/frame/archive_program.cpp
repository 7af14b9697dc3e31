// SPDX-License-Identifier: BSD-3-Clause
// A program linked with the archive may use for itself every name that the library does not export.
#include <gtest/gtest.h>

#include "tesh.h"

// Names of the library's own, as C functions and C++ functions.
extern "C" {
int check_cbwr_settings(int x)
{
    return x + 1;
}
int detect_bf16(int x)
{
    return x + 2;
}
int processor_cpuid = 3;
}
int fork_guard_register()
{
    return 4;
}

namespace
{
TEST(archive, leaves_names_that_it_does_not_export_to_the_program)
{
    tesh_serv_cbwr_get(1);
    tesh_serv_cpu_detect();
    const int64_t n = 3, one = 1;
    const float alpha = 2.0f, beta = 3.0f, x[3] = {1, 2, 3};
    float y[3] = {1, 1, 1};
    saxpby_(&n, &alpha, x, &one, &beta, y, &one);
    EXPECT_EQ(y[0], 5.0f);
    EXPECT_EQ(y[2], 9.0f);
    EXPECT_EQ(check_cbwr_settings(1) + detect_bf16(1) + processor_cpuid + fork_guard_register(), 12);
}
} // namespace
