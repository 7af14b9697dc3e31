// SPDX-License-Identifier: BSD-3-Clause
// What the tests of level 1 share: the members by path, vectors against guard pages, and plain references.
#pragma once
#include "tests/support/guard_pages.h"
#include "tests/support/random.h"
#include "tests/support/test_paths.h"
#include "vector/vector_paths.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

namespace level1
{
constexpr float not_a_number = std::numeric_limits<float>::quiet_NaN();
constexpr float infinity = std::numeric_limits<float>::infinity();

struct member_set {
    std::string path;
    bool fused; // products and sums in one rounding
    tesh_blas_saxpby_fn *saxpby;
    tesh_blas_saxpy_fn *saxpy;
    tesh_blas_scopy_fn *scopy;
    tesh_blas_sscal_fn *sscal;
    tesh_blas_sswap_fn *sswap;
    tesh_blas_srot_fn *srot;
    tesh_blas_snrm2_fn *snrm2;
    tesh_blas_srotm_fn *srotm; // null where the path has none
    bool is_def() const { return path == "def" || path == "cnr_def"; }
};

// The members to test in this run.
inline std::vector<member_set> members()
{
    const member_set all[] = {
        {"def", false, tesh_blas_def_xsaxpby, tesh_blas_def_xsaxpy, tesh_blas_def_xscopy, tesh_blas_def_xsscal,
         tesh_blas_def_xsswap, tesh_blas_def_xsrot, tesh_blas_def_xsnrm2, nullptr},
        {"cnr_def", false, tesh_blas_cnr_def_xsaxpby, tesh_blas_cnr_def_xsaxpy, tesh_blas_cnr_def_xscopy,
         tesh_blas_cnr_def_xsscal, tesh_blas_cnr_def_xsswap, tesh_blas_cnr_def_xsrot, tesh_blas_cnr_def_xsnrm2,
         nullptr},
        {"mc3", false, tesh_blas_mc3_xsaxpby, tesh_blas_mc3_xsaxpy, tesh_blas_mc3_xscopy, tesh_blas_mc3_xsscal,
         tesh_blas_mc3_xsswap, tesh_blas_mc3_xsrot, tesh_blas_mc3_xsnrm2, nullptr},
        {"avx2", true, tesh_blas_avx2_xsaxpby, tesh_blas_avx2_xsaxpy, tesh_blas_avx2_xscopy, tesh_blas_avx2_xsscal,
         tesh_blas_avx2_xsswap, tesh_blas_avx2_xsrot, tesh_blas_avx2_xsnrm2, tesh_blas_avx2_xsrotm},
        {"avx512", true, tesh_blas_avx512_xsaxpby, tesh_blas_avx512_xsaxpy, tesh_blas_avx512_xscopy,
         tesh_blas_avx512_xsscal, tesh_blas_avx512_xsswap, tesh_blas_avx512_xsrot, tesh_blas_avx512_xsnrm2,
         tesh_blas_avx512_xsrotm}};
    return tesh_test::rows_to_run(all);
}

inline float load(const char *p)
{
    float x;
    std::memcpy(&x, p, 4);
    return x;
}
inline void store(char *p, float x)
{
    std::memcpy(p, &x, 4);
}

// Bytes of a vector of n elements.
inline std::size_t span_bytes(std::int64_t n, std::int64_t inc)
{
    return n <= 0 ? 0 : static_cast<std::size_t>((n - 1) * std::llabs(inc) + 1) * 4;
}
// Byte offset of logical element i.
inline std::int64_t at(std::int64_t i, std::int64_t n, std::int64_t inc)
{
    return 4 * ((inc < 0 ? (1 - n) * inc : 0) + i * inc);
}

// A vector that ends right before a page that faults, or begins right behind one; or, shifted by some bytes, lies near
// it between bytes of a pattern. The elements are random, the gaps of a stride hold a pattern.
class operand
{
public:
    operand(tesh_test::random &random, std::int64_t n, std::int64_t inc, tesh_test::guard side, std::size_t shift = 0)
        : n_(n), inc_(inc), bytes_(span_bytes(n, inc)), memory_(bytes_ + 2 * shift, side), shift_(shift)
    {
        std::memset(memory_.data(), 0x7b, bytes_ + 2 * shift);
        for (std::int64_t i = 0; i < n; ++i)
            set(i, random.uniform());
        keep();
    }
    char *raw() const { return static_cast<char *>(memory_.data()) + shift_; }
    float *data() const { return reinterpret_cast<float *>(raw()); }
    const std::int64_t *inc() const { return &inc_; }
    float get(std::int64_t i) const { return load(raw() + at(i, n_, inc_)); }
    void set(std::int64_t i, float x) { store(raw() + at(i, n_, inc_), x); }

    // The expected contents: begin as what lies there; a reference changes them.
    void keep() { expected_.assign(raw() - shift_, raw() + bytes_ + shift_); }
    float want(std::int64_t i) const { return load(expected_.data() + shift_ + at(i, n_, inc_)); }
    void want(std::int64_t i, float x) { store(expected_.data() + shift_ + at(i, n_, inc_), x); }
    // The pattern beside the elements may not even be read meanwhile.
    void hide_pattern() const
    {
        tesh_test::hide_bytes(raw() - shift_, shift_);
        tesh_test::hide_bytes(raw() + bytes_, shift_);
    }
    void show_pattern() const { tesh_test::show_bytes(raw() - shift_, bytes_ + 2 * shift_); }

