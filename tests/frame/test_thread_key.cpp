// SPDX-License-Identifier: BSD-3-Clause
// Keys of the thread library: made once, registered for cleanup once, deleted once.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "frame/service/thread_key.h"
#include "tests/support/child.h"
#include "tests/support/detour.h"

namespace
{
thread_key key = {0, nullptr, 0, 0};
std::atomic<int> registrations;

int32_t count_registration(tesh_serv_cleanup_fn callback, void *argument)
{
    registrations += callback == tesh_tls_destroy && argument == &key;
    return 0;
}

// Threads that have all found the key missing before one of them may make it.
int registrations_of_a_race(int threads)
{
    std::atomic<int> started{0}, made{0};
    tesh_serv_lock(&key.lock);
    std::vector<std::thread> team;
    for (int i = 0; i < threads; ++i)
        team.emplace_back([&] {
            ++started;
            made += thread_key_create(&key);
        });
    while (started < threads)
        std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    tesh_serv_unlock(&key.lock);
    for (std::thread &thread : team)
        thread.join();
    return made == threads ? registrations.load() : -1;
}
} // namespace

TEST(thread_key, is_registered_once_however_many_threads_ask_first)
{
    const auto child = tesh_test::run_forked([] {
        tesh_test::detour(tesh_serv_core_register_cleanup, count_registration);
        return registrations_of_a_race(6);
    });
    EXPECT_EQ(child.exit_code, 1) << child.err;
}

TEST(thread_key, can_be_made_again_behind_the_cleanup)
{
    const auto child = tesh_test::run_forked([] {
        EXPECT_FALSE(thread_key_ready(key));
        EXPECT_TRUE(thread_key_create(&key));
        EXPECT_TRUE(thread_key_create(&key));
        EXPECT_TRUE(thread_key_ready(key));
        EXPECT_EQ(thread_key_value(key), nullptr);
        tesh_serv_core_cleanup();
        EXPECT_FALSE(thread_key_ready(key));
        tesh_tls_destroy(&key); // nothing is left to delete
        EXPECT_TRUE(thread_key_create(&key));
        EXPECT_EQ(thread_key_value(key), nullptr);
        return testing::Test::HasFailure() ? 1 : 0;
    });
    EXPECT_EQ(child.exit_code, 0) << child.out;
}
