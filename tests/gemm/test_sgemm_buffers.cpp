// SPDX-License-Identifier: BSD-3-Clause
// Block sizes and scratch memory of the packed frame.
#include <cstdlib>
#include <cstring>

#include "frame/tesh_serv.h"
#include "tests/gemm/wide_paths.h"
#include "tests/support/detour.h"

namespace
{
using tesh_test::wide_path;

// The allocator, played: notes every request, and has no more than a terabyte.
struct request {
    std::size_t bytes;
    std::int32_t alignment;
};
std::vector<request> requests;
std::vector<void *> given_back;
void *play_allocate(std::size_t bytes, std::int32_t alignment)
{
    requests.push_back({bytes, alignment});
    return bytes == 0 || bytes >> 40 != 0 ? nullptr : std::aligned_alloc(128, (bytes + 127) / 128 * 128);
}
void play_deallocate(void *pointer)
{
    given_back.push_back(pointer);
    std::free(pointer);
}

std::uintptr_t place(const void *p)
{
    return reinterpret_cast<std::uintptr_t>(p);
}

class sgemm_buffers : public testing::TestWithParam<const wide_path *>
{
protected:
    const wide_path &p = *GetParam();
    const bool wide = p.name == "avx512";

    static void SetUpTestSuite()
    {
        tesh_test::detour(tesh_serv_allocate, play_allocate);
        tesh_test::detour(tesh_serv_deallocate, play_deallocate);
    }
    void SetUp() override
    {
        requests.clear();
        given_back.clear();
    }
    gemm_strategy strategy() const
    {
        gemm_strategy s = {};
        s.unroll_m = static_cast<std::uint64_t>(p.panel_m);
        s.unroll_n = static_cast<std::uint64_t>(p.panel_n);
        s.unroll_k = 1;
        s.a_policy = s.b_policy = gemm_policy_packed;
        return s;
    }
    gemm_buffers buffers(std::int64_t m, std::int64_t n, std::int64_t k, const gemm_strategy &s) const
    {
        blas_matrix_view a = {}, b = {};
        a.rows = m;
        a.cols = k;
        b.rows = k;
        b.cols = n;
        gemm_buffers result;
        std::memset(&result, 0xa5, sizeof result);
        p.initialize_buffers(&a, &b, &s, &result);
        return result;
    }
    gemm_buffers buffers(std::int64_t m, std::int64_t n, std::int64_t k) const { return buffers(m, n, k, strategy()); }
    std::int64_t block_k(std::int64_t k) const { return buffers(100, 100, k).block_k; }
    gemm_buffers of_mode(std::uint32_t mode, std::int64_t bm, std::int64_t bn, std::int64_t bk, bool pack = false) const
    {
        gemm_strategy s = strategy();
        s.pack_mode = pack ? 2 : 0;
        gemm_buffers result = buffers(bm, bn, bk, s);
        result.buffer_mode = mode;
        result.block_m = bm;
        result.block_n = bn;
        result.block_k = bk;
        return result;
    }
};

TEST_P(sgemm_buffers, depth_block_is_whole_halved_or_fixed)
{
    EXPECT_EQ(block_k(1), 128);
    EXPECT_EQ(block_k(128), 128);
    EXPECT_EQ(block_k(129), 129);
    if (wide) {
        EXPECT_EQ(block_k(384), 384);
        EXPECT_EQ(block_k(385), 193);
        EXPECT_EQ(block_k(500), 250);
        EXPECT_EQ(block_k(767), 384);
        EXPECT_EQ(block_k(768), 384);
        EXPECT_EQ(block_k(5000), 384);
    } else {
        EXPECT_EQ(block_k(256), 256);
        EXPECT_EQ(block_k(257), 129);
        EXPECT_EQ(block_k(300), 151);
        EXPECT_EQ(block_k(301), 151);
        EXPECT_EQ(block_k(383), 192);
        EXPECT_EQ(block_k(384), 192);
        EXPECT_EQ(block_k(5000), 192);
    }
}

TEST_P(sgemm_buffers, row_block_is_the_matrix_up_to_the_cap)
{
    EXPECT_EQ(buffers(1, 100, 100).block_m, p.panel_m);
    EXPECT_EQ(buffers(p.panel_m + 1, 100, 100).block_m, 2 * p.panel_m);
    EXPECT_EQ(buffers(9984, 100, 100).block_m, 9984);
    EXPECT_EQ(buffers(9985, 100, 100).block_m, wide ? 9984 : 10008);
    EXPECT_EQ(buffers(100000, 100, 100).block_m, wide ? 9984 : 10008);
}

TEST_P(sgemm_buffers, column_block_shrinks_for_a_shallow_product)
{
    EXPECT_EQ(buffers(100, 1, 48).block_n, p.panel_n);
    EXPECT_EQ(buffers(100, 383, 48).block_n, 384);
    EXPECT_EQ(buffers(100, 1000, 48).block_n, 384);
    EXPECT_EQ(buffers(100, 1000, 47).block_n, 24);
    EXPECT_EQ(buffers(100, 9, 47).block_n, wide ? 16 : 12);
}

TEST_P(sgemm_buffers, record_holds_views_modes_and_functions)
{
    gemm_strategy s = strategy();
    gemm_buffers b = buffers(100, 50, 300, s);
    EXPECT_EQ(b.base, nullptr);
    EXPECT_EQ(b.pack_header, nullptr);
    EXPECT_EQ(b.buffer_mode, gemm_buffers_both);
    EXPECT_EQ(b.a_offset, 1664);
    EXPECT_EQ(b.a_align, 0x200000);
    EXPECT_EQ(b.b_offset, 768);
    EXPECT_EQ(b.b_align, 4096);
    EXPECT_EQ(b.count, 1);
    EXPECT_EQ(b.get_bufs, p.get_bufs);
    EXPECT_EQ(b.get_size_bufs, nullptr);
    EXPECT_EQ(b.set_bufs, nullptr);
    EXPECT_EQ(b.free_bufs, p.free_bufs);
    for (const blas_matrix_view *v : {&b.a_block, &b.b_block}) {
        const bool a = v == &b.a_block;
        EXPECT_EQ(v->base, nullptr);
        EXPECT_EQ(v->rows, b.block_k);
        EXPECT_EQ(v->cols, a ? b.block_m : b.block_n);
        EXPECT_EQ(v->unroll_k, 1);
        EXPECT_EQ(v->panel, a ? p.panel_m : p.panel_n);
        EXPECT_EQ(v->padded_k, b.block_k);
        EXPECT_EQ(v->ld, v->panel * v->padded_k);
        EXPECT_EQ(v->elem_size, 4);
        EXPECT_EQ(v->flags, 128u);
        ASSERT_NE(v->address, nullptr);
        blas_matrix_view at = *v;
        at.base = &at;
        EXPECT_EQ(at.address(3, 2 * at.panel, &at),
                  reinterpret_cast<char *>(&at) + (b.block_k * 2 * at.panel + 3 * at.panel) * 4);
    }
    s.a_policy = gemm_policy_given;
    EXPECT_EQ(buffers(100, 50, 300, s).buffer_mode, gemm_buffers_b);
    s.pack_mode = 2;
    b = buffers(100, 50, 300, s);
    EXPECT_EQ(b.get_bufs, p.get_bufs_pack);
    EXPECT_EQ(b.get_size_bufs, p.get_size_bufs);
    EXPECT_EQ(b.set_bufs, p.set_bufs_pack);
}

// The request is bytes long, alignment included; every block lies within it.
TEST_P(sgemm_buffers, blocks_lie_behind_their_boundaries)
{
    const std::int64_t bm = 96, bn = 40, bk = 130;
    for (const std::uint32_t mode : {1u, 2u, 3u, 4u}) {
        gemm_buffers b = of_mode(mode, bm, bn, bk);
        b.count = mode == 4 ? 3 : 1;
        requests.clear();
        ASSERT_EQ(b.get_bufs(&b), 0);
        ASSERT_NE(b.base, nullptr);
        const std::uintptr_t base = place(b.base);
        const std::uintptr_t a_at = place(b.a_block.base), b_at = place(b.b_block.base);
        if (mode == 1 || mode == 3) {
            EXPECT_EQ(a_at % 0x200000, 1664u);
        } else {
            EXPECT_EQ(a_at, 0u);
        }
        if (mode == 2 || mode == 3) {
            EXPECT_EQ(b_at, (base + 4095) / 4096 * 4096 + 768);
        } else if (mode == 4) {
            EXPECT_EQ(b_at, (base + 0x1fffff) / 0x200000 * 0x200000);
        } else {
            EXPECT_EQ(b_at, 0u);
        }
        if (mode == 1) {
            EXPECT_EQ(a_at, (base + 0x1fffff) / 0x200000 * 0x200000 + 1664);
        }
        if (mode == 3) {
            EXPECT_EQ(a_at, (b_at + static_cast<std::uintptr_t>(bk * 4 * bn) + 0x1fffff) / 0x200000 * 0x200000 + 1664);
        }
        const std::uintptr_t sizes[] = {0, static_cast<std::uintptr_t>(bm * bk * 4 + 0x400680),
                                        static_cast<std::uintptr_t>(bk * bn * 4 + 8960),
                                        static_cast<std::uintptr_t>((bm + bn) * bk * 4 + 4204928),
                                        static_cast<std::uintptr_t>((bk * bn * 4 + 8960) * 3 + 0x400000)};
        ASSERT_EQ(requests.size(), 1u);
        EXPECT_EQ(requests[0].bytes, sizes[mode]) << mode;
        EXPECT_EQ(requests[0].alignment, 128);
        if (a_at != 0) {
            EXPECT_LE(a_at + static_cast<std::uintptr_t>(bm * bk * 4), base + sizes[mode]);
        }
        if (b_at != 0) {
            EXPECT_LE(b_at + static_cast<std::uintptr_t>(bn * bk * 4) * (mode == 4 ? 3 : 1), base + sizes[mode]);
        }
        given_back.clear();
        b.free_bufs(&b);
        EXPECT_EQ(given_back, std::vector<void *>{reinterpret_cast<void *>(base)});
        EXPECT_EQ(b.base, nullptr);
    }
}

TEST_P(sgemm_buffers, unknown_mode_has_no_memory)
{
    for (const std::uint32_t mode : {0u, 5u, 77u}) {
        gemm_buffers b = of_mode(mode, 96, 40, 130);
        EXPECT_EQ(b.get_bufs(&b), 1);
        EXPECT_EQ(b.base, nullptr);
        EXPECT_TRUE(requests.empty());
    }
}

TEST_P(sgemm_buffers, sizes_beyond_any_memory_are_refused)
{
    for (const std::int64_t size : {INT64_MAX / 2, INT64_C(1) << 32, INT64_C(1) << 46}) {
        for (const std::uint32_t mode : {1u, 2u, 3u, 4u}) {
            gemm_buffers b = of_mode(mode, size, size, size);
            EXPECT_EQ(b.get_bufs(&b), 1);
            EXPECT_EQ(b.base, nullptr);
        }
    }
}

TEST_P(sgemm_buffers, sizes_of_blocks_that_outlive_a_call)
{
    const std::int64_t bm = 96, bn = 40, bk = 130;
    gemm_buffers b = of_mode(1, bm, bn, bk, true);
    EXPECT_EQ(p.get_size_bufs(&b), bm * bk * 4 + 0x600700);
    b.buffer_mode = 2;
    EXPECT_EQ(p.get_size_bufs(&b), bk * bn * 4 + 0x600380);
    b.buffer_mode = 3;
    b.a_block.base = b.b_block.base = &b;
    EXPECT_EQ(p.get_size_bufs(&b), 0);
    EXPECT_EQ(b.a_block.base, nullptr);
    EXPECT_EQ(b.b_block.base, nullptr);
    b.buffer_mode = 4;
    b.count = 3;
    b.b_align = 0;
    EXPECT_EQ(p.get_size_bufs(&b), (bk * bn * 4 + 8960) * 3 + 0x400080);
    EXPECT_EQ(b.b_align, 4096);
    b.buffer_mode = 5;
    EXPECT_EQ(p.get_size_bufs(&b), (bm * bk * 4 + 9856) * 3 + 0x400080);
    EXPECT_EQ(b.a_align, 4096);
}

TEST_P(sgemm_buffers, pack_header_tells_sizes_and_distance)
{
    const std::int64_t bm = 96, bn = 40, bk = 130;
    for (const std::uint32_t mode : {1u, 2u}) {
        gemm_buffers b = of_mode(mode, bm, bn, bk, true);
        requests.clear();
        ASSERT_EQ(b.get_bufs(&b), 0);
        ASSERT_EQ(requests.size(), 1u);
        EXPECT_EQ(requests[0].bytes,
                  static_cast<std::size_t>(mode == 1 ? bm * bk * 4 + 0x600700 : bk * bn * 4 + 0x600380));
        EXPECT_EQ(requests[0].alignment, 128);
        const std::uintptr_t header = (place(b.base) + 127) / 128 * 128;
        ASSERT_EQ(place(b.pack_header), header);
        const char *block = static_cast<const char *>(mode == 1 ? b.a_block.base : b.b_block.base);
        EXPECT_EQ(place(block), (header + 8192 + 0x1fffff) / 0x200000 * 0x200000 + (mode == 1 ? 1664 : 768));
        const std::int64_t words[] = {
            block - reinterpret_cast<const char *>(b.pack_header), bm, bn, bk, 0, -1, wide ? 2 : 1};
        EXPECT_EQ(b.pack_header[0], words[0] / 4);
        for (int i = 1; i < 7; ++i)
            EXPECT_EQ(b.pack_header[i], words[i]) << "word " << i;
        EXPECT_LE(place(block) + static_cast<std::uintptr_t>((mode == 1 ? bm : bn) * bk * 4),
                  place(b.base) + static_cast<std::uintptr_t>(p.get_size_bufs(&b)));
        b.free_bufs(&b);
    }
}

TEST_P(sgemm_buffers, several_blocks_begin_at_a_large_page)
{
    for (const std::uint32_t mode : {4u, 5u}) {
        gemm_buffers b = of_mode(mode, 96, 40, 130, true);
        b.count = 2;
        requests.clear();
        ASSERT_EQ(b.get_bufs(&b), 0);
        ASSERT_EQ(requests.size(), 1u);
        EXPECT_EQ(requests[0].bytes,
                  static_cast<std::size_t>((mode == 4 ? 130 * 40 * 4 + 8960 : 96 * 130 * 4 + 9856) * 2 + 0x400080));
        EXPECT_EQ(place(mode == 4 ? b.b_block.base : b.a_block.base), (place(b.base) + 0x1fffff) / 0x200000 * 0x200000);
        b.free_bufs(&b);
    }
}

TEST_P(sgemm_buffers, packing_both_blocks_has_no_memory_of_its_own)
{
    gemm_buffers b = of_mode(3, 96, 40, 130, true);
    EXPECT_EQ(b.get_bufs(&b), 1);
    EXPECT_EQ(b.base, nullptr);
}

INSTANTIATE_TEST_SUITE_P(paths, sgemm_buffers, testing::ValuesIn(tesh_test::wide_paths_to_run()), tesh_test::path_name);
} // namespace
