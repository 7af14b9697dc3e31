// SPDX-License-Identifier: BSD-3-Clause
// The mc3 SGEMM: table entry, block sizes, buffers, packing, kernels, the unrolled small forms, and the whole routine.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "frame/tesh_serv.h"
#include "gemm/sgemm_mc3.h"
#include "gemm/sgemm_paths.h"
#include "tests/support/child.h"
#include "tests/support/detour.h"
#include "tests/support/failing_memory.h"
#include "tests/support/reference_gemm.h"
#include "tests/support/test_paths.h"

namespace
{
using tesh_test::expect_gemm;
using tesh_test::gemm_operands;
using tesh_test::gemm_shape;
using tesh_test::guard;
using tesh_test::guarded_array;

class mc3 : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!tesh_test::machine_has_path("mc3"))
            GTEST_SKIP() << "this processor lacks SSE4.2";
    }
};

mc3_gemm_descriptor fresh_descriptor()
{
    mc3_gemm_descriptor desc;
    tesh_blas_mc3_sgemm_zero_desc(&desc);
    tesh_blas_mc3_sgemm_get_optimal_kernel(&desc);
    return desc;
}

mc3_gemm_descriptor sized(int64_t m, int64_t n, int64_t k)
{
    mc3_gemm_descriptor desc = fresh_descriptor();
    tesh_blas_mc3_sgemm_get_blks_size(&m, &n, &k, &desc);
    return desc;
}

TEST_F(mc3, table_entry_holds_the_tile_and_the_slots)
{
    EXPECT_EQ(tesh_mc3_s_opt_gemm_ker, 0);
    const mc3_gemm_kernel &entry = tesh_mc3_s_all_gemm_ker[0];
    EXPECT_EQ(entry.unroll_m, 4);
    EXPECT_EQ(entry.unroll_n, 8);
    EXPECT_EQ(entry.unroll_k, 4);
    EXPECT_EQ(entry.version, 2);
    EXPECT_EQ(entry.ext_min_m, 4);
    EXPECT_EQ(entry.ext_min_n, 4);
    EXPECT_EQ(entry.ext_min_k, 4);
    EXPECT_EQ(entry.reserved, 126);
    EXPECT_EQ(entry.copya[1], entry.copya[2]);
    EXPECT_EQ(entry.copyb[1], entry.copyb[2]);
    EXPECT_EQ(entry.copya[0], tesh_blas_mc3_sgemm_copyan);
    EXPECT_EQ(entry.copyb[1], tesh_blas_mc3_sgemm_copybt);
    mc3_gemm_descriptor desc;
    std::memset(&desc, 0xff, sizeof desc);
    tesh_blas_mc3_sgemm_zero_desc(&desc);
    EXPECT_EQ(desc.block_m, 0);
    EXPECT_EQ(desc.kernel.ker0, nullptr);
}

TEST_F(mc3, depth_block_follows_the_depth)
{
    const int64_t table[][2] = {{4, 128},   {127, 128}, {128, 128}, {129, 132}, {252, 252}, {255, 256},  {256, 256},
                                {257, 128}, {300, 152}, {301, 152}, {511, 256}, {512, 256}, {5000, 256}, {510, 256}};
    for (const auto &row : table)
        EXPECT_EQ(sized(100, 100, row[0]).block_k, row[1]) << "k = " << row[0];
}

TEST_F(mc3, column_block_is_rounded_to_the_tile_and_capped)
{
    const int64_t table[][2] = {{1, 8}, {8, 8}, {9, 16}, {4999, 5000}, {5000, 5000}, {5001, 5000}, {9000, 5000}};
    for (const auto &row : table)
        EXPECT_EQ(sized(100, row[0], 100).block_n, row[1]) << "n = " << row[0];
}

// Runs one test of this program in a process of its own, where the library is untouched.
void run_alone(const std::map<std::string, std::string> &environment)
{
    const testing::TestInfo *info = testing::UnitTest::GetInstance()->current_test_info();
    const auto child = tesh_test::run_program(
        {"/proc/self/exe", std::string("--gtest_filter=") + info->test_suite_name() + "." + info->name()}, environment);
    EXPECT_EQ(child.exit_code, 0) << child.out << child.err;
}
bool is_alone()
{
    return std::getenv("MC3_TEST_ALONE") != nullptr;
}

