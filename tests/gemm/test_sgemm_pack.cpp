// SPDX-License-Identifier: BSD-3-Clause
// Packing alone: the order of panels and their widths, the three kinds of scale, no access beside the source or behind
// the panels.
#include <cmath>
#include <cstring>

#include "tests/gemm/wide_paths.h"
#include "tests/support/guard_pages.h"
#include "tests/support/random.h"

namespace
{
using tesh_test::guard;
using tesh_test::guarded_array;
using tesh_test::wide_path;

// One of the four copies of a path. down: element (l, c) at l*ld + c of the source; right: at c*ld + l.
struct copy {
    tesh_blas_sgemm_scopy_fn *run;
    bool down;
    std::int64_t full;
    const std::vector<std::int64_t> *tails;
};

std::vector<copy> copies(const wide_path &p)
{
    return {{p.down_a, true, p.panel_m, &p.a_tails},
            {p.right_a, false, p.panel_m, &p.a_tails},
            {p.down_b, true, p.panel_n, &p.b_tails},
            {p.right_b, false, p.panel_n, &p.b_tails}};
}

bool same_bits(float x, float y)
{
    return std::memcmp(&x, &y, sizeof x) == 0;
}

// What a scale makes of an element: 1 keeps the bits, -1 turns the sign over, anything else multiplies.
bool is_scaled(float got, float x, float scale)
{
    if (scale == 1.0f)
        return same_bits(got, x);
    if (scale == -1.0f)
        return same_bits(got, -x);
    const float product = x * scale;
    return std::isnan(product) ? std::isnan(got) : same_bits(got, product);
}

// The source may lie at any byte, so its elements are moved, not named.
void check(const copy &c, std::int64_t depth, std::int64_t width, std::int64_t pad, float scale, guard side,
           std::size_t shift_bytes = 0)
{
    const std::int64_t contiguous = c.down ? width : depth, streams = c.down ? depth : width;
    const std::int64_t ld = contiguous + pad;
    std::vector<float> values(static_cast<std::size_t>((streams - 1) * ld + contiguous));
    tesh_test::random random(static_cast<std::uint64_t>(depth * 1000 + width));
    random.fill(values);
    const guarded_array<float> source(values.size(), side, shift_bytes);
    std::memcpy(static_cast<void *>(source.data()), values.data(), values.size() * sizeof(float));
    guarded_array<float> panels(static_cast<std::size_t>(depth * width), side);
    c.run(&depth, &width, source.data(), &ld, &scale, panels.data());
    std::size_t at = 0;
    std::int64_t first = 0;
    for (const std::int64_t w : tesh_test::panel_widths(width, c.full, *c.tails)) {
        for (std::int64_t l = 0; l < depth; ++l) {
            for (std::int64_t i = 0; i < w; ++i, ++at) {
                const float x = values[static_cast<std::size_t>(c.down ? l * ld + first + i : (first + i) * ld + l)];
                ASSERT_TRUE(is_scaled(panels[at], x, scale))
                    << (c.down ? "down" : "right") << c.full << " depth " << depth << " width " << width << " scale "
                    << scale << " step " << l << " element " << first + i << ": " << panels[at] << " of " << x;
            }
        }
        first += w;
    }
    ASSERT_EQ(at, panels.size());
}

class sgemm_pack : public testing::TestWithParam<const wide_path *>
{
};

TEST_P(sgemm_pack, every_width_at_every_short_depth)
{
    for (const copy &c : copies(*GetParam())) {
        for (std::int64_t width = 1; width <= 2 * c.full + 1; ++width) {
            for (std::int64_t depth = 1; depth <= 20; ++depth) {
                for (const guard side : {guard::at_end, guard::at_start})
                    check(c, depth, width, depth % 3, 1.0f, side);
                if (HasFatalFailure())
                    return;
            }
        }
    }
}

TEST_P(sgemm_pack, both_guards_at_depths_around_the_transposed_block)
{
    for (const copy &c : copies(*GetParam())) {
        for (const std::int64_t width : {c.full - 1, c.full, 2 * c.full - 1}) {
            for (const std::int64_t depth : {7, 8, 9, 15, 16, 17, 31, 32, 33, 63, 64, 65, 128}) {
                check(c, depth, width, 0, 1.0f, guard::at_end);
                check(c, depth, width, 0, 1.0f, guard::at_start);
                if (HasFatalFailure())
                    return;
            }
        }
    }
}

TEST_P(sgemm_pack, scale_keeps_flips_or_multiplies)
{
    for (const copy &c : copies(*GetParam())) {
        for (const float scale : {1.0f, -1.0f, 0.7f, 0.0f, -0.0f, 2.0f, std::nanf(""), INFINITY}) {
            for (const std::int64_t width : {c.full - 1, c.full, 2 * c.full - 1})
                check(c, 19, width, 1, scale, guard::at_end);
            for (const std::int64_t width : *c.tails)
                check(c, 19, width, 1, scale, guard::at_start);
            if (HasFatalFailure())
                return;
        }
    }
}

TEST_P(sgemm_pack, flip_turns_the_sign_of_zeros_and_nans)
{
    for (const copy &c : copies(*GetParam())) {
        const std::int64_t depth = 18, width = 2 * c.full - 1, ld = c.down ? width : depth;
        std::vector<float> source(static_cast<std::size_t>(depth * width)), panels(source.size());
        for (const float x : {0.0f, -0.0f, std::nanf(""), -std::nanf(""), INFINITY}) {
            source.assign(source.size(), x);
            const float scale = -1.0f;
            c.run(&depth, &width, source.data(), &ld, &scale, panels.data());
            for (const float y : panels) {
                ASSERT_EQ(std::signbit(y), !std::signbit(x));
                ASSERT_EQ(std::isnan(y), std::isnan(x));
            }
        }
    }
}

TEST_P(sgemm_pack, source_of_any_alignment)
{
    for (const copy &c : copies(*GetParam())) {
        for (std::size_t shift = 0; shift < 64; shift += shift < 4 ? 1 : 4) {
            for (const std::int64_t width : {c.full - 1, c.full + 5}) // all tails, and a full panel
                for (const std::int64_t depth : {15, 33})
                    check(c, depth, width, 3, shift % 3 == 0 ? 1.0f : 0.7f, guard::at_start, shift);
            if (HasFatalFailure())
                return;
        }
    }
}

// Slots: sizes go from the source's view into the packed one, depth first, swapped for A.
TEST_P(sgemm_pack, slot_functions_write_depth_and_width)
{
    const wide_path &p = *GetParam();
    std::vector<float> matrix(40 * 40), panels(40 * 40), expected(40 * 40);
    tesh_test::random random;
    random.fill(matrix);
    struct slot {
        gemm_copy_fn *run;
        tesh_blas_sgemm_scopy_fn *scopy;
        bool swaps;
    };
    for (const slot &s : {slot{p.copyan, p.down_a, true}, slot{p.copyat, p.right_a, true},
                          slot{p.copybn, p.right_b, false}, slot{p.copybt, p.down_b, false}}) {
        const float scale = 0.5f;
        blas_matrix_view source = {}, packed = {};
        source.base = matrix.data();
        source.rows = 21;
        source.cols = 13;
        source.ld = 40;
        packed.base = panels.data();
        s.run(&source, &packed, &scale, 0);
        const std::int64_t depth = s.swaps ? 13 : 21, width = s.swaps ? 21 : 13;
        EXPECT_EQ(packed.rows, depth);
        EXPECT_EQ(packed.cols, width);
        s.scopy(&depth, &width, matrix.data(), &source.ld, &scale, expected.data());
        EXPECT_EQ(std::memcmp(panels.data(), expected.data(), static_cast<std::size_t>(depth * width) * 4), 0);
    }
}

INSTANTIATE_TEST_SUITE_P(paths, sgemm_pack, testing::ValuesIn(tesh_test::wide_paths_to_run()), tesh_test::path_name);
} // namespace
