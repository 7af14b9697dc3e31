// SPDX-License-Identifier: BSD-3-Clause
// Columns that lie more than 2^31 elements apart, on every road of every path. The pages between are never touched.
#include "gemm/sgemm_paths.h"
#include "tests/support/guard_pages.h"
#include "tests/support/reference_gemm.h"
#include "tests/support/test_paths.h"

namespace
{
struct routines {
    const char *path;
    tesh_blas_sgemm_fn *xsgemm, *pst;
};
constexpr routines table[] = {{"def", tesh_blas_def_xsgemm, tesh_blas_def_sgemm_pst},
                              {"cnr_def", tesh_blas_cnr_def_xsgemm, tesh_blas_cnr_def_sgemm_pst},
                              {"mc3", tesh_blas_mc3_xsgemm, tesh_blas_mc3_sgemm_pst},
                              {"avx2", tesh_blas_avx2_xsgemm, tesh_blas_avx2_sgemm_pst},
                              {"avx512", tesh_blas_avx512_xsgemm, tesh_blas_avx512_sgemm_pst}};

struct far_matrix {
    std::int64_t rows, cols, ld = (std::int64_t(1) << 31) + 3;
    tesh_test::guarded_array<float> data;
    far_matrix(std::int64_t rows_, std::int64_t cols_)
        : rows(rows_), cols(cols_), data(static_cast<std::size_t>((cols - 1) * ld + rows))
    {
    }
    float &at(std::int64_t i, std::int64_t j) const { return data[static_cast<std::size_t>(i + j * ld)]; }
};

// Small integers: every order of the sums gives the same bits.
void check(tesh_blas_sgemm_fn *product, char transa, char transb, std::int64_t m, std::int64_t n, std::int64_t k,
           float beta)
{
    const bool plain_a = transa == 'N', plain_b = transb == 'N';
    const far_matrix a(plain_a ? m : k, plain_a ? k : m), b(plain_b ? k : n, plain_b ? n : k), c(m, n);
    std::int64_t value = 0;
    for (const far_matrix *x : {&a, &b, &c})
        for (std::int64_t j = 0; j < x->cols; ++j)
            for (std::int64_t i = 0; i < x->rows; ++i)
                x->at(i, j) = static_cast<float>(++value % 7 - 3);
    std::vector<float> expected;
    for (std::int64_t j = 0; j < n; ++j)
        for (std::int64_t i = 0; i < m; ++i) {
            float sum = 0.0f;
            for (std::int64_t l = 0; l < k; ++l)
                sum += (plain_a ? a.at(i, l) : a.at(l, i)) * (plain_b ? b.at(l, j) : b.at(j, l));
            expected.push_back(2.0f * sum + beta * c.at(i, j));
        }
    const float alpha = 2.0f;
    product(&transa, &transb, &m, &n, &k, &alpha, a.data.data(), &a.ld, b.data.data(), &b.ld, &beta, c.data.data(),
            &c.ld);
    for (std::int64_t j = 0; j < n; ++j)
        for (std::int64_t i = 0; i < m; ++i)
            ASSERT_EQ(c.at(i, j), expected[static_cast<std::size_t>(j * m + i)])
                << transa << transb << ' ' << m << " x " << n << " x " << k << " at " << i << ", " << j;
}
} // namespace

TEST(sgemm_far, columns_more_than_two_to_the_31_elements_apart)
{
    if (!tesh_test::in_long_set())
        GTEST_SKIP() << "long set";
    struct sizes {
        std::int64_t m, n, k;
    };
    // Bufferless, unrolled or one block; blocked; several blocks without packing; 6 by 6; few columns and a long depth;
    // packed by m; packed by m and n.
    constexpr sizes roads[] = {{5, 3, 2},  {13, 9, 17}, {40, 9, 9},  {9, 9, 40},
                               {6, 10, 6}, {3, 2, 50},  {200, 9, 5}, {73, 74, 9}};
    for (const routines &r : tesh_test::rows_to_run(table))
        for (const char transa : {'N', 'T'})
            for (const char transb : {'N', 'T'})
                for (const float beta : {1.0f, 0.5f})
                    for (const sizes &s : roads) {
                        check(r.xsgemm, transa, transb, s.m, s.n, s.k, beta);
                        check(r.pst, transa, transb, s.m, s.n, s.k, beta);
                        if (HasFatalFailure())
                            return;
                    }
}
