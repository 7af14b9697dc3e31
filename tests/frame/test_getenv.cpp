// SPDX-License-Identifier: BSD-3-Clause
// The environment gate and its numbers, and the reader of the proc file.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "frame/service/general_regs/tiny_libc.h"
#include "frame/tesh_serv.h"
#include "tests/support/child.h"
#include "tests/support/detour.h"
#include "tests/support/guard_pages.h"

namespace
{
int32_t read_into(const char *name, int32_t size, std::string *text = nullptr)
{
    tesh_test::guarded_array<char> buffer(static_cast<std::size_t>(size));
    std::memset(buffer.data(), '#', buffer.size());
    const int32_t answer = tesh_serv_getenv(name, buffer.data(), size);
    if (text != nullptr)
        *text = buffer.data();
    return answer;
}
} // namespace

TEST(getenv, unset_and_empty_give_0_and_an_empty_buffer)
{
    unsetenv("TESH_GATE");
    std::string text;
    EXPECT_EQ(read_into("TESH_GATE", 8, &text), 0);
    EXPECT_EQ(text, "");
    EXPECT_EQ(read_into("TESH_GATE", 1, &text), 0);
    EXPECT_EQ(text, "");
    setenv("TESH_GATE", "", 1);
    EXPECT_EQ(read_into("TESH_GATE", 8, &text), 0);
    EXPECT_EQ(text, "");
}

TEST(getenv, a_value_that_fits_gives_its_length)
{
    setenv("TESH_GATE", "abcdefg", 1);
    std::string text;
    EXPECT_EQ(read_into("TESH_GATE", 8, &text), 7);
    EXPECT_EQ(text, "abcdefg");
    EXPECT_EQ(read_into("TESH_GATE", 4000, &text), 7);
    EXPECT_EQ(text, "abcdefg");
}

TEST(getenv, a_value_as_long_as_the_buffer_does_not_fit)
{
    setenv("TESH_GATE", "abcdefgh", 1);
    std::string text;
    EXPECT_EQ(read_into("TESH_GATE", 8, &text), -8);
    EXPECT_EQ(text, "");
    EXPECT_EQ(tesh_serv_getenv("TESH_GATE", nullptr, 0), -8);
    EXPECT_EQ(read_into("TESH_GATE", 1, &text), -8);
    EXPECT_EQ(text, "");
}

TEST(getenv, a_value_of_300_into_256_gives_minus_300_and_an_empty_buffer)
{
    setenv("TESH_GATE", std::string(300, 'x').c_str(), 1);
    std::string text;
    EXPECT_EQ(read_into("TESH_GATE", 256, &text), -300);
    EXPECT_EQ(text, "");
}

TEST(getenv, length_is_measured_up_to_4096)
{
    setenv("TESH_GATE", std::string(5000, 'x').c_str(), 1);
    EXPECT_EQ(read_into("TESH_GATE", 256), -4096);
    EXPECT_EQ(read_into("TESH_GATE", 10000), -4096) << "what is not measured to its end is not read";
    std::string text;
    setenv("TESH_GATE", std::string(4095, 'x').c_str(), 1);
    EXPECT_EQ(read_into("TESH_GATE", 4096, &text), 4095);
    EXPECT_EQ(text, std::string(4095, 'x'));
    EXPECT_EQ(read_into("TESH_GATE", 10000, &text), 4095);
    EXPECT_EQ(text, std::string(4095, 'x'));
}

TEST(getenv, envmode_leaves_only_the_foreign_names_visible)
{
    EXPECT_EQ(tesh_serv_get_envmode_variable(), 0);
    setenv("TESH_VERBOSE", "1", 1);
    EXPECT_EQ(read_into("TESH_VERBOSE", 8), 1);
    tesh_serv_set_envmode_variable(1);
    EXPECT_EQ(tesh_serv_get_envmode_variable(), 1);
    std::string text = "?";
    EXPECT_EQ(read_into("TESH_VERBOSE", 8, &text), 0);
    EXPECT_EQ(text, "");
    for (const char *name : {"ORB_BLAS_COMPUTE_MODE", "HCX_LD_LIBRARY_PATH", "LD_LIBRARY_PATH", "TESHROOT", "LANG"}) {
        setenv(name, "C", 1);
        EXPECT_EQ(read_into(name, 8, &text), 1) << name;
        EXPECT_EQ(text, "C") << name;
    }
    setenv("LANGUAGE", "C", 1);
    EXPECT_EQ(read_into("LANGUAGE", 8), 0) << "the whole name counts";
    tesh_serv_set_envmode_variable(-1);
    EXPECT_EQ(read_into("TESH_VERBOSE", 8), 1) << "only values above 0 close the gate";
    tesh_serv_set_envmode_variable(0);
    unsetenv("TESH_VERBOSE");
}

