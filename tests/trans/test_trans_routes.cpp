// SPDX-License-Identifier: BSD-3-Clause
// Which routine a copy takes. Without the library's test hooks the routes cannot be seen, and the program says so.
#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>
#include <memory>

#include "tests/trans/trans_members.h"
#include "trans/routes.h"

namespace
{
#if defined(TESH_TEST_HOOKS)
using trans_test::members;

constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();

uint32_t bits(std::initializer_list<trans_route> routes)
{
    uint32_t all = 0;
    for (trans_route route : routes)
        all |= 1u << route;
    return all;
}

const uint32_t store_widths = bits({trans_route_stores_4, trans_route_stores_8});

struct arrays {
    alignas(64) float a[300 * 320] = {}, b[300 * 320 + 16] = {};
};
arrays *const memory = new arrays;

uint32_t out_of_place(const members &m, char trans, uint64_t rows, uint64_t cols, float alpha, uint64_t lda,
                      uint64_t ldb, size_t shift = 0, uint64_t stridea = 1, uint64_t strideb = 1)
{
    tesh_trans_routes_taken = 0;
    m.somatcopy2_seq('R', trans, rows, cols, alpha, memory->a, lda, stridea, memory->b + shift, ldb, strideb);
    return tesh_trans_routes_taken & ~store_widths;
}

uint32_t in_place(const members &m, char trans, uint64_t rows, uint64_t cols, float alpha, uint64_t lda, uint64_t ldb)
{
    tesh_trans_routes_taken = 0;
    m.simatcopy('R', trans, rows, cols, alpha, memory->a, lda, ldb);
    return tesh_trans_routes_taken;
}

bool has_kernels(const members &m)
{
    return std::string(m.path) != "def";
}
bool has_lanes(const members &m)
{
    return std::string(m.path) == "avx2" || std::string(m.path) == "avx512";
}

TEST(routes, kept_layout)
{
    for (const members *m : trans_test::members_to_run()) {
        EXPECT_EQ(out_of_place(*m, 'N', 20, 30, 1.0f, 30, 30),
                  bits({trans_route_somatcopy2_n, trans_route_unrollcopy}));
        for (float alpha : {2.0f, nan_value})
            EXPECT_EQ(out_of_place(*m, 'N', 20, 30, alpha, 30, 30), bits({trans_route_somatcopy2_n}));
        EXPECT_EQ(out_of_place(*m, 'N', 20, 30, 1.0f, 31, 31), bits({trans_route_somatcopy2_n}));
        EXPECT_EQ(out_of_place(*m, 'N', 20, 30, 1.0f, 30, 31), bits({trans_route_somatcopy2_n}));
        EXPECT_EQ(out_of_place(*m, 'N', 5, 3, 1.0f, 6, 6, 0, 2, 2), bits({trans_route_somatcopy2_n}));
    }
}

TEST(routes, scaled_transposition_is_recursion_whatever_the_size)
{
    for (const members *m : trans_test::members_to_run())
        for (uint64_t n : {1, 4, 16, 100, 300})
            for (float alpha : {2.0f, 0.0f, nan_value})
                EXPECT_EQ(out_of_place(*m, 'T', n, n, alpha, n, n), bits({trans_route_rec_t})) << m->path;
}

TEST(routes, strided_transposition_is_recursion_without_a_product)
{
    for (const members *m : trans_test::members_to_run()) {
        EXPECT_EQ(out_of_place(*m, 'T', 30, 20, 1.0f, 40, 30, 0, 2, 1), bits({trans_route_rec_t_1})) << m->path;
        EXPECT_EQ(out_of_place(*m, 'T', 30, 20, 1.0f, 20, 60, 0, 1, 2), bits({trans_route_rec_t_1})) << m->path;
    }
}

TEST(routes, plain_transposition)
{
    for (const members *m : trans_test::members_to_run()) {
        const trans_route kernel = has_kernels(*m) ? trans_route_kernel : trans_route_rec_t_1;
        const trans_route direct = has_lanes(*m) ? trans_route_direct : kernel;
        EXPECT_EQ(out_of_place(*m, 'T', 64, 64, 1.0f, 64, 64), bits({kernel})) << m->path;
        EXPECT_EQ(out_of_place(*m, 'T', 5, 64, 1.0f, 64, 5), bits({kernel})) << m->path;
        EXPECT_EQ(out_of_place(*m, 'T', 4, 64, 1.0f, 64, 4), bits({direct})) << m->path;
        EXPECT_EQ(out_of_place(*m, 'T', 64, 64, 1.0f, 64, 64, 1), bits({direct})) << m->path;
        EXPECT_EQ(out_of_place(*m, 'T', 64, 64, 1.0f, 64, 64, 4), bits({direct})) << m->path;
        const bool halves = std::string(m->path) == "avx512"; // 32 bytes are half of its alignment
        EXPECT_EQ(out_of_place(*m, 'T', 64, 64, 1.0f, 64, 64, 8), bits({halves ? direct : kernel})) << m->path;
        EXPECT_EQ(out_of_place(*m, 'T', 5, 2, 1.0f, 8192, 8192),
                  bits({has_kernels(*m) ? trans_route_kernel_grouped : trans_route_rec_t_1}))
            << m->path;
        EXPECT_EQ(out_of_place(*m, 'T', 1, 64, 1.0f, 64, 1),
                  bits({has_kernels(*m) ? trans_route_one_line : trans_route_rec_t_1}));
        EXPECT_EQ(out_of_place(*m, 'T', 64, 1, 1.0f, 1, 64),
                  bits({has_kernels(*m) ? trans_route_one_column : trans_route_rec_t_1}));
    }
}

// Blocks of 40 lines begin with a cache line and with its middle in turn.
TEST(routes, avx512_stores_8_elements_where_runs_begin_with_a_cache_line_and_4_elsewhere)
{
    constexpr uint64_t outer = 1040, inner = 2065, lda = 4099; // B has 8 MiB
    const auto a = std::make_unique<float[]>(outer * lda);
    const std::unique_ptr<float, decltype(&free)> b(
        static_cast<float *>(aligned_alloc(64, inner * (outer + 16) * sizeof(float))), free);
    const uint32_t four = bits({trans_route_stores_4}), eight = bits({trans_route_stores_8});
    for (const members *m : trans_test::members_to_run()) {
        if (std::string(m->path) != "avx512")
            continue;
        const auto widths = [&](uint64_t rows, uint64_t cols, uint64_t ldb) {
            tesh_trans_routes_taken = 0;
            m->somatcopy2_seq('R', 'T', rows, cols, 1.0f, a.get(), lda, 1, b.get(), ldb, 1);
            return tesh_trans_routes_taken & store_widths;
        };
        EXPECT_EQ(widths(64, 64, 64), eight);
        EXPECT_EQ(widths(64, 64, 72), four);
        EXPECT_EQ(widths(40, 64, outer), eight);
        EXPECT_EQ(widths(80, 64, outer), four | eight);
        EXPECT_EQ(widths(outer, inner, outer), four | eight);
        EXPECT_EQ(widths(outer, inner, outer + 16), four | eight);
        for (uint64_t pad : {1, 2, 4, 8, 12})
            EXPECT_EQ(widths(outer, inner, outer + pad), four) << pad;
    }
}

TEST(routes, team_border_of_the_out_of_place_chooser)
{
    for (const members *m : trans_test::members_to_run()) {
        const auto takes_team = [&](uint64_t rows, uint64_t cols) {
            tesh_trans_routes_taken = 0;
            m->somatcopy('C', 'N', rows, cols, 2.0f, memory->a, rows, memory->b, rows);
            return (tesh_trans_routes_taken & bits({trans_route_somatcopy2_par})) != 0;
        };
        EXPECT_FALSE(takes_team(16, 5000));
        EXPECT_FALSE(takes_team(16, 6000));
        EXPECT_FALSE(takes_team(5000, 16));
        EXPECT_FALSE(takes_team(100, 81));
        EXPECT_TRUE(takes_team(100, 82));
        EXPECT_TRUE(takes_team(17, 482));
        EXPECT_FALSE(takes_team(17, 481));
        EXPECT_FALSE(takes_team(128, 64)); // 32768 bytes are not above
        EXPECT_TRUE(takes_team(128, 65));
    }
}

TEST(routes, in_place)
{
    for (const members *m : trans_test::members_to_run()) {
        EXPECT_EQ(in_place(*m, 'N', 30, 30, 2.0f, 30, 30), bits({trans_route_square_n}));
        EXPECT_EQ(in_place(*m, 'N', 30, 30, 2.0f, 31, 31), bits({trans_route_mipt_n}));
        EXPECT_EQ(in_place(*m, 'N', 30, 31, 2.0f, 31, 31), bits({trans_route_mipt_n}));
        EXPECT_EQ(in_place(*m, 'T', 30, 31, 1.0f, 31, 30), bits({trans_route_mipt_t}));
        EXPECT_EQ(in_place(*m, 'T', 30, 30, 1.0f, 30, 31), bits({trans_route_mipt_t}));
        for (float alpha : {2.0f, nan_value})
            EXPECT_EQ(in_place(*m, 'T', 300, 300, alpha, 300, 300), bits({trans_route_square_t}));
        const uint32_t tiles = bits({trans_route_square_t, trans_route_ssqtrans, trans_route_fit_64});
        EXPECT_EQ(in_place(*m, 'T', 30, 30, 1.0f, 30, 30), tiles);
        EXPECT_EQ(in_place(*m, 'T', 256, 256, 1.0f, 256, 256), tiles);
        const uint32_t offered = tiles | bits({trans_route_square_t_par});
        EXPECT_EQ(in_place(*m, 'T', 257, 257, 1.0f, 257, 257), offered); // 256 x 256 by tiles
        EXPECT_EQ(in_place(*m, 'T', 257, 257, 1.0f, 272, 272), offered | bits({trans_route_fit_64_large}));
        EXPECT_EQ(in_place(*m, 'T', 272, 272, 1.0f, 272, 272), offered | bits({trans_route_fit_64_large}));
    }
}
#else
TEST(routes, need_the_test_hooks)
{
    GTEST_SKIP() << "this library is built without TESH_TEST_HOOKS";
}
#endif
} // namespace
