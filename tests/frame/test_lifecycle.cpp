// SPDX-License-Identifier: BSD-3-Clause
// Cleanup lists and the finalizer. Each case runs in a child: lists and flag are of the whole process.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "frame/tesh_serv.h"
#include "tests/support/child.h"

namespace
{
using tesh_test::run_forked;

void say(void *text)
{
    std::fputs(static_cast<const char *>(text), stdout);
}

void *words(const char *text)
{
    return const_cast<char *>(text);
}

TEST(load, without_a_readable_directory_ends_a_program_linked_with_the_archive)
{
    const std::string program = TESH_BUILD_DIR "/tests/frame_child_archive_own_handler";
    const auto result = tesh_test::run_program(
        {"/bin/sh", "-c", "d=$(mktemp -d) && cd \"$d\" && rmdir \"$d\" && exec \"$0\"", program});
    EXPECT_EQ(result.exit_code, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "Orvan Tesh FATAL ERROR: Cannot load " + program + ".\n");
}

TEST(cleanup, runs_last_registered_first_and_empties_the_list)
{
    const auto result = run_forked([] {
        int32_t answers = 0;
        for (const char *text : {"a", "b", "c"})
            answers |= tesh_serv_core_register_cleanup(say, words(text));
        answers |= tesh_serv_thr_register_cleanup(say, words("t"));
        tesh_serv_core_cleanup();
        tesh_serv_core_cleanup();
        tesh_serv_thr_cleanup();
        return answers;
    });
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(result.out, "cbat");
}

TEST(cleanup, of_32_items_is_full_and_a_33rd_ends_the_process_with_code_3)
{
    const auto result = run_forked([] {
        for (int i = 0; i < 32; ++i)
            tesh_serv_core_register_cleanup(say, words("."));
        std::fputs("full ", stdout);
        tesh_serv_core_register_cleanup(say, words("never"));
        return 0;
    });
    EXPECT_EQ(result.exit_code, 3);
    EXPECT_EQ(result.out, "full ................................") << "the end of the process runs what was registered";
}

TEST(cleanup, of_the_threading_layer_holds_8)
{
    const auto result = run_forked([] {
        for (int i = 0; i < 8; ++i)
            tesh_serv_thr_register_cleanup(say, words("."));
        std::fputs("full ", stdout);
        tesh_serv_thr_register_cleanup(say, words("never"));
        return 0;
    });
    EXPECT_EQ(result.exit_code, 3);
    EXPECT_EQ(result.out, "full ........");
}

TEST(cleanup, is_full_without_a_store_past_the_table_even_if_the_exit_hook_returns)
{
    const auto result = run_forked([] {
        tesh_serv_set_exit_handler([](int32_t code) { std::printf("hook %d ", code); });
        for (int i = 0; i < 34; ++i)
            tesh_serv_core_register_cleanup(say, words(i < 32 ? "." : "never"));
        tesh_serv_core_cleanup();
        return 0;
    });
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(result.out, "hook 3 hook 3 ................................");
}

TEST(cleanup, lets_other_threads_register_while_a_callback_runs)
{
    const auto result = run_forked([] {
        tesh_serv_core_register_cleanup(
            [](void *) { std::thread([] { tesh_serv_core_register_cleanup(say, words("late")); }).join(); }, nullptr);
        tesh_serv_core_cleanup();
        return 0;
    });
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(result.out, "late");
}

TEST(finalizer, runs_each_callback_once_threading_layer_first)
{
    const auto result = run_forked([] {
        tesh_serv_core_register_cleanup(say, words("1"));
        tesh_serv_core_register_cleanup(say, words("2"));
        tesh_serv_thr_register_cleanup(say, words("t"));
        tesh_serv_finalize();
        tesh_serv_finalize();
        std::fputs(" end", stdout);
        return 0;
    });
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(result.out, "t21 end");
}

TEST(finalizer, frees_the_cached_memory_before_the_first_callback)
{
    const auto result = run_forked([] {
        const auto tell = [](void *) {
            int32_t blocks = -1;
            const int64_t bytes = tesh_serv_mem_stat(&blocks);
            std::printf("%lld bytes in %d blocks, ", static_cast<long long>(bytes), blocks);
        };
        tesh_serv_deallocate(tesh_serv_allocate(1000, 64));
        tell(nullptr);
        tesh_serv_core_register_cleanup(tell, nullptr);
        tesh_serv_thr_register_cleanup(tell, nullptr);
        tesh_serv_finalize();
        return 0;
    });
    EXPECT_EQ(result.out, "1064 bytes in 1 blocks, 0 bytes in 0 blocks, 0 bytes in 0 blocks, ");
}

TEST(finalizer, runs_at_the_end_of_the_process)
{
    const auto result = run_forked([] {
        tesh_serv_core_register_cleanup(say, words("1"));
        std::fputs("end ", stdout);
        return 0;
    });
    EXPECT_EQ(result.out, "end 1");
}

TEST(finalizer, never_works_twice)
{
    const auto result = run_forked([] {
        tesh_serv_finalize();
        tesh_serv_core_register_cleanup(say, words("never"));
        tesh_serv_finalize();
        return 0;
    });
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(result.out, "");
}

TEST(finalizer, survives_a_callback_that_ends_the_process)
{
    const auto result = run_forked([] {
        tesh_serv_core_register_cleanup([](void *) { std::exit(9); }, nullptr);
        tesh_serv_finalize();
        return 0;
    });
    EXPECT_EQ(result.exit_code, 9);
    EXPECT_EQ(result.signal, 0);
}
} // namespace
