// SPDX-License-Identifier: BSD-3-Clause
// What the tests of SGEMV, SGER and STRMV share: strided vectors against guard pages, and whether a gap was touched.
#pragma once
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "tests/support/guard_pages.h"
#include "tests/support/random.h"

namespace tesh_test
{
constexpr float gap_pattern = -77.25f; // in elements that no routine may touch

// n logical elements, inc apart; the array is as short as it can be.
class strided_vector
{
public:
    strided_vector(std::int64_t n, std::int64_t inc, guard side = guard::at_end, std::size_t shift_bytes = 0)
        : n_(n), inc_(inc), values_(storage(n, inc), side, shift_bytes)
    {
        for (float &value : values_)
            value = gap_pattern;
    }
    float *data() const { return values_.data(); }
    float &operator[](std::int64_t i) const
    {
        const std::int64_t start = inc_ < 0 ? (1 - n_) * inc_ : 0;
        return values_[static_cast<std::size_t>(start + i * inc_)];
    }
    std::int64_t count() const { return n_; }
    // The gaps between the elements hold their pattern.
    bool gaps_untouched() const
    {
        const std::int64_t step = std::llabs(inc_);
        for (std::size_t i = 0; step > 1 && i < values_.size(); ++i) {
            if (static_cast<std::int64_t>(i) % step != 0 && values_[i] != gap_pattern)
                return false;
        }
        return true;
    }

private:
    static std::size_t storage(std::int64_t n, std::int64_t inc)
    {
        return n <= 0 ? 0 : static_cast<std::size_t>(1 + (n - 1) * std::llabs(inc));
    }
    std::int64_t n_, inc_;
    guarded_array<float> values_;
};

// m x n, column-major; the array ends with the last element of the last column.
class matrix
{
public:
    matrix(std::int64_t m, std::int64_t n, std::int64_t lda, guard side = guard::at_end, std::size_t shift_bytes = 0)
        : m_(m), n_(n), lda_(lda),
          values_(m <= 0 || n <= 0 ? 0 : static_cast<std::size_t>((n - 1) * lda + m), side, shift_bytes)
    {
        for (float &value : values_)
            value = gap_pattern;
    }
    float *data() const { return values_.data(); }
    float &operator()(std::int64_t i, std::int64_t j) const { return values_[static_cast<std::size_t>(j * lda_ + i)]; }
    bool gaps_untouched() const
    {
        for (std::int64_t j = 0; j + 1 < n_; ++j) {
            for (std::int64_t i = m_; i < lda_; ++i) {
                if ((*this)(i, j) != gap_pattern)
                    return false;
            }
        }
        return true;
    }
    std::vector<float> copy() const { return {values_.begin(), values_.end()}; }

private:
    std::int64_t m_, n_, lda_;
    guarded_array<float> values_;
};

// Small integers, whose products and sums are exact, or random values.
enum class filling { random, integers };

template <class Range> void fill_elements(Range &range, std::int64_t count, filling kind, random &source)
{
    for (std::int64_t i = 0; i < count; ++i)
        range[i] = kind == filling::integers ? source.small_integer() : source.uniform();
}
} // namespace tesh_test
