// SPDX-License-Identifier: BSD-3-Clause
// The plain layer, the sums over all threads, the peak, and pages for generated code.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstring>
#include <vector>

#include "tests/frame/memory_view.h"
#include "tests/support/child.h"
#include "tests/support/detour.h"

namespace
{
using namespace memory_view;
using tesh_test::run_forked;

template <class T> T header(const void *pointer, int back)
{
    T value;
    std::memcpy(&value, static_cast<const char *>(pointer) - back, sizeof value);
    return value;
}

TEST(plain_layer, size_0_gives_null)
{
    EXPECT_EQ(tesh_serv_malloc(0, 64), nullptr);
    EXPECT_EQ(tesh_serv_calloc(0, 8, 64), nullptr);
    EXPECT_EQ(tesh_serv_calloc(8, 0, 64), nullptr);
}

TEST(plain_layer, replaces_an_alignment_below_64_or_no_power_of_two_by_64)
{
    const struct {
        int32_t given, used;
    } cases[] = {{48, 64},        {64, 64}, {63, 64}, {1, 64},    {0, 64},      {-1, 64},   {-4096, 64},
                 {INT32_MIN, 64}, {96, 64}, {65, 64}, {128, 128}, {4096, 4096}, {4097, 64}, {1 << 20, 1 << 20}};
    for (const auto &c : cases) {
        void *const p = tesh_serv_malloc(100, c.given);
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % uintptr_t(c.used), 0u) << c.given;
        EXPECT_EQ(header<int32_t>(p, 8), c.used) << c.given;
        EXPECT_EQ(header<uint64_t>(p, 16), uint64_t(100 + c.used + 24)) << c.given;
        const auto raw = header<uintptr_t>(p, 24);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(p),
                  (raw + uintptr_t(c.used) + 24) / uintptr_t(c.used) * uintptr_t(c.used));
        std::memset(p, 0xff, 100);
        tesh_serv_free(p);
    }
}

// What takes the raw allocator's place: every request is served at an offset in one area, which nobody gives back.
constexpr size_t total_of_100_bytes = 100 + 64 + 24;
alignas(64) char raw_area[64 + total_of_100_bytes];
size_t raw_offset;

void *raw_block_at_offset(size_t size)
{
    return size == total_of_100_bytes ? raw_area + raw_offset : nullptr;
}

TEST(plain_layer, has_room_for_header_and_block_wherever_the_raw_block_lies)
{
    const auto result = run_forked([] {
        tesh_serv_free(tesh_serv_malloc(100, 64)); // the thread's record is the raw allocator's own
        tesh_test::detour(tesh_memory::mm_internal_malloc, raw_block_at_offset);
        int wrong = 0;
        for (raw_offset = 0; raw_offset < 64; ++raw_offset) {
            char *const raw = raw_area + raw_offset, *const p = static_cast<char *>(tesh_serv_malloc(100, 64));
            wrong += p - 24 < raw || p + 100 > raw + total_of_100_bytes || reinterpret_cast<uintptr_t>(p) % 64 != 0;
        }
        return wrong;
    });
    EXPECT_EQ(result.exit_code, 0) << result.err;
}

TEST(plain_layer, refuses_sizes_whose_total_overflows)
{
    EXPECT_EQ(tesh_serv_malloc(SIZE_MAX, 64), nullptr);
    EXPECT_EQ(tesh_serv_malloc(SIZE_MAX - 87, 64), nullptr); // total SIZE_MAX + 1
    EXPECT_EQ(tesh_serv_malloc(SIZE_MAX - 88, 64), nullptr); // total SIZE_MAX: header of the raw block overflows
    void *const p = tesh_serv_malloc(10, 64);
    EXPECT_EQ(tesh_serv_realloc(p, SIZE_MAX - 10), nullptr);
    tesh_serv_free(p);
}

TEST(plain_layer, free_ignores_null_and_a_header_without_raw_pointer)
{
    tesh_serv_free(nullptr);
    alignas(64) unsigned char space[128] = {};
    const totals before = held();
    tesh_serv_free(space + 64);
    EXPECT_EQ(tesh_serv_realloc(space + 64, 1000), nullptr);
    EXPECT_EQ(held().bytes, before.bytes);
}

TEST(plain_layer, calloc_zeroes)
{
    for (int round = 0; round < 3; ++round) {
        auto *const p = static_cast<unsigned char *>(tesh_serv_calloc(37, 11, 256));
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 256, 0u);
        for (int i = 0; i < 37 * 11; ++i)
            ASSERT_EQ(p[i], 0);
        std::memset(p, 0xa5, 37 * 11);
        tesh_serv_free(p);
    }
}

