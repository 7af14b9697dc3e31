// SPDX-License-Identifier: BSD-3-Clause
// Clocks: the counter's frequency, seconds from it, and frequencies by name.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>

#include "frame/service/clocks.h"
#include "frame/tesh_serv.h"
#include "tests/support/child.h"
#include "tests/support/detour.h"
#include "tests/support/vcpu/in_process.h"
#include "tests/support/vcpu/profiles.h"

namespace
{
TEST(clock_frequency, is_unknown_until_asked_for)
{
    const auto result = tesh_test::run_forked([] {
        const bool before = tesh_clocks_freq == -1.0;
        const double frequency = tesh_serv_get_clocks_frequency();
        return before && frequency > 0 && tesh_clocks_freq == frequency ? 0 : 1;
    });
    EXPECT_EQ(result.exit_code, 0);
}

TEST(clock_frequency, is_measured_once)
{
    const double frequency = tesh_serv_get_clocks_frequency();
    EXPECT_GT(frequency, 0.1);
    EXPECT_LT(frequency, 20.0);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(tesh_serv_get_clocks_frequency(), frequency);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100));
}

// The wall clock is read on both sides of each reading, so that an interruption between two of them does not count. The
// frequency may come from an interval of 0.1 ms, read to the microsecond at both ends: 2 %.
TEST(seconds, advance_with_the_wall_clock)
{
    const auto wall = [] {
        return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
    };
    tesh_serv_get_clocks_frequency();
    const double outer_start = wall(), start = tesh_serv_dsecnd(), inner_start = wall();
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    const double inner_end = wall(), end = tesh_serv_dsecnd(), outer_end = wall();
    EXPECT_GE(end - start, 0.97 * (inner_end - inner_start));
    EXPECT_LE(end - start, 1.03 * (outer_end - outer_start));
}

TEST(seconds, are_ticks_by_the_frequency_and_the_factor_below_1e9)
{
    const double scale = tesh_serv_get_clocks_frequency() * 999999999.9999999;
    uint64_t before = 0, after = 0;
    tesh_serv_get_cpu_clocks(&before);
    const double seconds = tesh_serv_dsecnd();
    tesh_serv_get_cpu_clocks(&after);
    EXPECT_LE(static_cast<double>(before) / scale, seconds);
    EXPECT_LE(seconds, static_cast<double>(after) / scale);
}

TEST(seconds, in_single_precision_are_the_same_clock)
{
    const double before = tesh_serv_dsecnd();
    const float seconds = tesh_serv_second();
    const double after = tesh_serv_dsecnd();
    EXPECT_LE(static_cast<float>(before), seconds);
    EXPECT_LE(seconds, static_cast<float>(after));
}

TEST(cpu_clocks, never_run_backwards_and_accept_null)
{
    tesh_serv_get_cpu_clocks(nullptr);
    uint64_t last = 0;
    for (int i = 0; i < 1000; ++i) {
        uint64_t ticks = 0;
        tesh_serv_get_cpu_clocks(&ticks);
        ASSERT_GT(ticks, last);
        last = ticks;
    }
}

// CPUID holds the reading back until all before it is done; it has no other use there,
// so that a compiler could drop it.
TEST(cpu_clocks, are_read_behind_one_cpuid)
{
    tesh_test::on_processor("avx2", {}, [] {
        tesh_clocks_freq = 2.0;
        const int before = tesh_test::asked(0, 0);
        uint64_t ticks = 0;
        tesh_serv_get_cpu_clocks(&ticks);
        EXPECT_EQ(tesh_test::asked(0, 0), before + 1);
        tesh_serv_get_cpu_clocks(nullptr);
        EXPECT_EQ(tesh_test::asked(0, 0), before + 2);
        tesh_serv_dsecnd();
        EXPECT_EQ(tesh_test::asked(0, 0), before + 3);
        tesh_serv_second();
        EXPECT_EQ(tesh_test::asked(0, 0), before + 4);
    });
}