TEST_F(mc3, row_block_depends_on_the_last_level_cache)
{
    if (!is_alone()) {
        // A branch fixes the geometry: no third level, or one of 0x400000 bytes.
        run_alone({{"MC3_TEST_ALONE", "768"}, {"TESH_CBWR", "COMPATIBLE"}});
        run_alone({{"MC3_TEST_ALONE", "768"}, {"TESH_CBWR", "SSE4_2"}, {"TESH_TRUSTED_VENDORS", "any"}});
        int64_t cache[5] = {};
        tesh_serv_cache_info(cache);
        EXPECT_EQ(sized(9, 9, 9).block_m, cache[0] > 0 && cache[3] <= 0x400000 ? 768 : 1280);
    } else {
        EXPECT_EQ(sized(9, 9, 9).block_m, std::atoll(std::getenv("MC3_TEST_ALONE")));
    }
}

TEST_F(mc3, preset_block_sizes_stay)
{
    mc3_gemm_descriptor desc = fresh_descriptor();
    desc.block_m = 12;
    desc.block_n = 16;
    desc.block_k = 20;
    const int64_t size = 1000;
    tesh_blas_mc3_sgemm_get_blks_size(&size, &size, &size, &desc);
    EXPECT_EQ(desc.block_m, 12);
    EXPECT_EQ(desc.block_n, 16);
    EXPECT_EQ(desc.block_k, 20);
}

TEST_F(mc3, version_turns_where_the_b_block_leaves_half_a_mebibyte)
{
    const mc3_gemm_descriptor desc = sized(100, 5000, 512);
    const int64_t k = 512, fits = 512, too_wide = 513; // 256 * 512 * 4 = 0x80000
    EXPECT_EQ(tesh_blas_mc3_sgemm_get_kernel_version(&fits, &k, &desc), 4);
    EXPECT_EQ(tesh_blas_mc3_sgemm_get_kernel_version(&too_wide, &k, &desc), 2);
}

TEST_F(mc3, codes_outside_their_range_are_refused)
{
    const mc3_gemm_descriptor desc = sized(100, 100, 100);
    const int64_t size = 100;
    mc3_gemm_buffers buffers = {};
    for (const int32_t scheme : {99, 107}) {
        EXPECT_EQ(tesh_blas_mc3_sgemm_get_bufs(scheme, &buffers), 1) << scheme;
        EXPECT_EQ(buffers.base, nullptr);
        EXPECT_EQ(tesh_blas_mc3_sgemm_get_bufs_size(scheme, 107, &size, &size, &size, &desc, &buffers), 1);
    }
    for (const int32_t size_code : {0, 106, 109})
        EXPECT_EQ(tesh_blas_mc3_sgemm_get_bufs_size(102, size_code, &size, &size, &size, &desc, &buffers), 1);
}

TEST_F(mc3, schemes_keep_what_they_name)
{
    const mc3_gemm_descriptor desc = sized(100, 200, 50); // blocks of at least 768 rows, 200 columns, depth 128
    const int64_t m = 100, n = 200, k = 50;
    const auto page = [](int64_t floats) { return (floats * 4 + 4095) / 4096 * 4096; };
    const struct {
        int32_t scheme;
        int64_t a, b;
    } table[] = {{100, m, 0}, {101, 0, n}, {102, m, n}, {103, 16, 0}, {104, 16, n}, {105, 0, 8}, {106, m, 8}};
    for (const auto &row : table) {
        mc3_gemm_buffers buffers = {};
        ASSERT_EQ(tesh_blas_mc3_sgemm_get_bufs_size(row.scheme, 107, &m, &n, &k, &desc, &buffers), 0);
        EXPECT_EQ(buffers.a_bytes, page(row.a * k)) << row.scheme;
        EXPECT_EQ(buffers.b_bytes, page(row.b * k)) << row.scheme;
        ASSERT_EQ(tesh_blas_mc3_sgemm_get_bufs(row.scheme, &buffers), 0);
        EXPECT_EQ(buffers.a != nullptr, row.a > 0);
        EXPECT_EQ(buffers.b != nullptr, row.b > 0);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(buffers.a) % 4096, 0u);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(buffers.b) % 4096, 0u);
        std::memset(buffers.base, 1, static_cast<size_t>(buffers.a_bytes + buffers.b_bytes));
        tesh_blas_mc3_sgemm_free_bufs(&buffers);
        EXPECT_EQ(buffers.base, nullptr);
    }
    mc3_gemm_buffers whole = {};
    ASSERT_EQ(tesh_blas_mc3_sgemm_get_bufs_size(102, 108, &m, &n, &k, &desc, &whole), 0);
    EXPECT_EQ(whole.a_bytes, page(desc.block_m * 128));
    EXPECT_EQ(whole.b_bytes, page(200 * 128));
}

