// SPDX-License-Identifier: BSD-3-Clause
// Work division: shares tile the range in the order of the ids, of the right sizes.
#include <gtest/gtest.h>

#include <cmath>

#include "frame/tesh_serv.h"

namespace
{
struct part {
    int64_t start, count;
};

part plain(int64_t id, int64_t nthreads, int64_t n)
{
    int64_t count = -1;
    const int64_t start = tesh_serv_divbythreads(&id, &nthreads, &n, &count);
    return {start, count};
}

part blocked(int64_t id, int64_t nthreads, int64_t n, int64_t nb)
{
    int64_t count = -1;
    const int64_t start = tesh_serv_divbythreadsnb(&id, &nthreads, &n, &nb, &count);
    return {start, count};
}

part banded(int64_t id, int64_t nthreads, int64_t n, char uplo)
{
    int64_t count = -1;
    const int64_t start = tesh_serv_divbythreadstr(&id, &nthreads, &n, &uplo, &count);
    return {start, count};
}

// The shares of all threads lie end to end from 0 to n.
template <class divide> void expect_tiling(int64_t nthreads, int64_t n, divide of)
{
    int64_t end = 0;
    for (int64_t id = 0; id < nthreads; ++id) {
        const part p = of(id);
        ASSERT_GE(p.count, 0) << "thread " << id << " of " << nthreads << ", n " << n;
        ASSERT_EQ(p.start, end) << "thread " << id << " of " << nthreads << ", n " << n;
        end += p.count;
    }
    ASSERT_EQ(end, n) << nthreads << " threads";
}

TEST(plain_division, tiles_the_range_with_shares_that_differ_by_one_at_most)
{
    for (int64_t nthreads = 1; nthreads <= 40; ++nthreads) {
        for (int64_t n = 0; n <= 130; ++n) {
            expect_tiling(nthreads, n, [&](int64_t id) { return plain(id, nthreads, n); });
            for (int64_t id = 0; id < nthreads; ++id)
                ASSERT_EQ(plain(id, nthreads, n).count, n / nthreads + (id < n % nthreads ? 1 : 0));
        }
    }
}

TEST(plain_division, of_fewer_items_than_threads_gives_one_to_the_first)
{
    for (int64_t id = 0; id < 8; ++id) {
        EXPECT_EQ(plain(id, 8, 3).count, id < 3 ? 1 : 0);
        EXPECT_EQ(plain(id, 8, 3).start, id < 3 ? id : 3);
    }
}

TEST(plain_division, below_two_threads_gives_all_to_thread_0)
{
    for (const int64_t nthreads : {1, 0, -5}) {
        EXPECT_EQ(plain(0, nthreads, 17).start, 0);
        EXPECT_EQ(plain(0, nthreads, 17).count, 17);
        EXPECT_EQ(plain(1, nthreads, 17).count, 0);
    }
}

TEST(plain_division, past_the_team_is_empty)
{
    EXPECT_EQ(plain(4, 4, 10).count, 0);
    EXPECT_EQ(plain(100, 4, 10).count, 0);
}

TEST(plain_division, past_the_team_starts_where_the_formula_goes_on)
{
    EXPECT_EQ(plain(4, 4, 10).start, 10);
    EXPECT_EQ(plain(6, 4, 10).start, 2 * 6 + 2); // q = 2, r = 2
    EXPECT_EQ(blocked(4, 4, 10, 4).start, 8);    // no whole rounds, two blocks
    EXPECT_EQ(blocked(6, 4, 70, 4).start, (4 * 6 + 1) * 4);
    EXPECT_EQ(plain(INT64_MAX, 2, INT64_MAX).count, 0) << "no product traps";
}

TEST(blocked_division, tiles_the_range_in_whole_blocks_with_the_tail_on_the_last_thread)
{
    for (int64_t nthreads = 1; nthreads <= 9; ++nthreads) {
        for (int64_t nb = 1; nb <= 12; ++nb) {
            for (int64_t n = 0; n <= 150; ++n) {
                expect_tiling(nthreads, n, [&](int64_t id) { return blocked(id, nthreads, n, nb); });
                const int64_t rounds = n / (nb * nthreads), rest = n % (nb * nthreads);
                for (int64_t id = 0; id < nthreads; ++id) {
                    const int64_t extra = id < rest / nb ? nb : 0, tail = id == nthreads - 1 ? rest % nb : 0;
                    ASSERT_EQ(blocked(id, nthreads, n, nb).count, rounds * nb + extra + tail);
                }
            }
        }
    }
}

TEST(blocked_division, tail_goes_to_the_last_thread_whoever_holds_the_extra_blocks)
{
    EXPECT_EQ(blocked(0, 4, 10, 4).count, 4);
    EXPECT_EQ(blocked(1, 4, 10, 4).count, 4);
    EXPECT_EQ(blocked(2, 4, 10, 4).count, 0);
    EXPECT_EQ(blocked(3, 4, 10, 4).count, 2);
    EXPECT_EQ(blocked(3, 4, 10, 4).start, 8);
}

TEST(blocked_division, outside_the_team_or_with_a_useless_block_size_is_defined)
{
    EXPECT_EQ(blocked(4, 4, 10, 4).count, 0);
    EXPECT_EQ(blocked(0, 0, 10, 4).count, 10);
    EXPECT_EQ(blocked(0, 2, 10, 0).count, 5);
    EXPECT_EQ(blocked(0, 2, INT64_MAX, INT64_MAX).count, INT64_MAX) << "no product overflows";
}

TEST(triangle_division, tiles_the_rows_for_both_triangles)
{
    for (int64_t nthreads = 1; nthreads <= 17; ++nthreads) {
        for (int64_t n = 0; n <= 300; ++n) {
            for (const char uplo : {'U', 'u', 'L', 'l'})
                expect_tiling(nthreads, n, [&](int64_t id) { return banded(id, nthreads, n, uplo); });
        }
    }
    for (const int64_t n : {INT64_C(94906265), INT64_C(1000000007), INT64_C(3000000019)})
        expect_tiling(7, n, [&](int64_t id) { return banded(id, 7, n, 'U'); });
}

TEST(triangle_division, edges_are_the_truncated_roots)
{
    // n = 100, 4 threads: area 1262.5; (sqrt(8 k area + 1) - 1) / 2 = 49.75, 70.56, 86.53 for k = 1, 2, 3.
    EXPECT_EQ(banded(0, 4, 100, 'U').count, 49);
    EXPECT_EQ(banded(1, 4, 100, 'U').start, 49);
    EXPECT_EQ(banded(2, 4, 100, 'U').start, 70);
    EXPECT_EQ(banded(3, 4, 100, 'U').start, 86);
    EXPECT_EQ(banded(3, 4, 100, 'U').count, 14);
    EXPECT_EQ(banded(0, 4, 100, 'L').count, 14);
    EXPECT_EQ(banded(1, 4, 100, 'L').start, 14);
    EXPECT_EQ(banded(2, 4, 100, 'L').start, 30);
    EXPECT_EQ(banded(3, 4, 100, 'L').start, 51);
    EXPECT_EQ(banded(3, 4, 100, 'L').count, 49);
}

TEST(triangle_division, bands_have_equal_area)
{
    const int64_t n = 5000, nthreads = 6;
    const double area = 0.5 * n * (n + 1) / nthreads;
    for (int64_t id = 0; id < nthreads; ++id) {
        const part p = banded(id, nthreads, n, 'U');
        const double end = double(p.start + p.count);
        const double held = 0.5 * (end * (end + 1) - double(p.start) * double(p.start + 1));
        EXPECT_NEAR(held, area, double(n) + 1) << "within one row";
    }
}

TEST(triangle_division, outside_the_team_is_empty)
{
    EXPECT_EQ(banded(4, 4, 100, 'U').count, 0);
    EXPECT_EQ(banded(9, 4, 100, 'L').count, 0);
    EXPECT_EQ(banded(0, 1, 100, 'L').count, 100);
    EXPECT_EQ(banded(0, 0, 100, 'U').count, 100);
}
} // namespace
