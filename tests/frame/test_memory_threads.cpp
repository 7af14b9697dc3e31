// SPDX-License-Identifier: BSD-3-Clause
// The book of threads: registration, blocks that change threads, ends of threads, epochs, and many threads at once.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <vector>

#include "tests/frame/memory_view.h"
#include "tests/support/random.h"
#include "tests/support/test_paths.h"

namespace
{
using namespace memory_view;
using namespace tesh_memory;

// No one is inside the book.
void expect_book_free()
{
    EXPECT_EQ(mm_book.global, 0);
    for (const lock_line &line : mm_book.lock_words)
        ASSERT_EQ(line.word, 0);
}

// A new epoch without numbers, so that a test can tell the numbers that it will see.
class book_of_threads : public testing::Test
{
protected:
    void SetUp() override
    {
        const int32_t before = mm_book.epoch;
        tesh_serv_free_buffers();
        ASSERT_EQ(mm_book.epoch, before + 1);
        ASSERT_EQ(mm_book.number_count, 0);
    }
    void TearDown() override { expect_book_free(); }
};

TEST_F(book_of_threads, has_a_slot_stride_of_56_and_lines_of_their_own_for_lock_words)
{
    EXPECT_EQ(mm_book.slot_stride, 56);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(&mm_book.global) % 64, 0u);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(&mm_book.lock_words[0]) - reinterpret_cast<uintptr_t>(&mm_book.global), 64u);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(&mm_book.lock_words[1]) - reinterpret_cast<uintptr_t>(&mm_book.lock_words[0]),
              64u);
}

TEST_F(book_of_threads, held_exclusively_has_every_word_taken)
{
    mm_lock_exclusive();
    EXPECT_EQ(mm_book.global, 1);
    int32_t taken = 0;
    for (const lock_line &line : mm_book.lock_words)
        taken += line.word;
    mm_unlock_exclusive();
    EXPECT_EQ(taken, 1024);
}

TEST_F(book_of_threads, gives_numbers_in_turn_and_leaves_0_in_the_slot_of_the_registering_call)
{
    worker a, b;
    a.run([] {
        EXPECT_EQ(mm_thread_info().number, 0);
        void *const p = tesh_serv_allocate(100, 64);
        EXPECT_EQ(mm_thread_info().number, 1);
        EXPECT_EQ(mm_thread_info().epoch, mm_book.epoch);
        EXPECT_EQ(slot_of(1)->stated_number, 0);
        tesh_serv_deallocate(p);
        EXPECT_EQ(slot_of(1)->stated_number, 1);
    });
    b.run([] {
        tesh_serv_free(tesh_serv_malloc(1, 64));
        EXPECT_EQ(mm_thread_info().number, 2);
    });
    EXPECT_EQ(mm_book.number_count, 2);
    EXPECT_NE(slot_of(1)->record, slot_of(2)->record);
}

TEST_F(book_of_threads, starts_each_vector_on_a_page_behind_its_raw_address)
{
    worker a;
    a.run([] { tesh_serv_deallocate(tesh_serv_allocate(100, 64)); });
    const auto vector = reinterpret_cast<uintptr_t>(mm_book.vectors[0]);
    EXPECT_EQ(vector % 4096, 0u);
    uintptr_t raw;
    std::memcpy(&raw, reinterpret_cast<void *>(vector - 8), 8);
    EXPECT_EQ(raw / 4096 * 4096, vector - 4096);
}

TEST_F(book_of_threads, clears_the_bank_of_a_block_freed_on_another_thread_and_leaves_it_with_its_owner)
{
    worker owner, other;
    void *block = nullptr;
    owner.run([&] { block = tesh_serv_allocate(3000, 64); });
    other.run([&] {
        tesh_serv_deallocate(block);
        EXPECT_EQ(mm_thread_info().number, 2) << "a thread that only gives back is registered too";
        EXPECT_EQ(own_record()->bank_count, 0);
    });
    owner.run([&] {
        EXPECT_EQ(own_record()->in_use[0], 0u);
        EXPECT_EQ(own_record()->user[0], reinterpret_cast<uint64_t>(block));
        EXPECT_EQ(tesh_serv_allocate(3000, 64), block);
        tesh_serv_deallocate(block);
    });
}

