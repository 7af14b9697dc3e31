// SPDX-License-Identifier: BSD-3-Clause
// What the memory manager does when the raw allocator refuses a request: each request in turn, and all from one on.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "tests/frame/memory_view.h"
#include "tests/support/child.h"
#include "tests/support/failing_memory.h"

namespace
{
using namespace memory_view;
using namespace tesh_memory;
namespace failing_memory = tesh_test::failing_memory;
using failing_memory::refusal;
using tesh_test::run_forked;

class failing : public testing::Test
{
protected:
    void SetUp() override
    {
        failing_memory::install();
        failing_memory::refuse(0);
        tesh_serv_free_buffers();
        ASSERT_EQ(failing_memory::blocks_out(), 0);
    }
    void TearDown() override
    {
        failing_memory::refuse(0);
        tesh_serv_free_buffers();
        EXPECT_EQ(failing_memory::blocks_out(), 0) << "blocks are lost";
        int32_t blocks = -1;
        EXPECT_EQ(tesh_serv_mem_stat(&blocks), 0);
        EXPECT_EQ(blocks, 0);
        EXPECT_EQ(mm_book.global, 0);
        for (const lock_line &line : mm_book.lock_words)
            ASSERT_EQ(line.word, 0);
    }
};

TEST_F(failing, raw_allocators_are_the_program_s_own)
{
    failing_memory::refuse(0);
    on_new_thread([] {
        tesh_serv_deallocate(tesh_serv_allocate(1000, 64));
        EXPECT_EQ(failing_memory::requests(), 3) << "slot vector, record, block";
        tesh_serv_deallocate(tesh_serv_allocate(1000, 64));
        EXPECT_EQ(failing_memory::requests(), 3) << "a hit asks for nothing";
        tesh_serv_free(tesh_serv_malloc(1000, 64));
        EXPECT_EQ(failing_memory::requests(), 4);
    });
}

TEST_F(failing, slot_vector_refused_allocate_falls_to_the_plain_layer)
{
    on_new_thread([] {
        failing_memory::refuse(1);
        void *const p = tesh_serv_allocate(1000, 64);
        ASSERT_NE(p, nullptr);
        std::memset(p, 1, 1000);
        ASSERT_NE(own_record(), nullptr) << "made when the plain block was counted";
        EXPECT_EQ(own_record()->bank_count, 0);
        EXPECT_EQ(own_record()->block_count, 1);
        tesh_serv_deallocate(p);
        EXPECT_EQ(own_record()->block_count, 0);
    });
}

TEST_F(failing, record_refused_allocate_falls_to_the_plain_layer)
{
    on_new_thread([] {
        failing_memory::refuse(2);
        void *const p = tesh_serv_allocate(1000, 64);
        ASSERT_NE(p, nullptr);
        std::memset(p, 1, 1000);
        EXPECT_EQ(own_record()->bank_count, 0);
        EXPECT_EQ(own_record()->block_count, 1);
        tesh_serv_deallocate(p);
    });
}

TEST_F(failing, block_refused_leaves_an_empty_bank_in_use_and_answers_null)
{
    on_new_thread([] {
        failing_memory::refuse(3);
        EXPECT_EQ(tesh_serv_allocate(1000, 64), nullptr);
        EXPECT_EQ(failing_memory::requests(), 3) << "no fall to the plain layer";
        const bank_record *const record = own_record();
        EXPECT_EQ(record->bank_count, 1);
        EXPECT_EQ(record->in_use[0], 1u);
        EXPECT_EQ(record->base[0], 0u);
        EXPECT_EQ(record->capacity[0], 0u);
        EXPECT_EQ(record->user[0], 0u);
        void *const p = tesh_serv_allocate(1000, 64);
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(record->user[1], reinterpret_cast<uint64_t>(p));
        tesh_serv_deallocate(p);
        tesh_serv_thread_free_buffers();
        EXPECT_EQ(record->bank_count, 0) << "an empty bank does not count as in use";
    });
}

TEST_F(failing, five_refused_blocks_leave_the_plain_layer)
{
    on_new_thread([] {
        tesh_serv_deallocate(tesh_serv_allocate(1000, 64));
        tesh_serv_thread_free_buffers();
        failing_memory::refuse(1, refusal::from_there_on);
        for (int i = 0; i < 6; ++i)
            EXPECT_EQ(tesh_serv_allocate(1000, 64), nullptr);
        EXPECT_EQ(own_record()->bank_count, 5);
        failing_memory::refuse(0);
        void *const p = tesh_serv_allocate(1000, 64);
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(own_record()->block_count, 1);
        tesh_serv_deallocate(p);
    });
}

TEST_F(failing, replacement_refused_answers_null_and_the_old_block_is_gone)
{
    on_new_thread([] {
        std::vector<void *> p;
        for (size_t i = 1; i <= 5; ++i)
            p.push_back(tesh_serv_allocate(100 * i, 64));
        for (void *q : p)
            tesh_serv_deallocate(q);
        const totals before = held();
        failing_memory::refuse(1);
        EXPECT_EQ(tesh_serv_allocate(10000, 64), nullptr);
        EXPECT_EQ(own_record()->base[0], 0u);
        EXPECT_EQ(own_record()->in_use[0], 1u);
        EXPECT_EQ(held().bytes - before.bytes, -164);
        EXPECT_EQ(held().blocks - before.blocks, -1);
    });
}

TEST_F(failing, realloc_refused_leaves_the_old_block)
{
    auto *const p = static_cast<unsigned char *>(tesh_serv_malloc(1000, 64));
    std::memset(p, 5, 1000);
    const totals before = held();
    failing_memory::refuse(1, refusal::from_there_on);
    EXPECT_EQ(tesh_serv_realloc(p, 100000), nullptr);
    EXPECT_EQ(held().bytes, before.bytes);
    for (int i = 0; i < 1000; ++i)
        ASSERT_EQ(p[i], 5);
    tesh_serv_free(p);
}

TEST_F(failing, everything_refused_answers_null_everywhere)
{
    failing_memory::refuse(1, refusal::from_there_on);
    on_new_thread([] {
        EXPECT_EQ(tesh_serv_malloc(10, 64), nullptr);
        EXPECT_EQ(tesh_serv_calloc(10, 10, 64), nullptr);
        EXPECT_EQ(tesh_serv_realloc(nullptr, 10), nullptr);
        EXPECT_EQ(tesh_serv_allocate(10, 64), nullptr);
        tesh_serv_thread_free_buffers();
    });
    int32_t blocks = -1;
    EXPECT_EQ(tesh_serv_mem_stat(&blocks), 0);
    EXPECT_EQ(blocks, 0);
    tesh_serv_free_buffers();
}

// One of everything on a new thread. Answers are null or good memory; all comes back.
void one_of_everything()
{
    std::vector<std::pair<unsigned char *, size_t>> cached;
    for (size_t i = 0; i < 7; ++i)
        cached.emplace_back(static_cast<unsigned char *>(tesh_serv_allocate(1000 + 10 * i, 64)), 1000 + 10 * i);
    for (const auto &[p, size] : cached) {
        if (p != nullptr)
            std::memset(p, int(size), size);
    }
    void *plain = tesh_serv_malloc(3000, 256);
    void *const zeroed = tesh_serv_calloc(10, 10, 64);
    if (void *const grown = tesh_serv_realloc(plain, 100000))
        plain = grown;
    for (const auto &[p, size] : cached) {
        for (size_t i = 0; p != nullptr && i < size; ++i)
            ASSERT_EQ(p[i], static_cast<unsigned char>(size));
        tesh_serv_deallocate(p);
    }
    void *const replaced = tesh_serv_allocate(50000, 64);
    if (replaced != nullptr)
        std::memset(replaced, 1, 50000);
    tesh_serv_deallocate(replaced);
    tesh_serv_free(plain);
    tesh_serv_free(zeroed);
}

TEST_F(failing, any_single_request_or_all_from_it_on_can_be_refused)
{
    for (refusal how : {refusal::once, refusal::from_there_on}) {
        int64_t met = 0;
        for (int64_t n = 1;; ++n) {
            tesh_serv_free_buffers();
            failing_memory::refuse(n, how);
            on_new_thread(one_of_everything);
            if (!failing_memory::refused())
                break;
            ++met;
            failing_memory::refuse(0);
            tesh_serv_free_buffers();
            ASSERT_EQ(failing_memory::blocks_out(), 0) << "request " << n;
        }
        EXPECT_GE(met, 10);
    }
}

void ask_for_buffers()
{
    tesh_serv_free_buffers();
    tesh_serv_thread_free_buffers();
    tesh_serv_free(tesh_serv_malloc(10, 64));
    int32_t blocks;
    tesh_serv_mem_stat(&blocks);
}

constexpr unsigned child_limit_s = 20; // a child that waits for itself is ended by SIGALRM

TEST_F(failing, an_allocator_may_ask_the_library_for_its_buffers)
{
    const auto result = run_forked([] {
        alarm(child_limit_s);
        int64_t met = 0;
        for (int64_t n = 1;; ++n) {
            tesh_serv_free_buffers();
            failing_memory::interrupt(n, ask_for_buffers);
            on_new_thread(one_of_everything);
            tesh_serv_free_buffers();
            if (!failing_memory::interrupted())
                break;
            ++met;
            failing_memory::interrupt(0);
            tesh_serv_free_buffers();
            if (failing_memory::blocks_out() != 0 || mm_book.global != 0)
                return 1;
        }
        return met > 20 && !HasFailure() ? 0 : 2;
    });
    EXPECT_EQ(result.exit_code, 0) << "signal " << result.signal << result.out;
}

TEST_F(failing, an_allocator_may_end_the_process)
{
    constexpr int own_code = 7;
    int64_t met = 0;
    for (int exit_code = own_code; exit_code == own_code; ++met) {
        const auto result = run_forked([&] {
            alarm(child_limit_s);
            failing_memory::interrupt(met + 1, [] { exit(own_code); });
            on_new_thread(one_of_everything);
            tesh_serv_free_buffers();
            failing_memory::interrupt(0);
            return 0;
        });
        ASSERT_EQ(result.signal, 0) << "request " << met + 1;
        exit_code = result.exit_code;
    }
    EXPECT_GT(met, 20);
}
} // namespace
