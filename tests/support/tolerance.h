// SPDX-License-Identifier: BSD-3-Clause
// Error bounds of products and sums in single precision (Higham, Accuracy and Stability of Numerical Algorithms, 2002,
// ch. 3).
#pragma once
#include <algorithm>
#include <cmath>
#include <cstdint>

namespace tesh_test
{
// g(n) = n u / (1 - n u), u = 2^-24.
inline double gamma_n(double n)
{
    const double nu = n * std::ldexp(1.0, -24);
    return nu / (1.0 - nu);
}

// Bound of |c - ref| for c = alpha * (k products) + beta*c0, in any order and blocking, fused or not. magnitude is
// |alpha| sum |a||b| + |beta||c0|, in double. At most k roundings for the products, one for alpha, one for adding to C.
inline double product_bound(std::int64_t k, double alpha, double magnitude)
{
    const double n = static_cast<double>(k) + 2.0;
    return gamma_n(n) * magnitude + n * std::max(1.0, std::fabs(alpha)) * std::ldexp(1.0, -149);
}

// Keeps the worst ratio of error to bound, to be printed at the end of a test: above 1 is a failure.
struct worst_ratio {
    double value = 0.0;
    void see(double got, double expected, double bound)
    {
        const double error = std::fabs(got - expected);
        const double ratio = error == 0.0 ? 0.0 : error / bound;
        if (!(ratio <= value))
            value = ratio; // a NaN is kept, and fails the comparison with 1
    }
};
} // namespace tesh_test