TEST(realloc, of_null_allocates_with_64)
{
    void *const p = tesh_serv_realloc(nullptr, 200);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(header<int32_t>(p, 8), 64);
    tesh_serv_free(p);
    EXPECT_EQ(tesh_serv_realloc(nullptr, 0), nullptr);
}

TEST(realloc, to_a_smaller_or_equal_size_returns_the_same_pointer)
{
    void *const p = tesh_serv_malloc(1000, 128);
    const totals before = held();
    for (size_t size : {size_t{1000}, size_t{999}, size_t{1}, size_t{0}})
        EXPECT_EQ(tesh_serv_realloc(p, size), p);
    EXPECT_EQ(header<uint64_t>(p, 16), uint64_t(1000 + 128 + 24));
    EXPECT_EQ(held().bytes, before.bytes);
    tesh_serv_free(p);
}

TEST(realloc, up_to_the_room_behind_the_pointer_returns_the_same_pointer)
{
    void *const p = tesh_serv_malloc(1000, 4096);
    const auto offset = reinterpret_cast<uintptr_t>(p) - header<uintptr_t>(p, 24);
    const size_t room = header<uint64_t>(p, 16) - offset;
    ASSERT_GE(room, size_t{1000});
    EXPECT_EQ(tesh_serv_realloc(p, room), p);
    tesh_serv_free(p);
}

TEST(realloc, keeps_contents_alignment_and_counts_when_it_grows)
{
    on_new_thread([] {
        for (int32_t alignment : {64, 256, 4096}) {
            auto *p = static_cast<unsigned char *>(tesh_serv_malloc(50, alignment));
            const totals before = held();
            size_t filled = 50;
            for (size_t i = 0; i < filled; ++i)
                p[i] = static_cast<unsigned char>(i * 7);
            for (size_t size : {5000u, 70000u, 3000000u}) {
                p = static_cast<unsigned char *>(tesh_serv_realloc(p, size));
                ASSERT_NE(p, nullptr);
                EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % uintptr_t(alignment), 0u);
                EXPECT_EQ(header<uint64_t>(p, 16), size + size_t(alignment) + 24);
                EXPECT_EQ(header<int32_t>(p, 8), alignment);
                for (size_t i = 0; i < filled; ++i)
                    ASSERT_EQ(p[i], static_cast<unsigned char>(i * 7));
                for (size_t i = filled; i < size; ++i)
                    p[i] = static_cast<unsigned char>(i * 7);
                filled = size;
                EXPECT_EQ(held().bytes - before.bytes, int64_t(size - 50));
                EXPECT_EQ(held().blocks, before.blocks);
            }
            tesh_serv_free(p);
        }
    });
}

TEST(mem_stat, counts_plain_blocks_with_header_and_alignment)
{
    const totals before = held();
    void *const a = tesh_serv_malloc(1000, 64);
    void *const b = tesh_serv_malloc(1, 4096);
    EXPECT_EQ(held().bytes - before.bytes, 1000 + 64 + 24 + 1 + 4096 + 24);
    EXPECT_EQ(held().blocks - before.blocks, 2);
    tesh_serv_free(a);
    tesh_serv_free(b);
    EXPECT_EQ(held().bytes, before.bytes);
    EXPECT_EQ(held().blocks, before.blocks);
    EXPECT_EQ(tesh_serv_mem_stat(nullptr), 0);
}

TEST(mem_stat, keeps_the_account_of_a_thread_that_ended)
{
    const totals before = held();
    void *block = nullptr;
    on_new_thread([&] { block = tesh_serv_malloc(500, 64); });
    EXPECT_EQ(held().bytes - before.bytes, 500 + 64 + 24);
    EXPECT_EQ(held().blocks - before.blocks, 1);
    tesh_serv_free(block);
    EXPECT_EQ(held().bytes, before.bytes);
    EXPECT_EQ(held().blocks, before.blocks);
}