// The place of element (l, c) in panels of width full, then its halves.
int64_t place(int64_t l, int64_t c, int64_t width, int64_t depth, int64_t full)
{
    int64_t begin = 0, panel = full;
    for (;;) {
        while (begin + panel > width)
            panel /= 2;
        if (c < begin + panel)
            return begin * depth + l * panel + c - begin;
        begin += panel;
    }
}

TEST_F(mc3, packing_puts_every_element_into_its_panel)
{
    const struct {
        mc3_gemm_copy_fn *copy;
        mc3_gemm_copy_ext_fn *ext;
        const char *trans;
        bool down;
        int64_t full;
    } forms[] = {{tesh_blas_mc3_sgemm_copyan, tesh_blas_mc3_sgemm_copya_ext, "n", true, 4},
                 {tesh_blas_mc3_sgemm_copyat, tesh_blas_mc3_sgemm_copya_ext, "C", false, 4},
                 {tesh_blas_mc3_sgemm_copybn, tesh_blas_mc3_sgemm_copyb_ext, "N", false, 8},
                 {tesh_blas_mc3_sgemm_copybt, tesh_blas_mc3_sgemm_copyb_ext, "t", true, 8}};
    tesh_test::random random;
    for (const auto &form : forms)
        for (int64_t width = 1; width <= 19; ++width)
            for (int64_t depth = 1; depth <= 9; ++depth)
                for (const float scale : {1.0f, -1.0f, 0.3f, std::nanf("")})
                    for (const guard side : {guard::at_end, guard::at_start}) {
                        const int64_t rows = form.down ? width : depth, cols = form.down ? depth : width, ld = rows + 2;
                        guarded_array<float> source(tesh_test::extent(rows, cols, ld), side);
                        guarded_array<float> packed(static_cast<size_t>(width * depth), side),
                            again(static_cast<size_t>(width * depth), side);
                        random.fill(source);
                        form.copy(&depth, &width, source.data(), &ld, &scale, packed.data());
                        form.ext(form.trans, &depth, &width, source.data(), &ld, &scale, again.data());
                        EXPECT_EQ(std::memcmp(packed.data(), again.data(), packed.size() * 4), 0);
                        for (int64_t l = 0; l < depth; ++l)
                            for (int64_t c = 0; c < width; ++c) {
                                const float want =
                                    source[static_cast<size_t>(form.down ? l * ld + c : c * ld + l)] * scale;
                                const float got = packed[static_cast<size_t>(place(l, c, width, depth, form.full))];
                                ASSERT_TRUE(std::isnan(scale) ? std::isnan(got) : got == want);
                            }
                    }
}

