// SPDX-License-Identifier: BSD-3-Clause
// Settings of the memory manager and high-bandwidth memory. All in children: settings are read once a process.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "tests/frame/memory_view.h"
#include "tests/support/child.h"

namespace
{
using namespace memory_view;
using tesh_test::child_result;
using tesh_test::run_forked;
using tesh_test::run_program;

using environment = std::map<std::string, std::string>;

// Answers 0 from the child where the condition holds.
void expect_in_child(const environment &settings, const std::function<bool()> &condition)
{
    const child_result result = run_forked([&] { return condition() ? 0 : 1; }, settings);
    EXPECT_EQ(result.exit_code, 0) << result.err;
}

// A request of the cached layer went to the plain layer.
bool cached_layer_is_off()
{
    void *const p = tesh_serv_allocate(1000, 64);
    const auto *record = own_record();
    const bool off = record != nullptr && record->bank_count == 0 && record->block_count == 1;
    tesh_serv_deallocate(p);
    return off && record->block_count == 0;
}

TEST(disable_fast_mm_variable, turns_the_cached_layer_off_with_any_value)
{
    for (const char *value : {"1", "0", "no", " "}) {
        expect_in_child({{"TESH_DISABLE_FAST_MM", value}},
                        [] { return tesh_serv_get_fast_mm_status() == 1 && cached_layer_is_off(); });
        expect_in_child({{"TESH_DISABLE_FAST_MM", value}}, [] { return cached_layer_is_off(); });
    }
}

TEST(disable_fast_mm_variable, unset_empty_or_too_long_leaves_the_cached_layer_on)
{
    expect_in_child({{"TESH_DISABLE_FAST_MM", ""}},
                    [] { return tesh_serv_get_fast_mm_status() == 0 && !cached_layer_is_off(); });
    expect_in_child({}, [] {
        setenv("TESH_DISABLE_FAST_MM", "", 1);
        return tesh_serv_get_fast_mm_status() == 0;
    });
    expect_in_child({{"TESH_DISABLE_FAST_MM", std::string(32, '1')}},
                    [] { return tesh_serv_get_fast_mm_status() == 0; });
    expect_in_child({{"TESH_DISABLE_FAST_MM", std::string(31, '1')}},
                    [] { return tesh_serv_get_fast_mm_status() == 1; });
}

TEST(disable_fast_mm_call, works_only_before_the_settings_are_read)
{
    expect_in_child({}, [] {
        return tesh_serv_disable_fast_mm() == 1 && tesh_serv_disable_fast_mm() == 0 &&
               tesh_serv_get_fast_mm_status() == 1 && cached_layer_is_off();
    });
    expect_in_child({}, [] {
        return tesh_serv_get_fast_mm_status() == 0 && tesh_serv_disable_fast_mm() == 0 &&
               tesh_serv_get_fast_mm_status() == 0 && !cached_layer_is_off();
    });
    expect_in_child({}, [] {
        tesh_serv_free(tesh_serv_malloc(1, 64));
        return tesh_serv_disable_fast_mm() == 0 && tesh_serv_get_fast_mm_status() == 0;
    });
    // It stands for all settings: the limit is not read either.
    expect_in_child({{"TESH_FAST_MEMORY_LIMIT", "7"}}, [] {
        const bool first = tesh_serv_disable_fast_mm() == 1;
        tesh_serv_free(tesh_serv_malloc(1, 64));
        return first && tesh_serv_check_fast_memory_size() == -1;
    });
}

TEST(fast_memory_limit_variable, is_in_mebibytes_and_a_negative_value_means_no_limit)
{
    const struct {
        const char *text;
        int64_t bytes;
    } cases[] = {{"", -1},
                 {"-5", -1},
                 {"-1", -1},
                 {"0", 0},
                 {"1", 1 << 20},
                 {"16", 16 << 20},
                 {"+3", 3 << 20},
                 {" 12x", 12 << 20},
                 {"zzz", 0},
                 {"0x10", 0},
                 {"100000", int64_t{100000} << 20}};
    for (const auto &c : cases) {
        expect_in_child({{"TESH_FAST_MEMORY_LIMIT", c.text}}, [&] {
            tesh_serv_free(tesh_serv_malloc(1, 64));
            return tesh_serv_check_fast_memory_size() == c.bytes;
        });
        // The question alone reads the setting, too.
        expect_in_child({{"TESH_FAST_MEMORY_LIMIT", c.text}},
                        [&] { return tesh_serv_check_fast_memory_size() == c.bytes; });
    }
    expect_in_child({}, [] { return tesh_serv_check_fast_memory_size() == -1; });
}

TEST(set_memory_limit, answers_0_without_high_bandwidth_memory)
{
    expect_in_child({}, [] {
        return tesh_serv_set_memory_limit(1, 5) == 0 && tesh_serv_set_memory_limit(0, 5) == 0 &&
               tesh_serv_check_fast_memory_size() == -1;
    });
}

TEST(settings, are_read_once)
{
    expect_in_child({{"TESH_FAST_MEMORY_LIMIT", "2"}}, [] {
        tesh_serv_free(tesh_serv_malloc(1, 64));
        setenv("TESH_FAST_MEMORY_LIMIT", "4", 1);
        setenv("TESH_DISABLE_FAST_MM", "1", 1);
        tesh_serv_free_buffers();
        tesh_serv_free(tesh_serv_malloc(1, 64));
        return tesh_serv_check_fast_memory_size() == 2 << 20 && tesh_serv_get_fast_mm_status() == 0;
    });
}

TEST(load_library, answers_null_for_a_directory_without_the_library)
{
    expect_in_child({}, [] {
        return TESHLoadLibrary("/nonexistent") == nullptr && TESHLoadLibrary("/nonexistent/") == nullptr &&
               TESHLoadLibrary(std::string(5000, 'a').c_str()) == nullptr;
    });
}

TEST(libc_is_static, is_not_so_here)
{
    EXPECT_EQ(tesh_serv_libc_is_static(), 0);
}

// ---- high-bandwidth memory, by a library of the same name that counts what it is asked for ----

constexpr char stand_in[] = R"(
#include <stdlib.h>
int memkind_version = 1001000;
int refuse_large_pages, refuse_small_pages;
long large_blocks, small_blocks, freed_blocks;
unsigned long last_alignment, last_size;
#ifndef NO_VERSION
int memkind_get_version(void) { return memkind_version; }
#endif
int hbw_posix_memalign_psize(void **p, size_t alignment, size_t size, int page)
{
    last_alignment = alignment;
    last_size = size;
    if (page == 2 ? refuse_large_pages : refuse_small_pages) return 12;
    *(page == 2 ? &large_blocks : &small_blocks) += 1;
    return posix_memalign(p, alignment, size);
}
#ifndef NO_FREE
void hbw_free(void *p) { ++freed_blocks; free(p); }
#endif
)";

