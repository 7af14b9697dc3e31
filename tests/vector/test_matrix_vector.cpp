// SPDX-License-Identifier: BSD-3-Clause
// The fronts of level 2 bind to the path of the processor and the reproducibility branch; mc3 follows the branch at
// every call; avx2 stays right without memory.
#include <gtest/gtest.h>

#include <cstring>

#include "frame/tesh_serv.h"
#include "tests/support/child.h"
#include "tests/support/failing_memory.h"
#include "tests/vector/sgemv_problem.h"
#include "vector/matrix_vector.h"

using tesh_test::sgemv_operands;
using tesh_test::sgemv_problem;

namespace
{
bool same_bits(const tesh_test::strided_vector &x, const tesh_test::strided_vector &y)
{
    for (std::int64_t i = 0; i < x.count(); ++i) {
        if (std::memcmp(&x[i], &y[i], sizeof(float)) != 0)
            return false;
    }
    return true;
}

// In a child: the parent must not bind before the tests below fork.
TEST(matrix_vector, fronts_give_the_published_results)
{
    const tesh_test::child_result child = tesh_test::run_forked([] {
        const float alpha = 2.0f, beta = 3.0f, a[6] = {1, 2, 3, 4, 5, 6}; // columns (1 2 3), (4 5 6)
        const std::int64_t m = 3, n = 2, one = 1, minus = -1, two = 2;
        const float x2[2] = {1, -1}, x3[3] = {1, 0, 2};
        std::vector<float> y3 = {1, 1, 1}, y2 = {1, 1}, rank(6, 0.0f), t = {5, 7};
        tesh_blas_sgemv("N", &m, &n, &alpha, a, &m, x2, &one, &beta, y3.data(), &one);
        tesh_blas_sgemv("T", &m, &n, &alpha, a, &m, x3, &one, &beta, y2.data(), &minus);
        tesh_blas_sger(&m, &n, &alpha, x3, &one, x2, &one, rank.data(), &m);
        tesh_blas_strmv("U", "N", "N", &two, a, &m, t.data(), &one); // (1 4; 0 5)
        if (y3 != std::vector<float>{-3, -3, -3})
            return 1;
        if (y2 != std::vector<float>{35, 17})
            return 2;
        if (rank != std::vector<float>{2, 0, 4, -2, 0, -4})
            return 3;
        return t == std::vector<float>{33, 35} ? 0 : 4;
    });
    EXPECT_EQ(child.exit_code, 0);
}

// The bits of this call differ between any two of the paths that the branches below name.
sgemv_problem telling_problem()
{
    sgemv_problem p;
    p.trans = 'T';
    p.m = 700;
    p.n = 3;
    p.alpha = 0.7f;
    p.shift_bytes = 4;
    return p;
}

void expect_front_runs(const char *branch, const char *path, tesh_blas_sgemv_fn *routine)
{
    if (!tesh_test::machine_has_path(path))
        return;
    const tesh_test::child_result child = tesh_test::run_forked(
        [routine] {
            const sgemv_problem p = telling_problem();
            const sgemv_operands by_front(p), direct(p);
            const std::int64_t lda = p.lda();
            tesh_blas_sgemv(&p.trans, &p.m, &p.n, &p.alpha, by_front.a.data(), &lda, by_front.x.data(), &p.incx,
                            &p.beta, by_front.y.data(), &p.incy);
            direct.call(p, routine);
            return same_bits(by_front.y, direct.y) ? 0 : 1;
        },
        {{"TESH_TRUSTED_VENDORS", "any"}, {"TESH_CBWR", branch}});
    EXPECT_EQ(child.exit_code, 0) << branch << ' ' << child.err;
}

TEST(matrix_vector, front_binds_to_the_branch_that_is_named)
{
    expect_front_runs("COMPATIBLE", "cnr_def", tesh_blas_cnr_def_xsgemv);
    expect_front_runs("SSE4_2", "mc3", tesh_blas_mc3_xsgemv_cnr);
    expect_front_runs("AVX2", "avx2", tesh_blas_avx2_xsgemv);
    expect_front_runs("AVX512", "avx512", tesh_blas_avx512_xsgemv);
}

TEST(matrix_vector, paths_differ_in_the_bits_by_which_they_are_told_apart)
{
    if (!tesh_test::machine_has_path("avx512"))
        GTEST_SKIP() << "needs every path";
    const sgemv_problem p = telling_problem();
    tesh_blas_sgemv_fn *const routines[] = {tesh_blas_cnr_def_xsgemv, tesh_blas_avx2_xsgemv, tesh_blas_avx512_xsgemv};
    for (tesh_blas_sgemv_fn *first : routines) {
        for (tesh_blas_sgemv_fn *second : routines) {
            const sgemv_operands x(p), y(p);
            x.call(p, first);
            y.call(p, second);
            EXPECT_EQ(same_bits(x.y, y.y), first == second);
        }
    }
}

TEST(matrix_vector, mc3_takes_its_reproducible_form_when_a_branch_is_in_force)
{
    if (!tesh_test::machine_has_path("mc3"))
        GTEST_SKIP() << "no SSE4.2";
    const auto is_reproducible = [] {
        const sgemv_problem p = telling_problem();
        const sgemv_operands plain(p), fixed(p);
        plain.call(p, tesh_blas_mc3_xsgemv);
        fixed.call(p, tesh_blas_mc3_xsgemv_cnr);
        return same_bits(plain.y, fixed.y) ? 1 : 0;
    };
    EXPECT_EQ(tesh_test::run_forked(is_reproducible, {{"TESH_CBWR", ""}}).exit_code, 0);
    for (const char *branch : {"AUTO", "COMPATIBLE", "SSE4_2"})
        EXPECT_EQ(tesh_test::run_forked(is_reproducible, {{"TESH_CBWR", branch}}).exit_code, 1) << branch;
}

// The request of the chunk is refused, silently, and nothing of the result is lost.
TEST(matrix_vector, avx2_without_memory_for_its_chunk_gives_the_right_answer)
{
    if (!tesh_test::machine_has_path("avx2"))
        GTEST_SKIP() << "no AVX2";
    const tesh_test::child_result child = tesh_test::run_forked([] {
        namespace failing_memory = tesh_test::failing_memory;
        failing_memory::install();
        int calls = 0, met = 0;
        tesh_test::worst_ratio worst;
        for (const char trans : {'N', 'T'}) {
            for (const std::int64_t inc : {2, -3, 0}) {
                for (const std::int64_t m : {1, 7, 8, 23, 512, 513, 1111}) {
                    for (const auto kind : {tesh_test::filling::integers, tesh_test::filling::random}) {
                        sgemv_problem p;
                        p.trans = trans;
                        p.m = m;
                        p.n = 7;
                        p.incx = trans == 'N' ? 1 : inc;
                        p.incy = trans == 'N' ? (inc == 0 ? 5 : inc) : 1;
                        p.kind = kind;
                        p.alpha = kind == tesh_test::filling::integers ? 2.0f : 0.7f;
                        failing_memory::refuse(1, failing_memory::refusal::from_there_on);
                        tesh_test::check_sgemv(p, tesh_blas_avx2_xsgemv, worst);
                        ++calls;
                        met += failing_memory::refused();
                    }
                }
            }
        }
        // One element of y, which takes every product.
        sgemv_problem p;
        p.m = 600;
        p.n = 7;
        p.incy = 0;
        p.kind = tesh_test::filling::integers;
        const sgemv_operands with(p), without(p);
        failing_memory::refuse(1, failing_memory::refusal::from_there_on);
        without.call(p, tesh_blas_avx2_xsgemv);
        met += failing_memory::refused();
        failing_memory::refuse(0);
        with.call(p, tesh_blas_avx2_xsgemv);
        if (with.y[0] != without.y[0] || testing::Test::HasFailure())
            return 1;
        return met != calls + 1 ? 2 : 0;
    });
    EXPECT_EQ(child.exit_code, 0);
    EXPECT_EQ(child.err, "");
}

// The kernels take the vectors at their first logical elements; the other side's increment may have any sign.
TEST(matrix_vector, avx2_kernels_add_to_a_contiguous_side)
{
    if (!tesh_test::machine_has_path("avx2"))
        GTEST_SKIP() << "no AVX2";
    for (const char trans : {'N', 'T'}) {
        for (const std::int64_t inc : {1, 2, -3}) {
            for (const std::int64_t m : {1, 31, 64, 200}) {
                sgemv_problem p;
                p.trans = trans;
                p.m = m;
                p.n = 13;
                p.alpha = 2.0f;
                p.incx = trans == 'N' ? inc : 1;
                p.incy = trans == 'N' ? 1 : inc;
                p.kind = tesh_test::filling::integers;
                const sgemv_operands got(p), expected(p);
                const auto kernel = trans == 'N' ? tesh_blas_avx2_xsgemv_n : tesh_blas_avx2_xsgemv_t;
                kernel(&p.m, &p.n, &p.alpha, got.a.data(), &p.m, &got.x[0], &inc, &got.y[0]);
                expected.call(p, tesh_blas_def_xsgemv);
                EXPECT_TRUE(same_bits(got.y, expected.y)) << p.text();
                EXPECT_TRUE(got.y.gaps_untouched()) << p.text();
            }
        }
    }
}
} // namespace
