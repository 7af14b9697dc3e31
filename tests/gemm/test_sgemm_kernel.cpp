// SPDX-License-Identifier: BSD-3-Clause
// Register kernels alone, on operands packed here element by element.
#include <immintrin.h>

#include <cmath>
#include <cstring>

#include "tests/gemm/wide_paths.h"
#include "tests/support/guard_pages.h"
#include "tests/support/random.h"
#include "tests/support/tolerance.h"

namespace
{
using tesh_test::guard;
using tesh_test::guarded_array;
using tesh_test::wide_path;

// Row-major in depth: element (l, c) of a block of the given width.
std::vector<float> values(std::int64_t depth, std::int64_t width, std::uint64_t stream, bool integers)
{
    std::vector<float> x(static_cast<std::size_t>(depth * width));
    tesh_test::random random(stream);
    integers ? random.fill_integers(x) : random.fill(x);
    return x;
}

struct packed : guarded_array<float> {
    packed(const std::vector<float> &x, std::int64_t depth, std::int64_t width, const std::vector<std::int64_t> &widths,
           guard side)
        : guarded_array<float>(x.size(), side)
    {
        std::size_t at = 0;
        std::int64_t first = 0;
        for (const std::int64_t w : widths) {
            for (std::int64_t l = 0; l < depth; ++l)
                for (std::int64_t i = 0; i < w; ++i)
                    (*this)[at++] = x[static_cast<std::size_t>(l * width + first + i)];
            first += w;
        }
    }
};

struct kernel_case {
    std::int64_t m, n, k;
    std::int64_t pad = 0;
    guard side = guard::at_end;
    std::size_t shift_bytes = 0;
};

class sgemm_kernel : public testing::TestWithParam<const wide_path *>
{
protected:
    const wide_path &p = *GetParam();
    tesh_test::worst_ratio worst;

    void TearDown() override { EXPECT_LE(worst.value, 1.0); }