// Packs random operands, runs a kernel on guarded blocks and holds each element to the sums of pieces of the depth,
// each in its order.
void check_kernel(mc3_gemm_kernel_fn *kernel, int64_t m, int64_t n, int64_t k, guard side, int64_t piece = INT64_MAX)
{
    tesh_test::random random(static_cast<uint64_t>(m * 1000 + n * 100 + k));
    const int64_t lda = m, ldb = k > 0 ? k : 1, ldc = m + 3;
    const float one = 1.0f;
    std::vector<float> a(static_cast<size_t>(m * k)), b(static_cast<size_t>(k * n));
    random.fill(a);
    random.fill(b);
    guarded_array<float> pa(a.size(), side), pb(b.size(), side), c(tesh_test::extent(m, n, ldc), side);
    random.fill(c);
    const std::vector<float> c0(c.begin(), c.end());
    tesh_blas_mc3_sgemm_copyan(&k, &m, a.data(), &lda, &one, pa.data());
    tesh_blas_mc3_sgemm_copybn(&k, &n, b.data(), &ldb, &one, pb.data());
    kernel(&m, &n, &k, pa.data(), pb.data(), c.data(), &ldc);
    for (int64_t j = 0; j < n; ++j)
        for (int64_t i = 0; i < m; ++i) {
            const size_t at = static_cast<size_t>(j * ldc + i);
            volatile float want = c0[at];
            for (int64_t begin = 0; begin < k || begin == 0; begin += std::min(piece, k + 1)) {
                volatile float sum = 0.0f;
                for (int64_t l = begin; l < k && l - begin < piece; ++l) {
                    volatile const float term = a[static_cast<size_t>(l * m + i)] * b[static_cast<size_t>(j * k + l)];
                    sum = sum + term;
                }
                want = want + sum;
            }
            ASSERT_EQ(c[at], want) << m << 'x' << n << 'x' << k << " at " << i << ',' << j;
        }
}

TEST_F(mc3, kernels_give_one_sum_in_order_for_every_tile_and_tail)
{
    for (mc3_gemm_kernel_fn *kernel : {tesh_blas_mc3_sgemm_ker0, tesh_blas_mc3_sgemm_ker0_pst})
        for (int64_t m = 1; m <= 9; ++m)
            for (int64_t n = 1; n <= 17; ++n)
                for (int64_t k = 0; k <= 20; ++k) {
                    check_kernel(kernel, m, n, k, m % 2 == 0 ? guard::at_end : guard::at_start);
                    if (HasFatalFailure())
                        return;
                }
}

// A depth block is 256 at most, unless a caller presets more; whole tiles take that in pieces of 256.
TEST_F(mc3, whole_tiles_of_deep_and_wide_blocks_give_their_sums_in_order)
{
    for (const int64_t k : {127, 128, 129, 255, 256})
        check_kernel(tesh_blas_mc3_sgemm_ker0, 8, 32, k, guard::at_end);
    for (const int64_t k : {257, 512, 600})
        check_kernel(tesh_blas_mc3_sgemm_ker0, 8, 40, k, guard::at_start, 256);
    for (int64_t m = 1; m <= 9; ++m)
        for (const int64_t n : {31, 32, 39, 45})
            for (const int64_t k : {0, 1, 2, 5, 20})
                check_kernel(tesh_blas_mc3_sgemm_ker0, m, n, k, m % 2 == 0 ? guard::at_end : guard::at_start);
    check_kernel(tesh_blas_mc3_sgemm_ker0, 8, 1048, 256, guard::at_end); // 512 columns are half a mebibyte of B
}

TEST_F(mc3, small_forms_agree_with_the_definition_at_every_size)
{
    tesh_blas_sgemm_fn *const forms[] = {
        tesh_blas_mc3_sgemm_sm_01, tesh_blas_mc3_sgemm_sm_02, tesh_blas_mc3_sgemm_sm_03, tesh_blas_mc3_sgemm_sm_04,
        tesh_blas_mc3_sgemm_sm_05, tesh_blas_mc3_sgemm_sm_06, tesh_blas_mc3_sgemm_sm_07, tesh_blas_mc3_sgemm_sm_08,
        tesh_blas_mc3_sgemm_sm_09, tesh_blas_mc3_sgemm_sm_10};
    for (const char *trans : {"NN", "NT", "TN", "TT", "cn", "Ct"})
        for (int64_t k = 1; k <= 10; ++k)
            for (int64_t m = 1; m <= 10; ++m)
                for (int64_t n = 1; n <= 10; n += 3) {
                    gemm_shape s{trans[0], trans[1], m, n, k, 2.0f, 1.0f, k % 2, n % 3, m % 2};
                    s.side = m % 2 == 0 ? guard::at_end : guard::at_start;
                    expect_gemm(forms[k - 1], s);
                    expect_gemm(tesh_blas_mc3_sgemm_sm_01_10, s);
                    if (HasFatalFailure())
                        return;
                }
}

