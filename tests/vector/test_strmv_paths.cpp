// SPDX-License-Identifier: BSD-3-Clause
// STRMV of every path and its triangular block step, entered directly: x := op(A)*x for a triangular A.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>

#include "tests/support/test_paths.h"
#include "tests/support/tolerance.h"
#include "tests/vector/matrix_vector_support.h"
#include "vector/matrix_vector_paths.h"

using tesh_test::filling;
using tesh_test::guard;
using tesh_test::matrix;
using tesh_test::strided_vector;

namespace
{
constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();

struct path_row {
    const char *path;
    tesh_blas_strmv_fn *strmv;
    tesh_blas_strmv_in_fn *strmv_in;
};
constexpr path_row all_rows[] = {
    {"def", tesh_blas_def_xstrmv, tesh_blas_def_strmv_in},
    {"cnr_def", tesh_blas_cnr_def_xstrmv, tesh_blas_cnr_def_strmv_in},
    {"mc3", tesh_blas_mc3_xstrmv, tesh_blas_mc3_strmv_in},
    {"avx2", tesh_blas_avx2_xstrmv, tesh_blas_avx2_strmv_in},
    {"avx512", tesh_blas_avx512_xstrmv, tesh_blas_avx512_strmv_in},
};

std::vector<path_row> rows()
{
    return tesh_test::rows_to_run(all_rows);
}

struct problem {
    char uplo = 'U', trans = 'N', diag = 'N';
    std::int64_t n = 1, extra_lda = 0, incx = 1;
    guard side = guard::at_end;
    std::size_t shift_bytes = 0;
    filling kind = filling::integers;

