// SPDX-License-Identifier: BSD-3-Clause
// C := alpha*op(A)*op(B) + beta*C in double precision, and the frame in which every SGEMM routine is held against it:
// operands against guard pages, gaps between columns that keep a pattern, a bound per element.
#pragma once
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "gemm/sgemm.h"
#include "tests/support/guard_pages.h"
#include "tests/support/random.h"
#include "tests/support/tolerance.h"

namespace tesh_test
{
inline bool counts_as_n(char trans)
{
    return trans == 'N' || trans == 'n';
}

struct gemm_shape {
    char transa = 'N', transb = 'N';
    std::int64_t m = 0, n = 0, k = 0;
    float alpha = 1.0f, beta = 0.0f;
    std::int64_t pad_a = 0, pad_b = 0, pad_c = 0; // leading dimension above its least [elements]
    guard side = guard::at_end;
    std::size_t shift_bytes = 0; // distance of every operand from its guard page

    std::int64_t a_rows() const { return counts_as_n(transa) ? m : k; }
    std::int64_t a_cols() const { return counts_as_n(transa) ? k : m; }
    std::int64_t b_rows() const { return counts_as_n(transb) ? k : n; }
    std::int64_t b_cols() const { return counts_as_n(transb) ? n : k; }
    std::int64_t lda() const { return std::max<std::int64_t>(1, a_rows()) + pad_a; }
    std::int64_t ldb() const { return std::max<std::int64_t>(1, b_rows()) + pad_b; }
    std::int64_t ldc() const { return std::max<std::int64_t>(1, m) + pad_c; }
    std::string name() const
    {
        return std::string(1, transa) + transb + " m=" + std::to_string(m) + " n=" + std::to_string(n) +
               " k=" + std::to_string(k) + " alpha=" + std::to_string(alpha) + " beta=" + std::to_string(beta) +
               " pads=" + std::to_string(pad_a) + "," + std::to_string(pad_b) + "," + std::to_string(pad_c) +
               (side == guard::at_end ? " guard after" : " guard before") + " shift=" + std::to_string(shift_bytes);
    }
};

enum class gemm_values { uniform, integers };

// Elements from the first of a matrix to its last, without the gap behind the last column.
inline std::size_t extent(std::int64_t rows, std::int64_t cols, std::int64_t ld)
{
    return rows < 1 || cols < 1 ? 0 : static_cast<std::size_t>((cols - 1) * ld + rows);
}

// The operands of one product. C starts as c0 within its columns and as a pattern in its gaps.
class gemm_operands
{
public:
    explicit gemm_operands(const gemm_shape &s, gemm_values values = gemm_values::uniform, std::uint64_t stream = 0)
        : shape(s), a(extent(s.a_rows(), s.a_cols(), s.lda()), s.side, s.shift_bytes),
          b(extent(s.b_rows(), s.b_cols(), s.ldb()), s.side, s.shift_bytes),
          c(extent(s.m, s.n, s.ldc()), s.side, s.shift_bytes), c0(c.size())
    {
        random r(stream + 1);
        for (guarded_array<float> *x : {&a, &b, &c})
            values == gemm_values::integers ? r.fill_integers(*x) : r.fill(*x);
        for (std::int64_t j = 0; j + 1 < s.n && s.m > 0; ++j) {
            for (std::int64_t i = s.m; i < s.ldc(); ++i)
                c[static_cast<std::size_t>(j * s.ldc() + i)] = gap;
        }
        keep_c();
    }
    // C as it stands is what beta multiplies and what the gaps must keep.
    void keep_c() { std::copy(c.begin(), c.end(), c0.begin()); }
    void restore_c() const { std::copy(c0.begin(), c0.end(), c.begin()); }

    float op_a(std::int64_t i, std::int64_t p) const
    {
        return a[static_cast<std::size_t>(counts_as_n(shape.transa) ? i + p * shape.lda() : p + i * shape.lda())];
    }
    float op_b(std::int64_t p, std::int64_t j) const
    {
        return b[static_cast<std::size_t>(counts_as_n(shape.transb) ? p + j * shape.ldb() : j + p * shape.ldb())];
    }

    void run(const std::function<tesh_blas_sgemm_fn> &product) const
    {
        const std::int64_t lda = shape.lda(), ldb = shape.ldb(), ldc = shape.ldc();
        product(&shape.transa, &shape.transb, &shape.m, &shape.n, &shape.k, &shape.alpha, a.data(), &lda, b.data(),
                &ldb, &shape.beta, c.data(), &ldc);
    }