TEST_F(mc3, small_forms_read_no_operand_for_alpha_zero)
{
    for (int64_t k = 1; k <= 10; ++k) {
        const int64_t size = 5;
        const float alpha = 0.0f, beta = 1.0f;
        std::vector<float> c(25, 3.0f);
        tesh_blas_mc3_xsgemm("N", "T", &size, &size, &k, &alpha, nullptr, &size, nullptr, &size, &beta, c.data(),
                             &size);
        EXPECT_EQ(c, std::vector<float>(25, 3.0f)) << k;
    }
}

TEST_F(mc3, small_dispatch_does_nothing_beyond_depth_ten)
{
    gemm_operands x({'N', 'N', 4, 4, 11, 1.0f, 1.0f});
    x.run(tesh_blas_mc3_sgemm_sm_01_10);
    EXPECT_EQ(std::memcmp(x.c.data(), x.c0.data(), x.c.size() * 4), 0);
}

enum class road { small, blocked, bufferless, none };
road road_taken = road::none;

void note_small(const char *, const char *, const int64_t *, const int64_t *, const int64_t *, const float *,
                const float *, const int64_t *, const float *, const int64_t *, const float *, float *, const int64_t *)
{
    road_taken = road::small;
}
void note_bufferless(const char *, const char *, const int64_t *, const int64_t *, const int64_t *, const float *,
                     const float *, const int64_t *, const float *, const int64_t *, const float *beta, float *,
                     const int64_t *)
{
    EXPECT_EQ(*beta, 1.0f) << "beta is applied before";
    road_taken = road::bufferless;
}
void note_blocked(const char *, const char *, const int64_t *, const int64_t *, const int64_t *, const float *,
                  const float *, const int64_t *, const float *, const int64_t *, float *, const int64_t *,
                  const mc3_gemm_descriptor *, int64_t)
{
    road_taken = road::blocked;
}

TEST_F(mc3, routes_by_shape_and_beta)
{
    const auto child = tesh_test::run_forked([] {
        tesh_test::detour(tesh_blas_mc3_sgemm_sm_01_10, note_small);
        tesh_test::detour(tesh_blas_mc3_sgemm_pst, note_bufferless);
        tesh_test::detour(tesh_blas_mc3_xsgemm_par, note_blocked);
        const struct {
            int64_t m, n, k;
            float alpha, beta;
            road taken;
        } table[] = {
            {10, 10, 10, 1, 1, road::small},   {10, 10, 10, 1, 2, road::blocked},
            {11, 10, 10, 1, 1, road::blocked}, {10, 11, 10, 1, 1, road::blocked},
            {10, 10, 11, 1, 1, road::blocked}, {1, 1, 1, 1, 1, road::small},
            {5, 5, 0, 1, 1, road::bufferless}, {3, 100, 100, 1, 1, road::bufferless},
            {4, 8, 4, 1, 0, road::blocked},    {4, 7, 100, 1, 1, road::bufferless},
            {4, 8, 3, 1, 0, road::bufferless}, {3, 3, 3, 0, 1, road::small},
            {30, 30, 30, 0, 2, road::none},    {0, 9, 9, 1, 0, road::none},
            {9, -1, 9, 1, 0, road::none},
        };
        for (const auto &row : table) {
            std::vector<float> x(10000), c(10000, 1.0f);
            const int64_t ld = 100;
            road_taken = road::none;
            tesh_blas_mc3_xsgemm("N", "N", &row.m, &row.n, &row.k, &row.alpha, x.data(), &ld, x.data(), &ld, &row.beta,
                                 c.data(), &ld);
            EXPECT_EQ(road_taken, row.taken) << row.m << 'x' << row.n << 'x' << row.k << " beta " << row.beta;
            const bool scaled = row.m > 0 && row.n > 0;
            EXPECT_EQ(c[0], scaled ? row.beta : 1.0f) << "C is scaled before the product";
        }
        return ::testing::Test::HasFailure() ? 1 : 0;
    });
    EXPECT_EQ(child.exit_code, 0) << child.out;
}

