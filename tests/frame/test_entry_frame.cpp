// SPDX-License-Identifier: BSD-3-Clause
// What the frame around a public routine does besides the work: readings of the clock, and the registration of the handler.
// Each reading asks the processor for leaf 0 once, so that the questions count the readings.
#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "frame/tesh.h"
#include "tests/support/vcpu/in_process.h"

namespace
{
struct routine {
    const char *name;
    void (*call)();
    bool registers;        // puts its handler in force
    bool compares_to_zero; // leaves the second reading out where the first was 0
};

void sgemm_of_m(int64_t m)
{
    const int64_t one = 1;
    const float x = 1, zero = 0;
    float c = 0;
    SGEMM("N", "N", &m, &one, &one, &x, &x, &one, &x, &one, &zero, &c, &one);
}

void call_saxpby()
{
    const float x = 1;
    float y = 1;
    cblas_saxpby(1, 2, &x, 1, 3, &y, 1);
}

void call_simatcopy()
{
    float a = 1;
    TESH_Simatcopy('C', 'N', 1, 1, 2, &a, 1, 1);
}

void call_somatcopy()
{
    const char ordering = 'R', trans = 'T';
    const int64_t one = 1;
    const float a = 1, alpha = 2;
    float b = 0;
    TESH_SOMATCOPY(&ordering, &trans, &one, &one, &alpha, &a, &one, &b, &one);
}

const std::vector<routine> routines = {
    {"SGEMM", [] { sgemm_of_m(1); }, true, true},
    {"SGEMM with a bad argument", [] { sgemm_of_m(-1); }, true, true},
    {"SAXPBY", call_saxpby, false, true},
    {"TESH_Simatcopy", call_simatcopy, true, false},
    {"TESH_SOMATCOPY", call_somatcopy, true, false},
};

// Readings of the clock in one call, after a first one that settles all that is settled at first use.
int readings(const routine &r)
{
    r.call();
    const int before = tesh_test::asked(0, 0);
    r.call();
    return tesh_test::asked(0, 0) - before;
}

TEST(frame, reads_no_clock_in_a_silent_call)
{
    for (const routine &r : routines)
        tesh_test::on_processor("avx2", {{"TESH_VERBOSE", ""}}, [&] { EXPECT_EQ(readings(r), 0) << r.name; });
}

TEST(frame, reads_the_clock_before_and_after_a_timed_call)
{
    for (const routine &r : routines) {
        const auto child = tesh_test::on_processor("avx2", {{"TESH_VERBOSE", "1"}}, [&] {
            tesh_clocks_freq = 2.0;
            EXPECT_EQ(readings(r), 2) << r.name;
        });
        EXPECT_EQ(child.out.find(" 0.00s CNR"), std::string::npos) << child.out;
    }
}

TEST(frame, takes_a_first_reading_of_zero_for_no_time)
{
    for (const routine &r : routines) {
        const auto child = tesh_test::on_processor("avx2", {{"TESH_VERBOSE", "1"}}, [&] {
            tesh_clocks_freq = std::numeric_limits<double>::infinity(); // every reading is 0
            EXPECT_EQ(readings(r), r.compares_to_zero ? 1 : 2) << r.name;
        });
        EXPECT_NE(child.out.find(" 0.00s CNR"), std::string::npos) << child.out;
    }
}

TEST(frame, registers_the_handler_chain_but_for_saxpby)
{
    for (const routine &r : routines) {
        tesh_test::on_processor("avx2", {{"TESH_VERBOSE", ""}}, [&] {
            r.call();
            EXPECT_EQ(tesh_serv_set_xerbla(nullptr), r.registers ? cdecl_xerbla : tesh_serv_default_xerbla) << r.name;
        });
    }
}
} // namespace
