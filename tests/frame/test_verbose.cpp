// SPDX-License-Identifier: BSD-3-Clause
// Verbose reporting: level, output file, header and lines, byte for byte. Level, file and header are settled once in a
// process, so that each case runs in a child.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <sstream>
#include <thread>
#include <vector>

#include "frame/tesh_serv.h"
#include "tests/support/child.h"

namespace
{
using environment = std::map<std::string, std::string>;

// Runs the body in a child that starts without any setting but these.
tesh_test::child_result child(const environment &settings, const std::function<void()> &body)
{
    environment all = {{"TESH_VERBOSE", ""},         {"TESH_VERBOSE_OUTPUT_FILE", ""}, {"TESH_CBWR", ""},
                       {"TESH_TRUSTED_VENDORS", ""}, {"TESH_ENABLE_INSTRUCTIONS", ""}, {"TESH_DISABLE_FAST_MM", ""}};
    for (const auto &[name, value] : settings)
        all[name] = value;
    return tesh_test::run_forked(
        [&] {
            body();
            return 0;
        },
        all);
}

void print(const char *record, double seconds = 2.0)
{
    tesh_serv_print_verbose_info(2, record, seconds);
}

// The header of an untrusted processor, with "#" in place of the frequency.
std::string header(const std::string &interface = ", ilp64")
{
    return "TESH_VERBOSE Tesh 2025 Update 3 Product build 20251007 for Orvan(R) Architecture processors Orvan(R) 64 "
           "architecture, Lnx #GHz" +
           interface + ", sequential\n";
}

// The frequency [GHz] behind "Lnx " in a header, with exactly two decimals, or "".
std::string frequency_in(const std::string &text)
{
    const size_t start = text.find(", Lnx ") + 6, end = text.find("GHz", start);
    if (text.find(", Lnx ") == std::string::npos || end == std::string::npos)
        return "";
    const std::string number = text.substr(start, end - start);
    const size_t point = number.find('.');
    const bool decimal = number.find_first_not_of("0123456789.") == std::string::npos && point != 0 &&
                         point + 3 == number.size() && number.rfind('.') == point;
    return decimal ? number : "";
}

std::string without_frequency(std::string text)
{
    const std::string number = frequency_in(text);
    if (!number.empty())
        text.replace(text.find(", Lnx ") + 6, number.size(), "#");
    return text;
}

const std::string tail = " 2.00s CNR:OFF Dyn:1 FastMM:1\n";

// A directory that is removed with all that lies in it.
class directory
{
public:
    directory()
    {
        char name[] = "/tmp/tesh_verbose_XXXXXX";
        name_ = mkdtemp(name);
    }
    ~directory()
    {
        if (std::system(("rm -rf " + name_).c_str()) != 0)
            ADD_FAILURE() << name_ << " stays";
    }
    std::string file(const std::string &name) const { return name_ + '/' + name; }
    const std::string &name() const { return name_; }

private:
    std::string name_;
};

std::string read_file(const std::string &name)
{
    std::ifstream file(name);
    std::stringstream text;
    text << file.rdbuf();
    return without_frequency(text.str());
}

TEST(verbose_level, from_the_environment)
{
    const struct {
        std::string text;
        int level;
    } rows[] = {
        {"0", 0},
        {"1", 1},
        {"2", 2},
        {"3", 0},
        {"-1", 0},
        {"abc", 0},
        {"0x2", 2},
        {"0x1", 1},
        {"01", 1},
        {" 1", 1},
        {"1 ", 0},
        {"1x", 0},
        {"0x", 0},
        {"99999999999999999999", 0},
        {"+2", 2},
        {"08", 0},
        {"0x3", 0},
        {"1.0", 0},
        {"", 0},
        {" ", 0},
        {std::string(126, '0') + "1", 1},
        {std::string(127, '0') + "1", 0}, // longer than what is read
    };
    for (const auto &row : rows) {
        const auto result = tesh_test::run_forked(
            [] {
                if (tesh_verbose_val != -1)
                    return 100;
                const int32_t *const live = tesh_serv_verbose_mode();
                return live == &tesh_verbose_val ? *live : 101;
            },
            {{"TESH_VERBOSE", row.text}});
        EXPECT_EQ(result.exit_code, row.level) << '"' << row.text << '"';
        EXPECT_EQ(result.out + result.err, "");
    }
}

TEST(verbose_level, set_by_a_call_is_live_at_once)
{
    const auto result = child({{"TESH_VERBOSE", "1"}}, [] {
        const int32_t *const live = tesh_serv_verbose_mode();
        std::printf("%d ", *live);
        for (const int32_t level : {0, 2, 3, -1, INT32_MIN, 1}) {
            const int32_t answer = tesh_serv_verbose(level);
            std::printf("%d:%d ", answer, *live);
        }
    });
    EXPECT_EQ(result.out, "1 0:0 2:2 -1:2 -1:2 -1:2 1:1 ");
}

TEST(verbose_level, call_resolves_the_environment_first)
{
    const auto result = child({{"TESH_VERBOSE", "2"}}, [] {
        std::printf("%d ", tesh_serv_verbose(7));
        std::printf("%d", tesh_verbose_val);
    });
    EXPECT_EQ(result.out, "-1 2");
}

TEST(verbose_line, follows_the_header_which_comes_once)
{
    const auto result = child({}, [] {
        print("SGEMM(N)");
        print("SAXPBY(3)");
    });
    EXPECT_EQ(without_frequency(result.out),
              header() + "TESH_VERBOSE SGEMM(N)" + tail + "TESH_VERBOSE SAXPBY(3)" + tail);
    EXPECT_EQ(result.err, "");
}

TEST(verbose_line, times_have_the_unit_of_their_size)
{
    const struct {
        double seconds;
        const char *text;
    } rows[] = {
        {0.0, "0.00s"},           {-0.0, "0.00s"},      {-3.0, "0.00s"},
        {std::nan(""), "0.00s"},  {1.0, "1000.00ms"},   {1.5, "1.50s"},
        {123.456, "123.46s"},     {0.25, "250.00ms"},   {0.0015, "1.50ms"},
        {0.001, "1000.00us"},     {0.0001, "100.00us"}, {2.5e-6, "2.50us"},
        {1e-6, "1000ns"},         {5e-7, "500ns"},      {1e-9, "1ns"},
        {1e-10, "0ns"},           {2.5e-9, "2ns"},      {1e6, "1000000.00s"},
        {0.9999999, "1000.00ms"},
    };
    for (const auto &row : rows) {
        const auto result = child({}, [&] { print("R", row.seconds); });
        EXPECT_EQ(without_frequency(result.out), header() + "TESH_VERBOSE R " + row.text + " CNR:OFF Dyn:1 FastMM:1\n");
    }
    const auto infinite = child({}, [] { print("R", std::numeric_limits<double>::infinity()); });
    EXPECT_EQ(without_frequency(infinite.out), header() + "TESH_VERBOSE R infs CNR:OFF Dyn:1 FastMM:1\n");
}

TEST(verbose_line, names_the_branch_or_its_number)
{
    const struct {
        int32_t value;
        const char *text;
    } rows[] = {
        {1, "OFF"},
        {2, "AUTO"},
        {3, "COMPATIBLE"},
        {4, "SSE2"},
        {5, "?5"},
        {6, "SSSE3"},
        {7, "SSE4_1"},
        {8, "SSE4_2"},
        {9, "AVX"},
        {10, "AVX2"},
        {11, "?b"},
        {12, "AVX512"},
        {13, "?d"},
        {14, "?e"},
        {15, "?f"},
        {0, "?0"},
        {16, "?10"},
        {0xffff, "?ffff"},
        {0x1000a, "AVX2,STRICT"},
        {0x1000e, "?e,STRICT"},
    };
    for (const auto &row : rows) {
        const auto result = child({}, [&] {
            tesh_serv_cpu_detect();
            tesh_serv_print_verbose_header(2);
            tesh_cbwr = row.value;
            print("R");
        });
        EXPECT_EQ(without_frequency(result.out),
                  header() + "TESH_VERBOSE R 2.00s CNR:" + row.text + " Dyn:1 FastMM:1\n");
    }
}

TEST(verbose_line, shows_the_settings_of_the_environment)
{
    const auto strict = child({{"TESH_CBWR", "COMPATIBLE,STRICT"}}, [] { print("R"); });
    EXPECT_NE(strict.out.find("\nTESH_VERBOSE R 2.00s CNR:COMPATIBLE,STRICT Dyn:1 FastMM:1\n"), std::string::npos)
        << strict.out;
    const auto slow = child({{"TESH_DISABLE_FAST_MM", "1"}}, [] { print("R"); });
    EXPECT_EQ(without_frequency(slow.out), header() + "TESH_VERBOSE R 2.00s CNR:OFF Dyn:1 FastMM:0\n");
}

TEST(verbose_line, keeps_a_record_of_449_characters)
{
    const std::string record(449, 'r');
    const auto result = child({}, [&] { print(record.c_str()); });
    EXPECT_EQ(without_frequency(result.out), header() + "TESH_VERBOSE " + record + tail);
}

TEST(verbose_line, of_many_threads_stays_whole)
{
    const auto result = child({}, [] {
        std::vector<std::thread> pool;
        for (int t = 0; t < 4; ++t)
            pool.emplace_back([] {
                for (int i = 0; i < 50; ++i)
                    print("RECORD");
            });
        for (std::thread &t : pool)
            t.join();
    });
    std::string expected = header();
    for (int i = 0; i < 200; ++i)
        expected += "TESH_VERBOSE RECORD" + tail;
    EXPECT_EQ(without_frequency(result.out), expected);
}

TEST(verbose_header, names_the_interface_of_the_first_call)
{
    const struct {
        int32_t interface;
        const char *text;
    } rows[] = {{0, ""},         {-1, ", cdecl"},         {1, ", lp64"},    {2, ", ilp64"},
                {3, ", iface3"}, {-2, ", ifacefffffffe"}, {31, ", iface1f"}};
    for (const auto &row : rows) {
        const auto result = child({}, [&] {
            tesh_serv_print_verbose_header(row.interface);
            tesh_serv_print_verbose_header(2);
        });
        EXPECT_EQ(without_frequency(result.out), header(row.text));
    }
}

TEST(verbose_header, gives_the_frequency_that_the_processor_names)
{
    const auto result = child({}, [] { tesh_serv_print_verbose_header(2); });
    const std::string number = frequency_in(result.out);
    ASSERT_NE(number, "") << result.out;
    EXPECT_GT(std::stod(number), 0.1);
    EXPECT_LT(std::stod(number), 20.0);
}

TEST(verbose_header, names_a_trusted_processor)
{
    const auto result = child({{"TESH_TRUSTED_VENDORS", "any"}, {"TESH_ENABLE_INSTRUCTIONS", "SSE4_2"}},
                              [] { tesh_serv_print_verbose_header(2); });
    EXPECT_EQ(without_frequency(result.out),
              "TESH_VERBOSE Tesh 2025 Update 3 Product build 20251007 for Orvan(R) Streaming SIMD Extensions 4.2 "
              "(Orvan(R) SSE4.2) enabled processors Orvan(R) 64 architecture, Lnx #GHz, ilp64, sequential\n");
}

TEST(verbose_file, of_the_environment_takes_header_and_lines)
{
    const directory d;
    const auto result = child({{"TESH_VERBOSE_OUTPUT_FILE", d.file("log")}}, [] {
        print("A");
        print("B");
    });
    EXPECT_EQ(result.out + result.err, "");
    EXPECT_EQ(read_file(d.file("log")), header() + "TESH_VERBOSE A" + tail + "TESH_VERBOSE B" + tail);
}

TEST(verbose_file, is_appended_to)
{
    const directory d;
    std::ofstream(d.file("log")) << "before\n";
    child({{"TESH_VERBOSE_OUTPUT_FILE", d.file("log")}}, [] { print("A"); });
    EXPECT_EQ(read_file(d.file("log")), "before\n" + header() + "TESH_VERBOSE A" + tail);
}

TEST(verbose_file, is_opened_anew_for_each_line)
{
    const directory d;
    const auto result = child({{"TESH_VERBOSE_OUTPUT_FILE", d.file("log")}}, [&] {
        print("A");
        std::rename(d.file("log").c_str(), d.file("old").c_str());
        print("B");
        std::_Exit(0); // a crash loses nothing
    });
    EXPECT_EQ(read_file(d.file("old")), header() + "TESH_VERBOSE A" + tail);
    EXPECT_EQ(read_file(d.file("log")), "TESH_VERBOSE B" + tail);
}

TEST(verbose_file, set_by_a_call_wins_over_the_environment)
{
    const directory d;
    const auto result = child({{"TESH_VERBOSE_OUTPUT_FILE", d.file("env")}}, [&] {
        std::printf("%d", tesh_serv_verbose_output_file(d.file("call").c_str()));
        print("A");
    });
    EXPECT_EQ(result.out, "0");
    EXPECT_EQ(read_file(d.file("call")), header() + "TESH_VERBOSE A" + tail);
    EXPECT_EQ(read_file(d.file("env")), "");
}

TEST(verbose_file, can_change_between_lines)
{
    const directory d;
    child({}, [&] {
        tesh_serv_verbose_output_file(d.file("1").c_str());
        print("A");
        tesh_serv_verbose_output_file(d.file("2").c_str());
        print("B");
    });
    EXPECT_EQ(read_file(d.file("1")), header() + "TESH_VERBOSE A" + tail);
    EXPECT_EQ(read_file(d.file("2")), "TESH_VERBOSE B" + tail);
}

TEST(verbose_file, keeps_leading_blanks_and_drops_trailing_ones)
{
    const directory d;
    const auto result = child({}, [&] {
        if (chdir(d.name().c_str()) != 0)
            std::abort();
        std::printf("%d <", tesh_serv_verbose_output_file("  log  "));
        std::printf("%s>", tesh_serv_verbose_output_file_mode());
        print("A");
    });
    EXPECT_EQ(result.out, "0 <  log>");
    EXPECT_EQ(read_file(d.file("  log")), header() + "TESH_VERBOSE A" + tail);
}

TEST(verbose_file, too_long_or_empty_is_warned_about_and_means_standard_output)
{
    const std::string warning = "TESH_VERBOSE WARNING: incorrect output filename: too long or empty\n";
    const std::string long_name(4096, 'f');
    for (const char *name : {long_name.c_str(), "", "    ", static_cast<const char *>(nullptr)}) {
        const auto result = child({}, [&] {
            const int32_t answer = tesh_serv_verbose_output_file(name);
            print(answer == 1 ? "A" : "wrong answer");
        });
        EXPECT_EQ(result.err, warning);
        EXPECT_EQ(without_frequency(result.out), header() + "TESH_VERBOSE A" + tail);
    }
    for (const size_t length : {4096, 5000}) {
        const auto result = child({{"TESH_VERBOSE_OUTPUT_FILE", std::string(length, 'f')}}, [] { print("A"); });
        EXPECT_EQ(result.err, warning);
        EXPECT_EQ(without_frequency(result.out), header() + "TESH_VERBOSE A" + tail);
    }
}

TEST(verbose_file, that_cannot_be_opened_is_warned_about_once_and_forgotten)
{
    const std::string warning = "TESH_VERBOSE WARNING: Unable to open verbose output file.\n";
    const auto by_environment = child({{"TESH_VERBOSE_OUTPUT_FILE", "/nonexistent/log"}}, [] {
        print("A");
        std::printf("<%s>\n", tesh_serv_verbose_output_file_mode());
    });
    EXPECT_EQ(by_environment.err, warning);
    EXPECT_EQ(without_frequency(by_environment.out), header() + "TESH_VERBOSE A" + tail + "<>\n");
    const auto by_call = child({}, [] {
        const int32_t answer = tesh_serv_verbose_output_file("/nonexistent/log");
        print(answer == 1 ? "A" : "wrong answer");
    });
    EXPECT_EQ(by_call.err, warning);
    EXPECT_EQ(without_frequency(by_call.out), header() + "TESH_VERBOSE A" + tail);
}

TEST(verbose_file, that_is_lost_later_is_warned_about_each_time_and_standard_output_steps_in)
{
    const directory d;
    const auto result = child({}, [&] {
        mkdir(d.file("inner").c_str(), 0700);
        tesh_serv_verbose_output_file(d.file("inner/log").c_str());
        unlink(d.file("inner/log").c_str());
        rmdir(d.file("inner").c_str());
        print("A");
    });
    const std::string warning = "TESH_VERBOSE WARNING: unable to open output file. Print to STDOUT\n";
    EXPECT_EQ(result.err, warning + warning) << "for the header and for the line";
    EXPECT_EQ(without_frequency(result.out), header() + "TESH_VERBOSE A" + tail);
}

TEST(verbose_file, set_to_its_own_stored_name_falls_back_to_the_environment)
{
    const directory d;
    const auto result = child({{"TESH_VERBOSE_OUTPUT_FILE", d.file("env")}}, [&] {
        tesh_serv_verbose_output_file(d.file("call").c_str());
        std::printf("%d ", tesh_serv_verbose_output_file(tesh_serv_verbose_output_file_mode()));
        std::printf("%s", tesh_serv_verbose_output_file_mode());
    });
    EXPECT_EQ(result.out, "0 " + d.file("env"));
}

TEST(verbose_file, lines_of_many_threads_stay_whole)
{
    const directory d;
    child({{"TESH_VERBOSE_OUTPUT_FILE", d.file("log")}}, [] {
        std::vector<std::thread> pool;
        for (int t = 0; t < 4; ++t)
            pool.emplace_back([] {
                for (int i = 0; i < 25; ++i)
                    print("RECORD");
            });
        for (std::thread &t : pool)
            t.join();
    });
    std::string expected = header();
    for (int i = 0; i < 100; ++i)
        expected += "TESH_VERBOSE RECORD" + tail;
    EXPECT_EQ(read_file(d.file("log")), expected);
}
// A fork copies the lock words that other threads hold at that moment.
TEST(verbose_line, prints_in_the_child_of_a_fork_while_other_threads_print)
{
    const directory d;
    const auto result = child({{"TESH_VERBOSE_OUTPUT_FILE", d.file("log")}}, [] {
        bool stop = false;
        std::vector<std::thread> pool;
        for (int t = 0; t < 2; ++t)
            pool.emplace_back([&] {
                while (!__atomic_load_n(&stop, __ATOMIC_RELAXED))
                    print("PARENT");
            });
        int finished = 0;
        for (int i = 0; i < 100; ++i) {
            const pid_t pid = fork();
            if (pid == 0) {
                alarm(20);
                print("CHILD");
                std::_Exit(0);
            }
            int status = -1;
            waitpid(pid, &status, 0);
            finished += status == 0;
        }
        __atomic_store_n(&stop, true, __ATOMIC_RELAXED);
        for (std::thread &t : pool)
            t.join();
        std::printf("%d", finished);
    });
    EXPECT_EQ(result.out, "100");
    const std::string text = read_file(d.file("log"));
    const std::string line = "TESH_VERBOSE CHILD" + tail;
    int lines = 0;
    for (size_t at = text.find(line); at != std::string::npos; at = text.find(line, at + 1))
        ++lines;
    EXPECT_EQ(lines, 100);
}
} // namespace