class high_bandwidth_memory : public testing::Test
{
protected:
    static std::string directory_of(const std::string &variant)
    {
        return "/tmp/tesh_memkind_" + std::to_string(getppid()) + '_' + std::to_string(getpid()) + variant;
    }
    // Compiles the stand-in and answers its directory.
    static std::string build(const std::string &define = "")
    {
        const std::string directory = directory_of(define);
        const std::string command = "mkdir -p " + directory + " && cc -shared -fPIC -w -x c " +
                                    (define.empty() ? "" : "-D" + define + ' ') + "-Wl,-soname,libmemkind.so -o " +
                                    directory + "/libmemkind.so " + directory + ".c";
        std::ofstream(directory + ".c") << stand_in;
        EXPECT_EQ(run_program({"/bin/sh", "-c", command}).exit_code, 0);
        return directory;
    }
    static void remove(const std::string &directory)
    {
        run_program({"/bin/sh", "-c", "rm -rf " + directory + ' ' + directory + ".c"});
    }
    // In a child that has the processor features and has the library loaded already, so that its name is found.
    static child_result run(const std::string &directory, const std::function<bool(void *)> &body,
                            const environment &settings = {}, uint64_t features = 0x708000001)
    {
        return run_forked(
            [&] {
                __orvan_tesh_feature_indicator_x[0] = features;
                void *const library = dlopen((directory + "/libmemkind.so").c_str(), RTLD_NOW);
                if (library == nullptr)
                    return 2;
                const bool good = body(library);
                std::fflush(stdout);
                _exit(good ? 0 : 1);
            },
            settings);
    }
    template <class T> static T &variable(void *library, const char *name)
    {
        return *static_cast<T *>(dlsym(library, name));
    }
    static long count(void *library, const char *name) { return variable<long>(library, name); }
};

TEST_F(high_bandwidth_memory, serves_blocks_from_large_pages_then_small_ones_then_the_c_library)
{
    const std::string directory = build();
    const child_result result = run(directory, [](void *library) {
        void *const a = tesh_serv_malloc(1000, 64);
        const long before = count(library, "large_blocks");
        bool good = a != nullptr && before >= 1;
        void *const b = tesh_serv_malloc(1000, 64);
        good = good && count(library, "large_blocks") == before + 1;
        good = good && variable<unsigned long>(library, "last_alignment") == 2097152;
        good = good && variable<unsigned long>(library, "last_size") == 1000 + 64 + 24 + 32;
        variable<int>(library, "refuse_large_pages") = 1;
        void *const c = tesh_serv_malloc(1000, 64);
        good = good && count(library, "small_blocks") == 1;
        good = good && variable<unsigned long>(library, "last_alignment") == 4096;
        variable<int>(library, "refuse_small_pages") = 1;
        void *const d = tesh_serv_malloc(1000, 64);
        good =
            good && d != nullptr && count(library, "large_blocks") == before + 1 && count(library, "small_blocks") == 1;
        for (void *p : {a, b, c, d})
            tesh_serv_free(p);
        return good && count(library, "freed_blocks") == 3;
    });
    EXPECT_EQ(result.exit_code, 0) << result.err;
    EXPECT_EQ(result.out, "");
    remove(directory);
}

