// SPDX-License-Identifier: BSD-3-Clause
// The portable forms of def and cnr_def, entered directly: generic, 16 x 4 and 256 x 256.
#include <cfenv>

#include "gemm/sgemm_paths.h"
#include "tests/gemm/played_services.h"
#include "tests/support/reference_gemm.h"
#include "tests/support/test_paths.h"

namespace
{
using tesh_test::gemm_operands;
using tesh_test::gemm_shape;
using tesh_test::guard;

// The road that a processor takes into the portable path.
struct road {
    const char *name;
    tesh_blas_sgemm_fn *product;
    bool barcelona, zen;
    const char *warning;                    // name given to the pointer test
    std::int64_t least_m, least_n, least_k; // of the blocked form
    std::int64_t deep;                      // the largest depth block
};

constexpr road roads[] = {
    {"def_generic", tesh_blas_def_xsgemm, false, false, "SGEMM", 8, 8, 8, 112},
    {"def_zen", tesh_blas_def_xsgemm, false, true, "xdgemm", 12, 4, 2, 192},
    {"def_barcelona", tesh_blas_def_xsgemm, true, false, "SGEMM", 5, 3, 3, 256},
    {"cnr_def_generic", tesh_blas_cnr_def_xsgemm, false, false, "SGEMM", 8, 8, 8, 112},
    {"cnr_def_zen", tesh_blas_cnr_def_xsgemm, false, true, "xdgemm", 12, 4, 2, 192},
    {"cnr_def_barcelona", tesh_blas_cnr_def_xsgemm, true, false, "SGEMM", 5, 3, 3, 256},
};

std::vector<road> roads_of_this_machine()
{
    std::vector<road> result;
    for (const road &r : roads) {
        if (!r.zen || tesh_test::machine_has_path("def_zen"))
            result.push_back(r);
        else
            std::printf("%s: not on this machine, left out\n", r.name);
    }
    return result;
}

bool is_cnr(const road &r)
{
    return std::string(r.name).rfind("cnr", 0) == 0;
}

std::vector<road> cnr_roads_of_this_machine()
{
    std::vector<road> result;
    for (const road &r : roads_of_this_machine()) {
        if (is_cnr(r))
            result.push_back(r);
    }
    return result;
}

class portable : public testing::TestWithParam<road>
{
protected:
    void SetUp() override
    {
        played::reset();
        played::barcelona = GetParam().barcelona;
        played::zen = GetParam().zen;
    }
    void TearDown() override
    {
        EXPECT_TRUE(played::blocks.empty()) << "scratch was not given back";
        EXPECT_LE(worst.value, 1.0);
        if (worst.value > 0.0)
            std::printf("worst error / bound: %.3f\n", worst.value);
    }
    void check(const gemm_shape &s) { tesh_test::expect_gemm(GetParam().product, s, &worst); }
    tesh_test::worst_ratio worst;
};

TEST_P(portable, every_shape_around_the_tiles)
{
    for (const char transa : {'N', 'T'}) {
        for (const char transb : {'N', 'T'}) {
            for (const std::int64_t m : {1, 4, 5, 7, 8, 9, 11, 12, 13, 15, 16, 17, 23, 31, 32, 33, 47, 65}) {
                for (const std::int64_t n : {1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 21}) {
                    for (const std::int64_t k : {1, 2, 3, 7, 8, 9, 12, 30}) {
                        gemm_shape s{transa, transb, m, n, k, 2.0f, static_cast<float>((m + n + k) % 4 - 1)};
                        s.pad_a = k % 3;
                        s.pad_b = m % 2;
                        s.pad_c = n % 4;
                        s.side = (m + n + k) % 2 == 0 ? guard::at_end : guard::at_start;
                        check(s);
                        if (HasFatalFailure())
                            return;
                    }
                }
            }
        }
    }
}

TEST_P(portable, every_depth_around_the_blocks)
{
    for (const char transa : {'N', 'T'}) {
        for (const char transb : {'N', 'T'}) {
            for (const std::int64_t k : {64,  111, 112, 113, 127, 128, 129, 191, 192, 193, 223, 224, 225, 226,
                                         255, 256, 257, 260, 336, 383, 384, 385, 448, 511, 512, 513, 600}) {
                for (const float beta : {0.0f, 1.0f, 0.7f}) {
                    gemm_shape s{transa, transb, 19, 11, k, -1.0f, beta};
                    s.side = k % 2 == 0 ? guard::at_end : guard::at_start;
                    check(s);
                    if (HasFatalFailure())
                        return;
                }
            }
        }
    }
}

TEST_P(portable, every_row_block)
{
    for (const char transa : {'N', 'T'}) {
        for (const std::int64_t m : {255,  256,  257,  263,  264,  511,  513,  639,  640,  641,  648, 1280,
                                     1287, 4480, 4481, 4488, 5120, 5121, 5128, 6399, 6400, 6401, 6417}) {
            check({transa, 'N', m, 9, 9, 1.0f, 1.0f, 1, 0, 3});
            if (HasFatalFailure())
                return;
        }
    }
}

TEST_P(portable, every_column_block)
{
    for (const char transb : {'N', 'T'}) {
        for (const std::int64_t n : {383, 384, 385, 387, 511, 512, 513, 515, 769, 1999, 2000, 2001, 2003, 2004, 4001}) {
            check({'N', transb, 17, n, 9, 1.0f, 2.0f, 1, 1, 0});
            if (HasFatalFailure())
                return;
        }
    }
}

TEST_P(portable, all_letters_in_both_cases)
{
    for (const char transa : {'N', 'n', 'T', 't', 'C', 'c', 'Q'}) {
        for (const char transb : {'N', 'n', 'T', 't', 'C', 'c', 'Q'}) {
            for (const std::int64_t m : {3, 21})
                check({transa, transb, m, 13, 17, 1.0f, 1.0f, 1, 2, 3});
        }
    }
}

TEST_P(portable, every_alpha_and_beta)
{
    for (const float alpha : {0.0f, 1.0f, -1.0f, 0.7f}) {
        for (const float beta : {0.0f, 1.0f, -1.0f, 0.7f}) {
            for (const std::int64_t size : {5, 37}) {
                for (const std::int64_t k : {0, 7, 130})
                    check({'N', 'T', size, size, k, alpha, beta, 1, 1, 1});
            }
        }
    }
}

TEST_P(portable, every_alignment)
{
    for (const char transa : {'N', 'T'}) {
        for (const char transb : {'N', 'T'}) {
            for (std::size_t shift = 4; shift < 64; shift += 4) {
                gemm_shape s{transa, transb, 37, 22, 119, 0.7f, 0.3f, 1, 3, 2};
                s.shift_bytes = shift;
                check(s);
            }
        }
    }
}

TEST_P(portable, empty_shapes_leave_c_alone)
{
    for (const auto &[m, n] : {std::pair<std::int64_t, std::int64_t>{0, 20}, {20, 0}, {-1, 20}, {20, -1}}) {
        const std::int64_t k = 20, ld = 20;
        const float alpha = 1.0f, beta = 0.0f;
        GetParam().product("N", "N", &m, &n, &k, &alpha, nullptr, &ld, nullptr, &ld, &beta, nullptr, &ld);
    }
    EXPECT_TRUE(played::requests.empty());
}

TEST_P(portable, alpha_zero_reads_neither_a_nor_b_and_clears_nan_with_beta_zero)
{
    for (const float beta : {0.0f, 1.0f, 2.0f}) {
        gemm_operands x({'N', 'N', 33, 17, 20, 0.0f, beta, 0, 0, 3});
        if (beta == 0.0f) {
            for (float &c : x.c)
                c = std::nanf("");
            x.keep_c();
        }
        const std::int64_t ld = 40, ldc = x.shape.ldc();
        GetParam().product("N", "N", &x.shape.m, &x.shape.n, &x.shape.k, &x.shape.alpha, nullptr, &ld, nullptr, &ld,
                           &beta, x.c.data(), &ldc);
        for (std::int64_t j = 0; j < 17; ++j) {
            for (std::int64_t i = 0; i < ldc && (j < 16 || i < 33); ++i) {
                const std::size_t at = static_cast<std::size_t>(i + j * ldc);
                if (i < 33)
                    EXPECT_EQ(x.c[at], beta == 0.0f ? 0.0f : beta * x.c0[at]);
                else
                    EXPECT_EQ(std::memcmp(&x.c[at], &x.c0[at], 4), 0);
            }
        }
    }
    EXPECT_TRUE(played::requests.empty());
}

TEST_P(portable, nan_scalars_take_the_general_way)
{
    const float nan = std::nanf("");
    for (const auto &[alpha, beta] : {std::pair<float, float>{nan, 1.0f}, {1.0f, nan}, {0.0f, nan}}) {
        gemm_operands x({'N', 'N', 33, 18, 20, alpha, beta});
        x.run(GetParam().product);
        for (const float c : x.c)
            EXPECT_TRUE(std::isnan(c)) << alpha << ' ' << beta;
    }
}

TEST_P(portable, nan_and_infinity_stay_in_their_row_or_column)
{
    for (const char transa : {'N', 'T'}) {
        for (const char transb : {'N', 'T'}) {
            for (const float value : {std::nanf(""), INFINITY}) {
                for (const std::int64_t i : {0, 11, 31, 34}) {
                    gemm_operands x({transa, transb, 35, 23, 117, 1.0f, 0.0f, 1, 1, 1});
                    x.a[static_cast<std::size_t>(transa == 'N' ? i + 116 * x.shape.lda() : 116 + i * x.shape.lda())] =
                        value;
                    x.run(GetParam().product);
                    tesh_test::expect_gemm_result(x, false);
                    gemm_operands y({transa, transb, 35, 23, 117, 1.0f, 0.0f, 1, 1, 1});
                    y.b[static_cast<std::size_t>(transb == 'N' ? 116 + (i % 23) * y.shape.ldb()
                                                               : i % 23 + 116 * y.shape.ldb())] = value;
                    y.run(GetParam().product);
                    tesh_test::expect_gemm_result(y, false);
                }
            }
        }
    }
}

TEST_P(portable, filling_up_tiles_raises_no_flag)
{
    for (const std::int64_t m : {13, 15, 21, 31}) {
        for (const std::int64_t n : {9, 11, 14}) {
            for (const std::int64_t k : {9, 13}) {
                gemm_operands x({'N', 'N', m, n, k, 1.0f, 0.0f});
                for (float &a : x.a)
                    a = std::fabs(a) + 1.0f;
                for (float &b : x.b)
                    b = INFINITY;
                std::feclearexcept(FE_ALL_EXCEPT);
                x.run(GetParam().product);
                EXPECT_EQ(std::fetestexcept(FE_INVALID | FE_OVERFLOW | FE_DIVBYZERO), 0) << x.shape.name();
                for (const float c : x.c)
                    EXPECT_EQ(c, INFINITY);
            }
        }
    }
}

TEST_P(portable, an_infinite_alpha_raises_no_flag)
{
    for (const char transa : {'N', 'T'}) {
        for (const char transb : {'N', 'T'}) {
            for (const std::int64_t m : {1, 2, 3, 7, 13, 14, 18, 31, 38}) {
                for (const std::int64_t n : {1, 2, 5, 9, 33}) {
                    for (const std::int64_t k : {1, 2, 5, 13, 29}) {
                        gemm_operands x({transa, transb, m, n, k, INFINITY, 1.0f});
                        for (auto *operand : {&x.a, &x.b, &x.c})
                            std::fill(operand->begin(), operand->end(), 1.0f);
                        std::feclearexcept(FE_ALL_EXCEPT);
                        x.run(GetParam().product);
                        ASSERT_EQ(std::fetestexcept(FE_INVALID | FE_OVERFLOW | FE_DIVBYZERO), 0) << x.shape.name();
                        for (const float c : x.c)
                            ASSERT_EQ(c, INFINITY) << x.shape.name();
                    }
                }
            }
        }
    }
}

TEST_P(portable, scratch_is_asked_for_from_the_least_blocked_shape_on)
{
    const road &r = GetParam();
    const auto requests_of = [&](std::int64_t m, std::int64_t n, std::int64_t k) {
        played::requests.clear();
        gemm_operands x({'N', 'N', m, n, k, 1.0f, 1.0f});
        x.run(r.product);
        return played::requests.size();
    };
    EXPECT_EQ(requests_of(r.least_m, r.least_n, r.least_k), 1u);
    EXPECT_EQ(requests_of(r.least_m - 1, r.least_n, r.least_k), 0u);
    EXPECT_EQ(requests_of(r.least_m, r.least_n - 1, r.least_k), 0u);
    EXPECT_EQ(requests_of(r.least_m, r.least_n, r.least_k - 1), 0u);
}

TEST_P(portable, refused_scratch_gives_the_same_product_and_its_own_warning)
{
    played::refuse = true;
    for (const char transa : {'N', 'T'}) {
        for (const char transb : {'N', 'T'}) {
            for (const float beta : {0.0f, 1.0f, 0.7f}) {
                played::warned.clear();
                check({transa, transb, 45, 21, 130, 0.7f, beta, 1, 1, 1});
                EXPECT_EQ(played::warned, std::vector<std::string>(2, GetParam().warning));
            }
        }
    }
}

TEST_P(portable, a_type_above_zero_takes_the_generic_form)
{
    played::cpu_type = 1;
    gemm_operands x({'N', 'N', 16, 16, 16});
    x.run(GetParam().product);
    ASSERT_EQ(played::requests.size(), 1u);
    EXPECT_EQ(played::requests[0].bytes, 16u * 448u + 311552u);
}

// Of cnr_def alone: def peels to 16 bytes, and so sums in an order that follows the address.
class portable_cnr_def : public portable
{
};

TEST_P(portable_cnr_def, bits_depend_on_neither_alignment_nor_leading_dimension)
{
    for (const char transa : {'N', 'T'}) {
        for (const char transb : {'N', 'T'}) {
            for (const auto &[m, n, k] : {std::array<std::int64_t, 3>{45, 23, 131}, {7, 23, 131}, {45, 3, 50}}) {
                gemm_shape s{transa, transb, m, n, k, 0.7f, 0.3f, 0, 0, 0, guard::at_start};
                const gemm_operands first(s);
                first.run(GetParam().product);
                for (std::int64_t pad = 0; pad < 2; ++pad) {
                    for (s.shift_bytes = 4; s.shift_bytes < 64; s.shift_bytes += 4) {
                        s.pad_a = s.pad_b = s.pad_c = pad * static_cast<std::int64_t>(s.shift_bytes / 4);
                        gemm_operands other(s);
                        const auto copy = [&](const auto &from, const auto &to, std::int64_t rows, std::int64_t cols,
                                              std::int64_t ld) {
                            for (std::int64_t j = 0; j < cols; ++j)
                                std::memcpy(to.data() + j * (ld + s.pad_a), from.data() + j * ld,
                                            static_cast<std::size_t>(rows) * sizeof(float));
                        };
                        copy(first.a, other.a, first.shape.a_rows(), first.shape.a_cols(), first.shape.lda());
                        copy(first.b, other.b, first.shape.b_rows(), first.shape.b_cols(), first.shape.ldb());
                        for (std::int64_t j = 0; j < n; ++j)
                            std::memcpy(other.c.data() + j * other.shape.ldc(), first.c0.data() + j * m,
                                        static_cast<std::size_t>(m) * sizeof(float));
                        other.run(GetParam().product);
                        for (std::int64_t j = 0; j < n; ++j)
                            ASSERT_EQ(std::memcmp(other.c.data() + j * other.shape.ldc(), first.c.data() + j * m,
                                                  static_cast<std::size_t>(m) * sizeof(float)),
                                      0)
                                << s.name() << " column " << j;
                    }
                }
            }
        }
    }
}

TEST_P(portable, a_second_run_gives_the_same_bits_whatever_ran_between)
{
    const gemm_operands x({'N', 'T', 45, 23, 131, 0.7f, 0.3f});
    x.run(GetParam().product);
    const std::vector<float> first(x.c.begin(), x.c.end());
    gemm_operands between({'T', 'N', 70, 40, 300, 3.0f, 0.0f});
    between.run(GetParam().product);
    x.restore_c();
    x.run(GetParam().product);
    EXPECT_EQ(std::memcmp(first.data(), x.c.data(), first.size() * sizeof(float)), 0);
}

TEST_P(portable, whole_blocks_in_every_direction)
{
    if (!tesh_test::in_medium_set())
        GTEST_SKIP() << "in the medium set";
    for (const char transa : {'N', 'T'}) {
        for (const char transb : {'N', 'T'})
            check({transa, transb, 701, 2011, 225, 0.7f, 0.3f, 3, 1, 2});
    }
}

INSTANTIATE_TEST_SUITE_P(roads, portable, testing::ValuesIn(roads_of_this_machine()),
                         [](const auto &r) { return std::string(r.param.name); });
INSTANTIATE_TEST_SUITE_P(roads, portable_cnr_def, testing::ValuesIn(cnr_roads_of_this_machine()),
                         [](const auto &r) { return std::string(r.param.name); });
} // namespace