    bool upper() const { return uplo == 'U' || uplo == 'u'; }
    bool transposed() const { return trans != 'N' && trans != 'n'; }
    bool unit() const { return diag == 'U' || diag == 'u'; }
    // Whether element (i, j) of the stored matrix belongs to the triangle that is read.
    bool is_read(std::int64_t i, std::int64_t j) const { return i == j ? !unit() : upper() == (i < j); }
    std::string text() const
    {
        return std::string() + uplo + trans + diag + " n " + std::to_string(n) + " incx " + std::to_string(incx) +
               " extra lda " + std::to_string(extra_lda) + " shift " + std::to_string(shift_bytes);
    }
};

// What must not be read is NaN.
struct operands {
    matrix a;
    strided_vector x;
    explicit operands(const problem &p)
        : a(p.n, p.n, p.n + p.extra_lda, p.side, p.shift_bytes), x(p.n, p.incx, p.side, p.shift_bytes)
    {
        tesh_test::random source(3);
        tesh_test::fill_elements(x, p.n, p.kind, source);
        for (std::int64_t j = 0; j < p.n; ++j) {
            for (std::int64_t i = 0; i < p.n; ++i) {
                const float value = p.kind == filling::integers ? source.small_integer() : source.uniform();
                a(i, j) = p.is_read(i, j) ? value : nan_value;
            }
        }
    }
    void call(const problem &p, const path_row &row, bool block_step) const
    {
        const std::int64_t lda = p.n + p.extra_lda;
        if (block_step)
            row.strmv_in(&p.uplo, &p.trans, &p.diag, &p.n, a.data(), &lda, x.data(), &p.incx);
        else
            row.strmv(&p.uplo, &p.trans, &p.diag, &p.n, a.data(), &lda, x.data(), &p.incx, 1, 1, 1);
    }
};

void check(const problem &p, const path_row &row, bool block_step, tesh_test::worst_ratio &worst)
{
    const operands o(p);
    std::vector<double> expected, magnitude;
    for (std::int64_t i = 0; i < p.n; ++i) {
        double sum = 0.0, size = 0.0;
        for (std::int64_t k = 0; k < p.n; ++k) {
            const std::int64_t r = p.transposed() ? k : i, c = p.transposed() ? i : k;
            double factor = 0.0;
            if (p.is_read(r, c))
                factor = static_cast<double>(o.a(r, c));
            else if (r == c)
                factor = 1.0;
            sum += factor * static_cast<double>(o.x[k]);
            size += std::fabs(factor * static_cast<double>(o.x[k]));
        }
        expected.push_back(sum);
        magnitude.push_back(size);
    }
    const std::vector<float> a_before = o.a.copy();
    o.call(p, row, block_step);
    for (std::int64_t i = 0; i < p.n; ++i) {
        const std::size_t at = static_cast<std::size_t>(i);
        const double got = static_cast<double>(o.x[i]);
        const double bound = p.kind == filling::integers ? 0.0 : tesh_test::product_bound(p.n, 1.0, magnitude[at]);
        worst.see(got, expected[at], bound);
        ASSERT_LE(std::fabs(got - expected[at]), bound)
            << row.path << (block_step ? " block step " : " ") << p.text() << " element " << i;
    }
    ASSERT_TRUE(o.x.gaps_untouched()) << row.path << ' ' << p.text();
    const std::vector<float> a_after = o.a.copy();
    ASSERT_EQ(a_before.size(), a_after.size());
    ASSERT_EQ(std::memcmp(a_before.data(), a_after.data(), a_before.size() * sizeof(float)), 0) << p.text();
}

// Every shape: triangle, letter, diagonal.
template <class Work> void for_every_shape(problem p, const Work &work)
{
    for (const char uplo : {'U', 'L'}) {
        for (const char trans : {'N', 'T'}) {
            for (const char diag : {'N', 'U'}) {
                p.uplo = uplo;
                p.trans = trans;
                p.diag = diag;
                work(p);
            }
        }
    }
}

TEST(strmv, agrees_for_every_shape_order_and_increment)
{
    tesh_test::worst_ratio worst;
    for (const path_row &row : rows()) {
        for (const std::int64_t n : {1, 2, 3, 8, 15, 16, 17, 31, 32, 33, 34, 63, 64, 65, 97, 130}) {
            for (const std::int64_t incx : {1, -1, 2, -3}) {
                problem p;
                p.n = n;
                p.incx = incx;
                p.extra_lda = n % 3;
                for_every_shape(p, [&](problem shape) {
                    for (const filling kind : {filling::integers, filling::random}) {
                        for (const guard side : {guard::at_end, guard::at_start}) {
                            shape.kind = kind;
                            shape.side = side;
                            check(shape, row, false, worst);
                            if (n <= 65)
                                check(shape, row, true, worst);
                        }
                    }
                });
            }
        }
    }
    std::printf("worst error: %.3f of the bound\n", worst.value);
}

TEST(strmv, agrees_at_every_alignment)
{
    tesh_test::worst_ratio worst;
    for (const path_row &row : rows()) {
        for (std::size_t shift = 4; shift < 64; shift += 4) {
            problem p;
            p.n = 75;
            p.shift_bytes = shift;
            for_every_shape(p, [&](const problem &shape) { check(shape, row, false, worst); });
        }
    }
}

// n = 33 is a block of 32 and one of 1: the single element is the last in the shapes that go up,
// the first in the others.
TEST(strmv, order_33_has_a_block_of_32_and_one_of_1)
{
    for (const path_row &row : rows()) {
        problem p;
        p.n = 33;
        for_every_shape(p, [&](const problem &shape) {
            const operands o(shape);
            for (std::int64_t i = 0; i < 33; ++i)
                o.x[i] = i == 0 || i == 32 ? 1.0f : 0.0f;
            o.call(shape, row, false);
            const std::int64_t far_row = shape.upper() != shape.transposed() ? 0 : 32;
            const float corner = shape.upper() ? o.a(0, 32) : o.a(32, 0);
            const float diagonal = shape.unit() ? 1.0f : o.a(far_row, far_row);
            EXPECT_EQ(o.x[far_row], diagonal + corner) << row.path << ' ' << shape.text();
        });
    }
}

TEST(strmv, letters_in_either_case_and_any_other_letter)
{
    tesh_test::worst_ratio worst;
    for (const path_row &row : rows()) {
        for (const char uplo : {'U', 'u', 'L', 'l', 'x'}) {
            for (const char trans : {'N', 'n', 'T', 't', 'C', 'c', 'Q'}) {
                for (const char diag : {'U', 'u', 'N', 'n', 'z'}) {
                    problem p;
                    p.uplo = uplo;
                    p.trans = trans;
                    p.diag = diag;
                    p.n = 41;
                    check(p, row, false, worst);
                    check(p, row, true, worst);
                }
            }
        }
    }
}

TEST(strmv, order_zero_touches_nothing)
{
    const std::int64_t zero = 0, minus = -4, one = 1;
    for (const path_row &row : rows()) {
        row.strmv("U", "N", "N", &zero, nullptr, &one, nullptr, &one, 1, 1, 1);
        row.strmv("L", "T", "U", &minus, nullptr, &one, nullptr, &one, 1, 1, 1);
        row.strmv_in("L", "T", "U", &zero, nullptr, &one, nullptr, &one);
        row.strmv_in("U", "N", "U", &minus, nullptr, &one, nullptr, &one);
    }
}

// A NaN reaches exactly the elements whose sums hold it, a zero that it meets included.
TEST(strmv, nan_travels_as_the_arithmetic_says)
{
    for (const path_row &row : rows()) {
        for (const bool block_step : {false, true}) {
            problem p;
            p.n = 50;
            for_every_shape(p, [&](const problem &shape) {
                for (std::int64_t hit = 0; hit < p.n; hit += 7) {
                    const operands o(shape), in_a(shape);
                    o.x[hit] = nan_value;
                    o.call(shape, row, block_step);
                    const std::int64_t other = shape.upper() ? p.n - 1 : 0;
                    const std::int64_t r = shape.upper() ? std::min(hit, other - 1) : std::max(hit, other + 1),
                                       c = other;
                    in_a.a(r, c) = nan_value;
                    for (std::int64_t i = 0; i < p.n; ++i)
                        in_a.x[i] = 0.0f;
                    in_a.call(shape, row, block_step);
                    for (std::int64_t i = 0; i < p.n; ++i) {
                        const bool reads = i == hit || (shape.upper() != shape.transposed() ? i < hit : i > hit);
                        ASSERT_EQ(std::isnan(o.x[i]), reads) << row.path << ' ' << shape.text() << ' ' << hit;
                        ASSERT_EQ(std::isnan(in_a.x[i]), i == (shape.transposed() ? c : r))
                            << row.path << ' ' << shape.text() << ' ' << hit;
                    }
                }
            });
        }
    }
}

TEST(strmv, cnr_def_gives_the_same_bits_at_every_alignment)
{
    for (const path_row &row : rows()) {
        if (std::string(row.path) != "cnr_def")
            continue;
        problem p;
        p.n = 77;
        p.kind = filling::random;
        for_every_shape(p, [&](const problem &shape) {
            const operands first(shape);
            first.call(shape, row, false);
            for (std::size_t shift = 4; shift <= 64; shift += 4) {
                problem moved = shape;
                moved.shift_bytes = shift;
                moved.incx = shift % 16 == 0 ? -2 : 1;
                const operands o(moved);
                o.call(moved, row, false);
                for (std::int64_t i = 0; i < p.n; ++i)
                    ASSERT_EQ(o.x[i], first.x[i]) << moved.text() << ' ' << i;
            }
        });
    }
}

TEST(strmv, increments_past_32_bit_indices)
{
    if (!tesh_test::in_long_set())
        GTEST_SKIP() << "long set";
    for (const path_row &row : rows()) {
        for (const std::int64_t incx : {std::int64_t{0x8888888}, std::int64_t{0x8888889}, std::int64_t{-0x8888889}}) {
            problem p;
            p.n = 37;
            for_every_shape(p, [&](const problem &shape) {
                const operands near(shape);
                const tesh_test::guarded_array<float> x(static_cast<std::size_t>((p.n - 1) * std::llabs(incx) + 1));
                const auto place = [&](std::int64_t i) -> float & {
                    return x[static_cast<std::size_t>((incx < 0 ? p.n - 1 - i : i) * std::llabs(incx))];
                };
                for (std::int64_t i = 0; i < p.n; ++i)
                    place(i) = near.x[i];
                row.strmv(&shape.uplo, &shape.trans, &shape.diag, &shape.n, near.a.data(), &shape.n, x.data(), &incx, 1,
                          1, 1);
                near.call(shape, row, false);
                for (std::int64_t i = 0; i < p.n; ++i)
                    ASSERT_EQ(place(i), near.x[i]) << row.path << ' ' << shape.text() << ' ' << incx;
            });
        }
    }
}
} // namespace
