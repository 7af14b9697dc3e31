// SPDX-License-Identifier: BSD-3-Clause
// The main function of every test program. A program that ran no case fails.
#include <gtest/gtest.h>

#include <cstdio>

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    const int failed = RUN_ALL_TESTS();
    if (testing::UnitTest::GetInstance()->test_to_run_count() == 0) {
        std::printf("no test ran\n");
        return 1;
    }
    return failed;
}