    // Every byte as expected; any NaN stands for any other.
    ::testing::AssertionResult holds() const
    {
        if (expected_.empty() || std::memcmp(expected_.data(), raw() - shift_, expected_.size()) == 0)
            return ::testing::AssertionSuccess();
        for (std::int64_t i = 0; i < n_; ++i) {
            const float have = get(i), wanted = want(i);
            if (std::memcmp(&have, &wanted, 4) != 0 && !(std::isnan(have) && std::isnan(wanted)))
                return ::testing::AssertionFailure() << "element " << i << " is " << have << ", not " << wanted;
        }
        std::vector<char> rest(expected_);
        for (std::int64_t i = 0; i < n_; ++i)
            store(rest.data() + shift_ + at(i, n_, inc_), get(i));
        if (std::memcmp(rest.data(), raw() - shift_, rest.size()) != 0)
            return ::testing::AssertionFailure() << "a byte beside the elements was written";
        return ::testing::AssertionSuccess();
    }

private:
    std::int64_t n_, inc_;
    std::size_t bytes_;
    tesh_test::guarded_bytes memory_;
    std::size_t shift_;
    std::vector<char> expected_;
};

// alpha*x + beta*y as a path rounds it.
inline float axpby(bool fused, float alpha, float x, float beta, float y)
{
    const float product = beta * y;
    if (fused)
        return std::fma(alpha, x, product);
    const float other = alpha * x;
    return product + other;
}

// Lengths around every edge: registers of 4, 8 and 16, rounds of 32, 64 and 128, and the 15000 bytes of the copies.
inline std::vector<std::int64_t> lengths()
{
    std::vector<std::int64_t> all;
    for (std::int64_t n = 0; n <= 150; ++n)
        all.push_back(n);
    for (std::int64_t n : {159, 160, 161, 191,  192,  193,  255,  256,  257,  319,  320,  383,
                           384, 385, 500, 1000, 1023, 1024, 3749, 3750, 3751, 3766, 4096, 5000})
        all.push_back(n);
    return all;
}

struct case_of_strides {
    std::int64_t incx, incy;
};
constexpr case_of_strides strides[] = {{1, 1},   {2, 1}, {1, 2}, {3, 2}, {-1, 1}, {1, -1}, {-1, -1}, {-3, 2},  {2, -3},
                                       {-2, -2}, {0, 1}, {1, 0}, {0, 0}, {0, -2}, {-2, 0}, {17, 1},  {100, 33}};

// Runs call against expect (which sets what the operands are to hold) over all lengths against guard pages at either
// end, all alignments of both vectors, addresses off 4 bytes, and strides of every sign and zero.
template <class Expect, class Call> void sweep(const member_set &m, Expect expect, Call call)
{
    tesh_test::random random;
    auto one_case = [&](std::int64_t n, case_of_strides s, tesh_test::guard side, std::size_t at_x, std::size_t at_y) {
        operand x(random, n, s.incx, side, at_x), y(random, n, s.incy, side, at_y);
        expect(n, x, y);
        x.hide_pattern();
        y.hide_pattern();
        call(n, x, y);
        x.show_pattern();
        y.show_pattern();
        ASSERT_TRUE(x.holds() && y.holds())
            << m.path << " n " << n << " strides " << s.incx << " " << s.incy << " shifts " << at_x << " " << at_y
            << ": " << x.holds().message() << y.holds().message();
    };
    using tesh_test::guard;
    for (guard side : {guard::at_end, guard::at_start})
        for (std::int64_t n : lengths())
            ASSERT_NO_FATAL_FAILURE(one_case(n, {1, 1}, side, 0, 0));
    for (std::int64_t n : {1, 3, 7, 16, 35, 90, 131, 150, 200}) // 131: up to 3 in front of two rounds of 64
        for (std::size_t at_x = 0; at_x <= 64; at_x += 4)
            for (std::size_t at_y = 0; at_y <= 64; at_y += 4)
                ASSERT_NO_FATAL_FAILURE(one_case(n, {1, 1}, guard::at_start, at_x, at_y));
    for (std::int64_t n : {1, 2, 5, 16, 31, 64, 100, 257, 4000})
        for (std::size_t at_x : {0, 1, 2, 3, 5, 16})
            for (std::size_t at_y : {0, 1, 2, 3, 7, 18})
                for (case_of_strides s : {case_of_strides{1, 1}, case_of_strides{-1, -1}})
                    ASSERT_NO_FATAL_FAILURE(one_case(n, s, guard::at_end, at_x, at_y));
    for (const case_of_strides &s : strides)
        for (std::int64_t n = 0; n < 140; ++n)
            for (std::size_t shift : {0, 2, 12})
                ASSERT_NO_FATAL_FAILURE(one_case(n, s, guard::at_end, shift, shift / 2));
}
} // namespace level1
