// SPDX-License-Identifier: BSD-3-Clause
// B := alpha*op(A) on every path, against plain loops, bit by bit: shapes, leading dimensions, alignments, strides,
// special values; arrays between guard pages, padding under canaries.
#include <gtest/gtest.h>
#include <xmmintrin.h>

#include <cmath>
#include <limits>
#include <tuple>

#include "tests/support/random.h"
#include "tests/trans/trans_members.h"

namespace
{
using trans_test::arena;
using trans_test::copy_case;
using trans_test::first_difference;
using trans_test::members;

constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();
constexpr float infinity = std::numeric_limits<float>::infinity();

class somatcopy : public testing::Test
{
protected:
    static constexpr size_t arena_floats = size_t(1) << 24;
    arena from_{arena_floats}, to_{arena_floats};
    std::vector<float> source_, expected_;

    // One call; shift moves B from the guard page, to reach other alignments.
    void check(const members &m, const copy_case &c, bool at_end, size_t shift = 0)
    {
        float *a = from_.cut(c.source_size(), at_end);
        fill_source(c, a);
        check_filled(m, c, a, at_end, shift);
    }

    void check_filled(const members &m, const copy_case &c, const float *a, bool at_end, size_t shift = 0)
    {
        float *b = to_.cut(c.target_size(), at_end, shift);
        source_.assign(a, a + c.source_size());
        expected_.assign(b, b + c.target_size());
        reference_copy(c, a, expected_.data(), true);
        m.somatcopy2_seq(c.ordering, c.trans, c.rows, c.cols, c.alpha, a, c.lda, 1, b, c.ldb, 1);
        const size_t at = first_difference(b, expected_.data(), expected_.size(), c.alpha == 1.0f);
        ASSERT_EQ(at, expected_.size()) << m.path << ' ' << c.name() << (at_end ? " at end" : " at start") << " shift "
                                        << shift;
        ASSERT_TRUE(to_.is_whole_around_cut()) << m.path << ' ' << c.name() << " shift " << shift;
        ASSERT_EQ(first_difference(a, source_.data(), source_.size()), source_.size()) << "A was written";
    }

    // Strides within the lines of both arrays.
    void check_strided(const members &m, bool transposes, uint64_t outer, uint64_t inner, uint64_t stridea,
                       uint64_t strideb, float alpha)
    {
        const uint64_t lda = inner * stridea + 1, ldb = (transposes ? outer : inner) * strideb + 2;
        const size_t size_a = (outer - 1) * lda + (inner - 1) * stridea + 1;
        const size_t size_b =
            transposes ? (inner - 1) * ldb + (outer - 1) * strideb + 1 : (outer - 1) * ldb + (inner - 1) * strideb + 1;
        float *a = from_.cut(size_a, true), *b = to_.cut(size_b, true);
        expected_.assign(b, b + size_b);
        for (uint64_t i = 0; i < outer; ++i)
            for (uint64_t j = 0; j < inner; ++j) {
                const float value = static_cast<float>(1 + i * inner + j);
                a[i * lda + j * stridea] = value;
                expected_[transposes ? j * ldb + i * strideb : i * ldb + j * strideb] = alpha * value;
            }
        m.somatcopy2_seq('R', transposes ? 'T' : 'N', outer, inner, alpha, a, lda, stridea, b, ldb, strideb);
        ASSERT_EQ(first_difference(b, expected_.data(), size_b), size_b)
            << m.path << ' ' << outer << " x " << inner << " strides " << stridea << ' ' << strideb << " alpha "
            << alpha << " transposes " << transposes;
    }

