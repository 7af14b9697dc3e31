// SPDX-License-Identifier: BSD-3-Clause
// Cache sizes: the walk over leaf 4, and the fixed sizes under a reproducibility branch.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "frame/service/caches.h"
#include "frame/tesh_serv.h"
#include "tests/support/child.h"
#include "tests/support/vcpu/in_process.h"
#include "tests/support/vcpu/profiles.h"

namespace
{
struct subleaf {
    uint32_t type, ways, partitions, line, sets;
};
std::vector<subleaf> listed;
uint32_t last_leaf;

void answer(uint32_t leaf, uint32_t index, uint32_t r[4])
{
    std::memset(r, 0, 16);
    if (leaf == 0) {
        r[0] = last_leaf;
    } else if (leaf == 4 && index < listed.size()) {
        const subleaf &s = listed[index];
        r[0] = 0xfc000000 | s.type; // the rest of the register tells of sharing
        r[1] = (s.ways - 1) << 22 | (s.partitions - 1) << 12 | (s.line - 1);
        r[2] = s.sets - 1;
    }
}

std::vector<int64_t> walked(const std::vector<subleaf> &list, uint32_t leaves = 13)
{
    listed = list;
    last_leaf = leaves;
    int64_t sizes[5];
    std::memset(sizes, 0xff, sizeof sizes);
    caches_walk(answer, sizes);
    return {sizes, sizes + 5};
}

using sizes = std::vector<int64_t>;
constexpr uint32_t data = 1, instruction = 2, unified = 3;

TEST(cache_walk, multiplies_ways_partitions_line_and_sets_and_skips_instruction_caches)
{
    EXPECT_EQ(walked({{data, 12, 1, 64, 64},
                      {instruction, 8, 1, 64, 64},
                      {unified, 16, 1, 64, 2048},
                      {unified, 12, 2, 64, 65536}}),
              (sizes{3, 49152, 2097152, 100663296, 0}));
}

TEST(cache_walk, stops_at_the_end_of_the_list)
{
    EXPECT_EQ(walked({{data, 8, 1, 64, 64}, {0, 1, 1, 1, 1}, {unified, 16, 1, 64, 2048}}), (sizes{1, 32768, 0, 0, 0}));
    EXPECT_EQ(walked({}), (sizes{0, 0, 0, 0, 0}));
}

TEST(cache_walk, takes_four_levels_at_most)
{
    const subleaf s = {unified, 1, 1, 64, 1};
    EXPECT_EQ(walked({s, s, s, s, s, s}), (sizes{4, 64, 64, 64, 64}));
}

TEST(cache_walk, asks_no_leaf_that_the_processor_lacks)
{
    EXPECT_EQ(walked({{data, 8, 1, 64, 64}}, 3), (sizes{0, 0, 0, 0, 0}));
}

TEST(cache_walk, ends_on_a_list_without_an_end)
{
    EXPECT_EQ(walked(std::vector<subleaf>(1000, {instruction, 1, 1, 64, 1})), (sizes{0, 0, 0, 0, 0}));
}

TEST(cache_walk, does_not_overflow_on_the_largest_fields)
{
    EXPECT_EQ(walked({{data, 1024, 1024, 4096, 65536}})[1], INT64_C(1) << 48);
}

// The five values and the answers for levels -1 to 5 in a child with this setting.
std::string seen_with(const std::string &branch)
{
    return tesh_test::run_forked(
               [] {
                   int64_t out[5];
                   tesh_serv_cache_info(out);
                   for (const int64_t x : out)
                       std::printf("%lld ", static_cast<long long>(x));
                   for (int32_t level = -1; level <= 5; ++level)
                       std::printf("%lld ", static_cast<long long>(tesh_serv_get_cache_size(level)));
                   return 0;
               },
               {{"TESH_CBWR", branch}, {"TESH_TRUSTED_VENDORS", "any"}})
        .out;
}

const std::string two_levels = "2 32768 262144 0 0 -1 262144 32768 262144 -1 -1 -1 ";
const std::string three_levels = "3 32768 262144 4194304 0 -1 4194304 32768 262144 4194304 -1 -1 ";

TEST(cache_sizes, are_fixed_by_a_branch)
{
    EXPECT_EQ(seen_with("COMPATIBLE"), two_levels);
    EXPECT_EQ(seen_with("SSE2"), two_levels);
    EXPECT_EQ(seen_with("SSE4_1"), two_levels);
    EXPECT_EQ(seen_with("SSE4_2"), three_levels);
}

TEST(cache_sizes, under_auto_follow_the_processor_type)
{
    const auto type = tesh_test::run_forked([] { return tesh_serv_cpu_detect(); },
                                            {{"TESH_CBWR", "AUTO"}, {"TESH_TRUSTED_VENDORS", "any"}});
    EXPECT_EQ(seen_with("AUTO"), type.exit_code >= 3 ? three_levels : two_levels);
    const auto baseline = tesh_test::run_forked(
        [] {
            int64_t out[5];
            tesh_serv_cache_info(out);
            return static_cast<int>(out[0]);
        },
        {{"TESH_CBWR", "AUTO"}, {"TESH_TRUSTED_VENDORS", ""}});
    EXPECT_EQ(baseline.exit_code, 2) << "another maker's processor is of type 0";
}

TEST(cache_sizes, without_a_branch_are_those_that_the_processor_lists)
{
    tesh_test::vcpu_profile profile = tesh_test::profile_named("avx2");
    const uint32_t leaves[3][4] = {{0x121, 11u << 22 | 63, 63, 0},    // data: 12 ways of 64 sets, lines of 64
                                   {0x122, 7u << 22 | 63, 63, 0},     // instruction
                                   {0x143, 15u << 22 | 63, 2047, 0}}; // unified: 16 ways of 2048 sets, lines of 64
    for (uint32_t i = 0; i < 3; ++i)
        std::memcpy(tesh_test::vcpu_registers(&profile, 4, i), leaves[i], sizeof leaves[i]);
    tesh_test::on_processor(profile, {{"TESH_CBWR", ""}}, [] {
        int64_t out[5];
        tesh_serv_cache_info(out);
        EXPECT_EQ((sizes{out, out + 5}), (sizes{2, 49152, 2097152, 0, 0}));
        EXPECT_EQ(tesh_serv_get_cache_size(0), 2097152);
        EXPECT_EQ(tesh_serv_get_cache_size(1), 49152);
        EXPECT_EQ(tesh_serv_get_cache_size(2), 2097152);
        EXPECT_EQ(tesh_serv_get_cache_size(3), -1);
    });
}

TEST(cache_sizes, without_a_branch_answer_minus_1_outside_the_levels)
{
    const auto result = tesh_test::run_forked([] {
        int64_t out[5];
        tesh_serv_cache_info(out);
        const int32_t levels = static_cast<int32_t>(out[0]);
        const bool last_level = tesh_serv_get_cache_size(0) == (levels == 0 ? 0 : out[levels]);
        bool inside = true;
        for (int32_t level = 1; level <= levels; ++level)
            inside = inside && tesh_serv_get_cache_size(level) == out[level] && out[level] > 0;
        const bool outside = tesh_serv_get_cache_size(-1) == -1 && tesh_serv_get_cache_size(levels + 1) == -1;
        return last_level && inside && outside ? 0 : 1;
    });
    EXPECT_EQ(result.exit_code, 0);
}
} // namespace
