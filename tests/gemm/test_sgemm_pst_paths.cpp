// SPDX-License-Identifier: BSD-3-Clause
// The bufferless product on every path.
#include "gemm/sgemm_paths.h"
#include "tests/support/reference_gemm.h"
#include "tests/support/test_paths.h"

#include <cfenv>

namespace
{
using tesh_test::gemm_operands;
using tesh_test::gemm_shape;
using tesh_test::guard;

tesh_blas_sgemm_fn *pst_of(const std::string &path)
{
    if (path == "def")
        return tesh_blas_def_sgemm_pst;
    if (path == "cnr_def")
        return tesh_blas_cnr_def_sgemm_pst;
    if (path == "mc3")
        return tesh_blas_mc3_sgemm_pst;
    return path == "avx2" ? tesh_blas_avx2_sgemm_pst : tesh_blas_avx512_sgemm_pst;
}

class sgemm_pst : public testing::TestWithParam<std::string>
{
protected:
    tesh_blas_sgemm_fn *pst = pst_of(GetParam());
    tesh_test::worst_ratio worst;
    void TearDown() override
    {
        std::printf("worst error / bound: %.3f\n", worst.value);
        EXPECT_LE(worst.value, 1.0);
    }
    void check(const gemm_shape &s) { tesh_test::expect_gemm(pst, s, &worst); }
};

TEST_P(sgemm_pst, every_small_shape_and_letter)
{
    for (const char transa : {'N', 'n', 'T', 't', 'C', 'c', 'Q'}) {
        for (const char transb : {'N', 'n', 'T', 't', 'C', 'c', 'Q'}) {
            for (const std::int64_t m : {1, 3, 4, 7, 17, 67}) {
                for (const std::int64_t n : {1, 2, 5}) {
                    for (const std::int64_t k : {1, 3, 4, 16, 21, 39}) {
                        gemm_shape s{transa, transb, m, n, k};
                        s.alpha = 2.0f;
                        s.beta = static_cast<float>((m + n + k) % 3);
                        s.pad_a = k % 3;
                        s.pad_b = m % 2;
                        s.pad_c = n % 4;
                        s.side = k % 2 == 0 ? guard::at_end : guard::at_start;
                        check(s);
                        if (HasFatalFailure())
                            return;
                    }
                }
            }
        }
    }
}

TEST_P(sgemm_pst, every_row_count_and_depth_around_the_vector_width)
{
    for (const char transa : {'N', 'T'}) {
        for (const char transb : {'N', 'T'}) {
            for (std::int64_t m = 0; m <= 34; ++m) {
                for (std::int64_t k = 0; k <= 34; ++k) {
                    gemm_shape s{transa, transb, m, 3, k, 1.0f, 1.0f};
                    s.side = m % 2 == 0 ? guard::at_end : guard::at_start;
                    check(s);
                    if (HasFatalFailure())
                        return;
                }
            }
        }
    }
}

TEST_P(sgemm_pst, every_alignment)
{
    for (const char transa : {'N', 'T'}) {
        for (const char transb : {'N', 'T'}) {
            for (std::size_t shift = 0; shift < 64; shift += 4) {
                gemm_shape s{transa, transb, 37, 4, 53, 0.7f, -1.0f, 1, 3, 2};
                s.shift_bytes = shift;
                for (const guard side : {guard::at_end, guard::at_start}) {
                    s.side = side;
                    check(s);
                }
            }
        }
    }
}

TEST_P(sgemm_pst, addresses_that_are_no_multiple_of_four)
{
    for (const char transa : {'N', 'T'}) {
        for (const char transb : {'N', 'T'}) {
            gemm_shape s{transa, transb, 21, 3, 35, 2.0f, 3.0f};
            s.shift_bytes = 1;
            s.side = guard::at_start;
            const gemm_operands aligned({transa, transb, 21, 3, 35, 2.0f, 3.0f}, tesh_test::gemm_values::integers);
            tesh_test::guarded_bytes a(aligned.a.size() * 4, guard::at_end, 1),
                b(aligned.b.size() * 4, guard::at_end, 3), c(aligned.c.size() * 4, guard::at_end, 2);
            std::memcpy(a.data(), aligned.a.data(), aligned.a.size() * 4);
            std::memcpy(b.data(), aligned.b.data(), aligned.b.size() * 4);
            std::memcpy(c.data(), aligned.c.data(), aligned.c.size() * 4);
            const std::int64_t lda = s.lda(), ldb = s.ldb(), ldc = s.ldc();
            pst(&s.transa, &s.transb, &s.m, &s.n, &s.k, &s.alpha, static_cast<float *>(a.data()), &lda,
                static_cast<float *>(b.data()), &ldb, &s.beta, static_cast<float *>(c.data()), &ldc);
            aligned.run(pst);
            EXPECT_EQ(std::memcmp(c.data(), aligned.c.data(), aligned.c.size() * 4), 0) << s.name();
        }
    }
}

TEST_P(sgemm_pst, empty_shapes_leave_c_alone)
{
    for (const auto &[m, n] : {std::pair<std::int64_t, std::int64_t>{0, 3}, {3, 0}, {-1, 3}, {3, -1}}) {
        float c[9] = {1, 2, 3, 4, 5, 6, 7, 8, 9};
        const std::int64_t k = 2, ld = 3;
        const float alpha = 1.0f, beta = 0.0f;
        pst("N", "N", &m, &n, &k, &alpha, nullptr, &ld, nullptr, &ld, &beta, c, &ld);
        for (int i = 0; i < 9; ++i)
            EXPECT_EQ(c[i], static_cast<float>(i + 1));
    }
}

TEST_P(sgemm_pst, without_a_product_only_beta_counts_and_a_and_b_stay_unread)
{
    const std::int64_t m = 19, n = 3, ld = 21;
    for (const auto &[k, alpha] : {std::pair<std::int64_t, float>{0, 2.0f}, {5, 0.0f}, {-3, 1.0f}}) {
        for (const float beta : {0.0f, 1.0f, -0.5f}) {
            std::vector<float> c(63, 4.0f);
            if (beta == 0.0f)
                c.assign(63, std::nanf(""));
            pst("N", "T", &m, &n, &k, &alpha, nullptr, &ld, nullptr, &ld, &beta, c.data(), &ld);
            for (std::int64_t j = 0; j < n; ++j) {
                for (std::int64_t i = 0; i < m; ++i)
                    EXPECT_EQ(c[static_cast<std::size_t>(i + j * ld)], beta == 0.0f ? 0.0f : 4.0f * beta);
            }
        }
    }
}

TEST_P(sgemm_pst, a_nan_scalar_counts_as_neither_zero_nor_one)
{
    const float nan = std::nanf("");
    for (const char transa : {'N', 'T'}) {
        gemm_operands by_alpha({transa, 'N', 9, 3, 7, nan, 1.0f});
        by_alpha.run(pst);
        for (const float c : by_alpha.c)
            EXPECT_TRUE(std::isnan(c));
        gemm_operands by_beta({transa, 'N', 9, 3, 7, 1.0f, nan});
        by_beta.run(pst);
        for (const float c : by_beta.c)
            EXPECT_TRUE(std::isnan(c));
        gemm_operands scaled({transa, 'N', 9, 3, 7, 0.0f, nan});
        scaled.run(pst);
        for (const float c : scaled.c)
            EXPECT_TRUE(std::isnan(c));
    }
}

TEST_P(sgemm_pst, nan_and_infinity_of_one_operand_reach_their_row_or_column_only)
{
    for (const char transa : {'N', 'T'}) {
        for (const char transb : {'N', 'T'}) {
            for (const float value : {std::nanf(""), INFINITY}) {
                for (const std::int64_t place : {0, 7, 18}) {
                    gemm_operands x({transa, transb, 19, 5, 23, 1.0f, 0.0f, 1, 1, 1});
                    x.a[static_cast<std::size_t>(transa == 'N' ? place + 22 * x.shape.lda()
                                                               : 22 + place * x.shape.lda())] = value;
                    x.run(pst);
                    tesh_test::expect_gemm_result(x, false);
                }
            }
        }
    }
}

TEST_P(sgemm_pst, an_infinite_factor_raises_no_flag)
{
    for (const char transa : {'N', 'T'}) {
        for (std::int64_t m = 1; m < 40; ++m) {
            for (const int place : {0, 1, 2}) {
                gemm_operands x({transa, 'N', m, 3, 7, place == 0 ? INFINITY : 1.0f, place == 1 ? INFINITY : 2.0f});
                std::fill(x.a.begin(), x.a.end(), 1.0f);
                std::fill(x.b.begin(), x.b.end(), place == 2 ? INFINITY : 1.0f);
                std::fill(x.c.begin(), x.c.end(), 1.0f);
                std::feclearexcept(FE_ALL_EXCEPT);
                x.run(pst);
                EXPECT_EQ(std::fetestexcept(FE_INVALID | FE_OVERFLOW), 0) << x.shape.name();
                EXPECT_EQ(x.c[0], INFINITY);
            }
        }
    }
}

TEST_P(sgemm_pst, an_element_does_not_depend_on_the_shape_around_it)
{
    // One element more in front of all operands moves every address: the def path may sum in another order then.
    for (const char transa : {'N', 'T'}) {
        for (const char transb : {'N', 'T'}) {
            gemm_operands whole({transa, transb, 71, 5, 45, 0.7f, 0.3f, 0, 0, 0, guard::at_start});
            whole.run(pst);
            for (const std::int64_t m : {1, 2, 13, 64}) {
                gemm_operands part(whole.shape);
                part.shape.m = m;
                const std::int64_t lda = whole.shape.lda(), ldb = whole.shape.ldb(), ldc = whole.shape.ldc();
                for (std::int64_t j = 0; j < 5; ++j) {
                    const std::int64_t one = 1;
                    const float *b = part.b.data() + (transb == 'N' ? j * ldb : j);
                    pst(&transa, &transb, &m, &one, &part.shape.k, &part.shape.alpha, part.a.data(), &lda, b, &ldb,
                        &part.shape.beta, part.c.data() + j * ldc, &ldc);
                    EXPECT_EQ(std::memcmp(part.c.data() + j * ldc, whole.c.data() + j * ldc,
                                          static_cast<std::size_t>(m) * sizeof(float)),
                              0)
                        << transa << transb << " column " << j << " of " << m << " rows";
                }
            }
        }
    }
}

// Of 16 products all but three are 0. Added 16 at a time, 2^24 and -2^24 meet in a lane of their own and the 1 beside
// them stays; in groups of four it is lost in 2^24.
TEST_P(sgemm_pst, sixteen_elements_of_a_dot_product_go_at_once)
{
    for (const std::int64_t n : {1, 2, 3}) {
        gemm_operands x({'T', 'N', 1, n, 16, 1.0f, 0.0f});
        for (std::int64_t p = 0; p < 16; ++p)
            x.a[static_cast<std::size_t>(p)] = p == 0 ? 16777216.0f : p == 8 ? -16777216.0f : p == 1 ? 1.0f : 0.0f;
        for (float &value : x.b)
            value = 1.0f;
        x.run(pst);
        for (std::int64_t j = 0; j < n; ++j)
            EXPECT_EQ(x.c[static_cast<std::size_t>(j)], 1.0f) << "column " << j << " of " << n;
    }
}

TEST_P(sgemm_pst, bits_do_not_depend_on_alignment)
{
    if (GetParam() == "def")
        GTEST_SKIP() << "def peels to 16 bytes, and so sums in an order that follows the address";
    for (const char transa : {'N', 'T'}) {
        for (const char transb : {'N', 'T'}) {
            gemm_shape s{transa, transb, 37, 3, 77, 0.7f, 0.3f, 1, 1, 1, guard::at_start};
            const gemm_operands first(s);
            first.run(pst);
            for (s.shift_bytes = 4; s.shift_bytes < 64; s.shift_bytes += 4) {
                const gemm_operands other(s);
                other.run(pst);
                EXPECT_EQ(std::memcmp(first.c.data(), other.c.data(), first.c.size() * sizeof(float)), 0) << s.name();
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(paths, sgemm_pst, testing::ValuesIn(tesh_test::paths_to_run()),
                         [](const auto &path) { return path.param; });
} // namespace
