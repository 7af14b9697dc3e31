// SPDX-License-Identifier: BSD-3-Clause
// What the frame around a public routine does besides the work: readings of the clock, the registration of the handler,
// and the verbose line where the level changes within a call.
// Each reading asks the processor for leaf 0 once, so that the questions count the readings.
#include <gtest/gtest.h>

#include <limits>
#include <string>
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

// A handler that changes the level, so that it changes within a call.
int32_t level_from_handler = 0;
void change_level(const char *, const int64_t *, int32_t)
{
    tesh_serv_verbose(level_from_handler);
}

// The output of one bad call, the level being before at its start and changed by the report. Calls have been made
// earlier, so that the routine knows where the level is.
std::string output_of_bad_call(void (*call)(), int32_t before, int32_t changed)
{
    return tesh_test::on_processor("avx2", {{"TESH_VERBOSE", ""}},
                                   [&] {
                                       tesh_clocks_freq = 2.0;
                                       sgemm_of_m(1);
                                       call_simatcopy();
                                       call_somatcopy();
                                       level_from_handler = changed;
                                       tesh_serv_set_xerbla(change_level);
                                       tesh_serv_verbose(before);
                                       call();
                                   })
        .out;
}

void bad_sgemm()
{
    sgemm_of_m(-1);
}

void bad_simatcopy()
{
    float a = 1;
    TESH_Simatcopy('C', 'N', 1, 1, 2, &a, 0, 1);
}

void bad_somatcopy()
{
    const char ordering = 'R', trans = 'T';
    const int64_t one = 1, none = 0;
    const float a = 1, alpha = 2;
    float b = 0;
    TESH_SOMATCOPY(&ordering, &trans, &one, &one, &alpha, &a, &none, &b, &one);
}

TEST(frame, reports_a_bad_argument_by_the_level_that_holds_after_the_report)
{
    for (void (*const call)() : {bad_sgemm, bad_simatcopy, bad_somatcopy}) {
        EXPECT_NE(output_of_bad_call(call, 0, 1).find("\nTESH_VERBOSE "), std::string::npos); // a header and a line
        EXPECT_EQ(output_of_bad_call(call, 1, 0), "");
    }
}

TEST(frame, of_a_copy_names_the_interface_only_where_the_level_stood_at_the_start)
{
    EXPECT_NE(output_of_bad_call(bad_sgemm, 0, 1).find("GHz, ilp64, sequential\n"), std::string::npos);
    for (void (*const call)() : {bad_simatcopy, bad_somatcopy}) {
        EXPECT_NE(output_of_bad_call(call, 0, 1).find("GHz, sequential\n"), std::string::npos);
        EXPECT_NE(output_of_bad_call(call, 1, 2).find("GHz, ilp64, sequential\n"), std::string::npos);
    }
}

// The first call of a routine settles its view of the level also where it is a bad one.
TEST(frame, follows_the_level_after_a_bad_first_call)
{
    const auto child = tesh_test::on_processor("avx2", {{"TESH_VERBOSE", "0"}}, [] {
        tesh_clocks_freq = 2.0;
        tesh_serv_set_xerbla([](const char *, const int64_t *, int32_t) {});
        bad_sgemm();
        tesh_serv_verbose(1);
        bad_sgemm();
        tesh_serv_verbose(0);
        bad_sgemm();
    });
    EXPECT_EQ(child.out.find("SGEMM("), child.out.rfind("SGEMM(")) << child.out;
    EXPECT_NE(child.out.find("SGEMM(N,N,-1,1,1,"), std::string::npos) << child.out;
}

TEST(frame, of_the_c_interface_prints_no_line_for_a_bad_argument)
{
    const auto child = tesh_test::on_processor("avx2", {{"TESH_VERBOSE", "1"}}, [] {
        tesh_clocks_freq = 2.0;
        cblas_sgemm(100, CblasNoTrans, CblasNoTrans, 0, 0, 0, 1, nullptr, 1, nullptr, 1, 0, nullptr, 1);
    });
    EXPECT_EQ(child.out, "\nOrvan Tesh ERROR: Parameter 1 was incorrect on entry to cblas_sgemm.\n");
}
} // namespace