TEST_F(book_of_threads, ends_the_record_of_a_thread_whose_blocks_are_all_back)
{
    const totals before = held();
    worker a;
    a.run([] { tesh_serv_deallocate(tesh_serv_allocate(1 << 20, 64)); });
    EXPECT_EQ(held().bytes - before.bytes, (1 << 20) + 64);
    a.end();
    EXPECT_EQ(slot_of(1)->record, nullptr);
    EXPECT_EQ(held().bytes, before.bytes);
    EXPECT_EQ(held().blocks, before.blocks);
}

TEST_F(book_of_threads, keeps_a_dead_record_until_its_last_block_is_back)
{
    const totals before = held();
    worker a;
    void *first = nullptr, *second = nullptr, *plain = nullptr;
    a.run([&] {
        first = tesh_serv_allocate(1000, 64);
        second = tesh_serv_allocate(2000, 64);
        plain = tesh_serv_malloc(10, 64);
        tesh_serv_deallocate(tesh_serv_allocate(3000, 64));
        std::memset(second, 7, 2000);
    });
    a.end();
    bank_record *const record = slot_of(1)->record;
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->dead, 1);
    EXPECT_EQ(record->block_count, 0) << "the plain account was closed";
    EXPECT_EQ(record->block_bytes, 0);
    EXPECT_EQ(held().bytes - before.bytes, 1064 + 2064 + 10 + 64 + 24);

    const int32_t epoch = mm_book.epoch;
    tesh_serv_free_buffers();
    EXPECT_EQ(mm_book.epoch, epoch) << "a dead record keeps the vectors";
    EXPECT_EQ(slot_of(1)->record, record);

    tesh_serv_deallocate(first);
    EXPECT_EQ(slot_of(1)->record, record);
    EXPECT_EQ(static_cast<unsigned char *>(second)[1999], 7);
    tesh_serv_deallocate(second);
    EXPECT_EQ(slot_of(1)->record, nullptr);
    tesh_serv_free(plain);
    EXPECT_EQ(held().bytes, before.bytes);
    EXPECT_EQ(held().blocks, before.blocks);
}

TEST_F(book_of_threads, free_buffers_starts_an_epoch_when_nothing_is_in_use)
{
    worker a;
    void *plain = nullptr;
    a.run([&] {
        tesh_serv_deallocate(tesh_serv_allocate(1000, 64));
        plain = tesh_serv_malloc(100, 64);
    });
    const int32_t epoch = mm_book.epoch;
    tesh_serv_free_buffers();
    EXPECT_EQ(mm_book.epoch, epoch + 1);
    EXPECT_EQ(mm_book.number_count, 0);
    for (const thread_slot *vector : mm_book.vectors)
        EXPECT_EQ(vector, nullptr);
    EXPECT_EQ(held().bytes, 100 + 64 + 24) << "only the plain block is out";
    EXPECT_EQ(held().blocks, 1);
    tesh_serv_free(plain);
    EXPECT_EQ(held().bytes, 0);
    EXPECT_EQ(held().blocks, 0);
}

TEST_F(book_of_threads, free_buffers_leaves_a_block_in_use_on_another_thread_alone)
{
    worker a, b;
    unsigned char *block = nullptr;
    a.run([&] {
        block = static_cast<unsigned char *>(tesh_serv_allocate(5000, 64));
        std::memset(block, 9, 5000);
        tesh_serv_deallocate(tesh_serv_allocate(100, 64));
    });
    b.run([] { tesh_serv_deallocate(tesh_serv_allocate(100, 64)); });
    const int32_t epoch = mm_book.epoch;
    tesh_serv_free_buffers();
    EXPECT_EQ(mm_book.epoch, epoch);
    EXPECT_EQ(slot_of(2)->record, nullptr) << "the idle thread's record was ended";
    EXPECT_EQ(held().bytes, 5064);
    for (int i = 0; i < 5000; ++i)
        ASSERT_EQ(block[i], 9);
    b.run([] {
        tesh_serv_deallocate(tesh_serv_allocate(100, 64));
        EXPECT_EQ(mm_thread_info().number, 2) << "its number still holds";
    });
    a.run([&] { tesh_serv_deallocate(block); });
}

