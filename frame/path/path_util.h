// SPDX-License-Identifier: BSD-3-Clause
// Integer helpers of path files, where no C++ library header may be included.
#pragma once
#include <stdint.h>

namespace
{
constexpr int64_t min_of(int64_t x, int64_t y)
{
    return x < y ? x : y;
}
constexpr int64_t max_of(int64_t x, int64_t y)
{
    return x > y ? x : y;
}
constexpr int64_t round_up(int64_t x, int64_t step)
{
    return (x + step - 1) / step * step;
}
// total += x * y, for sizes of scratch; false where that is more than the type holds.
inline bool add_product(int64_t *total, int64_t x, int64_t y)
{
    int64_t product = 0;
    return !__builtin_mul_overflow(x, y, &product) && !__builtin_add_overflow(*total, product, total);
}
// Index of the first logical element of a vector of n elements: a negative increment starts at the far end.
constexpr int64_t first_index(int64_t n, int64_t inc)
{
    return inc < 0 ? (1 - n) * inc : 0;
}
} // namespace