TEST_F(mc3, agrees_with_the_definition_around_every_block_edge)
{
    tesh_test::worst_ratio worst;
    for (const char *trans : {"NN", "NT", "TN", "TT"}) {
        for (const int64_t k : {4, 128, 131, 255, 256, 257, 301, 513})
            expect_gemm(tesh_blas_mc3_xsgemm, {trans[0], trans[1], 21, 19, k, 0.7f, -1.0f, 1, 2, 3}, &worst);
        for (const int64_t m : {4, 767, 768, 769, 1281})
            expect_gemm(tesh_blas_mc3_xsgemm, {trans[0], trans[1], m, 9, 13, 1.0f, 0.0f}, &worst);
        expect_gemm(tesh_blas_mc3_xsgemm, {trans[0], trans[1], 9, 5009, 5, 1.0f, 1.0f}, &worst);
        expect_gemm(tesh_blas_mc3_xsgemm, {trans[0], trans[1], 37, 600, 300, 1.0f, 0.7f}, &worst); // version 2
    }
    std::printf("worst error / bound: %.3f\n", worst.value);
    EXPECT_LE(worst.value, 1.0);
}

TEST_F(mc3, both_versions_give_the_same_bits)
{
    const gemm_shape s{'N', 'T', 29, 43, 300, 0.9f, 1.0f};
    gemm_operands x(s), y(s);
    const mc3_gemm_descriptor desc = sized(s.m, s.n, s.k);
    const int64_t lda = s.lda(), ldb = s.ldb(), ldc = s.ldc();
    tesh_blas_mc3_xsgemm_par("N", "T", &s.m, &s.n, &s.k, &s.alpha, x.a.data(), &lda, x.b.data(), &ldb, x.c.data(), &ldc,
                             &desc, 4);
    tesh_blas_mc3_xsgemm_par("N", "T", &s.m, &s.n, &s.k, &s.alpha, y.a.data(), &lda, y.b.data(), &ldb, y.c.data(), &ldc,
                             &desc, 2);
    EXPECT_EQ(std::memcmp(x.c.data(), y.c.data(), x.c.size() * 4), 0);
}

// From four rows on, the least of the blocked product.
TEST_F(mc3, bits_of_a_row_do_not_depend_on_its_place_or_on_m)
{
    for (const char *trans : {"NN", "NT", "TN", "TT"}) {
        const gemm_shape s{trans[0], trans[1], 43, 13, 300, 0.7f, 0.3f};
        const gemm_operands whole(s);
        whole.run(tesh_blas_mc3_xsgemm);
        const int64_t lda = s.lda(), ldb = s.ldb(), ldc = s.ldc();
        for (const int64_t count : {4, 5, 7, 8, 17})
            for (int64_t first = 0; first + count <= s.m; first += 3) {
                const gemm_operands part(s);
                tesh_blas_mc3_xsgemm(&s.transa, &s.transb, &count, &s.n, &s.k, &s.alpha,
                                     part.a.data() + (s.transa == 'N' ? first : first * lda), &lda, part.b.data(), &ldb,
                                     &s.beta, part.c.data() + first, &ldc);
                for (int64_t j = 0; j < s.n; ++j)
                    ASSERT_EQ(std::memcmp(part.c.data() + j * ldc + first, whole.c.data() + j * ldc + first,
                                          static_cast<size_t>(count) * sizeof(float)),
                              0)
                        << trans << " rows " << first << " to " << first + count << " column " << j;
            }
    }
}

TEST_F(mc3, bits_do_not_depend_on_alignment)
{
    for (const char *trans : {"NN", "NT", "TN", "TT"})
        for (const int64_t m : {3, 29}) {
            gemm_shape s{trans[0], trans[1], m, 13, 150, 0.7f, 0.3f, 0, 0, 0, guard::at_start};
            const gemm_operands first(s);
            first.run(tesh_blas_mc3_xsgemm);
            for (s.shift_bytes = 4; s.shift_bytes < 64; s.shift_bytes += 4) {
                const gemm_operands other(s);
                other.run(tesh_blas_mc3_xsgemm);
                ASSERT_EQ(std::memcmp(first.c.data(), other.c.data(), first.c.size() * sizeof(float)), 0) << s.name();
            }
        }
}