TEST(peak, answers_minus_1_until_it_is_started)
{
    const auto result = run_forked([] {
        tesh_serv_free(tesh_serv_malloc(1 << 20, 64));
        bool good = tesh_serv_peak_mem_usage(2) == -1 && tesh_serv_peak_mem_usage(-1) == -1;
        good = good && tesh_serv_peak_mem_usage(3) == -1 && tesh_serv_peak_mem_usage(-2) == -1;
        good = good && tesh_serv_peak_mem_usage(1) == 0 && tesh_serv_peak_mem_usage(2) == 0;
        void *const p = tesh_serv_malloc(1000, 64);
        good = good && tesh_serv_peak_mem_usage(2) == 1088;
        void *const q = tesh_serv_malloc(2000, 64);
        good = good && tesh_serv_peak_mem_usage(2) == 1088 + 2088;
        tesh_serv_free(q); // the peak stays
        good = good && tesh_serv_peak_mem_usage(2) == 1088 + 2088;
        good = good && tesh_serv_peak_mem_usage(-1) == 1088 + 2088 && tesh_serv_peak_mem_usage(2) == 1088;
        tesh_serv_free(p);
        good = good && tesh_serv_peak_mem_usage(0) == 0 && tesh_serv_peak_mem_usage(2) == -1;
        return good ? 0 : 1;
    });
    EXPECT_EQ(result.exit_code, 0);
}

TEST(peak, counts_cached_blocks_once_while_they_are_reused)
{
    const auto result = run_forked([] {
        tesh_serv_peak_mem_usage(1);
        for (int i = 0; i < 5; ++i) {
            void *const p = tesh_serv_allocate(4096, 64);
            tesh_serv_deallocate(p);
        }
        // The thread's own record and vectors are none of it.
        const bool cached = tesh_serv_peak_mem_usage(2) == 4096 + 64 && tesh_serv_peak_mem_usage(-1) == 4096 + 64;
        tesh_serv_free_buffers();
        tesh_serv_peak_mem_usage(-1);
        return cached && tesh_serv_peak_mem_usage(2) == 0 ? 0 : 1;
    });
    EXPECT_EQ(result.exit_code, 0);
}

TEST(generated_code, runs_from_pages_made_executable)
{
    EXPECT_EQ(tesh_serv_jit_alloc(0), nullptr);
    EXPECT_EQ(tesh_serv_jit_alloc(SIZE_MAX - 10000), nullptr);
    const totals before = held();
    void *const page = tesh_serv_jit_alloc(10);
    ASSERT_NE(page, nullptr);
    EXPECT_EQ(held().bytes - before.bytes, 4096);
    EXPECT_EQ(held().blocks - before.blocks, 1);
    const unsigned char code[] = {0xb8, 42, 0, 0, 0, 0xc3}; // mov eax, 42; ret
    std::memcpy(page, code, sizeof code);
    EXPECT_EQ(tesh_serv_jit_set_exec(page, 10, 1), 1);
    EXPECT_EQ(reinterpret_cast<int (*)()>(page)(), 42);
    EXPECT_EQ(tesh_serv_jit_set_exec(page, 10, 0), 1);
    static_cast<unsigned char *>(page)[1] = 43;
    EXPECT_EQ(tesh_serv_jit_set_exec(page, 10, 7), 1);
    EXPECT_EQ(reinterpret_cast<int (*)()>(page)(), 43);
    tesh_serv_jit_free(page, 10);
    EXPECT_EQ(held().bytes, before.bytes);
    EXPECT_EQ(held().blocks, before.blocks);
    tesh_serv_jit_free(nullptr, 10);
    EXPECT_NE(msync(page, 4096, MS_ASYNC), 0) << "still mapped";
    EXPECT_EQ(tesh_serv_jit_set_exec(page, 4096, 1), 0);
}

TEST(generated_code, is_not_executable_while_writable)
{
    const auto result = run_forked([] {
        void *const page = tesh_serv_jit_alloc(4096);
        static_cast<unsigned char *>(page)[0] = 0xc3;
        reinterpret_cast<void (*)()>(page)();
        return 0;
    });
    EXPECT_NE(result.exit_code, 0);
}

TEST(generated_code, adds_its_length_to_the_bytes_in_use_when_it_is_freed)
{
    const auto result = run_forked([] {
        tesh_serv_peak_mem_usage(1);
        void *const page = tesh_serv_jit_alloc(5000);
        if (tesh_serv_peak_mem_usage(2) != 8192)
            return 1;
        tesh_serv_jit_free(page, 5000);
        tesh_serv_peak_mem_usage(-1);
        return tesh_serv_peak_mem_usage(2) == 16384 ? 0 : 2;
    });
    EXPECT_EQ(result.exit_code, 0);
}
} // namespace