TEST_F(high_bandwidth_memory, keeps_within_a_limit_and_gets_room_back_when_a_block_is_freed)
{
    const std::string directory = build();
    const child_result result =
        run(directory,
            [](void *library) {
                tesh_serv_free(tesh_serv_malloc(1, 64)); // vector and record of the thread
                const int64_t room = tesh_serv_check_fast_memory_size();
                const long large = count(library, "large_blocks");
                const int64_t overhead = 64 + 24 + 32;
                bool good = room > 0 && room < 1 << 20;
                void *const a =
                    tesh_serv_malloc(size_t(room - overhead), 64); // not above: the limit must exceed the total
                good = good && count(library, "large_blocks") == large && tesh_serv_check_fast_memory_size() == room;
                void *const b = tesh_serv_malloc(size_t(room - overhead - 1), 64);
                good = good && count(library, "large_blocks") == large + 1 && tesh_serv_check_fast_memory_size() == 1;
                tesh_serv_free(a);
                good = good && tesh_serv_check_fast_memory_size() == 1;
                tesh_serv_free(b);
                good = good && tesh_serv_check_fast_memory_size() == room;
                // A limit is set already: accepted, without a change.
                return good && tesh_serv_set_memory_limit(1, 77) == 1 && tesh_serv_check_fast_memory_size() == room &&
                       tesh_serv_set_memory_limit(2, 77) == 0;
            },
            {{"TESH_FAST_MEMORY_LIMIT", "1"}});
    EXPECT_EQ(result.exit_code, 0) << result.err;
    remove(directory);
}

TEST_F(high_bandwidth_memory, is_not_used_with_a_limit_of_0)
{
    const std::string directory = build();
    const child_result result =
        run(directory,
            [](void *library) {
                void *const p = tesh_serv_malloc(1000, 64);
                tesh_serv_free(p);
                return p != nullptr && count(library, "large_blocks") == 0 && count(library, "freed_blocks") == 0;
            },
            {{"TESH_FAST_MEMORY_LIMIT", "0"}});
    EXPECT_EQ(result.exit_code, 0) << result.err;
    remove(directory);
}

TEST_F(high_bandwidth_memory, takes_its_first_limit_from_the_call)
{
    const std::string directory = build();
    const child_result result = run(directory, [](void *) {
        return tesh_serv_set_memory_limit(1, 3) == 1 && tesh_serv_check_fast_memory_size() == 3 << 20 &&
               tesh_serv_set_memory_limit(1, 4) == 1 && tesh_serv_check_fast_memory_size() == 3 << 20;
    });
    EXPECT_EQ(result.exit_code, 0) << result.err;
    remove(directory);
}

TEST_F(high_bandwidth_memory, needs_all_four_processor_features)
{
    const std::string directory = build();
    for (uint64_t missing : {0x8000000ul, 0x100000000ul, 0x200000000ul, 0x400000000ul}) {
        const child_result result = run(
            directory,
            [](void *library) {
                tesh_serv_free(tesh_serv_malloc(1000, 64));
                return count(library, "large_blocks") == 0 && tesh_serv_set_memory_limit(1, 3) == 0;
            },
            {}, 0x708000001 & ~missing);
        EXPECT_EQ(result.exit_code, 0) << std::hex << missing;
    }
    remove(directory);
}

TEST_F(high_bandwidth_memory, refuses_an_old_or_incomplete_library_and_says_so_in_verbose_mode_only)
{
    const std::string too_old = "Minimal supported version of the memkind library is 1.1.0\n";
    const struct {
        const char *define;
        int version;
        const char *verbose;
        bool message;
    } cases[] = {{"", 1000999, "1", true},           {"", 1000999, "", false},
                 {"NO_VERSION", 1001000, "1", true}, {"NO_VERSION", 1001000, "", false},
                 {"NO_FREE", 1001000, "1", false},   {"", 1001000, "1", false}};
    for (const auto &c : cases) {
        const std::string directory = build(c.define);
        const child_result result = run(directory,
                                        [&](void *library) {
                                            variable<int>(library, "memkind_version") = c.version;
                                            tesh_serv_free(tesh_serv_malloc(1000, 64));
                                            const bool usable = c.define[0] == '\0' && c.version > 1000999;
                                            return (count(library, "large_blocks") > 0) == usable;
                                        },
                                        {{"TESH_VERBOSE", c.verbose}});
        EXPECT_EQ(result.exit_code, 0) << c.define << c.version;
        EXPECT_EQ(result.out, c.message ? too_old : "") << c.define << c.version;
        remove(directory);
    }
}
} // namespace
