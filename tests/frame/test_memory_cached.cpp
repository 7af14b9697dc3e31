// SPDX-License-Identifier: BSD-3-Clause
// The cached layer on one thread: which bank serves which request, and what stays.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "tests/frame/memory_view.h"

namespace
{
using namespace memory_view;

constexpr size_t largest_cached = 134217728;

// Each test has a thread of its own, and so a record without banks.
class cached_layer : public testing::Test
{
protected:
    static void alone(const std::function<void()> &body)
    {
        on_new_thread([&] {
            body();
            tesh_serv_thread_free_buffers();
        });
    }
};

TEST_F(cached_layer, size_0_gives_null)
{
    EXPECT_EQ(tesh_serv_allocate(0, 64), nullptr);
    tesh_serv_deallocate(nullptr);
}

TEST_F(cached_layer, aligns_as_the_plain_layer_does)
{
    alone([] {
        for (int32_t alignment : {48, -4, 0, 64, 128, 4096, 1 << 21}) {
            const uintptr_t used = alignment < 64 ? 64 : uintptr_t(alignment);
            void *const p = tesh_serv_allocate(1000, alignment);
            ASSERT_NE(p, nullptr);
            EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % used, 0u) << alignment;
            std::memset(p, 1, 1000);
            const auto *record = own_record();
            bool seen = false;
            for (int i = 0; i < record->bank_count; ++i) {
                if (record->user[i] != reinterpret_cast<uint64_t>(p))
                    continue;
                seen = true;
                EXPECT_EQ(record->in_use[i], 1u);
                EXPECT_EQ(record->size[i], 1000u);
                EXPECT_EQ(record->capacity[i], 1000 + used);
                EXPECT_EQ(record->user[i], (record->base[i] + used - 1) / used * used);
            }
            EXPECT_TRUE(seen);
            tesh_serv_deallocate(p);
            tesh_serv_thread_free_buffers();
        }
    });
}

TEST_F(cached_layer, hands_out_the_same_block_again_for_the_same_request)
{
    alone([] {
        void *const p = tesh_serv_allocate(5000, 64);
        const totals with_block = held();
        for (int i = 0; i < 100; ++i) {
            tesh_serv_deallocate(p);
            EXPECT_EQ(tesh_serv_allocate(5000, 64), p);
        }
        EXPECT_EQ(held().bytes, with_block.bytes);
        EXPECT_EQ(own_record()->bank_count, 1);
        tesh_serv_deallocate(p);
        EXPECT_EQ(held().bytes, with_block.bytes) << "the block stays cached";
    });
}

TEST_F(cached_layer, holds_up_to_128_mebibytes_and_leaves_one_byte_more_to_the_plain_layer)
{
    alone([] {
        void *const p = tesh_serv_allocate(largest_cached, 64);
        ASSERT_NE(p, nullptr);
        ASSERT_EQ(own_record()->bank_count, 1);
        EXPECT_EQ(own_record()->capacity[0], largest_cached + 64);
        EXPECT_EQ(own_record()->block_count, 0);
        tesh_serv_deallocate(p);
        EXPECT_EQ(own_record()->bank_count, 1);
        void *const q = tesh_serv_allocate(largest_cached + 1, 64);
        ASSERT_NE(q, nullptr);
        EXPECT_EQ(own_record()->bank_count, 1);
        EXPECT_EQ(own_record()->block_count, 1);
        EXPECT_EQ(own_record()->block_bytes, int64_t(largest_cached + 1 + 64 + 24));
        tesh_serv_deallocate(q);
        EXPECT_EQ(own_record()->block_count, 0);
        EXPECT_EQ(own_record()->block_bytes, 0);
    });
}

TEST_F(cached_layer, serves_the_sixth_block_at_once_from_the_plain_layer)
{
    alone([] {
        std::vector<void *> blocks;
        for (size_t i = 0; i < 6; ++i) {
            blocks.push_back(tesh_serv_allocate(100 + i, 64));
            ASSERT_NE(blocks.back(), nullptr);
            std::memset(blocks.back(), int(i), 100 + i);
        }
        EXPECT_EQ(own_record()->bank_count, 5);
        EXPECT_EQ(own_record()->block_count, 1);
        tesh_serv_deallocate(blocks[5]);
        EXPECT_EQ(own_record()->block_count, 0) << "freed, since no bank holds it";
        for (size_t i = 0; i < 5; ++i) {
            EXPECT_EQ(own_record()->in_use[i], 1u);
            EXPECT_EQ(static_cast<unsigned char *>(blocks[i])[99 + i], i);
            tesh_serv_deallocate(blocks[i]);
            EXPECT_EQ(own_record()->in_use[i], 0u);
        }
    });
}

TEST_F(cached_layer, takes_an_exact_capacity_before_a_larger_one)
{
    alone([] {
        void *const large = tesh_serv_allocate(2000, 64);
        void *const exact = tesh_serv_allocate(1000, 64);
        tesh_serv_deallocate(large);
        tesh_serv_deallocate(exact);
        EXPECT_EQ(tesh_serv_allocate(1000, 64), exact);
        EXPECT_EQ(tesh_serv_allocate(1000, 64), large);
        EXPECT_EQ(own_record()->bank_count, 2);
        EXPECT_EQ(own_record()->size[0], 1000u);
        EXPECT_EQ(own_record()->capacity[0], 2064u);
        tesh_serv_deallocate(large);
        tesh_serv_deallocate(exact);
    });
}

