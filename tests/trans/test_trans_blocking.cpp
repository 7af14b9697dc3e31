// SPDX-License-Identifier: BSD-3-Clause
// Block height and column group of the out-of-place transposition against the full formulas.
#include <gtest/gtest.h>

#include "trans/body/somatcopy2_t_body.h"

namespace
{
// Every step written out, with the cases that no leading dimension reaches.
trans_blocking full_formula(uint64_t lda, uint64_t ldb, bool wide)
{
    const uint64_t pa = (4 * lda + 4095) / (4 * lda), pb = (4 * ldb + 4095) / (4 * ldb), t = (pb + 15) / pb;
    uint64_t block = 4 * ldb <= 4096 ? 16 * pa : (62 - t) * pa;
    if (wide)
        block = block >= 9 ? block / 8 * 8 : block >= 5 ? block / 4 * 4 : block >= 3 ? block / 2 * 2 : block;
    uint64_t group = 1;
    const uint64_t w = 4 * lda * pa / 8 % 4096;
    if (w == 0 || w == 4 || w == 60) {
        const uint64_t p8 = 8 * pa;
        if (p8 < block && p8 >= 16)
            block = p8;
        else if (p8 < block)
            group = 16;
    }
    return {block, group};
}

TEST(trans_blocking, page_geometry_follows_the_full_formulas)
{
    for (uint64_t lda = 1; lda < 40000; lda += lda < 2100 ? 1 : 7)
        for (uint64_t ldb : {1, 2, 7, 16, 100, 511, 1000, 1023, 1024, 1025, 2048, 5000, 8192, 100000}) {
            const trans_blocking narrow = page_blocking<1>(lda, ldb), wide = page_blocking<8>(lda, ldb);
            const trans_blocking full_narrow = full_formula(lda, ldb, false), full_wide = full_formula(lda, ldb, true);
            ASSERT_EQ(narrow.block, full_narrow.block) << lda << ' ' << ldb;
            ASSERT_EQ(narrow.group, full_narrow.group) << lda << ' ' << ldb;
            ASSERT_EQ(wide.block, full_wide.block) << lda << ' ' << ldb;
            ASSERT_EQ(wide.group, full_wide.group) << lda << ' ' << ldb;
            if (narrow.group > 1) {
                ASSERT_LE(narrow.block, block_lines_most);
            }
        }
}

TEST(trans_blocking, lines_of_8192_are_grouped)
{
    EXPECT_EQ(page_blocking<8>(8192, 8192).group, 16u);
    EXPECT_EQ(page_blocking<8>(8192, 8192).block, 40u);
    EXPECT_EQ(page_blocking<1>(8192, 8192).block, 46u);
    EXPECT_EQ(page_blocking<8>(8200, 8192).group, 16u);
    EXPECT_EQ(page_blocking<8>(8312, 8192).group, 16u);
    EXPECT_EQ(page_blocking<8>(8191, 8192).group, 1u);
    EXPECT_EQ(page_blocking<8>(8202, 8192).group, 1u);
}

TEST(trans_blocking, area_below_at_and_above_the_border)
{
    EXPECT_EQ(aligned_blocking(1024, 1024).block, 16u);
    EXPECT_EQ(aligned_blocking(2048, 2047).block, 16u);
    EXPECT_EQ(aligned_blocking(2048, 2048).block, 8u);
    EXPECT_EQ(aligned_blocking(1024, 4096).block, 8u);
    EXPECT_EQ(aligned_blocking(2048, 2049).block, 40u);
    EXPECT_EQ(aligned_blocking(2048, 2049).group, 1u);
    EXPECT_EQ(aligned_blocking(8192, 8192).group, 16u);
}

TEST(trans_blocking, area_is_taken_modulo_2_to_the_32)
{
    EXPECT_EQ(aligned_blocking(32768, 32768).block, 16u); // 2^32
    EXPECT_EQ(aligned_blocking(32768, 32769).block, 16u); // 2^32 + 2^17
    EXPECT_EQ(aligned_blocking(32896, 32768).block, 8u);  // 2^32 + 2^24
    EXPECT_EQ(aligned_blocking(33024, 32768).block, 40u); // 2^32 + 2^25
}
} // namespace
