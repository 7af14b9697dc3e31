// SPDX-License-Identifier: BSD-3-Clause
// Load and unload of the shared library, and its hooks seen from a program that links it.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "tesh.h"
#include "tests/support/child.h"

namespace
{
using tesh_test::run_forked;
using tesh_test::run_program;

void say(void *text)
{
    std::fputs(static_cast<const char *>(text), stdout);
}

void *words(const char *text)
{
    return const_cast<char *>(text);
}

std::string library_file()
{
    Dl_info info = {};
    return dladdr(reinterpret_cast<void *>(&tesh_serv_finalize), &info) != 0 ? info.dli_fname : "";
}

void sgemm_with_bad_m()
{
    const int64_t m = -1, n = 1, k = 1, ld = 1;
    const float one = 1.0f;
    float c = 0.0f;
    sgemm("N", "N", &m, &n, &k, &one, &one, &ld, &one, &ld, &one, &c, &ld);
}

TEST(load, without_a_readable_directory_ends_the_process_with_code_2)
{
    char program[4096] = {};
    ASSERT_GT(readlink("/proc/self/exe", program, sizeof program - 1), 0);
    const auto result = run_program(
        {"/bin/sh", "-c", "d=$(mktemp -d) && cd \"$d\" && rmdir \"$d\" && exec \"$0\" --gtest_list_tests", program});
    EXPECT_EQ(result.exit_code, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "Orvan Tesh FATAL ERROR: Cannot load " + library_file() + ".\n");
}

TEST(unload, at_the_end_of_the_process_runs_the_callbacks)
{
    const auto result = run_forked([] {
        tesh_serv_core_register_cleanup(say, words("1"));
        tesh_serv_core_register_cleanup(say, words("2"));
        tesh_serv_thr_register_cleanup(say, words("t"));
        std::fputs("end ", stdout);
        return 0;
    });
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(result.out, "end t21");
}

// A copy of the file, since this program keeps the library itself loaded.
TEST(unload, by_dlclose_runs_the_callbacks_and_frees_the_library)
{
    const std::string copy = testing::TempDir() + "libtesh_copy_" + std::to_string(getpid()) + ".so";
    {
        std::ifstream from(library_file(), std::ios::binary);
        std::ofstream to(copy, std::ios::binary);
        to << from.rdbuf();
    }
    const auto result = run_forked([&] {
        for (int i = 0; i < 3; ++i) {
            void *const library = dlopen(copy.c_str(), RTLD_NOW | RTLD_LOCAL);
            if (library == nullptr) {
                std::fputs(dlerror(), stdout);
                return 1;
            }
            const auto add = reinterpret_cast<decltype(&tesh_serv_core_register_cleanup)>(
                dlsym(library, "tesh_serv_core_register_cleanup"));
            const auto allocate = reinterpret_cast<decltype(&tesh_serv_allocate)>(dlsym(library, "tesh_serv_allocate"));
            const auto deallocate =
                reinterpret_cast<decltype(&tesh_serv_deallocate)>(dlsym(library, "tesh_serv_deallocate"));
            add(say, words("callback "));
            deallocate(allocate(1 << 20, 64));
            dlclose(library);
            std::fputs(dlopen(copy.c_str(), RTLD_NOW | RTLD_NOLOAD) == nullptr ? "gone " : "stays ", stdout);
        }
        return 0;
    });
    std::remove(copy.c_str());
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(result.out, "callback gone callback gone callback gone ");
}

int reports = 0;

void count_report(const char *, const int64_t *, int32_t)
{
    ++reports;
}

TEST(handler, set_by_the_program_stays_in_force_through_public_calls)
{
    const auto result = run_forked([] {
        tesh_serv_set_xerbla(count_report);
        sgemm_with_bad_m();
        sgemm_with_bad_m();
        return reports == 2 && tesh_serv_set_xerbla(nullptr) == count_report ? 0 : 1;
    });
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(result.out + result.err, "");
}

TEST(handler, set_to_null_is_replaced_by_the_chain_at_the_next_public_call)
{
    const auto result = run_forked([] {
        const bool none_before = tesh_serv_set_xerbla(nullptr) == tesh_serv_default_xerbla;
        sgemm_with_bad_m();
        return none_before && tesh_serv_set_xerbla(nullptr) == cdecl_xerbla ? 0 : 1;
    });
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(result.out, "\nOrvan Tesh ERROR: Parameter 3 was incorrect on entry to SGEMM .\n");
    EXPECT_EQ(result.err, "");
}

// This program may hold the variables in its own image; the library then works on those.
TEST(exported_data, is_one_object_for_program_and_library)
{
    const auto result = run_forked([] {
        if (tesh_clocks_freq != -1.0 || tesh_cache_sizes[0] != 0 || tesh_cpu_type != -1 || tesh_cbwr != -1 ||
            tesh_verbose_val != -1 || __orvan_tesh_feature_indicator_x[0] != 0)
            return 1;
        if (tesh_serv_get_clocks_frequency() != tesh_clocks_freq)
            return 2;
        int64_t sizes[5];
        tesh_serv_cache_info(sizes);
        for (int i = 0; i < 5; ++i) {
            if (sizes[i] != tesh_cache_sizes[i])
                return 3;
        }
        if (tesh_serv_cpu_detect() != tesh_cpu_type || tesh_serv_vml_cpu_detect() != tesh_vml_cpu_type)
            return 4;
        if (tesh_serv_cbwr_get(-1) != tesh_cbwr)
            return 5;
        if (tesh_serv_verbose_mode() != &tesh_verbose_val || tesh_serv_verbose(2) != tesh_verbose_val)
            return 6;
        __orvan_tesh_features_init_x();
        if ((__orvan_tesh_feature_indicator_x[0] & 1) == 0)
            return 7;
        tesh_serv_set_progress(tesh_serv_default_progress);
        return tesh_progress_address == tesh_serv_default_progress ? 0 : 8;
    });
    EXPECT_EQ(result.exit_code, 0);
}
} // namespace
