// SPDX-License-Identifier: BSD-3-Clause
// The path routines of avx2 and avx512 against a double reference, and the bits of the reproducible mode.
#include <algorithm>
#include <cfenv>
#include <cmath>
#include <cstring>

#include "frame/tesh_serv.h"
#include "tests/gemm/wide_paths.h"
#include "tests/support/failing_memory.h"
#include "tests/support/reference_gemm.h"

namespace
{
using tesh_test::gemm_operands;
using tesh_test::gemm_shape;
using tesh_test::guard;
using tesh_test::wide_path;

class xsgemm_wide : public testing::TestWithParam<const wide_path *>
{
protected:
    const wide_path &p = *GetParam();
    tesh_blas_sgemm_fn *const routine = p.name == "avx512" ? tesh_blas_avx512_xsgemm : tesh_blas_avx2_xsgemm;
    tesh_test::worst_ratio worst;

    static void SetUpTestSuite() { tesh_test::failing_memory::install(); }
    void TearDown() override
    {
        std::printf("worst error / bound: %.3f\n", worst.value);
        EXPECT_LE(worst.value, 1.0);
    }
    void check(const gemm_shape &s) { tesh_test::expect_gemm(routine, s, &worst); }
};

// What lies in a register beside the rows, columns and steps of an operand raises no flag against an infinite factor.
TEST_P(xsgemm_wide, an_infinite_factor_raises_no_flag)
{
    for (const char transa : {'N', 'T'}) {
        for (const char transb : {'N', 'T'}) {
            for (const std::int64_t m : {1, 2, 3, 5, 7, 9, 13, 17, 23, 31, 33, 47, 65, 131}) {
                for (const std::int64_t n : {1, 2, 3, 5, 7, 9, 13, 33, 131}) {
                    for (const std::int64_t k : {1, 2, 3, 5, 13, 65, 300}) {
                        for (const bool in_alpha : {true, false}) {
                            gemm_operands x(
                                {transa, transb, m, n, k, in_alpha ? INFINITY : 1.0f, in_alpha ? 2.0f : INFINITY});
                            std::fill(x.a.begin(), x.a.end(), 1.0f);
                            std::fill(x.b.begin(), x.b.end(), 1.0f);
                            std::fill(x.c.begin(), x.c.end(), 1.0f);
                            std::feclearexcept(FE_ALL_EXCEPT);
                            x.run(routine);
                            ASSERT_EQ(std::fetestexcept(FE_INVALID | FE_OVERFLOW), 0) << x.shape.name();
                            ASSERT_EQ(x.c[x.c.size() - 1], INFINITY) << x.shape.name();
                        }
                    }
                }
            }
        }
    }
}

// Nor does it meet an infinite row of op(A) or column of op(B) of its neighbours.
TEST_P(xsgemm_wide, an_infinite_row_or_column_raises_no_flag)
{
    std::int64_t turn = 0;
    for (const char transa : {'N', 'T'}) {
        for (const char transb : {'N', 'T'}) {
            for (const std::int64_t m : {1, 2, 3, 5, 6, 7, 13, 18, 23, 33, 47, 66, 131}) {
                for (const std::int64_t n : {2, 3, 4, 5, 7, 9, 13, 33, 79, 131}) {
                    for (const std::int64_t k : {1, 5, 13, 67, 161}) {
                        for (const float beta : {0.0f, 1.0f, 2.0f}) {
                            gemm_operands x({transa, transb, m, n, k, turn % 2 == 0 ? 1.0f : 0.7f, beta});
                            std::fill(x.a.begin(), x.a.end(), 1.0f);
                            std::fill(x.b.begin(), x.b.end(), 1.0f);
                            std::fill(x.c.begin(), x.c.end(), 1.0f);
                            const std::int64_t row = m - 1 - turn % std::min<std::int64_t>(m, 4);
                            const std::int64_t column = n - 1 - turn % std::min<std::int64_t>(n, 7);
                            const std::int64_t a_step = transa == 'N' ? m : 1, a_first = transa == 'N' ? row : row * k;
                            const std::int64_t b_step = transb == 'N' ? 1 : n;
                            const std::int64_t b_first = transb == 'N' ? column * k : column;
                            for (std::int64_t l = 0; l < k; ++l) {
                                if (turn % 3 != 1)
                                    x.a[static_cast<std::size_t>(a_first + l * a_step)] = INFINITY;
                                if (turn % 3 != 0)
                                    x.b[static_cast<std::size_t>(b_first + l * b_step)] = INFINITY;
                            }
                            ++turn;
                            std::feclearexcept(FE_ALL_EXCEPT);
                            x.run(routine);
                            ASSERT_EQ(std::fetestexcept(FE_INVALID | FE_OVERFLOW), 0) << x.shape.name();
                            ASSERT_EQ(x.c[static_cast<std::size_t>(row + column * m)], INFINITY) << x.shape.name();
                        }
                    }
                }
            }
        }
    }
}

TEST_P(xsgemm_wide, shapes_around_the_tile_and_the_thresholds)
{
    for (const char transa : {'N', 'T'}) {
        for (const char transb : {'N', 'T'}) {
            for (const std::int64_t m : {1, 6, 12, 47, 49, 71, 72, 191, 193}) {
                for (const std::int64_t n : {1, 3, 9, 73, 192}) {
                    check({transa, transb, m, n, 6 + m % 3, 1.0f, static_cast<float>(n % 2), 1, 2, 3});
                    if (HasFatalFailure())
                        return;
                }
            }
        }
    }
}

TEST_P(xsgemm_wide, depths_around_the_blocks)
{
    char transa = 'N', transb = 'N';
    for (const std::int64_t k : {47, 48, 192, 193, 256, 257, 300, 384, 385, 500, 769}) {
        check({transa, transb, 193, 194, k, 0.7f, 0.3f, 1, 0, 1, k % 2 == 0 ? guard::at_end : guard::at_start});
        if (HasFatalFailure())
            return;
        (k % 2 == 0 ? transa : transb) ^= 'N' ^ 'T';
    }
}

// More rows than the largest row block, 10008 or 9984.
TEST_P(xsgemm_wide, two_row_blocks)
{
    for (const char transa : {'N', 'T'}) {
        check({transa, 'N', 10008 + p.panel_m + 3, 193, 21, 0.7f, 0.3f, 1, 2, 3});
        if (HasFatalFailure())
            return;
    }
}

TEST_P(xsgemm_wide, nan_and_infinity_of_an_operand_reach_their_row_or_column_only)
{
    for (const char transa : {'N', 'T'}) {
        for (const char transb : {'N', 'T'}) {
            for (const std::int64_t size : {9, 200}) {
                gemm_operands x({transa, transb, size, size, 33, 1.0f, 1.0f});
                for (float &v : x.a)
                    v = 1.0f;
                for (float &v : x.b)
                    v = 1.0f;
                x.a[static_cast<std::size_t>(transa == 'N' ? size - 1 : (size - 1) * x.shape.lda())] = std::nanf("");
                x.b[static_cast<std::size_t>(transb == 'N' ? 2 * x.shape.ldb() : 2)] = INFINITY;
                x.run(routine);
                tesh_test::expect_gemm_result(x, false, &worst);
                if (HasFatalFailure())
                    return;
            }
        }
    }
}

TEST_P(xsgemm_wide, refused_memory_still_gives_the_product)
{
    for (std::int64_t nth = 1;; ++nth) {
        tesh_serv_free_buffers();
        tesh_test::failing_memory::refuse(nth, tesh_test::failing_memory::refusal::from_there_on);
        gemm_operands x({'N', 'T', 201, 195, 77, 0.7f, 0.3f, 1, 2, 3});
        x.run(routine);
        const bool met = tesh_test::failing_memory::refused();
        tesh_test::failing_memory::refuse(0);
        tesh_test::expect_gemm_result(x, false, &worst);
        if (HasFatalFailure())
            return;
        if (!met) {
            EXPECT_GT(nth, 1);
            break;
        }
    }
}

class xsgemm_strict : public xsgemm_wide
{
protected:
    void SetUp() override
    {
        old = tesh_serv_cbwr_get(-1);
        tesh_cbwr = 0x10001;
    }
    void TearDown() override
    {
        tesh_cbwr = old;
        xsgemm_wide::TearDown();
    }
    std::int32_t old = 1;
};

TEST_P(xsgemm_strict, small_shapes_are_right_through_the_packed_road)
{
    for (const char transa : {'N', 'T'})
        for (const char transb : {'N', 'T'})
            for (std::int64_t m = 1; m <= 14; ++m)
                for (std::int64_t n = 1; n <= 5; ++n) {
                    check({transa, transb, m, n, 1 + (m + n) % 4, 0.7f, static_cast<float>(m % 3), 1, 0, 2});
                    if (HasFatalFailure())
                        return;
                }
}

// Columns that lie more than 2^31 elements apart.
TEST_P(xsgemm_strict, offsets_beyond_32_bits)
{
    gemm_shape s{'N', 'N', 5, 3, 2, 1.0f, 1.0f};
    s.pad_a = s.pad_b = s.pad_c = (INT64_C(1) << 31) + 3;
    const std::int64_t lda = s.lda(), ldb = s.ldb(), ldc = s.ldc();
    tesh_test::guarded_array<float> a(tesh_test::extent(s.m, s.k, lda)), b(tesh_test::extent(s.k, s.n, ldb)),
        c(tesh_test::extent(s.m, s.n, ldc));
    for (std::int64_t l = 0; l < s.k; ++l)
        for (std::int64_t i = 0; i < s.m; ++i)
            a[static_cast<std::size_t>(i + l * lda)] = static_cast<float>(1 + i + 10 * l);
    for (std::int64_t j = 0; j < s.n; ++j)
        for (std::int64_t l = 0; l < s.k; ++l)
            b[static_cast<std::size_t>(l + j * ldb)] = static_cast<float>(2 + l + 7 * j);
    routine(&s.transa, &s.transb, &s.m, &s.n, &s.k, &s.alpha, a.data(), &lda, b.data(), &ldb, &s.beta, c.data(), &ldc);
    for (std::int64_t j = 0; j < s.n; ++j)
        for (std::int64_t i = 0; i < s.m; ++i)
            EXPECT_EQ(c[static_cast<std::size_t>(i + j * ldc)],
                      static_cast<float>((1 + i) * (2 + 7 * j) + (11 + i) * (3 + 7 * j)));
}

// The operands of one product, as they were before it, in the places of another.
void copy_values(const gemm_operands &from, const gemm_operands &to)
{
    const gemm_shape &x = from.shape, &y = to.shape;
    for (std::int64_t j = 0; j < x.a_cols(); ++j)
        std::memcpy(to.a.data() + j * y.lda(), from.a.data() + j * x.lda(),
                    static_cast<std::size_t>(x.a_rows()) * sizeof(float));
    for (std::int64_t j = 0; j < x.b_cols(); ++j)
        std::memcpy(to.b.data() + j * y.ldb(), from.b.data() + j * x.ldb(),
                    static_cast<std::size_t>(x.b_rows()) * sizeof(float));
    for (std::int64_t j = 0; j < x.n; ++j)
        std::memcpy(to.c.data() + j * y.ldc(), from.c0.data() + j * x.ldc(),
                    static_cast<std::size_t>(x.m) * sizeof(float));
}

// Rows r .. r+count-1 computed alone have the bits that they have in the whole product.
TEST_P(xsgemm_strict, bits_of_a_row_do_not_depend_on_its_place_or_on_m)
{
    for (const char transa : {'N', 'T'}) {
        for (const char transb : {'N', 'T'}) {
            const gemm_shape s{transa, transb, 2 * p.panel_m + p.panel_m / 2 + 7, 2 * p.panel_n + 3, 421, 0.7f, 0.3f};
            const gemm_operands whole(s);
            whole.run(routine);
            for (std::int64_t first = 0; first < s.m; first += 5) {
                for (const std::int64_t count : {1, 2, 3, 7, 8, 12, 24, 31}) {
                    if (first + count > s.m)
                        continue;
                    const gemm_operands part(s);
                    const std::int64_t lda = s.lda(), ldb = s.ldb(), ldc = s.ldc();
                    routine(&transa, &transb, &count, &s.n, &s.k, &s.alpha,
                            part.a.data() + (transa == 'N' ? first : first * lda), &lda, part.b.data(), &ldb, &s.beta,
                            part.c.data() + first, &ldc);
                    for (std::int64_t j = 0; j < s.n; ++j)
                        ASSERT_EQ(std::memcmp(part.c.data() + j * ldc + first, whole.c.data() + j * ldc + first,
                                              static_cast<std::size_t>(count) * sizeof(float)),
                                  0)
                            << transa << transb << " rows " << first << " to " << first + count << " column " << j;
                }
            }
        }
    }
}

TEST_P(xsgemm_strict, bits_of_a_row_are_the_same_in_the_second_row_block)
{
    const gemm_shape s{'N', 'N', 10008 + p.panel_m + 3, p.panel_n + 1, 400, 0.7f, 0.3f};
    const gemm_operands whole(s), part(s);
    whole.run(routine);
    const std::int64_t lda = s.lda(), ldb = s.ldb(), ldc = s.ldc(), first = 9970, count = s.m - first;
    routine(&s.transa, &s.transb, &count, &s.n, &s.k, &s.alpha, part.a.data() + first, &lda, part.b.data(), &ldb,
            &s.beta, part.c.data() + first, &ldc);
    for (std::int64_t j = 0; j < s.n; ++j)
        ASSERT_EQ(std::memcmp(part.c.data() + j * ldc + first, whole.c.data() + j * ldc + first,
                              static_cast<std::size_t>(count) * sizeof(float)),
                  0)
            << "column " << j;
}

TEST_P(xsgemm_strict, bits_do_not_depend_on_alignment_or_leading_dimension)
{
    for (const char transa : {'N', 'T'}) {
        for (const char transb : {'N', 'T'}) {
            gemm_shape s{transa, transb, p.panel_m + 13, p.panel_n + 5, 200, 0.7f, 0.3f, 0, 0, 0, guard::at_start};
            const gemm_operands first(s);
            first.run(routine);
            for (s.shift_bytes = 4; s.shift_bytes < 64; s.shift_bytes += 4) {
                for (const std::int64_t pad : {0, 1, 7}) {
                    s.pad_a = pad;
                    s.pad_b = 2 * pad;
                    s.pad_c = 3 * pad;
                    const gemm_operands other(s);
                    copy_values(first, other);
                    other.run(routine);
                    for (std::int64_t j = 0; j < s.n; ++j)
                        ASSERT_EQ(std::memcmp(other.c.data() + j * s.ldc(), first.c.data() + j * s.m,
                                              static_cast<std::size_t>(s.m) * sizeof(float)),
                                  0)
                            << s.name() << " column " << j;
                }
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(paths, xsgemm_wide, testing::ValuesIn(tesh_test::wide_paths_to_run()), tesh_test::path_name);
INSTANTIATE_TEST_SUITE_P(paths, xsgemm_strict, testing::ValuesIn(tesh_test::wide_paths_to_run()), tesh_test::path_name);
} // namespace