TEST(brand_frequency, reads_the_unit_and_the_four_characters_in_front)
{
    const struct {
        const char *text;
        double ghz;
    } rows[] = {
        {"PU @ 2.40GHz\0\0\0\0", 2.4}, {"CPU     3.06GHz\0", 3.06}, {"2.93GHz         ", 2.93},
        {"Processor1800MHz", 1.8},     {"0.50THz         ", 500.0}, {"1.00THz         ", 1000.0},
        {"1.57MHz         ", 0.001},   {"2667GHz         ", 2.667}, {"Hz 2.20GHz      ", 2.2},
        {"64-Core Processo", 0.0},     {"    2.40 Hz     ", 0.0},   {"     800MHz     ", 0.0},
        {"2.4GHz          ", 0.0},     {"                ", 0.0},   {"        2.40GHzz", 2.4},
        {"         2.40GHz", 2.4},     {"          2.40GH", 0.0},   {"    a.bcGHz     ", 0.0},
    };
    for (const auto &row : rows)
        EXPECT_NEAR(clocks_brand_frequency(row.text), row.ghz, 1e-9) << '"' << row.text << '"';
}

// A processor whose brand string ends in the sixteen characters, if its leaves go that far; if not, they stand in its
// last leaf, and any leaf beyond that answers the same.
tesh_test::vcpu_profile named(const char text[17], uint32_t last_extended_leaf)
{
    tesh_test::vcpu_profile profile = tesh_test::profile_named("avx2");
    std::memcpy(tesh_test::vcpu_registers(&profile, std::min(0x80000004u, last_extended_leaf), 0), text, 16);
    profile.beyond_last_repeats = true;
    tesh_test::vcpu_registers(&profile, 0x80000000, 0)[0] = last_extended_leaf;
    return profile;
}

TEST(max_frequency, is_the_one_in_the_last_sixteen_characters_of_the_brand_string)
{
    tesh_test::on_processor(named("    @ 7.70GHz   ", 0x80000004), {},
                            [] { EXPECT_NEAR(tesh_serv_get_max_cpu_frequency(), 7.7, 1e-9); });
    tesh_test::on_processor(named("    @ 7.70GHz   ", 0x80000008), {},
                            [] { EXPECT_NEAR(tesh_serv_get_max_cpu_frequency(), 7.7, 1e-9); });
    tesh_test::on_processor(named("    @ 7700MHz   ", 0x80000004), {},
                            [] { EXPECT_NEAR(tesh_serv_get_max_cpu_frequency(), 7.7, 1e-9); });
}

TEST(max_frequency, without_a_brand_string_is_not_taken_from_it)
{
    tesh_test::on_processor(named("    @ 7.70GHz   ", 0x80000003), {}, [] {
        const double frequency = tesh_serv_get_max_cpu_frequency();
        EXPECT_GT(frequency, 0.1);
        EXPECT_GT(std::fabs(frequency - 7.7), 1e-9);
    });
}

FILE *open_machine_text(const char *, const char *)
{
    static char text[] = "processor\t: 0\ncpu MHz\t\t: 2009.111\ncpu MHz\t\t: 1.0\n";
    return fmemopen(text, sizeof text - 1, "r");
}

TEST(max_frequency, without_a_brand_string_is_the_first_number_of_the_machine_text_to_the_last_bit)
{
    tesh_test::on_processor(named("    @ 7.70GHz   ", 0x80000003), {}, [] {
        tesh_test::detour(&fopen, &open_machine_text);
        EXPECT_EQ(tesh_serv_get_max_cpu_frequency(), 2009.111 * 0.001);
    });
}

TEST(max_frequency, is_that_of_a_processor)
{
    const double frequency = tesh_serv_get_max_cpu_frequency();
    EXPECT_GT(frequency, 0.1);
    EXPECT_LT(frequency, 20.0);
}

TEST(cpu_frequency, is_near_a_processors_range)
{
    const double frequency = tesh_serv_get_cpu_frequency();
    EXPECT_GT(frequency, 0.1);
    EXPECT_LT(frequency, 20.0);
}
} // namespace
