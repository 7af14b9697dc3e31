// SPDX-License-Identifier: BSD-3-Clause
// One SGEMV call beside its reference: operands against guard pages, plain double loops, the bound of tolerance.h.
#pragma once
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <sstream>
#include <string>

#include "tests/support/test_paths.h"
#include "tests/support/tolerance.h"
#include "tests/vector/matrix_vector_support.h"
#include "vector/matrix_vector_paths.h"

namespace tesh_test
{
struct sgemv_problem {
    char trans = 'N';
    std::int64_t m = 1, n = 1, extra_lda = 0; // lda = m + extra_lda
    float alpha = 1.0f;
    std::int64_t incx = 1;
    float beta = 1.0f;
    std::int64_t incy = 1;
    guard side = guard::at_end;
    std::size_t shift_bytes = 0;
    filling kind = filling::random;

    bool transposed() const { return trans != 'N' && trans != 'n'; }
    std::int64_t x_count() const { return transposed() ? m : n; }
    std::int64_t y_count() const { return transposed() ? n : m; }
    std::int64_t lda() const { return m + extra_lda; }
    std::string text() const
    {
        std::ostringstream out;
        out << "trans " << trans << " m " << m << " n " << n << " lda " << lda() << " alpha " << alpha << " beta "
            << beta << " incx " << incx << " incy " << incy << (side == guard::at_end ? " end" : " start") << " shift "
            << shift_bytes << (kind == filling::integers ? " integers" : " random");
        return out.str();
    }
};

struct sgemv_operands {
    matrix a;
    strided_vector x, y;
    explicit sgemv_operands(const sgemv_problem &p, std::uint64_t stream = 0)
        : a(p.m, p.n, p.lda(), p.side, p.shift_bytes), x(p.x_count(), p.incx, p.side, p.shift_bytes),
          y(p.y_count(), p.incy, p.side, p.shift_bytes)
    {
        random source(stream);
        for (std::int64_t j = 0; j < p.n; ++j) {
            for (std::int64_t i = 0; i < p.m; ++i)
                a(i, j) = p.kind == filling::integers ? source.small_integer() : source.uniform();
        }
        fill_elements(x, p.x_count(), p.kind, source);
        fill_elements(y, p.y_count(), p.kind, source);
    }
    void call(const sgemv_problem &p, tesh_blas_sgemv_fn *routine) const
    {
        const std::int64_t lda = p.lda();
        routine(&p.trans, &p.m, &p.n, &p.alpha, a.data(), &lda, x.data(), &p.incx, &p.beta, y.data(), &p.incy, 1);
    }
};

// The value of element i of the result, in double, and the sum of the magnitudes that its bound needs.
struct sgemv_element {
    double value, magnitude;
};
inline sgemv_element sgemv_reference(const sgemv_problem &p, const sgemv_operands &o, std::int64_t i, double y)
{
    double sum = 0.0, magnitude = 0.0;
    for (std::int64_t k = 0; k < p.x_count(); ++k) {
        const double product =
            static_cast<double>(p.transposed() ? o.a(k, i) : o.a(i, k)) * static_cast<double>(o.x[k]);
        sum += product;
        magnitude += std::fabs(product);
    }
    const double alpha = p.alpha, beta = p.beta;
    const double scaled = beta == 0.0 ? 0.0 : beta * y;
    return {alpha * sum + scaled, std::fabs(alpha) * magnitude + std::fabs(scaled)};
}

// Runs the routine and holds every element, every gap and every input against what they must be. incy is not 0.
inline void check_sgemv(const sgemv_problem &p, tesh_blas_sgemv_fn *routine, worst_ratio &worst)
{
    const sgemv_operands o(p);
    const std::vector<float> a_before = o.a.copy();
    std::vector<float> x_before, y_before;
    for (std::int64_t i = 0; i < p.x_count(); ++i)
        x_before.push_back(o.x[i]);
    for (std::int64_t i = 0; i < p.y_count(); ++i)
        y_before.push_back(o.y[i]);
    if (p.beta == 0.0f) { // not to be read
        for (std::int64_t i = 0; i < p.y_count(); ++i)
            o.y[i] = std::numeric_limits<float>::quiet_NaN();
    }
    o.call(p, routine);
    for (std::int64_t i = 0; i < p.y_count(); ++i) {
        const sgemv_element expected =
            sgemv_reference(p, o, i, static_cast<double>(y_before[static_cast<std::size_t>(i)]));
        const double got = static_cast<double>(o.y[i]);
        if (p.kind == filling::integers) {
            ASSERT_EQ(got, expected.value) << p.text() << " element " << i;
        } else {
            const double bound = product_bound(p.x_count(), static_cast<double>(p.alpha), expected.magnitude);
            worst.see(got, expected.value, bound);
            ASSERT_LE(std::fabs(got - expected.value), bound) << p.text() << " element " << i;
        }
    }
    ASSERT_EQ(o.a.copy(), a_before) << p.text();
    for (std::int64_t i = 0; i < p.x_count(); ++i)
        ASSERT_EQ(o.x[i], x_before[static_cast<std::size_t>(i)]) << p.text();
    ASSERT_TRUE(o.y.gaps_untouched()) << p.text();
}
} // namespace tesh_test