TEST(get_env_int, takes_whole_non_negative_decimals_only)
{
    struct {
        const char *text;
        int32_t value;
    } const cases[] = {{"0", 0},           {"17", 17},   {"2147483647", 2147483647},
                       {"2147483648", -1}, {"-1", -1},   {"8x", -1},
                       {"x", -1},          {"0x10", -1}, {"8 ", -1},
                       {" ", -1},          {"", -1},     {"99999999999999999999", -1}};
    for (const auto &c : cases) {
        setenv("TESH_GATE", c.text, 1);
        EXPECT_EQ(tesh_get_env_int("TESH_GATE"), c.value) << c.text;
    }
    setenv("TESH_GATE", std::string(256, '1').c_str(), 1);
    EXPECT_EQ(tesh_get_env_int("TESH_GATE"), -1);
    setenv("TESH_GATE", (std::string(254, '0') + "7").c_str(), 1);
    EXPECT_EQ(tesh_get_env_int("TESH_GATE"), 7);
    setenv("TESH_GATE", (std::string(255, '0') + "7").c_str(), 1);
    EXPECT_EQ(tesh_get_env_int("TESH_GATE"), -1) << "too long for the reader";
    unsetenv("TESH_GATE");
    EXPECT_EQ(tesh_get_env_int("TESH_GATE"), -1);
}

TEST(tiny_libc, text_and_memory)
{
    EXPECT_EQ(__libtesh_libc_strlen(""), 0u);
    EXPECT_EQ(__libtesh_libc_strlen("abc"), 3u);
    EXPECT_EQ(__libtesh_libc_strncmp("abc", "abd", 2), 0);
    EXPECT_LT(__libtesh_libc_strncmp("abc", "abd", 3), 0);
    EXPECT_GT(__libtesh_libc_strncmp("abd", "abc", 3), 0);
    EXPECT_LT(__libtesh_libc_strncmp("ab", "abc", 3), 0);
    EXPECT_EQ(__libtesh_libc_strncmp("ab\0x", "ab\0y", 4), 0) << "ends at the terminator";
    EXPECT_GT(__libtesh_libc_strncmp("\xff", "a", 1), 0) << "characters are unsigned";
    tesh_test::guarded_array<char> block(100);
    EXPECT_EQ(__libtesh_libc_memset(block.data(), 'q', 100), block.data());
    EXPECT_EQ(block[0], 'q');
    EXPECT_EQ(block[99], 'q');
}

TEST(tiny_libc, files_by_system_calls)
{
    EXPECT_LT(__libtesh_libc_open("/nonexistent/file", 0), 0);
    const int32_t file = __libtesh_libc_open("/proc/self/environ", 0);
    ASSERT_GE(file, 0);
    char first[1];
    EXPECT_EQ(__libtesh_libc_read(file, first, 1), 1);
    EXPECT_EQ(__libtesh_libc_close(file), 0);
    EXPECT_LT(__libtesh_libc_read(file, first, 1), 0);
}

namespace
{
std::string read_in_child(const std::map<std::string, std::string> &environment, int size = 512)
{
    const auto child =
        tesh_test::run_program({TESH_BUILD_DIR "/tests/frame_child_proc_getenv", std::to_string(size)}, environment);
    EXPECT_EQ(child.exit_code, 0) << child.out << child.err;
    EXPECT_EQ(child.out.substr(0, 5), "read<");
    return child.out.size() < 7 ? "no answer" : child.out.substr(5, child.out.size() - 7);
}
} // namespace

