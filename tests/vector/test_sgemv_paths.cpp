// SPDX-License-Identifier: BSD-3-Clause
// SGEMV of every path, entered directly: shapes around panels and vector widths, letters, strides, leading dimensions,
// guard pages at both ends, special values, one-element y, reproducibility.
#include "tests/vector/sgemv_problem.h"

#include <cfenv>
#include <cstdio>
#include <cstring>
#include <memory>

using tesh_test::check_sgemv;
using tesh_test::filling;
using tesh_test::guard;
using tesh_test::sgemv_operands;
using tesh_test::sgemv_problem;

namespace
{
constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();
constexpr float inf_value = std::numeric_limits<float>::infinity();

struct path_row {
    const char *path;
    tesh_blas_sgemv_fn *sgemv;
};
constexpr path_row all_rows[] = {
    {"def", tesh_blas_def_xsgemv},     {"cnr_def", tesh_blas_cnr_def_xsgemv}, {"mc3", tesh_blas_mc3_xsgemv},
    {"mc3", tesh_blas_mc3_xsgemv_cnr}, {"avx2", tesh_blas_avx2_xsgemv},       {"avx512", tesh_blas_avx512_xsgemv},
};

// The routines of the paths that this run tests.
std::vector<path_row> rows()
{
    return tesh_test::rows_to_run(all_rows);
}

class sgemv : public testing::Test
{
protected:
    void check(const sgemv_problem &p)
    {
        for (const path_row &row : rows()) {
            SCOPED_TRACE(row.path);
            check_sgemv(p, row.sgemv, worst_);
        }
    }
    // Both kinds of operands at both guards.
    void check_everywhere(sgemv_problem p)
    {
        for (const guard side : {guard::at_end, guard::at_start}) {
            for (const filling kind : {filling::integers, filling::random}) {
                p.side = side;
                p.kind = kind;
                check(p);
            }
        }
    }
    void TearDown() override { std::printf("worst error: %.3f of the bound\n", worst_.value); }
    tesh_test::worst_ratio worst_;
};

TEST_F(sgemv, agrees_for_every_small_shape)
{
    for (const char trans : {'N', 'T'}) {
        for (std::int64_t m = 1; m <= 35; ++m) {
            for (std::int64_t n = 1; n <= 18; ++n) {
                sgemv_problem p;
                p.trans = trans;
                p.m = m;
                p.n = n;
                p.extra_lda = (m + n) % 3;
                p.alpha = 2.0f;
                p.side = n % 2 == 0 ? guard::at_end : guard::at_start;
                p.kind = filling::integers;
                check(p);
                p.alpha = 0.7f;
                p.beta = -0.5f;
                p.kind = filling::random;
                check(p);
            }
        }
    }
}

TEST_F(sgemv, agrees_around_panels_and_rounds)
{
    const std::int64_t lengths[] = {1, 3, 63, 64, 65, 127, 128, 129, 255, 257, 511, 512, 513, 1023, 1025, 1536};
    for (const char trans : {'n', 't'}) {
        for (const std::int64_t m : lengths) {
            for (const std::int64_t n : {1, 4, 7, 8, 9, 33}) {
                sgemv_problem p;
                p.trans = trans;
                p.m = m;
                p.n = n;
                p.alpha = -1.0f;
                check_everywhere(p);
            }
        }
        for (const std::int64_t n : lengths) {
            sgemv_problem p;
            p.trans = trans;
            p.m = 19;
            p.n = n;
            p.alpha = 0.7f;
            p.beta = 0.0f;
            p.kind = filling::random;
            check(p);
        }
    }
}

TEST_F(sgemv, agrees_for_every_pair_of_increments)
{
    const std::int64_t increments[] = {1, -1, 2, -2, 3, -3, 37};
    for (const char trans : {'N', 'T'}) {
        for (const std::int64_t incx : increments) {
            for (const std::int64_t incy : increments) {
                for (const std::int64_t m : {1, 7, 16, 33, 130, 515}) {
                    sgemv_problem p;
                    p.trans = trans;
                    p.m = m;
                    p.n = 13;
                    p.incx = incx;
                    p.incy = incy;
                    p.alpha = 2.0f;
                    p.beta = 3.0f;
                    check_everywhere(p);
                    p.beta = 0.0f;
                    check(p);
                }
            }
        }
    }
}

TEST_F(sgemv, one_element_x_stands_for_all)
{
    for (const char trans : {'N', 'T'}) {
        for (const std::int64_t m : {5, 40, 600}) {
            sgemv_problem p;
            p.trans = trans;
            p.m = m;
            p.n = 21;
            p.incx = 0;
            p.incy = m == 40 ? 2 : 1;
            check_everywhere(p);
        }
    }
}

TEST_F(sgemv, agrees_for_every_alpha_and_beta)
{
    for (const char trans : {'N', 'T'}) {
        for (const float alpha : {0.0f, 1.0f, -1.0f, 0.7f, 3.0f}) {
            for (const float beta : {0.0f, -0.0f, 1.0f, -1.0f, 0.7f, 2.0f}) {
                for (const std::int64_t incy : {1, -2}) {
                    sgemv_problem p;
                    p.trans = trans;
                    p.m = 37;
                    p.n = 29;
                    p.alpha = alpha;
                    p.beta = beta;
                    p.incy = incy;
                    check(p);
                }
            }
        }
    }
}

TEST_F(sgemv, agrees_at_every_alignment_and_leading_dimension)
{
    for (const char trans : {'N', 'T'}) {
        for (std::size_t shift = 0; shift < 64; shift += 4) {
            for (const std::int64_t m : {96, 160, 300}) {
                for (const std::int64_t lda : {300, 301, 304, 320, 512}) {
                    sgemv_problem p;
                    p.trans = trans;
                    p.m = m;
                    p.n = 11;
                    p.extra_lda = lda - m;
                    p.shift_bytes = shift;
                    p.kind = shift % 8 == 0 ? filling::integers : filling::random;
                    p.side = shift % 3 == 0 ? guard::at_start : guard::at_end;
                    check(p);
                }
            }
        }
    }
}

// Matrices past the first cache, and past the second: the wide paths read them in longer loops,
// or in shorter ones again.
TEST_F(sgemv, agrees_for_matrices_of_every_cache)
{
    const std::int64_t lengths[] = {49, 97, 128, 135, 160, 192, 193, 200, 257, 300, 383, 384, 400, 511, 700};
    for (const char trans : {'N', 'T'}) {
        for (const std::int64_t m : lengths) {
            for (const std::int64_t n :
                 {std::int64_t(10500) / m + 1, std::int64_t(215), std::int64_t(525000) / m + 1}) {
                for (const std::size_t shift : {0, 4, 36}) {
                    sgemv_problem p;
                    p.trans = trans;
                    p.m = m;
                    p.n = n;
                    p.extra_lda = shift == 4 ? (16 - m % 16) % 16 : n % 3;
                    p.shift_bytes = shift;
                    p.kind = shift == 36 ? filling::random : filling::integers;
                    p.alpha = shift == 36 ? 0.7f : -1.0f;
                    p.side = shift == 0 ? guard::at_start : guard::at_end;
                    check(p);
                }
            }
        }
    }
    sgemv_problem tall; // x alone is megabytes
    tall.trans = 'T';
    tall.m = (std::int64_t(1) << 20) + 37;
    tall.n = 9;
    check(tall);
}

TEST_F(sgemv, operands_may_lie_off_element_boundaries)
{
    for (const path_row &row : rows()) {
        for (const char trans : {'N', 'T'}) {
            for (const std::int64_t inc : {1, 2}) {
                for (const std::size_t off : {1u, 2u, 3u}) {
                    sgemv_problem p;
                    p.trans = trans;
                    p.m = 101;
                    p.n = 23;
                    p.incx = p.incy = inc;
                    p.kind = filling::integers;
                    const sgemv_operands o(p), expected(p);
                    expected.call(p, row.sgemv);
                    const auto shifted = [&](const float *from, std::int64_t count) {
                        auto bytes = std::make_unique<std::uint8_t[]>(static_cast<std::size_t>(count) * 4 + 64);
                        std::memcpy(bytes.get() + off, from, static_cast<std::size_t>(count) * 4);
                        return bytes;
                    };
                    const std::int64_t lda = p.lda(), x_span = 1 + (p.x_count() - 1) * inc,
                                       y_span = 1 + (p.y_count() - 1) * inc;
                    const auto a = shifted(o.a.data(), lda * (p.n - 1) + p.m), x = shifted(o.x.data(), x_span),
                               y = shifted(o.y.data(), y_span);
                    const auto at = [&](const auto &bytes) { return reinterpret_cast<float *>(bytes.get() + off); };
                    row.sgemv(&p.trans, &p.m, &p.n, &p.alpha, at(a), &lda, at(x), &inc, &p.beta, at(y), &inc, 1);
                    EXPECT_EQ(std::memcmp(y.get() + off, expected.y.data(), static_cast<std::size_t>(y_span) * 4), 0)
                        << row.path << ' ' << p.text() << " off by " << off;
                }
            }
        }
    }
}

TEST_F(sgemv, only_n_in_either_case_is_not_transposed)
{
    for (const char trans : {'N', 'n', 'T', 't', 'C', 'c', 'Q', 'q', ' ', '\0', '1'}) {
        sgemv_problem p;
        p.trans = trans;
        p.m = 21;
        p.n = 9;
        p.kind = filling::integers;
        check(p);
    }
}

// m = 0, n = 0, and alpha = 0 with beta = 1: nothing is read or written, so null operands do.
TEST_F(sgemv, empty_shapes_leave_y_unchanged_even_for_beta_zero)
{
    const std::int64_t zero = 0, five = 5, minus = -3, one = 1;
    const float alpha = 2.0f, beta = 0.0f, alpha0 = 0.0f, beta1 = 1.0f;
    for (const path_row &row : rows()) {
        for (const char trans : {'N', 'T'}) {
            row.sgemv(&trans, &zero, &five, &alpha, nullptr, &five, nullptr, &one, &beta, nullptr, &one, 1);
            row.sgemv(&trans, &five, &zero, &alpha, nullptr, &five, nullptr, &one, &beta, nullptr, &one, 1);
            row.sgemv(&trans, &minus, &five, &alpha, nullptr, &five, nullptr, &one, &beta, nullptr, &one, 1);
            row.sgemv(&trans, &five, &five, &alpha0, nullptr, &five, nullptr, &one, &beta1, nullptr, &one, 1);
        }
    }
}

TEST_F(sgemv, alpha_zero_reads_neither_a_nor_x)
{
    const float alpha = 0.0f;
    for (const path_row &row : rows()) {
        for (const char trans : {'N', 'T'}) {
            for (const std::int64_t inc : {1, 2, -1}) {
                for (const std::int64_t n : {1, 23, 24, 25, 26, 100}) {
                    for (const float beta : {0.0f, 2.0f}) {
                        const tesh_test::strided_vector y(n, inc);
                        for (std::int64_t i = 0; i < n; ++i)
                            y[i] = beta == 0.0f ? nan_value : 3.0f;
                        row.sgemv(&trans, &n, &n, &alpha, nullptr, &n, nullptr, &inc, &beta, y.data(), &inc, 1);
                        for (std::int64_t i = 0; i < n; ++i)
                            ASSERT_EQ(y[i], beta == 0.0f ? 0.0f : 6.0f) << row.path << ' ' << trans << ' ' << i;
                        ASSERT_TRUE(y.gaps_untouched());
                    }
                }
            }
        }
    }
}

TEST_F(sgemv, nan_alpha_or_beta_takes_the_general_way)
{
    for (const path_row &row : rows()) {
        for (const char trans : {'N', 'T'}) {
            sgemv_problem p;
            p.trans = trans;
            p.m = 19;
            p.n = 18;
            for (const bool in_alpha : {true, false}) {
                p.alpha = in_alpha ? nan_value : 0.0f;
                p.beta = in_alpha ? 1.0f : nan_value;
                const sgemv_operands o(p);
                o.call(p, row.sgemv);
                for (std::int64_t i = 0; i < p.y_count(); ++i)
                    ASSERT_TRUE(std::isnan(o.y[i])) << row.path << ' ' << trans << ' ' << i;
            }
        }
    }
}

// A special value in one element of A reaches one element of y, a special value in x all, whatever they meet.
TEST_F(sgemv, special_values_travel_as_the_arithmetic_says)
{
    for (const path_row &row : rows()) {
        for (const char trans : {'N', 'T'}) {
            for (const std::int64_t incy : {1, 3}) {
                sgemv_problem p;
                p.trans = trans;
                p.m = 45;
                p.n = 45;
                p.incy = incy;
                p.incx = incy;
                p.kind = filling::integers;
                for (std::int64_t k = 0; k < 45; ++k) {
                    for (const float special : {nan_value, inf_value}) {
                        const sgemv_operands o(p), plain(p);
                        o.x[k] = 0.0f; // infinity times zero is NaN: a zero in x is not skipped
                        plain.x[k] = 0.0f;
                        const std::int64_t hit = (k * 7) % 45;
                        (p.transposed() ? o.a(k, hit) : o.a(hit, k)) = special;
                        o.call(p, row.sgemv);
                        plain.call(p, row.sgemv);
                        for (std::int64_t i = 0; i < 45; ++i) {
                            if (i == hit)
                                ASSERT_TRUE(std::isnan(o.y[i])) << row.path << ' ' << p.text() << ' ' << k;
                            else
                                ASSERT_EQ(o.y[i], plain.y[i]) << row.path << ' ' << p.text() << ' ' << k;
                        }
                    }
                    const sgemv_operands o(p);
                    o.x[k] = nan_value;
                    o.call(p, row.sgemv);
                    for (std::int64_t i = 0; i < 45; ++i)
                        ASSERT_TRUE(std::isnan(o.y[i])) << row.path << ' ' << p.text() << ' ' << k;
                }
            }
        }
    }
}

// incy = 0: y[0] is scaled once for every element that it stands for, then takes every product.
TEST_F(sgemv, one_element_y_is_scaled_for_each_element_before_the_products)
{
    const std::int64_t inc = 0, one = 1;
    const float alpha = 0.0f;
    for (const path_row &row : rows()) {
        const auto scaled = [&](float y, float beta, std::int64_t count) {
            const char trans = 'N';
            row.sgemv(&trans, &count, &one, &alpha, nullptr, &count, nullptr, &one, &beta, &y, &inc, 1);
            return y;
        };
        EXPECT_EQ(scaled(5.0f, 2.0f, 3), 40.0f) << row.path;
        EXPECT_EQ(scaled(nan_value, 0.0f, 3), 0.0f) << row.path;
        EXPECT_EQ(scaled(5.0f, 1.0f, 3), 5.0f) << row.path;
        for (std::int64_t count = 1; count < 100; ++count) {
            EXPECT_EQ(scaled(3.0f, -1.0f, count), count % 2 == 0 ? 3.0f : -3.0f) << row.path << ' ' << count;
            EXPECT_EQ(scaled(0x1p-60f, 2.0f, count), std::ldexp(1.0f, static_cast<int>(count) - 60)) << row.path;
            const double expected = 3.0 * std::pow(static_cast<double>(0.99f), static_cast<double>(count));
            EXPECT_NEAR(static_cast<double>(scaled(3.0f, 0.99f, count)), expected,
                        tesh_test::gamma_n(static_cast<double>(count) + 16.0) * expected);
        }
        EXPECT_EQ(scaled(0.0f, 2.0f, 100000), 0.0f) << row.path;
        EXPECT_TRUE(std::signbit(scaled(0.0f, -2.0f, 100001))) << row.path;
        EXPECT_EQ(scaled(-inf_value, 0.5f, 100000), -inf_value) << row.path;
        EXPECT_EQ(scaled(1.0f, 2.0f, 100000), inf_value) << row.path;
        EXPECT_TRUE(std::isnan(scaled(1.0f, nan_value, 7))) << row.path;
        EXPECT_TRUE(std::isnan(scaled(0.0f, inf_value, 7))) << row.path;
    }
}

TEST_F(sgemv, one_element_y_loses_no_product)
{
    for (const path_row &row : rows()) {
        for (const char trans : {'N', 'T'}) {
            for (const std::int64_t m : {1, 2, 15, 16, 17, 33, 128, 150, 513, 1030}) {
                for (const std::int64_t n : {1, 2, 3, 4, 5, 8, 9, 16, 21}) {
                    sgemv_problem p;
                    p.trans = trans;
                    p.m = m;
                    p.n = n;
                    p.incy = 0;
                    p.alpha = 2.0f;
                    p.beta = -1.0f;
                    p.kind = filling::integers;
                    const sgemv_operands o(p);
                    double expected = static_cast<double>(o.y[0]) * (p.y_count() % 2 == 0 ? 1.0 : -1.0);
                    for (std::int64_t i = 0; i < p.y_count(); ++i) {
                        for (std::int64_t k = 0; k < p.x_count(); ++k)
                            expected += 2.0 * static_cast<double>(p.transposed() ? o.a(k, i) : o.a(i, k)) *
                                        static_cast<double>(o.x[k]);
                    }
                    o.call(p, row.sgemv);
                    ASSERT_EQ(static_cast<double>(o.y[0]), expected) << row.path << ' ' << p.text();
                }
            }
        }
    }
}

// Same bits wherever the operands lie, and whether x and y are contiguous or not.
void expect_fixed_bits(const char *name, tesh_blas_sgemv_fn *routine)
{
    for (const char trans : {'N', 'T'}) {
        for (const std::int64_t m : {3, 30, 131, 700}) {
            for (const std::int64_t n : {1, 4, 6}) {
                sgemv_problem p;
                p.trans = trans;
                p.m = m;
                p.n = n;
                p.alpha = 0.7f;
                p.beta = 0.3f;
                const sgemv_operands first(p, 5);
                first.call(p, routine);
                for (std::size_t shift = 0; shift <= 64; shift += 4) {
                    for (const std::int64_t extra : {0, 1, 5}) {
                        sgemv_problem moved = p;
                        moved.shift_bytes = shift;
                        moved.extra_lda = extra;
                        moved.incx = shift % 12 == 0 ? 2 : 1;
                        moved.incy = shift % 20 == 0 ? -3 : 1;
                        const sgemv_operands o(moved, 5);
                        o.call(moved, routine);
                        for (std::int64_t i = 0; i < p.y_count(); ++i)
                            ASSERT_EQ(o.y[i], first.y[i]) << name << ' ' << moved.text() << ' ' << i;
                    }
                }
            }
        }
    }
}

TEST_F(sgemv, reproducible_forms_give_the_same_bits_at_every_alignment)
{
    for (const path_row &row : rows()) {
        if (row.sgemv == tesh_blas_cnr_def_xsgemv || row.sgemv == tesh_blas_mc3_xsgemv_cnr)
            expect_fixed_bits(row.path, row.sgemv);
    }
}

// Peeled loads and rotated lanes do not show: only the shape and the increments decide the order of the sums.
TEST_F(sgemv, wide_paths_give_the_same_bits_at_every_address_and_leading_dimension)
{
    for (const path_row &row : rows()) {
        if (row.sgemv != tesh_blas_avx2_xsgemv && row.sgemv != tesh_blas_avx512_xsgemv)
            continue;
        for (const char trans : {'N', 'T'}) {
            for (const std::int64_t m : {1, 3, 4, 7, 8, 15, 16, 17, 24, 31, 48, 49, 64, 97, 130, 192, 193, 400, 1100}) {
                for (const std::int64_t n : {3, 8, 23, 50}) {
                    sgemv_problem p;
                    p.trans = trans;
                    p.m = m;
                    p.n = n;
                    p.alpha = 0.7f;
                    p.incy = n == 23 ? 2 : 1;
                    const sgemv_operands first(p, 5);
                    first.call(p, row.sgemv);
                    for (const std::int64_t extra : {(16 - m % 16) % 16, std::int64_t(1), (24 - m % 16) % 16}) {
                        for (std::size_t shift = 0; shift < 64; shift += extra == 1 ? 20 : 4) {
                            sgemv_problem moved = p;
                            moved.shift_bytes = shift;
                            moved.extra_lda = extra;
                            const sgemv_operands o(moved, 5);
                            o.call(moved, row.sgemv);
                            for (std::int64_t i = 0; i < p.y_count(); ++i)
                                ASSERT_EQ(o.y[i], first.y[i]) << row.path << ' ' << moved.text() << ' ' << i;
                        }
                    }
                }
            }
        }
    }
}

// Not transposed, y takes one fused multiply-add a column, in the order of the columns. avx2 may split few rows into
// several sums.
TEST_F(sgemv, columns_are_added_one_by_one_with_one_rounding)
{
    for (const path_row &row : rows()) {
        const bool wide = row.sgemv == tesh_blas_avx512_xsgemv;
        if (!wide && row.sgemv != tesh_blas_avx2_xsgemv)
            continue;
        for (const std::int64_t m : {1, 4, 8, 13, 16, 30, 32, 48, 50, 100, 129, 192, 200, 500}) {
            for (const std::int64_t n : {1, 3, 4, 7, 16, 19, 61}) {
                for (const std::int64_t inc : {1, 2}) {
                    if (!wide && (m <= 40 || inc != 1))
                        continue;
                    sgemv_problem p;
                    p.m = m;
                    p.n = n;
                    p.alpha = 0.7f;
                    p.beta = 0.3f;
                    p.incx = p.incy = inc;
                    const sgemv_operands o(p, 3), before(p, 3);
                    o.call(p, row.sgemv);
                    for (std::int64_t i = 0; i < m; ++i) {
                        float expected = before.y[i] * p.beta;
                        for (std::int64_t j = 0; j < n; ++j)
                            expected = std::fma(before.a(i, j), p.alpha * before.x[j], expected);
                        ASSERT_EQ(o.y[i], expected) << row.path << ' ' << p.text() << " element " << i;
                    }
                }
            }
        }
    }
}

// An infinite factor meets no zero of a masked lane: what is outside the operands raises no flag.
TEST_F(sgemv, rest_lanes_raise_no_flag)
{
    for (const path_row &row : rows()) {
        for (const char trans : {'N', 'T'}) {
            for (const std::int64_t incy : {1, 2, 0}) {
                for (std::int64_t m = 1; m < 40; ++m) {
                    sgemv_problem p;
                    p.trans = trans;
                    p.m = p.n = m;
                    p.incy = incy;
                    p.incx = incy == 2 ? 2 : 1;
                    const sgemv_operands o(p);
                    for (std::int64_t j = 0; j < m; ++j) {
                        o.x[j] = o.y[j] = 1.0f;
                        for (std::int64_t i = 0; i < m; ++i)
                            o.a(i, j) = 1.0f;
                    }
                    for (const bool in_alpha : {true, false}) {
                        p.alpha = in_alpha ? inf_value : 1.0f;
                        p.beta = in_alpha ? 1.0f : inf_value;
                        std::feclearexcept(FE_ALL_EXCEPT);
                        o.call(p, row.sgemv);
                        EXPECT_EQ(std::fetestexcept(FE_INVALID | FE_OVERFLOW), 0) << row.path << ' ' << p.text();
                        EXPECT_EQ(o.y[0], inf_value) << row.path << ' ' << p.text();
                    }
                }
            }
        }
    }
}

// Indices past 2^31 elements: a matrix, or a vector, of which few pages are ever touched.
TEST_F(sgemv, offsets_past_two_to_the_31_elements)
{
    if (!tesh_test::in_long_set())
        GTEST_SKIP() << "long set";
    for (const char trans : {'N', 'T'}) {
        sgemv_problem p;
        p.trans = trans;
        p.m = 70;
        p.n = 9;
        p.kind = filling::integers;
        p.extra_lda = 0; // the matrix is small here, the strides are large
        const std::int64_t stride = 0x10000001, lda = 0x20000003;
        for (const path_row &row : rows()) {
            const sgemv_operands near(p);
            const tesh_test::guarded_array<float> a(static_cast<std::size_t>((p.n - 1) * lda + p.m));
            const std::int64_t incx = stride, incy = -stride;
            const tesh_test::guarded_array<float> x(static_cast<std::size_t>((p.x_count() - 1) * stride + 1)),
                y(static_cast<std::size_t>((p.y_count() - 1) * stride + 1));
            for (std::int64_t j = 0; j < p.n; ++j) {
                for (std::int64_t i = 0; i < p.m; ++i)
                    a[static_cast<std::size_t>(j * lda + i)] = near.a(i, j);
            }
            for (std::int64_t k = 0; k < p.x_count(); ++k)
                x[static_cast<std::size_t>(k * stride)] = near.x[k];
            for (std::int64_t i = 0; i < p.y_count(); ++i)
                y[static_cast<std::size_t>((p.y_count() - 1 - i) * stride)] = near.y[i];
            near.call(p, row.sgemv);
            row.sgemv(&p.trans, &p.m, &p.n, &p.alpha, a.data(), &lda, x.data(), &incx, &p.beta, y.data(), &incy, 1);
            for (std::int64_t i = 0; i < p.y_count(); ++i)
                ASSERT_EQ(y[static_cast<std::size_t>((p.y_count() - 1 - i) * stride)], near.y[i]) << row.path << trans;
        }
    }
}
} // namespace