TEST_F(book_of_threads, numbers_a_stale_thread_anew_at_its_next_call)
{
    worker a, b;
    a.run([] { tesh_serv_deallocate(tesh_serv_allocate(100, 64)); });
    b.run([] { tesh_serv_deallocate(tesh_serv_allocate(100, 64)); });
    tesh_serv_free_buffers();
    b.run([] {
        EXPECT_EQ(mm_thread_info().number, 2);
        tesh_serv_thread_free_buffers(); // has nothing to free
        EXPECT_EQ(mm_book.number_count, 0);
        void *const p = tesh_serv_allocate(100, 64);
        EXPECT_EQ(mm_thread_info().number, 1);
        EXPECT_EQ(mm_thread_info().epoch, mm_book.epoch);
        EXPECT_EQ(slot_of(1)->stated_number, 2) << "the number that its hold was taken by";
        expect_book_free();
        tesh_serv_deallocate(p);
        EXPECT_EQ(slot_of(1)->stated_number, 1);
    });
    a.run([] {
        EXPECT_EQ(mm_thread_info().number, 1);
        tesh_serv_deallocate(tesh_serv_allocate(100, 64));
        EXPECT_EQ(mm_thread_info().number, 2);
    });
}

TEST_F(book_of_threads, a_stale_thread_that_ends_touches_no_one_elses_slot)
{
    worker stale, fresh;
    stale.run([] { tesh_serv_deallocate(tesh_serv_allocate(100, 64)); });
    tesh_serv_free_buffers();
    fresh.run([] {
        tesh_serv_deallocate(tesh_serv_allocate(100, 64));
        EXPECT_EQ(mm_thread_info().number, 1);
    });
    bank_record *const record = slot_of(1)->record;
    stale.end();
    EXPECT_EQ(slot_of(1)->record, record);
    EXPECT_EQ(record->base[0] != 0, true);
    EXPECT_EQ(record->dead, 0);
}

// The destructor of a key that was made after the library's own runs when the thread's record has been ended.
TEST_F(book_of_threads, serves_a_thread_that_calls_from_its_own_key_destructors)
{
    worker first;
    first.run([] { tesh_serv_deallocate(tesh_serv_allocate(100, 64)); });
    static pthread_key_t key;
    static std::atomic<int> calls;
    calls = 0;
    ASSERT_EQ(pthread_key_create(&key,
                                 [](void *) {
                                     void *const p = tesh_serv_allocate(4000, 64);
                                     std::memset(p, 1, 4000);
                                     tesh_serv_deallocate(p);
                                     ++calls;
                                 }),
              0);
    const totals before = held();
    on_new_thread([] {
        tesh_serv_deallocate(tesh_serv_allocate(100, 64));
        pthread_setspecific(key, &calls);
    });
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(pthread_key_delete(key), 0);
    EXPECT_EQ(held().bytes, before.bytes);
}

TEST_F(book_of_threads, makes_its_keys_anew_after_they_were_destroyed)
{
    worker a;
    a.run([] { tesh_serv_deallocate(tesh_serv_allocate(100, 64)); });
    tesh_serv_free_buffers();
    tesh_serv_core_cleanup();
    EXPECT_FALSE(thread_key_ready(mm_tid));
    EXPECT_FALSE(thread_key_ready(mm_tepoch));
    a.run([] {
        EXPECT_EQ(mm_thread_info().number, 0);
        void *const p = tesh_serv_allocate(100, 64);
        EXPECT_EQ(mm_thread_info().number, 1);
        tesh_serv_deallocate(p);
    });
    EXPECT_TRUE(thread_key_ready(mm_tid));
}

// The thread sanitizer's clocks are as long as there are threads, and an exclusive hold moves 1024 of them: there, most
// of the numbers go to threads that have ended.
#if defined(__SANITIZE_THREAD__)
constexpr bool under_thread_sanitizer = true;
#else
constexpr bool under_thread_sanitizer = false;
#endif
constexpr int ended_threads = under_thread_sanitizer ? 1030 : 0;