TEST(proc_getenv, finds_a_value_by_its_whole_name)
{
    EXPECT_EQ(read_in_child({{"TESH_PROC", "the value"}, {"TESH_PROCX", "longer"}, {"XTESH_PROC", "behind"}}),
              "the value");
    EXPECT_EQ(read_in_child({{"TESH_PROCX", "longer"}, {"TESH_PRO", "C=shorter"}}), "");
}

TEST(proc_getenv, a_long_value_is_cut_at_the_buffer)
{
    EXPECT_EQ(read_in_child({{"TESH_PROC", "0123456789"}}, 11), "0123456789");
    EXPECT_EQ(read_in_child({{"TESH_PROC", "0123456789"}}, 10), "012345678");
    EXPECT_EQ(read_in_child({{"TESH_PROC", "0123456789"}}, 1), "");
}

TEST(proc_getenv, entries_that_cross_blocks_are_carried_over)
{
    // Whatever lies before it, some of these put the entry across the border of a block.
    for (int filler = 900; filler <= 1023; filler += 3) {
        EXPECT_EQ(read_in_child({{"TESH_A_FILLER", std::string(static_cast<std::size_t>(filler) - 14, 'f')},
                                 {"TESH_PROC", "kept whole"}}),
                  "kept whole")
            << filler;
    }
}

TEST(proc_getenv, an_entry_longer_than_the_block_is_skipped_whole)
{
    // 1013 + 10 characters and the terminator fill the block; one more does not fit.
    EXPECT_EQ(read_in_child({{"TESH_PROC", std::string(1013, 'v')}}, 2000), std::string(1013, 'v'));
    EXPECT_EQ(read_in_child({{"TESH_PROC", std::string(1014, 'v')}}, 2000), "");
    std::string decoys;
    while (decoys.size() < 1536)
        decoys += "TESH_PROC=decoy_";
    // One of these puts the text of a decoy where a cut would make it the start of an entry.
    for (int shift = 0; shift < 16; ++shift) {
        const std::string value = std::string(static_cast<std::size_t>(shift), 's') + decoys;
        EXPECT_EQ(read_in_child({{"TESH_A_DECOY", value}}), "") << shift;
        EXPECT_EQ(read_in_child({{"TESH_A_DECOY", value}, {"TESH_PROC", "true"}}), "true") << shift;
    }
}

namespace
{
// What the file holds, and what the read behind its end answers.
std::string environ_text;
int64_t environ_end;

int64_t read_environ_text(int32_t, void *buffer, size_t bytes)
{
    if (environ_text.empty())
        return environ_end;
    const size_t count = environ_text.copy(static_cast<char *>(buffer), bytes);
    environ_text.erase(0, count);
    return static_cast<int64_t>(count);
}

void expect_value(const std::string &text, int64_t end, const std::string &value)
{
    const auto child = tesh_test::run_forked([&] {
        environ_text = text;
        environ_end = end;
        tesh_test::detour(__libtesh_libc_read, read_environ_text);
        char buffer[16];
        __libtesh_libc_getenv_from_proc("TESH_PROC", buffer, sizeof buffer);
        return buffer == value ? 0 : 1;
    });
    EXPECT_EQ(child.exit_code, 0) << value;
}
} // namespace

TEST(proc_getenv, a_failing_read_finds_nothing)
{
    expect_value(std::string("A=1\0TESH_PROC=hal", 17), -5, "");
    expect_value("", -5, "");
}

TEST(proc_getenv, the_first_entry_and_the_last_one_without_an_end_count)
{
    expect_value(std::string("TESH_PROC=first\0A=1\0", 20), 0, "first");
    expect_value(std::string("A=1\0TESH_PROC=last", 18), 0, "last");
    expect_value("TESH_PROC", 0, "");
    expect_value("TESH_PROC=", 0, "");
}

TEST(proc_getenv, reads_through_the_lowest_descriptor_too)
{
    const auto child = tesh_test::run_forked([] {
        close(0);
        char buffer[4096];
        __libtesh_libc_getenv_from_proc("PATH", buffer, sizeof buffer);
        return buffer[0] != 0 ? 0 : 1;
    });
    EXPECT_EQ(child.exit_code, 0);
}

TEST(proc_getenv, a_size_of_0_touches_nothing)
{
    char byte = '#';
    __libtesh_libc_getenv_from_proc("PATH", &byte, 0);
    EXPECT_EQ(byte, '#');
}
