// SPDX-License-Identifier: BSD-3-Clause
// Offsets and sizes past 2^31 elements. Arrays that are mostly holes cost nothing and run in every set; those that are
// whole run in the long set, where the machine has the memory.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "tests/trans/trans_members.h"

namespace
{
using trans_test::arena;
using trans_test::copy_case;
using trans_test::members;

// Address space without memory behind it until it is touched.
class sparse_array
{
public:
    explicit sparse_array(size_t floats) : bytes_(floats * sizeof(float))
    {
        map_ = mmap(nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    }
    ~sparse_array()
    {
        if (map_ != MAP_FAILED)
            munmap(map_, bytes_);
    }
    sparse_array(const sparse_array &) = delete;
    sparse_array &operator=(const sparse_array &) = delete;
    float *data() const { return map_ == MAP_FAILED ? nullptr : static_cast<float *>(map_); }

private:
    size_t bytes_;
    void *map_;
};

float value_at(uint64_t i, uint64_t j)
{
    return static_cast<float>(1 + 37 * i + j);
}

TEST(far_offsets, lines_2_to_the_30_elements_apart)
{
    constexpr uint64_t lead = (uint64_t(1) << 30) + 16, outer = 7, inner = 6; // offsets past 2^32
    const sparse_array from(outer * lead), to(outer * lead);
    float *const a = from.data(), *const b = to.data();
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    for (const members *m : trans_test::members_to_run())
        for (float alpha : {1.0f, 2.0f})
            for (bool transposes : {false, true}) {
                for (uint64_t i = 0; i < outer; ++i)
                    for (uint64_t j = 0; j < inner; ++j)
                        a[i * lead + j] = value_at(i, j);
                m->somatcopy2_seq('R', transposes ? 'T' : 'N', outer, inner, alpha, a, lead, 1, b, lead, 1);
                for (uint64_t i = 0; i < outer; ++i)
                    for (uint64_t j = 0; j < inner; ++j)
                        ASSERT_EQ(b[transposes ? j * lead + i : i * lead + j], alpha * value_at(i, j))
                            << m->path << ' ' << i << ' ' << j;
            }
}

TEST(far_offsets, square_in_place_with_lines_2_to_the_29_elements_apart)
{
    constexpr uint64_t lead = uint64_t(1) << 29, n = 19;
    const sparse_array array(n * lead);
    float *const a = array.data();
    ASSERT_NE(a, nullptr);
    for (const members *m : trans_test::members_to_run())
        for (float alpha : {1.0f, 2.0f}) {
            for (uint64_t i = 0; i < n; ++i)
                for (uint64_t j = 0; j < n; ++j)
                    a[i * lead + j] = value_at(i, j);
            m->simatcopy('R', 'T', n, n, alpha, a, lead, lead);
            for (uint64_t i = 0; i < n; ++i)
                for (uint64_t j = 0; j < n; ++j)
                    ASSERT_EQ(a[j * lead + i], alpha * value_at(i, j)) << m->path << ' ' << i << ' ' << j;
        }
}

TEST(far_offsets, lines_in_place_move_past_2_to_the_31_both_ways)
{
    constexpr uint64_t near = uint64_t(1) << 29, far = near + 4099, n = 6, length = 5;
    const sparse_array array(n * far);
    float *const a = array.data();
    ASSERT_NE(a, nullptr);
    for (const members *m : trans_test::members_to_run())
        for (const auto &[lda, ldb] : {std::pair(near, far), std::pair(far, near)}) {
            for (uint64_t i = 0; i < n; ++i)
                for (uint64_t j = 0; j < length; ++j)
                    a[i * lda + j] = value_at(i, j);
            m->simatcopy('C', 'N', length, n, -1.0f, a, lda, ldb);
            for (uint64_t i = 0; i < n; ++i)
                for (uint64_t j = 0; j < length; ++j)
                    ASSERT_EQ(a[i * ldb + j], -value_at(i, j)) << m->path << ' ' << i << ' ' << j;
        }
}

// Lines so long that a reciprocal of their length is not exact any more.
TEST(far_offsets, cycles_with_very_long_lines)
{
    constexpr uint64_t lda = uint64_t(1) << 31, ldb = 4;
    arena far(lda + 1024);
    for (const members *m : trans_test::members_to_run()) {
        float *a = far.cut(0, false), *line = a + lda;
        for (int k = 0; k < 16; ++k) {
            a[k] = static_cast<float>(1 + k);
            line[k] = static_cast<float>(101 + k);
        }
        m->mipt_t(2, 3, a, lda, ldb, 2.0f); // 1 2 3 and 101 102 103
        const float expected[16] = {2, 202, 3, 4, 4, 204, 7, 8, 6, 206, 11, 12, 13, 14, 15, 16};
        for (int k = 0; k < 16; ++k) {
            EXPECT_EQ(a[k], expected[k]) << m->path << ' ' << k;
            EXPECT_EQ(line[k], static_cast<float>(101 + k)) << m->path << ' ' << k;
        }
    }
}

// The leading dimension of a single line says nothing: the cycles that it makes may be longer than anyone can wait for.
TEST(far_offsets, single_line_with_any_leading_dimension)
{
    for (const members *m : trans_test::members_to_run())
        for (uint64_t lda : {uint64_t(5), uint64_t(7), uint64_t(1) << 33, (uint64_t(1) << 40) - 87, uint64_t(1) << 62,
                             uint64_t(1) << 63, UINT64_MAX})
            for (uint64_t ldb : {1, 2, 3, 4, 8}) {
                float a[40], expected[40];
                for (int k = 0; k < 40; ++k)
                    a[k] = expected[k] = static_cast<float>(1 + k);
                for (uint64_t j = 0; j < 5; ++j)
                    expected[j * ldb] = 3.0f * static_cast<float>(1 + j);
                m->simatcopy('R', 'T', 1, 5, 3.0f, a, lda, ldb);
                for (int k = 0; k < 40; ++k)
                    ASSERT_EQ(a[k], expected[k]) << m->path << " lda " << lda << " ldb " << ldb << " at " << k;
            }
}

TEST(far_offsets, single_column_with_any_leading_dimension)
{
    for (const members *m : trans_test::members_to_run())
        for (uint64_t lda : {1, 2, 3, 4, 8})
            for (uint64_t ldb : {uint64_t(5), uint64_t(7), uint64_t(1) << 33, (uint64_t(1) << 40) - 87,
                                 uint64_t(1) << 62, uint64_t(1) << 63, UINT64_MAX}) {
                float a[40], expected[40];
                for (int k = 0; k < 40; ++k)
                    a[k] = expected[k] = static_cast<float>(1 + k);
                for (uint64_t i = 0; i < 5; ++i)
                    expected[i] = 3.0f * static_cast<float>(1 + i * lda);
                m->simatcopy('R', 'T', 5, 1, 3.0f, a, lda, ldb);
                for (int k = 0; k < 40; ++k)
                    ASSERT_EQ(a[k], expected[k]) << m->path << " lda " << lda << " ldb " << ldb << " at " << k;
            }
}

bool has_memory(size_t bytes)
{
    const long pages = sysconf(_SC_AVPHYS_PAGES);
    return pages > 0 && static_cast<size_t>(pages) * 4096 > bytes;
}

TEST(far_sizes, square_of_more_than_2_to_the_31_elements_in_place)
{
    constexpr uint64_t n = 46352; // 2^31 < n*n
    if (!tesh_test::in_long_set() || !has_memory(n * n * sizeof(float) + (size_t(1) << 30)))
        GTEST_SKIP() << "of the long set, with 10 GB of free memory";
    const sparse_array array(n * n);
    float *const a = array.data();
    ASSERT_NE(a, nullptr);
    const auto bits = [](uint64_t i, uint64_t j) { return static_cast<uint32_t>(i * 65536 + j); };
    for (const members *m : trans_test::members_to_run()) {
        for (uint64_t i = 0; i < n; ++i)
            for (uint64_t j = 0; j < n; ++j) {
                const uint32_t value = bits(i, j);
                std::memcpy(a + i * n + j, &value, sizeof value);
            }
        m->simatcopy('C', 'T', n, n, 1.0f, a, n, n);
        for (uint64_t i = 0; i < n; ++i)
            for (uint64_t j = 0; j < n; ++j) {
                uint32_t value;
                std::memcpy(&value, a + j * n + i, sizeof value);
                ASSERT_EQ(value, bits(i, j)) << m->path;
            }
    }
}

// The source is read through a window of memory that repeats, the result is whole.
TEST(far_sizes, more_than_2_to_the_31_elements_out_of_place)
{
    constexpr uint64_t period = uint64_t(1) << 24, columns = (uint64_t(1) << 30) + period + 5, total = 2 * columns;
    if (!tesh_test::in_long_set() || !has_memory(total * sizeof(float) + (size_t(1) << 30)))
        GTEST_SKIP() << "of the long set, with 10 GB of free memory";
    const uint64_t lda = columns + 3, source_bytes = (2 * lda / period + 1) * period * sizeof(float);
    const int window = memfd_create("window", 0);
    ASSERT_GE(window, 0);
    ASSERT_EQ(ftruncate(window, static_cast<off_t>(period * sizeof(float))), 0);
    char *const base = static_cast<char *>(mmap(nullptr, source_bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(base, MAP_FAILED);
    for (uint64_t at = 0; at < source_bytes; at += period * sizeof(float))
        ASSERT_NE(mmap(base + at, period * sizeof(float), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, window, 0),
                  MAP_FAILED);
    float *const a = reinterpret_cast<float *>(base);
    for (uint64_t k = 0; k < period; ++k)
        a[k] = static_cast<float>(k);
    const sparse_array to(total);
    float *const b = to.data();
    for (const members *m : trans_test::members_to_run())
        for (bool transposes : {false, true}) {
            m->somatcopy2_seq('R', transposes ? 'T' : 'N', 2, columns, 1.0f, a, lda, 1, b, transposes ? 2 : columns, 1);
            for (uint64_t i = 0; i < 2; ++i)
                for (uint64_t j = 0; j < columns; ++j)
                    ASSERT_EQ(b[transposes ? 2 * j + i : i * columns + j], static_cast<float>((i * lda + j) % period))
                        << m->path;
        }
    munmap(base, source_bytes);
    close(window);
}
} // namespace