    // Every form on the same operands.
    void check(const kernel_case &s, bool integers)
    {
        const std::vector<float> av = values(s.k, s.m, 1, integers), bv = values(s.k, s.n, 2, integers);
        const packed a(av, s.k, s.m, tesh_test::panel_widths(s.m, p.panel_m, p.a_tails), s.side);
        const packed b(bv, s.k, s.n, tesh_test::panel_widths(s.n, p.panel_n, p.b_tails), s.side);
        const std::int64_t ldc = s.m + s.pad;
        const std::size_t extent = static_cast<std::size_t>((s.n - 1) * ldc + s.m);
        std::vector<double> sum(static_cast<std::size_t>(s.m * s.n)), magnitude(sum.size());
        for (std::int64_t j = 0; j < s.n; ++j)
            for (std::int64_t l = 0; l < s.k; ++l) {
                const double y = bv[static_cast<std::size_t>(l * s.n + j)];
                for (std::int64_t i = 0; i < s.m; ++i) {
                    const double x = av[static_cast<std::size_t>(l * s.m + i)] * y;
                    sum[static_cast<std::size_t>(j * s.m + i)] += x;
                    magnitude[static_cast<std::size_t>(j * s.m + i)] += std::fabs(x);
                }
            }
        const float one = 1.0f;
        for (tesh_blas_sgemm_kernel_fn *kernel : {p.kernel, p.kernel_b0, p.kernel_cnr, p.kernel_b0_cnr}) {
            const bool reads = kernel == p.kernel || kernel == p.kernel_cnr;
            guarded_array<float> c(extent, s.side, s.shift_bytes);
            for (std::size_t i = 0; i < extent; ++i)
                c[i] = static_cast<std::int64_t>(i) % ldc >= s.m ? -9.25f : reads ? 2.0f : std::nanf("");
            kernel(&s.m, &s.n, &s.k, &one, a.data(), b.data(), c.data(), ldc);
            for (std::size_t i = 0; i < extent; ++i) {
                const std::int64_t row = static_cast<std::int64_t>(i) % ldc,
                                   column = static_cast<std::int64_t>(i) / ldc;
                if (row >= s.m) {
                    ASSERT_EQ(c[i], -9.25f) << "gap of column " << column;
                    continue;
                }
                const std::size_t at = static_cast<std::size_t>(column * s.m + row);
                const double want = sum[at] + (reads ? 2.0 : 0.0);
                const double bound = integers ? 0.0 : tesh_test::product_bound(s.k, 1.0, magnitude[at] + 2.0);
                ASSERT_LE(std::fabs(c[i] - want), bound) << p.name << " m=" << s.m << " n=" << s.n << " k=" << s.k
                                                         << " (" << row << ", " << column << ") reads " << reads;
                if (!integers)
                    worst.see(c[i], want, bound);
            }
        }
    }
};

TEST_P(sgemm_kernel, every_m_and_n_up_to_the_tile_and_beyond)
{
    for (std::int64_t m = 1; m <= p.panel_m + 2; ++m) {
        for (std::int64_t n = 1; n <= p.panel_n + 2; ++n) {
            for (const std::int64_t k : {1, 4, 7}) {
                for (const guard side : {guard::at_end, guard::at_start})
                    check({m, n, k, m % 3, side}, k == 4);
                if (HasFatalFailure())
                    return;
            }
        }
    }
}

TEST_P(sgemm_kernel, blocks_of_several_panels_with_every_tail)
{
    for (const std::int64_t m :
         {2 * p.panel_m - 1, 2 * p.panel_m, 2 * p.panel_m + 1, 2 * p.panel_m + 8, 3 * p.panel_m - 1}) {
        for (std::int64_t n = 2 * p.panel_n; n <= 4 * p.panel_n; ++n) {
            check({m, n, 21, 1}, false);
            if (HasFatalFailure())
                return;
        }
    }
}

// The fewer the rows, the more column panels a tile may go over.
TEST_P(sgemm_kernel, few_rows_against_any_number_of_columns)
{
    for (std::int64_t m = 1; m <= 7; ++m) {
        for (std::int64_t n = 1; n <= 110; ++n) {
            for (const guard side : {guard::at_end, guard::at_start})
                check({m, n, 1 + (m + n) % 11, m % 2, side}, n % 2 == 0);
            if (HasFatalFailure())
                return;
        }
    }
}

// The remainder by one; one group; and the depths at which the loop that fetches C takes over: 128 and 136 steps, which
// are 32 and 34 groups. Every panel width of A stands last once, and so does every one of B.
TEST_P(sgemm_kernel, every_depth_where_a_stretch_of_the_loop_begins)
{
    std::vector<std::int64_t> depths, heights = p.a_tails, widths = p.b_tails;
    for (std::int64_t k = 0; k <= 20; ++k)
        depths.push_back(k);
    for (std::int64_t k = 30; k <= 36; ++k)
        depths.push_back(k);
    for (std::int64_t k = 32 * 4 - 5; k <= 34 * 4 + 5; ++k)
        depths.push_back(k);
    for (const std::int64_t k : {191, 192, 193, 256, 383, 384, 385})
        depths.push_back(k);
    for (const std::int64_t m : {p.panel_m, p.panel_m - 1})
        heights.push_back(m);
    for (const std::int64_t n : {p.panel_n, 2 * p.panel_n - 1, 4 * p.panel_n})
        widths.push_back(n);
    for (const std::int64_t k : depths) {
        for (const std::int64_t m : heights) {
            for (const std::int64_t n : widths) {
                for (const guard side : {guard::at_end, guard::at_start})
                    check({m, n, k, 0, side}, k % 3 == 0);
                if (HasFatalFailure())
                    return;
            }
        }
    }
}

TEST_P(sgemm_kernel, c_of_any_alignment)
{
    for (std::size_t shift = 0; shift < 64; shift += 4) {
        check({p.panel_m + 7, p.panel_n + 3, 9, 2, guard::at_start, shift}, false);
        if (HasFatalFailure())
            return;
    }
}

// Where a row lies in its block decides its panel's width. The reproducible forms give it the same bits everywhere.
TEST_P(sgemm_kernel, cnr_row_has_the_same_bits_wherever_it_lies)
{
    const std::int64_t k = 131, n = 4 * p.panel_n + 3, most = 2 * p.panel_m;
    const std::vector<float> bv = values(k, n, 2, false);
    const std::vector<float> row = values(k, 1, 3, false);
    const packed b(bv, k, n, tesh_test::panel_widths(n, p.panel_n, p.b_tails), guard::at_end);
    const float one = 1.0f;
    std::vector<float> expected;
    for (std::int64_t m = 1; m <= most; ++m) {
        std::vector<float> av(static_cast<std::size_t>(k * m));
        for (std::int64_t l = 0; l < k; ++l) // every row is the same one
            for (std::int64_t i = 0; i < m; ++i)
                av[static_cast<std::size_t>(l * m + i)] = row[static_cast<std::size_t>(l)];
        const packed a(av, k, m, tesh_test::panel_widths(m, p.panel_m, p.a_tails), guard::at_end);
        for (tesh_blas_sgemm_kernel_fn *kernel : {p.kernel_cnr, p.kernel_b0_cnr}) {
            std::vector<float> c(static_cast<std::size_t>(m * n), 0.0f);
            kernel(&m, &n, &k, &one, a.data(), b.data(), c.data(), m);
            if (expected.empty())
                expected = c;
            for (std::int64_t j = 0; j < n; ++j)
                for (std::int64_t i = 0; i < m; ++i)
                    ASSERT_EQ(c[static_cast<std::size_t>(j * m + i)], expected[static_cast<std::size_t>(j)])
                        << "row " << i << " of " << m << ", column " << j;
        }
    }
}

// One fused chain in the order of depth; or even and odd steps in a chain each, added at the end.
float chained(const std::vector<float> &av, std::int64_t m, std::int64_t i, const std::vector<float> &bv,
              std::int64_t n, std::int64_t j, std::int64_t k, bool apart)
{
    float sums[2] = {0.0f, 0.0f};
    for (std::int64_t l = 0; l < k; ++l) {
        float &sum = sums[apart ? l % 2 : 0];
        sum = std::fmaf(av[static_cast<std::size_t>(l * m + i)], bv[static_cast<std::size_t>(l * n + j)], sum);
    }
    return apart ? sums[0] + sums[1] : sums[0];
}

// Only the rest of 8 rows on avx2 adds even and odd steps apart, and only in the plain forms.
TEST_P(sgemm_kernel, bits_of_every_element_are_those_of_its_chain)
{
    for (std::int64_t m = 1; m <= p.panel_m + 2; ++m) {
        const std::int64_t most_n = m < 8 ? 110 : 3 * p.panel_n + 2; // tiles may go over several panels
        for (std::int64_t n = 1; n <= most_n; ++n) {
            const std::int64_t k = (m + n) % 5 == 0 ? 137 : 1 + (7 * m + n) % 23;
            const std::vector<float> av = values(k, m, 4, false), bv = values(k, n, 5, false);
            const std::vector<std::int64_t> panels = tesh_test::panel_widths(m, p.panel_m, p.a_tails);
            const packed a(av, k, m, panels, guard::at_end);
            const packed b(bv, k, n, tesh_test::panel_widths(n, p.panel_n, p.b_tails), guard::at_end);
            const float one = 1.0f;
            for (tesh_blas_sgemm_kernel_fn *kernel : {p.kernel, p.kernel_b0, p.kernel_cnr, p.kernel_b0_cnr}) {
                const bool reads = kernel == p.kernel || kernel == p.kernel_cnr;
                const bool plain = kernel == p.kernel || kernel == p.kernel_b0;
                std::vector<float> c(static_cast<std::size_t>(m * n), 0.75f);
                kernel(&m, &n, &k, &one, a.data(), b.data(), c.data(), m);
                std::int64_t i = 0;
                for (const std::int64_t width : panels) {
                    const bool apart = plain && p.name == "avx2" && width == 8;
                    for (const std::int64_t end = i + width; i < end; ++i)
                        for (std::int64_t j = 0; j < n; ++j) {
                            const float sum = chained(av, m, i, bv, n, j, k, apart);
                            ASSERT_EQ(c[static_cast<std::size_t>(j * m + i)], reads ? 0.75f + sum : sum)
                                << "m=" << m << " n=" << n << " k=" << k << " (" << i << ", " << j << ") reads "
                                << reads << " plain " << plain;
                        }
                }
            }
        }
    }
}

// Lanes beside a narrow panel hold nothing that an infinity of B could turn into a NaN, and raise no flag.
TEST_P(sgemm_kernel, infinities_of_b_stay_in_their_column)
{
    const std::int64_t k = 3;
    for (std::int64_t m = 1; m <= p.panel_m; ++m) {
        for (std::int64_t n = 1; n <= p.panel_n; ++n) {
            std::vector<float> av(static_cast<std::size_t>(k * m), 1.0f), bv(static_cast<std::size_t>(k * n), 1.0f);
            bv[static_cast<std::size_t>(n - 1)] = INFINITY;
            const packed a(av, k, m, tesh_test::panel_widths(m, p.panel_m, p.a_tails), guard::at_end);
            const packed b(bv, k, n, tesh_test::panel_widths(n, p.panel_n, p.b_tails), guard::at_end);
            std::vector<float> c(static_cast<std::size_t>(m * n), 1.0f);
            const float one = 1.0f;
            const unsigned clean = _mm_getcsr() & ~0x3fu;
            _mm_setcsr(clean);
            p.kernel(&m, &n, &k, &one, a.data(), b.data(), c.data(), m);
            ASSERT_EQ(_mm_getcsr() & 0x3fu, 0u) << "m=" << m << " n=" << n;
            for (std::int64_t j = 0; j < n; ++j)
                for (std::int64_t i = 0; i < m; ++i)
                    ASSERT_EQ(c[static_cast<std::size_t>(j * m + i)], j == n - 1 ? INFINITY : 4.0f);
        }
    }
}

TEST_P(sgemm_kernel, ker0_chooses_by_beta)
{
    const std::int64_t m = 5, n = 3, k = 2, ldc = 6;
    std::vector<float> a(10, 1.0f), b(6, 1.0f);
    const float one = 1.0f;
    for (gemm_ker0_fn *ker0 : {p.ker0, p.ker0_cnr}) {
        for (const float beta : {0.0f, -0.0f, 1.0f}) {
            std::vector<float> c(static_cast<std::size_t>(n * ldc), beta == 0.0f ? std::nanf("") : 10.0f);
            blas_matrix_view va = {}, vb = {}, vc = {};
            va.base = a.data();
            va.rows = k;
            va.cols = m;
            vb.base = b.data();
            vb.rows = k;
            vb.cols = n;
            vc.base = c.data();
            vc.rows = m;
            vc.cols = n;
            vc.ld = ldc;
            ker0(&one, &va, &vb, &beta, &vc);
            for (std::int64_t j = 0; j < n; ++j)
                for (std::int64_t i = 0; i < m; ++i)
                    ASSERT_EQ(c[static_cast<std::size_t>(j * ldc + i)], beta == 0.0f ? 2.0f : 12.0f);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(paths, sgemm_kernel, testing::ValuesIn(tesh_test::wide_paths_to_run()), tesh_test::path_name);
} // namespace