    gemm_shape shape;
    guarded_array<float> a, b, c;
    std::vector<float> c0;

private:
    static constexpr float gap = -12345.678f;
};

// One column of the result in double precision, and beside it |alpha| sum |a||b| + |beta||c0|.
inline void reference_column(const gemm_operands &x, std::int64_t j, std::vector<double> &value,
                             std::vector<double> &magnitude)
{
    const gemm_shape &s = x.shape;
    value.assign(static_cast<std::size_t>(s.m), 0.0);
    magnitude.assign(static_cast<std::size_t>(s.m), 0.0);
    for (std::int64_t p = 0; p < s.k && s.alpha != 0.0f; ++p) {
        const double b = static_cast<double>(x.op_b(p, j)) * static_cast<double>(s.alpha);
        for (std::int64_t i = 0; i < s.m; ++i) {
            const double product = static_cast<double>(x.op_a(i, p)) * b;
            value[static_cast<std::size_t>(i)] += product;
            magnitude[static_cast<std::size_t>(i)] += std::fabs(product);
        }
    }
    for (std::int64_t i = 0; i < s.m && s.beta != 0.0f; ++i) {
        const double old =
            static_cast<double>(s.beta) * static_cast<double>(x.c0[static_cast<std::size_t>(j * s.ldc() + i)]);
        value[static_cast<std::size_t>(i)] += old;
        magnitude[static_cast<std::size_t>(i)] += std::fabs(old);
    }
}

// Holds C against the reference; exact asks for every bit (integer operands whose sums stay below 2^24). Reports the
// first wrong element. NaN must stand exactly where the reference has it.
inline void expect_gemm_result(const gemm_operands &x, bool exact, worst_ratio *worst = nullptr)
{
    const gemm_shape &s = x.shape;
    worst_ratio local;
    worst_ratio &seen = worst != nullptr ? *worst : local;
    std::vector<double> value, magnitude;
    for (std::int64_t j = 0; j < s.n && s.m > 0; ++j) {
        reference_column(x, j, value, magnitude);
        for (std::int64_t i = 0; i < s.m; ++i) {
            const double got = static_cast<double>(x.c[static_cast<std::size_t>(j * s.ldc() + i)]);
            const double want = value[static_cast<std::size_t>(i)];
            if (std::isnan(want) || std::isinf(want)) {
                ASSERT_TRUE(std::isnan(want) ? std::isnan(got) : got == want)
                    << s.name() << " at (" << i << ", " << j << "): " << got << " for " << want;
                continue;
            }
            const double bound =
                exact ? 0.0 : product_bound(s.k, static_cast<double>(s.alpha), magnitude[static_cast<std::size_t>(i)]);
            ASSERT_LE(std::fabs(got - want), bound)
                << s.name() << " at (" << i << ", " << j << "): " << got << " for " << want;
            if (!exact)
                seen.see(got, want, bound);
        }
        for (std::int64_t i = s.m; i < s.ldc() && j + 1 < s.n; ++i) {
            const std::size_t at = static_cast<std::size_t>(j * s.ldc() + i);
            ASSERT_EQ(std::memcmp(&x.c[at], &x.c0[at], sizeof(float)), 0)
                << s.name() << ": the gap behind column " << j << " was written";
        }
    }
}

// Runs the product on fresh operands and checks it, once with random values and once with integers, bit by bit.
inline void expect_gemm(const std::function<tesh_blas_sgemm_fn> &product, const gemm_shape &s,
                        worst_ratio *worst = nullptr)
{
    for (const gemm_values values : {gemm_values::uniform, gemm_values::integers}) {
        gemm_operands x(s, values);
        if (s.beta == 0.0f) {
            for (std::int64_t j = 0; j < s.n; ++j) {
                for (std::int64_t i = 0; i < s.m; ++i)
                    x.c[static_cast<std::size_t>(j * s.ldc() + i)] = std::nanf("");
            }
            x.keep_c();
        }
        x.run(product);
        const bool whole = s.alpha == std::trunc(s.alpha) && s.beta == std::trunc(s.beta);
        expect_gemm_result(x, values == gemm_values::integers && whole, worst);
        if (testing::Test::HasFatalFailure())
            return;
    }
}
} // namespace tesh_test