    void check_shape(const members &m, uint64_t rows, uint64_t cols, uint64_t pad_a, uint64_t pad_b)
    {
        for (const char *form : {"CN", "CT", "RN", "RT"})
            for (float alpha : {1.0f, 2.0f}) {
                copy_case c{form[0], form[1], rows, cols, alpha, 0, 0};
                c.lda = c.least_lda() + pad_a;
                c.ldb = c.least_ldb() + pad_b;
                if (c.lda == 0 || c.ldb == 0)
                    continue;
                check(m, c, (rows + cols + pad_b) % 2 == 0, (rows + pad_a) % 17);
                if (testing::Test::HasFatalFailure())
                    return;
            }
    }
};

TEST_F(somatcopy, all_shapes_to_40_with_every_short_padding)
{
    for (const members *m : trans_test::members_to_run())
        for (uint64_t rows = 0; rows <= 40; ++rows)
            for (uint64_t cols = 0; cols <= 40; ++cols)
                for (uint64_t pads = 0; pads < 16; ++pads) {
                    check_shape(*m, rows, cols, pads % 4, pads / 4);
                    if (HasFatalFailure())
                        return;
                }
}

TEST_F(somatcopy, shapes_around_tile_and_block_borders)
{
    constexpr uint64_t sizes[] = {2, 5, 15, 16, 17, 31, 33, 63, 64, 65, 127, 128, 129, 255, 256, 257};
    for (const members *m : trans_test::members_to_run())
        for (uint64_t rows : sizes)
            for (uint64_t cols : sizes) {
                check_shape(*m, rows, cols, (rows + cols) % 4, rows % 4);
                if (HasFatalFailure())
                    return;
            }
}

TEST_F(somatcopy, long_lines_cross_panels)
{
    for (const members *m : trans_test::members_to_run())
        for (uint64_t small : {1, 3, 4, 5, 16, 20, 47})
            for (uint64_t large : {511, 512, 513, 1023, 1024, 1025, 1500, 4095, 4096, 4097, 8191, 8192, 8193}) {
                const uint64_t pad = large % 5 == 0 ? 2 : 0;
                check_shape(*m, small, large, pad, 0);
                check_shape(*m, large, small, 0, pad);
                if (HasFatalFailure())
                    return;
            }
}

// The area ldb*lda*4 below, at and above 2^24 and 2^32, where it wraps; lines at multiples of 32768 bytes.
TEST_F(somatcopy, leading_dimensions_around_the_block_borders)
{
    constexpr uint64_t leads[][2] = {{2048, 2048},   {2048, 2047},   {2047, 2048},   {2049, 2048},   {1024, 4096},
                                     {4096, 1024},   {4096, 4096},   {8192, 8192},   {8200, 8192},   {8312, 1000},
                                     {1024, 1024},   {1024, 1025},   {32768, 32768}, {32896, 32768}, {32768, 32769},
                                     {65536, 128},   {65536, 2048},  {16384, 700},   {1300, 16384},  {64, 65536},
                                     {32767, 32768}, {32768, 32767}, {32769, 32768}, {33024, 32768}};
    for (const members *m : trans_test::members_to_run())
        for (const auto &lead : leads)
            for (uint64_t outer : {4, 5, 16, 47, 101})
                for (uint64_t inner : {2, 8, 33, 60})
                    for (size_t shift : {0, 1, 8}) {
                        const copy_case c{'R', 'T', outer, inner, 1.0f, lead[0], lead[1]};
                        check(*m, c, false, shift);
                        if (HasFatalFailure())
                            return;
                    }
}

TEST_F(somatcopy, every_alignment_of_the_result)
{
    for (const members *m : trans_test::members_to_run())
        for (size_t shift = 0; shift < 18; ++shift)
            for (uint64_t ldb : {50, 64, 72}) {
                check(*m, {'R', 'T', 50, 70, 1.0f, 71, ldb}, false, shift);
                check(*m, {'R', 'T', 50, 70, 1.0f, 71, ldb}, true, shift);
                check(*m, {'R', 'T', 50, 70, 0.7f, 71, ldb}, false, shift);
                if (HasFatalFailure())
                    return;
            }
}

// Strips of 256 lines, 16 columns at a time, with and without prefetches; what is left of both.
TEST_F(somatcopy, unaligned_results_take_16_columns_where_lines_of_the_source_share_sets_or_fill_pages)
{
    constexpr uint64_t lines[][2] = {{128, 127}, {256, 30}, {1152, 1149}, {1031, 1028}};
    for (const members *m : trans_test::members_to_run())
        for (const auto &[lda, inner] : lines)
            for (uint64_t outer : {33, 257, 262, 515})
                for (size_t shift : {1, 4, 13}) {
                    check(*m, {'R', 'T', outer, inner, 1.0f, lda, outer + shift % 3}, false, shift);
                    check(*m, {'R', 'T', outer, inner, 1.0f, lda, outer}, true, shift);
                    if (HasFatalFailure())
                        return;
                }
}

TEST_F(somatcopy, accepts_every_letter_and_ignores_others)
{
    for (const members *m : trans_test::members_to_run())
        for (int ordering = -128; ordering < 128; ++ordering)
            for (int trans = -128; trans < 128; ++trans) {
                const bool known = ordering != 0 && trans != 0 && std::strchr("CcRr", ordering) != nullptr &&
                                   std::strchr("NnRrTtCc", trans) != nullptr;
                const copy_case c{static_cast<char>(ordering), static_cast<char>(trans), 3, 5, 2.0f, 5, 5};
                float *a = from_.cut(25, true), *b = to_.cut(25, true);
                if (known)
                    fill_source(c, a);
                expected_.assign(b, b + 25);
                if (known)
                    reference_copy(c, a, expected_.data(), true);
                m->somatcopy2_seq(c.ordering, c.trans, 3, 5, 2.0f, a, 5, 1, b, 5, 1);
                ASSERT_EQ(first_difference(b, expected_.data(), 25), 25u) << ordering << ' ' << trans;
            }
}

TEST_F(somatcopy, conjugating_letters_act_as_the_plain_ones)
{
    for (const members *m : trans_test::members_to_run())
        for (const char *pair : {"RN", "CT", "rn", "ct", "Nn", "Tt"}) {
            float *a = from_.cut(42, true), *x = to_.cut(48, true);
            trans_test::fill_source({'C', 'N', 6, 7, 1.0f, 6, 7}, a);
            std::vector<float> y(48, 0.0f);
            m->somatcopy2_seq('C', pair[0], 6, 7, 3.0f, a, 6, 1, x, 7, 1);
            m->somatcopy2_seq('C', pair[1], 6, 7, 3.0f, a, 6, 1, y.data(), 7, 1);
            const copy_case c{'C', pair[0], 6, 7, 3.0f, 6, 7};
            for (size_t k = 0; k < c.target_size(); ++k)
                if (k % 7 < (c.transposes() ? 7u : 6u)) {
                    ASSERT_EQ(x[k], y[k]) << pair;
                }
        }
}

TEST_F(somatcopy, strides_within_lines)
{
    for (const members *m : trans_test::members_to_run())
        for (uint64_t outer : {1, 2, 4, 5, 19})
            for (uint64_t inner : {1, 3, 4, 6, 7, 8, 15, 16, 17, 22, 23, 24, 40})
                for (uint64_t stridea : {1, 2, 3})
                    for (uint64_t strideb : {1, 2, 5})
                        for (float alpha : {1.0f, 2.0f}) {
                            check_strided(*m, false, outer, inner, stridea, strideb, alpha);
                            check_strided(*m, true, outer, inner, stridea, strideb, alpha);
                        }
}

// A stride that 32-bit lane offsets do not reach: the pages between are never touched, and cost nothing.
TEST_F(somatcopy, strides_beyond_32_bit_offsets)
{
    constexpr uint64_t stride = uint64_t(1) << 28, n = 20;
    arena far(stride * (n - 1) + 1024);
    for (const members *m : trans_test::members_to_run()) {
        float *a = from_.cut(n, true), *b = far.cut(0, false);
        for (uint64_t j = 0; j < n; ++j)
            a[j] = static_cast<float>(j + 1);
        m->somatcopy2_seq('R', 'N', 1, n, 2.0f, a, n, 1, b, n * stride, stride);
        for (uint64_t j = 0; j < n; ++j)
            ASSERT_EQ(b[j * stride], 2.0f * static_cast<float>(j + 1)) << m->path;
        m->somatcopy2_seq('R', 'T', 1, n, 1.0f, a, n, 1, b, stride, 1);
        for (uint64_t j = 0; j < n; ++j)
            ASSERT_EQ(b[j * stride], static_cast<float>(j + 1)) << m->path;
        float *back = to_.cut(n, true);
        m->somatcopy2_seq('R', 'T', n, 1, 1.0f, b, stride, 1, back, n, 1);
        ASSERT_EQ(first_difference(back, a, n), n) << m->path;
    }
}

TEST_F(somatcopy, values_travel_as_the_product_says)
{
    const float values[] = {0.0f, -0.0f, 1.0f, infinity, -infinity, nan_value, 1e-44f, 3e38f, -2.5f};
    for (const members *m : trans_test::members_to_run())
        for (float alpha : {0.0f, -0.0f, 1.0f, nan_value, infinity, 0.5f, -1.0f})
            for (const char *form : {"RN", "RT", "CN", "CT"})
                for (uint64_t n : {1, 3, 8, 21, 40}) {
                    const copy_case c{form[0], form[1], n, n + 2, alpha, n + 3, n + 4};
                    float *a = from_.cut(c.source_size(), true);
                    for (uint64_t i = 0; i < c.outer(); ++i)
                        for (uint64_t j = 0; j < c.inner(); ++j)
                            a[i * c.lda + j] = values[(3 * i + j) % std::size(values)];
                    check_filled(*m, c, a, true);
                    if (HasFatalFailure())
                        return;
                }
}

TEST_F(somatcopy, alpha_1_moves_signalling_nans_unchanged)
{
    for (const members *m : trans_test::members_to_run())
        for (char trans : {'N', 'T'})
            for (uint64_t n : {1, 3, 4, 5, 17, 40, 300})
                for (uint64_t pad : {0, 1})
                    for (size_t shift : {0, 1}) {
                        copy_case c{'R', trans, n, n + 1, 1.0f, n + 1 + pad, 0};
                        c.ldb = c.least_ldb() + pad;
                        float *a = from_.cut(c.source_size(), true); // all signalling NaN
                        check_filled(*m, c, a, false, shift);
                        if (HasFatalFailure())
                            return;
                    }
}

// Nothing is computed where alpha = 1: denormals pass a processor that flushes them, and no flag is raised.
TEST_F(somatcopy, alpha_1_computes_nothing)
{
    constexpr unsigned flush_denormals = 0x8040, masked = 0x1f80;
    constexpr uint32_t values[] = {1, 0x807fffff, 0x7f800001, 0xffbfffff}; // denormals, signalling NaN
    const unsigned before = _mm_getcsr();
    for (const members *m : trans_test::members_to_run())
        for (char trans : {'N', 'T'})
            for (uint64_t stride : {1, 2})
                for (uint64_t n : {1, 7, 8, 16, 22, 23, 40}) {
                    const uint64_t lines = 5, lda = stride * n + 1, ldb = stride * (trans == 'T' ? lines : n) + 1;
                    float *a = from_.cut(lines * lda, true), *b = to_.cut((trans == 'T' ? n : lines) * ldb, true);
                    for (uint64_t k = 0; k < lines * lda; ++k)
                        std::memcpy(a + k, values + k % std::size(values), sizeof *a);
                    _mm_setcsr(masked | flush_denormals);
                    m->somatcopy2_seq('R', trans, lines, n, 1.0f, a, lda, stride, b, ldb, stride);
                    const unsigned after = _mm_getcsr();
                    _mm_setcsr(before);
                    ASSERT_EQ(after, masked | flush_denormals) << m->path << ' ' << trans << ' ' << n;
                    for (uint64_t i = 0; i < lines; ++i)
                        for (uint64_t j = 0; j < n; ++j) {
                            const float *to = b + (trans == 'T' ? j * ldb + i * stride : i * ldb + j * stride);
                            ASSERT_EQ(std::memcmp(to, a + i * lda + j * stride, sizeof *to), 0)
                                << m->path << ' ' << trans << " stride " << stride << ' ' << n;
                        }
                }
}

TEST_F(somatcopy, empty_shapes_touch_nothing)
{
    for (const members *m : trans_test::members_to_run())
        for (uint64_t rows : {0, 5})
            for (char trans : {'N', 'T'}) {
                m->somatcopy('C', trans, rows, 5 - rows, 2.0f, nullptr, 5, nullptr, 5);
                m->somatcopy2_seq('C', trans, rows, 5 - rows, 1.0f, nullptr, 5, 1, nullptr, 5, 1);
                m->somatcopy2_n(rows, 5 - rows, nullptr, 7, 1, nullptr, 7, 1, 2.0f);
                m->somatcopy2_t(rows, 5 - rows, nullptr, 7, 1, nullptr, 7, 1, 1.0f);
            }
}

TEST_F(somatcopy, any_number_of_empty_lines_takes_no_time)
{
    constexpr uint64_t lines = uint64_t(1) << 62; // one a nanosecond would be 146 years
    for (const members *m : trans_test::members_to_run())
        for (float alpha : {1.0f, 2.0f}) {
            m->somatcopy2_n(lines, 0, nullptr, 7, 1, nullptr, 7, 1, alpha);
            m->somatcopy2_t(lines, 0, nullptr, 7, 1, nullptr, 7, 1, alpha);
            m->somatcopy2_n(0, lines, nullptr, lines, 1, nullptr, lines, 1, alpha);
            m->somatcopy2_t(0, lines, nullptr, lines, 1, nullptr, lines, 1, alpha);
        }
}

TEST_F(somatcopy, chooser_gives_the_same_as_its_routine_on_both_sides_of_the_team_border)
{
    for (const members *m : trans_test::members_to_run())
        for (uint64_t cols : {81, 82, 100})
            for (char trans : {'N', 'T'}) {
                const copy_case c{'C', trans, 100, cols, 1.0f, 101, 103};
                float *a = from_.cut(c.source_size(), true), *b = to_.cut(c.target_size(), true);
                fill_source(c, a);
                expected_.assign(b, b + c.target_size());
                reference_copy(c, a, expected_.data(), true);
                m->somatcopy(c.ordering, c.trans, c.rows, c.cols, c.alpha, a, c.lda, b, c.ldb);
                ASSERT_EQ(first_difference(b, expected_.data(), expected_.size()), expected_.size()) << c.name();
            }
}

// From 12 MiB on, whole cache lines of B bypass the caches: every block height, and lines that begin with none.
TEST_F(somatcopy, results_that_no_cache_would_keep)
{
    constexpr uint64_t leads[][2] = {{1776, 1776}, {2048, 2048}, {2304, 2304},
                                     {2064, 3072}, {8192, 2048}, {2049, 2064}};
    for (const members *m : trans_test::members_to_run())
        for (const auto &lead : leads) {
            if (lead[0] != 1776 && !tesh_test::in_medium_set())
                continue;
            const uint64_t inner = lead[0] < 4000 ? lead[0] : 1900, outer = lead[1] < 3000 ? lead[1] : 1800;
            for (uint64_t less : {0, 5, 9})
                for (size_t shift : {0, 8, 3}) {
                    check(*m, {'R', 'T', outer - less, inner - less, 1.0f, lead[0], lead[1]}, false, shift);
                    if (HasFatalFailure())
                        return;
                }
        }
}

// From 8 MiB on, blocks of 40 lines have code of their own: runs of B that begin with every element of a cache line,
// one to three columns left over, the last block whole or not.
TEST_F(somatcopy, blocks_of_40_lines_that_outgrow_the_caches)
{
    for (const members *m : trans_test::members_to_run())
        for (uint64_t pad = 0; pad < 16; ++pad) {
            check(*m, {'R', 'T', 1040, 2065, 1.0f, 4099, 1040 + pad}, true);
            if (pad % 5 <= 1)
                check(*m, {'R', 'T', 1055, 2066 + pad % 2, 1.0f, 4101, 1055 + pad}, false, pad % 2 * 8);
            if (HasFatalFailure())
                return;
        }
}

// From 8 MiB on, blocks whose lines are multiples of 32768 bytes apart, or near them, go through a buffer to lines of B
// that begin with every quarter of a cache line; blocks of 8 lines are fetched ahead.
TEST_F(somatcopy, aliased_lines_that_outgrow_the_caches)
{
    constexpr uint64_t leads[][2] = {{8192, 1041}, {8200, 1044}, {8312, 1048},
                                     {8193, 1052}, {8192, 1056}, {4096, 1024}};
    for (const members *m : trans_test::members_to_run())
        for (const auto &lead : leads) {
            check(*m, {'R', 'T', lead[1] - lead[1] % 40, 2097, 1.0f, lead[0], lead[1]}, true);
            check(*m, {'R', 'T', lead[1], 2101, 1.0f, lead[0], lead[1]}, false);
            if (HasFatalFailure())
                return;
        }
}

// Sizes around powers of two with lines from the least to three elements more, and at powers of two.
TEST_F(somatcopy, sizes_around_powers_of_two_with_every_short_padding)
{
    std::vector<uint64_t> sizes = {63, 64, 65, 127, 128, 129, 255, 256, 257};
    if (tesh_test::in_medium_set())
        sizes.insert(sizes.end(), {511, 512, 513, 1023, 1024, 1025});
    if (tesh_test::in_long_set())
        sizes.insert(sizes.end(), {2047, 2048, 2049, 4000});
    for (const members *m : trans_test::members_to_run())
        for (uint64_t n : sizes)
            for (uint64_t pad_a = 0; pad_a < 4; ++pad_a)
                for (uint64_t pad_b = 0; pad_b < 4; ++pad_b) {
                    check(*m, {'R', 'T', n, n, 1.0f, n + pad_a, n + pad_b}, false);
                    check(*m, {'C', 'N', n, n, 1.0f, n + pad_a, n + pad_b}, true);
                    if (n <= 513) {
                        check(*m, {'C', 'T', n, n + 1, 2.0f, n + pad_a, n + 1 + pad_b}, true);
                        check(*m, {'R', 'T', n, n, 1.0f, 1024, 2048}, false);
                    }
                    if (HasFatalFailure())
                        return;
                }
}

TEST_F(somatcopy, squares_of_8192_with_every_short_padding)
{
    if (!tesh_test::in_long_set())
        GTEST_SKIP() << "of the long set";
    arena from(size_t(8196) * 8193 + 1024), to(size_t(8196) * 8193 + 1024);
    for (const members *m : trans_test::members_to_run())
        for (uint64_t n : {8191, 8192, 8193})
            for (uint64_t pads = 0; pads < 16; ++pads) {
                const copy_case c{'R', 'T', n, n, 1.0f, n + pads % 4, n + pads / 4};
                float *a = from.cut(c.source_size(), false), *b = to.cut(c.target_size(), false);
                fill_source(c, a);
                m->somatcopy2_seq('R', 'T', c.rows, c.cols, 1.0f, a, c.lda, 1, b, c.ldb, 1);
                for (uint64_t j = 0; j < c.cols; ++j) {
                    for (uint64_t i = 0; i < c.rows; ++i)
                        ASSERT_EQ(b[j * c.ldb + i], a[i * c.lda + j]) << m->path << ' ' << c.name();
                    for (uint64_t i = c.rows; i < c.ldb && j + 1 < c.cols; ++i)
                        ASSERT_EQ(std::memcmp(b + j * c.ldb + i, &trans_test::canary_bits, 4), 0)
                            << m->path << c.name();
                }
            }
}

// Over a stretch of equal targets the last element of a line stays: rounds store from low to high.
TEST_F(somatcopy, elements_of_a_kept_line_are_stored_from_low_to_high)
{
    for (const members *m : trans_test::members_to_run())
        for (uint64_t n : {1, 6, 7, 8, 9, 15, 16, 17, 23, 31, 40}) {
            std::vector<float> a(n);
            for (uint64_t j = 0; j < n; ++j)
                a[j] = static_cast<float>(j + 1);
            float b = 0.0f;
            m->somatcopy2_n(1, n, a.data(), n, 1, &b, 1, 0, 2.0f);
            EXPECT_EQ(b, 2.0f * static_cast<float>(n)) << m->path;
        }
}

TEST_F(somatcopy, large_squares)
{
    std::vector<uint64_t> sizes = {511, 512, 513, 1023, 1024, 1025};
    if (tesh_test::in_medium_set())
        sizes.insert(sizes.end(), {2047, 2048, 2049, 4095});
    for (const members *m : trans_test::members_to_run())
        for (uint64_t n : sizes)
            for (size_t shift : {0, 4}) {
                check(*m, {'C', 'T', n, n, 1.0f, n, n}, false, shift);
                if (n < 2048) {
                    check(*m, {'C', 'T', n, n, 0.5f, n + 3, n}, false, shift);
                    check(*m, {'R', 'N', n, n, 1.0f, n, n}, false, shift);
                    check(*m, {'R', 'N', n, n, 1.0f, n, n + 2}, false, shift);
                }
                if (HasFatalFailure())
                    return;
            }
}

TEST(unrollcopy, every_length_and_alignment_to_8300_bytes_copies_and_no_more)
{
    arena from(4096), to(4096);
    std::vector<char> expected;
    for (const members *m : trans_test::members_to_run())
        for (uint64_t count = 1; count <= 8300; count += count < 600 ? 1 : 97) {
            char *src = reinterpret_cast<char *>(from.cut(4096, true)) + 16384 - count; // ends at the guard page
            for (uint64_t k = 0; k < count; ++k)
                src[k] = static_cast<char>(k * 31 + count);
            for (uint64_t back : {uint64_t(0), uint64_t(1), uint64_t(8), uint64_t(64), uint64_t(100)}) {
                char *all = reinterpret_cast<char *>(to.cut(4096, true)), *dest = all + 16384 - count - back;
                expected.assign(all, all + 16384);
                std::memcpy(&expected[16384 - count - back], src, count);
                m->unrollcopy(dest, count, src, count);
                ASSERT_EQ(std::memcmp(all, expected.data(), 16384), 0) << m->path << ' ' << count << ' ' << back;
            }
        }
}

TEST(unrollcopy, long_copies_on_both_sides_of_the_streaming_border)
{
    arena from(100000), to(100000);
    for (const members *m : trans_test::members_to_run())
        for (uint64_t count : {102400u, 102401u, 102464u, 104448u, 104449u, 204801u, 399360u, 399936u})
            for (uint64_t offset : {0u, 64u, 4u, 63u}) {
                const char *src = reinterpret_cast<char *>(from.cut(100352, false));
                for (uint64_t k = 0; k < 400000; k += 4) {
                    const uint32_t value = static_cast<uint32_t>(k * 2654435761u);
                    std::memcpy(const_cast<char *>(src) + k, &value, 4);
                }
                char *all = reinterpret_cast<char *>(to.cut(100352, false));
                std::vector<char> expected(all, all + 401408);
                std::memcpy(&expected[offset], src + 3, count);
                m->unrollcopy(all + offset, count, src + 3, count);
                ASSERT_EQ(std::memcmp(all, expected.data(), expected.size()), 0) << m->path << ' ' << count;
            }
}

TEST(unrollcopy, does_nothing_for_null_zero_or_too_much)
{
    for (const members *m : trans_test::members_to_run()) {
        char src[64], dest[64];
        std::memset(src, 1, sizeof src);
        std::memset(dest, 2, sizeof dest);
        m->unrollcopy(nullptr, 64, src, 64);
        m->unrollcopy(dest, 64, nullptr, 64);
        m->unrollcopy(dest, 64, src, 0);
        m->unrollcopy(dest, 63, src, 64);
        for (char c : dest)
            ASSERT_EQ(c, 2);
        m->unrollcopy(dest, 64, src, 63);
        ASSERT_EQ(dest[62], 1);
        ASSERT_EQ(dest[63], 2);
    }
}
} // namespace
