// SPDX-License-Identifier: BSD-3-Clause
// Spin locks: exclusion, ordering and the compare-and-swap beneath them.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "frame/tesh_serv.h"

namespace
{
TEST(lock_word, is_1_while_held_and_0_when_free)
{
    int32_t word = 0;
    tesh_serv_lock(&word);
    EXPECT_EQ(word, 1);
    tesh_serv_unlock(&word);
    EXPECT_EQ(word, 0);
}

TEST(trylock, takes_a_free_word_and_refuses_a_held_one)
{
    int32_t word = 0;
    EXPECT_NE(tesh_serv_trylock(&word), 0);
    EXPECT_EQ(word, 1);
    EXPECT_EQ(tesh_serv_trylock(&word), 0);
    EXPECT_EQ(word, 1);
    tesh_serv_unlock(&word);
    EXPECT_NE(tesh_serv_trylock(&word), 0);
}

TEST(cmpxchg, stores_only_over_the_expected_value_and_answers_the_value_found)
{
    int32_t word = 5;
    EXPECT_EQ(tesh_serv_cmpxchg(&word, 4, 9), 5);
    EXPECT_EQ(word, 5);
    EXPECT_EQ(tesh_serv_cmpxchg(&word, 5, 9), 5);
    EXPECT_EQ(word, 9);
}

TEST(lock, lets_one_thread_in_at_a_time_and_publishes_its_stores)
{
    constexpr int threads = 8, rounds = 20000;
    int32_t word = 0;
    int64_t counter = 0, inside = 0, worst = 0; // plain: only the lock orders them
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; ++t) {
        pool.emplace_back([&] {
            for (int i = 0; i < rounds; ++i) {
                tesh_serv_lock(&word);
                worst = std::max(worst, ++inside);
                ++counter;
                --inside;
                tesh_serv_unlock(&word);
            }
        });
    }
    for (std::thread &t : pool)
        t.join();
    EXPECT_EQ(counter, int64_t(threads) * rounds);
    EXPECT_EQ(worst, 1);
    EXPECT_EQ(word, 0);
}

TEST(trylock, succeeds_in_exactly_one_of_many_threads)
{
    int32_t word = 0;
    int32_t winners = 0;
    std::vector<std::thread> pool;
    for (int t = 0; t < 16; ++t) {
        pool.emplace_back([&] {
            if (tesh_serv_trylock(&word))
                __atomic_add_fetch(&winners, 1, __ATOMIC_RELAXED);
        });
    }
    for (std::thread &t : pool)
        t.join();
    EXPECT_EQ(winners, 1);
}

// The holder sleeps for longer than the tries without a yield last, so that the waiter goes on to yield.
TEST(lock, waits_for_a_holder_that_sleeps)
{
    int32_t word = 0;
    bool released = false;
    tesh_serv_lock(&word);
    std::thread waiter([&] {
        tesh_serv_lock(&word);
        EXPECT_TRUE(released);
        tesh_serv_unlock(&word);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    released = true;
    tesh_serv_unlock(&word);
    waiter.join();
}
} // namespace
