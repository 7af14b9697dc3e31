// SPDX-License-Identifier: BSD-3-Clause
// The steps of the transposition by cycles: those taken by products against those taken by divisions.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "tests/support/random.h"
#include "trans/body/simatcopy_mipt_t_body.h"

namespace
{
template <bool tight> void expect_steps_of(uint64_t outer, uint64_t inner, uint64_t lda, uint64_t ldb)
{
    const cycles_by_products<tight> fast(outer, inner, lda, ldb);
    const cycles_by_division plain{outer, inner, lda, ldb};
    const uint64_t last = lda * ldb - 1;
    std::vector<uint64_t> positions = {0, 1, lda - 1, std::min(lda, last - 1), last / 2, last - 1};
    tesh_test::random random(lda * 31 + ldb);
    for (int k = 0; k < 2000; ++k)
        positions.push_back(random.next() % last);
    for (uint64_t p : positions) {
        uint64_t got[cycle_steps], want[cycle_steps];
        fast.next(p, got);
        plain.next(p, want);
        for (uint64_t k = 0; k < cycle_steps; ++k)
            ASSERT_EQ(got[k], want[k]) << "step " << k << " behind " << p << " of " << lda << " x " << ldb;
        ASSERT_EQ(fast.is_in_columns(p), plain.is_in_columns(p)) << p << " of " << lda << " x " << ldb;
        ASSERT_EQ(fast.is_source(p), plain.is_source(p)) << p << " of " << lda << " x " << ldb;
    }
}
} // namespace

TEST(trans_cycles, products_step_like_divisions)
{
    for (uint64_t lda = 2; lda < 40; ++lda)
        for (uint64_t ldb = 2; ldb < 40; ++ldb) {
            expect_steps_of<true>(ldb, lda, lda, ldb);
            expect_steps_of<false>((ldb + 1) / 2, (lda + 1) / 2, lda, ldb);
        }
}

TEST(trans_cycles, products_step_like_divisions_up_to_2_to_the_32_positions)
{
    constexpr uint64_t positions = cycle_products_below;
    for (uint64_t lda : {uint64_t(2), uint64_t(3), uint64_t(5), uint64_t(1000), uint64_t(65535), uint64_t(65536),
                         uint64_t(65537), uint64_t(99991), positions / 3, positions / 2}) {
        const uint64_t ldb = positions / lda;
        expect_steps_of<true>(ldb, lda, lda, ldb);
        expect_steps_of<false>(ldb - 1, lda - 1, lda, ldb);
        expect_steps_of<false>(1, 1, lda, ldb);
    }
}