TEST_F(mc3, small_caller_given_blocks_cross_every_loop)
{
    for (const int64_t version : {2, 4})
        for (const char *trans : {"NN", "NT", "TN", "TT"}) {
            mc3_gemm_descriptor desc = fresh_descriptor();
            desc.block_m = 8;
            desc.block_n = 16;
            desc.block_k = 4;
            const auto blocked = [&](const char *ta, const char *tb, const int64_t *m, const int64_t *n,
                                     const int64_t *k, const float *alpha, const float *a, const int64_t *lda,
                                     const float *b, const int64_t *ldb, const float *, float *c, const int64_t *ldc) {
                tesh_blas_mc3_xsgemm_par(ta, tb, m, n, k, alpha, a, lda, b, ldb, c, ldc, &desc, version);
            };
            for (const int64_t m : {7, 8, 9, 17, 21})
                for (const int64_t n : {15, 16, 17, 33, 37})
                    for (const int64_t k : {3, 4, 5, 9, 11})
                        expect_gemm(blocked, {trans[0], trans[1], m, n, k, 2.0f, 1.0f, 1, 1, 1});
        }
}

TEST_F(mc3, refused_memory_goes_by_the_bufferless_product)
{
    if (!is_alone()) {
        run_alone({{"MC3_TEST_ALONE", "1"}});
        return;
    }
    tesh_test::failing_memory::install();
    for (int64_t n = 1;; ++n) {
        tesh_serv_free_buffers();
        gemm_operands x({'N', 'N', 40, 40, 40, 1.0f, 2.0f}, tesh_test::gemm_values::integers);
        tesh_test::failing_memory::refuse(n);
        x.run(tesh_blas_mc3_xsgemm);
        const bool met = tesh_test::failing_memory::refused();
        tesh_test::failing_memory::refuse(0);
        expect_gemm_result(x, true);
        if (!met) {
            EXPECT_GT(n, 1) << "no request was refused";
            break;
        }
    }
}

TEST_F(mc3, zero_alpha_scales_c_and_leaves_the_operands_unread)
{
    const int64_t n = 20, ld = 20;
    const float zero = 0.0f, two = 2.0f;
    std::vector<float> c(400, 3.0f);
    tesh_blas_mc3_xsgemm("N", "N", &n, &n, &n, &zero, nullptr, &ld, nullptr, &ld, &two, c.data(), &ld);
    EXPECT_EQ(c[0], 6.0f);
    EXPECT_EQ(c[399], 6.0f);
    c.assign(400, std::nanf(""));
    tesh_blas_mc3_xsgemm("N", "N", &n, &n, &n, &zero, nullptr, &ld, nullptr, &ld, &zero, c.data(), &ld);
    EXPECT_EQ(c[399], 0.0f);
}

TEST_F(mc3, sizes_that_overflow_memory_take_the_bufferless_road)
{
    const mc3_gemm_descriptor desc = sized(100, 100, 100);
    mc3_gemm_buffers buffers = {};
    const int64_t huge = std::numeric_limits<int64_t>::max();
    ASSERT_EQ(tesh_blas_mc3_sgemm_get_bufs_size(102, 107, &huge, &huge, &huge, &desc, &buffers), 0);
    EXPECT_LE(buffers.a_bytes + buffers.b_bytes, int64_t(1) << 30) << "blocks bound what a huge problem asks for";
    for (const int64_t preset : {int64_t(1) << 61, huge}) {
        mc3_gemm_descriptor large = desc;
        large.block_m = large.block_n = large.block_k = preset; // no scheme of it fits 64 bits
        for (int32_t scheme = 100; scheme <= 106; ++scheme) {
            for (const int32_t size_code : {107, 108}) {
                ASSERT_EQ(tesh_blas_mc3_sgemm_get_bufs_size(scheme, size_code, &huge, &huge, &huge, &large, &buffers),
                          0);
                buffers.base = &buffers;
                EXPECT_EQ(tesh_blas_mc3_sgemm_get_bufs(scheme, &buffers), 0);
                EXPECT_EQ(buffers.base, nullptr) << scheme << ' ' << size_code << ' ' << preset;
            }
        }
        EXPECT_EQ(tesh_blas_mc3_sgemm_get_kernel_version(&huge, &huge, &large), 2);
    }
}
} // namespace