TEST_F(cached_layer, takes_the_smallest_larger_capacity_and_of_equals_the_first)
{
    alone([] {
        std::vector<void *> p;
        for (size_t size : {4000u, 3000u, 2000u, 2000u})
            p.push_back(tesh_serv_allocate(size, 64));
        for (void *q : p)
            tesh_serv_deallocate(q);
        EXPECT_EQ(tesh_serv_allocate(1000, 64), p[2]);
        EXPECT_EQ(tesh_serv_allocate(1000, 64), p[3]);
        EXPECT_EQ(tesh_serv_allocate(1000, 64), p[1]);
        EXPECT_EQ(tesh_serv_allocate(1000, 64), p[0]);
        EXPECT_EQ(own_record()->bank_count, 4);
        for (void *q : p)
            tesh_serv_deallocate(q);
    });
}

TEST_F(cached_layer, makes_a_new_bank_while_there_are_fewer_than_five_even_beside_smaller_free_ones)
{
    alone([] {
        for (size_t i = 1; i <= 5; ++i) {
            void *const p = tesh_serv_allocate(1000 * i, 64);
            ASSERT_NE(p, nullptr);
            EXPECT_EQ(own_record()->bank_count, int32_t(i));
            tesh_serv_deallocate(p);
        }
    });
}

TEST_F(cached_layer, replaces_the_first_smaller_free_bank_of_five)
{
    alone([] {
        void *const kept = tesh_serv_allocate(100, 64);
        for (size_t i = 2; i <= 5; ++i)
            tesh_serv_deallocate(tesh_serv_allocate(100 * i, 64));
        const totals before = held();
        void *const p = tesh_serv_allocate(9000, 64);
        ASSERT_NE(p, nullptr);
        const auto *record = own_record();
        EXPECT_EQ(record->bank_count, 5);
        EXPECT_EQ(record->user[1], reinterpret_cast<uint64_t>(p));
        EXPECT_EQ(record->capacity[1], 9064u);
        EXPECT_EQ(record->capacity[2], 364u);
        EXPECT_EQ(held().bytes - before.bytes, 9064 - 264);
        EXPECT_EQ(held().blocks, before.blocks);
        tesh_serv_deallocate(p);
        tesh_serv_deallocate(kept);
    });
}

TEST_F(cached_layer, reuses_a_block_of_equal_capacity_for_another_alignment)
{
    alone([] {
        void *const p = tesh_serv_allocate(1000, 64);
        tesh_serv_deallocate(p);
        void *const q = tesh_serv_allocate(1000 + 64 - 512, 512);
        EXPECT_EQ(own_record()->bank_count, 1);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(q) % 512, 0u);
        std::memset(q, 3, 1000 + 64 - 512);
        tesh_serv_deallocate(q);
    });
}

TEST_F(cached_layer, thread_free_buffers_frees_the_own_idle_banks_and_keeps_the_record)
{
    tesh_serv_thread_free_buffers(); // a thread without a number has none
    alone([] {
        tesh_serv_thread_free_buffers();
        const totals before = held();
        void *const a = tesh_serv_allocate(1000, 64);
        void *const b = tesh_serv_allocate(2000, 64);
        tesh_serv_deallocate(a);
        const auto *record = own_record();
        tesh_serv_thread_free_buffers();
        EXPECT_EQ(record->bank_count, 2) << "one bank stayed in use";
        EXPECT_EQ(record->base[0], 0u);
        EXPECT_EQ(held().bytes - before.bytes, 2064);
        EXPECT_EQ(held().blocks - before.blocks, 1);
        tesh_serv_deallocate(b);
        tesh_serv_thread_free_buffers();
        EXPECT_EQ(record, own_record());
        EXPECT_EQ(record->bank_count, 0);
        EXPECT_EQ(held().bytes, before.bytes);
    });
}

TEST_F(cached_layer, uses_emptied_banks_below_the_count_again)
{
    alone([] {
        std::vector<void *> p;
        for (size_t i = 1; i <= 5; ++i)
            p.push_back(tesh_serv_allocate(1000 * i, 64));
        for (int i = 0; i < 4; ++i)
            tesh_serv_deallocate(p[size_t(i)]);
        tesh_serv_free_buffers();
        const auto *record = own_record();
        ASSERT_NE(record, nullptr) << "one block is out, so the record stays";
        EXPECT_EQ(record->bank_count, 5);
        for (int i = 0; i < 4; ++i)
            EXPECT_EQ(record->base[i], 0u);
        tesh_serv_free_buffers();
        tesh_serv_thread_free_buffers();
        const totals before = held();
        for (size_t i = 0; i < 4; ++i) {
            void *const q = tesh_serv_allocate(777, 64);
            ASSERT_NE(q, nullptr);
            std::memset(q, 5, 777);
            EXPECT_EQ(record->user[i], reinterpret_cast<uint64_t>(q));
            p[i] = q;
        }
        EXPECT_EQ(held().bytes - before.bytes, 4 * (777 + 64));
        EXPECT_EQ(held().blocks - before.blocks, 4);
        for (void *q : p)
            tesh_serv_deallocate(q);
    });
}

TEST_F(cached_layer, gives_back_a_plain_block_that_went_through_deallocate)
{
    alone([] {
        const totals before = held();
        void *const p = tesh_serv_malloc(100, 64);
        tesh_serv_deallocate(p);
        EXPECT_EQ(held().bytes, before.bytes);
        EXPECT_EQ(held().blocks, before.blocks);
    });
}
} // namespace