// Numbers above 1024 share the global word; their slots lie in the second vector.
TEST_F(book_of_threads, serves_1100_threads_at_once)
{
    constexpr int threads = 1100 - ended_threads;
    for (int t = 0; t < ended_threads; ++t)
        on_new_thread([] { tesh_serv_deallocate(tesh_serv_allocate(100, 64)); });
    const totals before = held();
    std::mutex mutex;
    std::condition_variable changed;
    int registered = 0;
    std::atomic<int> wrong{0};
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; ++t) {
        pool.emplace_back([&, t] {
            void *p = tesh_serv_allocate(size_t(1000 + t), 64);
            std::memset(p, t, size_t(1000 + t));
            {
                std::unique_lock<std::mutex> hold(mutex);
                if (++registered == threads)
                    changed.notify_all();
                changed.wait(hold, [&] { return registered == threads; });
            }
            for (int round = 0; round < 20; ++round) {
                wrong += static_cast<unsigned char *>(p)[999 + t] != static_cast<unsigned char>(t);
                tesh_serv_deallocate(p);
                void *const again = tesh_serv_allocate(size_t(1000 + t), 64);
                wrong += again != p;
            }
            tesh_serv_deallocate(p);
        });
    }
    {
        std::unique_lock<std::mutex> hold(mutex);
        changed.wait(hold, [&] { return registered == threads; });
        EXPECT_EQ(mm_book.number_count, 1100);
    }
    EXPECT_NE(slot_of(1100), nullptr);
    for (std::thread &t : pool)
        t.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(held().bytes, before.bytes);
    EXPECT_EQ(held().blocks, before.blocks);
    expect_book_free();
}

// ---- many threads, all services at once ----

struct message {
    unsigned char *block;
    size_t size;
    unsigned char mark;
};

// Blocks that change threads: whoever takes one out gives it back to the library.
class mailbox
{
public:
    void put(const message &m)
    {
        std::lock_guard<std::mutex> hold(mutex_);
        messages_.push_back(m);
    }
    bool take(message *m)
    {
        std::lock_guard<std::mutex> hold(mutex_);
        if (messages_.empty())
            return false;
        *m = messages_.back();
        messages_.pop_back();
        return true;
    }

private:
    std::mutex mutex_;
    std::vector<message> messages_;
};

void give_back(const message &m, std::atomic<int> *wrong)
{
    for (size_t i = 0; i < m.size; i += 61)
        *wrong += m.block[i] != m.mark;
    tesh_serv_deallocate(m.block);
}

void one_round(tesh_test::random &random, mailbox &mail, std::atomic<int> *wrong)
{
    const auto mark = static_cast<unsigned char>(random.next());
    const auto size = static_cast<size_t>(1 + random.below(20000));
    message m{};
    switch (random.below(12)) {
    case 0:
        tesh_serv_free_buffers();
        break;
    case 1:
        tesh_serv_thread_free_buffers();
        break;
    case 2: {
        int32_t blocks;
        *wrong += tesh_serv_mem_stat(&blocks) < 0;
        break;
    }
    case 3: {
        void *p = tesh_serv_malloc(size, 128);
        p = tesh_serv_realloc(p, size + 1000);
        tesh_serv_free(p);
        break;
    }
    case 4:
        tesh_serv_peak_mem_usage(static_cast<int32_t>(random.below(4)) - 1);
        break;
    case 5:
        while (mail.take(&m))
            give_back(m, wrong);
        break;
    default:
        m = {static_cast<unsigned char *>(tesh_serv_allocate(size, 64)), size, mark};
        std::memset(m.block, mark, size);
        if (random.below(4) == 0)
            mail.put(m);
        else
            give_back(m, wrong);
    }
}

TEST_F(book_of_threads, stands_64_threads_that_allocate_give_back_end_and_free_all)
{
    const bool at_length = under_thread_sanitizer || tesh_test::in_medium_set();
    const auto length = at_length ? std::chrono::seconds(10) : std::chrono::seconds(1);
    const auto end = std::chrono::steady_clock::now() + length;
    std::atomic<int> wrong{0};
    std::atomic<int64_t> rounds{0};
    mailbox mail;
    std::vector<std::thread> pool;
    for (uint64_t t = 0; t < 64; ++t) {
        pool.emplace_back([&, t] {
            for (uint64_t life = 0; std::chrono::steady_clock::now() < end; ++life) {
                on_new_thread([&] { // ends after a while, often with blocks still in the mail
                    tesh_test::random random(t * 1000003 + life);
                    for (int i = 0; i < 50 && std::chrono::steady_clock::now() < end; ++i, ++rounds)
                        one_round(random, mail, &wrong);
                });
            }
        });
    }
    for (std::thread &t : pool)
        t.join();
    message m;
    while (mail.take(&m))
        give_back(m, &wrong);
    EXPECT_EQ(wrong, 0);
    EXPECT_GT(rounds, 64);
    tesh_serv_peak_mem_usage(0);
    tesh_serv_free_buffers();
    EXPECT_EQ(mm_book.number_count, 0) << "nothing is left";
    EXPECT_EQ(held().bytes, 0);
    EXPECT_EQ(held().blocks, 0);
}
} // namespace
