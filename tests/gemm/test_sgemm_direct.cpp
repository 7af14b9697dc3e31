// SPDX-License-Identifier: BSD-3-Clause
// Small products go from their public name straight to a kernel on the avx512 path. They end where the front would have
// brought them, with the same arguments. In this program the ends of the roads are replaced by notes of the call; each
// case runs in a child, whose first call binds the path.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "frame/tesh_blas.h"
#include "frame/tesh_serv.h"
#include "gemm/sgemm_paths.h"
#include "tests/support/detour.h"
#include "tests/support/test_paths.h"
#include "tests/support/vcpu/in_process.h"
#include "vector/matrix_vector.h"

namespace
{
std::string road;

std::string number(double x)
{
    return " " + std::to_string(x);
}
// An operand by its distance from the first one: where the road leads must not depend on where the stack is.
float memory[40000]; // for 130 columns or rows of 133
std::string place(const float *x)
{
    return " " + std::to_string(x - memory);
}

template <int which>
void note_kernel(std::int64_t m, std::int64_t n, std::int64_t k, const float *alpha, const float *a, std::int64_t lda,
                 const float *b, std::int64_t ldb, const float *beta, float *c, std::int64_t ldc)
{
    road += "kernel " + std::to_string(which);
    for (const std::int64_t size : {m, n, k, lda, ldb, ldc})
        road += " " + std::to_string(size);
    road += number(static_cast<double>(*alpha)) + number(static_cast<double>(*beta)) + place(a) + place(b) + place(c);
}

void note_driver(const char *name, blas_op_record *op, const blas_matrix_view *a, const blas_matrix_view *b,
                 const blas_matrix_view *c)
{
    road += std::string(name) + *op->transa + *op->transb + number(static_cast<double>(op->alpha)) +
            number(static_cast<double>(op->beta));
    for (const blas_matrix_view *view : {a, b, c})
        road += " " + std::to_string(view->rows) + " " + std::to_string(view->cols) + " " + std::to_string(view->ld) +
                place(static_cast<const float *>(view->base));
}
void note_packed(blas_op_record *op, const blas_matrix_view *a, const blas_matrix_view *b, const blas_matrix_view *c,
                 const gemm_buffers *, const gemm_kernel_info *)
{
    note_driver("packed ", op, a, b, c);
}
void note_mscale(const blas_matrix_view *c, const float *beta)
{
    road += "mscale " + std::to_string(c->rows) + " " + std::to_string(c->cols) + number(static_cast<double>(*beta));
}

template <int which>
void note_product(const char *, const char *, const std::int64_t *m, const std::int64_t *n, const std::int64_t *k,
                  const float *, const float *, const std::int64_t *, const float *, const std::int64_t *,
                  const float *, float *, const std::int64_t *)
{
    const char *const names[] = {"pst", "t_smalln", "meq6", "meq6_b0"};
    road += names[which];
    for (const std::int64_t *size : {m, n, k})
        road += " " + std::to_string(*size);
}
void note_sgemv(const char *trans, const std::int64_t *m, const std::int64_t *n, const float *, const float *,
                const std::int64_t *, const float *, const std::int64_t *, const float *, float *, const std::int64_t *)
{
    road += std::string("sgemv ") + *trans + " " + std::to_string(*m) + " " + std::to_string(*n);
}
void note_rank_1(const char *, const char *, const std::int64_t *m, const std::int64_t *n, const float *, const float *,
                 const std::int64_t *, const float *, const std::int64_t *, const float *, float *,
                 const std::int64_t *)
{
    road += "rank 1 " + std::to_string(*m) + " " + std::to_string(*n);
}
void note_report(const char *, const std::int64_t *parameter, std::int32_t)
{
    road += "parameter " + std::to_string(*parameter);
}
void note_line(std::int32_t, const char *, double)
{
    road += " line";
}

template <int... which>
void replace_kernels(tesh_blas_sgemm_kernel_nocopy_fn *const (&kernels)[12], std::integer_sequence<int, which...>)
{
    (tesh_test::detour(kernels[which], note_kernel<which>), ...);
}

void replace_ends()
{
    tesh_blas_sgemm_kernel_nocopy_fn *const avx512[12] = {
        tesh_blas_avx512_sgemm_kernel_nocopy_NN_b0, tesh_blas_avx512_sgemm_kernel_nocopy_NN_b1,
        tesh_blas_avx512_sgemm_kernel_nocopy_NN_bn, tesh_blas_avx512_sgemm_kernel_nocopy_NT_b0,
        tesh_blas_avx512_sgemm_kernel_nocopy_NT_b1, tesh_blas_avx512_sgemm_kernel_nocopy_NT_bn,
        tesh_blas_avx512_sgemm_kernel_nocopy_TN_b0, tesh_blas_avx512_sgemm_kernel_nocopy_TN_b1,
        tesh_blas_avx512_sgemm_kernel_nocopy_TN_bn, tesh_blas_avx512_sgemm_kernel_nocopy_TT_b0,
        tesh_blas_avx512_sgemm_kernel_nocopy_TT_b1, tesh_blas_avx512_sgemm_kernel_nocopy_TT_bn};
    replace_kernels(avx512, std::make_integer_sequence<int, 12>());
    tesh_test::detour(tesh_blas_avx512_s_generic_fullacopybcopy, note_packed);
    tesh_test::detour(tesh_blas_avx2_s_generic_fullacopybcopy, note_packed);
    tesh_test::detour(tesh_blas_avx512_sgemm_mscale_wrapper, note_mscale);
    tesh_test::detour(tesh_blas_avx512_sgemm_pst, note_product<0>);
    tesh_test::detour(tesh_blas_avx512_sgemm_t_smalln, note_product<1>);
    tesh_test::detour(tesh_blas_avx2_sgemm_nocopy_anbn_meq6_keq6, note_product<2>);
    tesh_test::detour(tesh_blas_avx2_sgemm_nocopy_anbn_meq6_keq6_b0, note_product<3>);
    tesh_test::detour_address(reinterpret_cast<void *>(tesh_blas_sgemv), reinterpret_cast<void *>(note_sgemv));
    tesh_test::detour(tesh_blas_sgemmger, note_rank_1);
    tesh_test::detour(tesh_serv_iface_xerbla, note_report);
    tesh_test::detour(tesh_serv_iface_print_verbose_info, note_line);
}

struct call {
    char transa, transb;
    std::int64_t m, n, k;
    float alpha = 1.0f, beta = 0.0f;
};

std::string road_of(tesh_blas_sgemm_fn *routine, const call &x)
{
    const std::int64_t lda = (x.transa == 'N' || x.transa == 'n' ? x.m : x.k) + 1;
    const std::int64_t ldb = (x.transb == 'N' || x.transb == 'n' ? x.k : x.n) + 2, ldc = x.m + 3;
    road.clear();
    routine(&x.transa, &x.transb, &x.m, &x.n, &x.k, &x.alpha, memory, &lda, memory + 2, &ldb, &x.beta, memory + 4,
            &ldc);
    return road;
}

// By the public name.
void by_name(const char *transa, const char *transb, const std::int64_t *m, const std::int64_t *n,
             const std::int64_t *k, const float *alpha, const float *a, const std::int64_t *lda, const float *b,
             const std::int64_t *ldb, const float *beta, float *c, const std::int64_t *ldc)
{
    SGEMM(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

void expect_the_road_of_the_front(const call &x)
{
    const std::string expected = road_of(tesh_blas_sgemm, x);
    EXPECT_EQ(road_of(by_name, x), expected)
        << x.transa << x.transb << " " << x.m << " " << x.n << " " << x.k << " " << x.alpha << " " << x.beta;
}

class sgemm_direct : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!tesh_test::machine_has_path("avx512"))
            GTEST_SKIP() << "avx512: not on this machine";
    }
    // With the path bound, the handler registered and the verbose level known.
    static void on(const char *profile, const char *branch, const std::function<void()> &body)
    {
        tesh_test::on_processor(profile, {{"TESH_CBWR", branch}, {"TESH_VERBOSE", ""}}, [&] {
            replace_ends();
            road_of(by_name, {'N', 'N', 200, 200, 200});
            body();
        });
    }
};

TEST_F(sgemm_direct, every_shape_ends_where_the_front_would_bring_it)
{
    on("avx512", "", [] {
        const std::int64_t sizes[] = {0, 1, 2, 3, 4, 5, 15, 16, 17, 33, 48, 50, 94, 95, 96, 97, 130};
        for (const char transa : {'N', 'n', 'T', 't', 'C', 'c'})
            for (const char transb : {'N', 'n', 'T', 't', 'C', 'c'})
                for (const std::int64_t m : sizes)
                    for (const std::int64_t n : sizes)
                        for (const std::int64_t k : sizes)
                            expect_the_road_of_the_front({transa, transb, m, n, k});
    });
}

TEST_F(sgemm_direct, every_factor_ends_where_the_front_would_bring_it)
{
    on("avx512", "", [] {
        const float nan = std::nanf(""), infinity = std::numeric_limits<float>::infinity();
        const float tiny = std::numeric_limits<float>::denorm_min();
        for (const char transa : {'N', 'T'})
            for (const char transb : {'N', 'T'})
                for (const float alpha : {0.0f, -0.0f, 1.0f, -2.0f, tiny, nan, infinity})
                    for (const float beta : {0.0f, -0.0f, 1.0f, 0.5f, -1.0f, tiny, nan})
                        expect_the_road_of_the_front({transa, transb, 5, 7, 9, alpha, beta});
    });
}

TEST_F(sgemm_direct, kernels_are_reached)
{
    on("avx512", "", [] {
        EXPECT_EQ(road_of(by_name, {'N', 'N', 2, 2, 2}).rfind("kernel 0 2 2 2 3 4 5", 0), 0u) << road;
        EXPECT_EQ(road_of(by_name, {'n', 't', 95, 95, 95, 1, 1}).rfind("kernel 4 95 95 95", 0), 0u) << road;
        EXPECT_EQ(road_of(by_name, {'t', 'N', 4, 5, 6, 1, 2}).rfind("kernel 8 4 5 6", 0), 0u) << road;
        EXPECT_EQ(road_of(by_name, {'T', 'c', 4, 5, 6, 1, 0}).rfind("kernel 9 4 5 6", 0), 0u) << road;
    });
}

TEST_F(sgemm_direct, the_reproducibility_mode_closes_the_way)
{
    on("avx512", "AVX512,STRICT", [] {
        EXPECT_EQ(road_of(by_name, {'N', 'N', 4, 4, 4}).rfind("packed NN", 0), 0u) << road;
        EXPECT_EQ(road_of(by_name, {'T', 'T', 2, 9, 4}).rfind("packed TT", 0), 0u) << road;
    });
}

TEST_F(sgemm_direct, other_paths_keep_their_own_roads)
{
    on("avx2", "", [] {
        EXPECT_EQ(road_of(by_name, {'N', 'N', 6, 4, 6}), "meq6_b0 6 4 6");
        EXPECT_EQ(road_of(by_name, {'N', 'N', 6, 4, 6, 1, 1}), "meq6 6 4 6");
    });
}

TEST_F(sgemm_direct, bad_arguments_are_reported_and_those_behind_them_not_read)
{
    on("avx512", "", [] {
        const char n = 'N', bad = 'x';
        const std::int64_t five = 5, four = 4, minus = -1;
        const float one = 1;
        const auto parameter = [&](const char *transa, const char *transb, const std::int64_t *m,
                                   const std::int64_t *columns, const std::int64_t *k, const std::int64_t *lda,
                                   const std::int64_t *ldb, const std::int64_t *ldc) {
            road.clear();
            SGEMM(transa, transb, m, columns, k, &one, memory, lda, memory, ldb, &one, memory, ldc);
            return road;
        };
        EXPECT_EQ(parameter(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), "parameter 1");
        EXPECT_EQ(parameter(&bad, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), "parameter 1");
        EXPECT_EQ(parameter(&n, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), "parameter 2");
        EXPECT_EQ(parameter(&n, &bad, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), "parameter 2");
        EXPECT_EQ(parameter(&n, &n, &minus, nullptr, nullptr, nullptr, nullptr, nullptr), "parameter 3");
        EXPECT_EQ(parameter(&n, &n, &five, &minus, nullptr, nullptr, nullptr, nullptr), "parameter 4");
        EXPECT_EQ(parameter(&n, &n, &five, &five, &minus, nullptr, nullptr, nullptr), "parameter 5");
        EXPECT_EQ(parameter(&n, &n, &five, &five, &five, &four, nullptr, nullptr), "parameter 8");
        EXPECT_EQ(parameter(&n, &n, &five, &five, &five, &five, &four, nullptr), "parameter 10");
        EXPECT_EQ(parameter(&n, &n, &five, &five, &five, &five, &five, &four), "parameter 13");
    });
}

// One below the least is reported, the least goes to a kernel; the depth lies above all other sizes, and below.
TEST_F(sgemm_direct, leading_dimensions_are_held_against_the_rows_as_they_are_stored)
{
    on("avx512", "", [] {
        const float one = 1;
        for (const auto &[m, n, k] : {std::array<std::int64_t, 3>{4, 5, 6}, {5, 6, 4}}) {
            for (const char transa : {'N', 'T'}) {
                for (const char transb : {'N', 'T'}) {
                    const std::int64_t rows_a = transa == 'N' ? m : k, rows_b = transb == 'N' ? k : n;
                    const auto road_with = [&, m = m, n = n, k = k](std::int64_t lda, std::int64_t ldb,
                                                                    std::int64_t ldc) {
                        road.clear();
                        SGEMM(&transa, &transb, &m, &n, &k, &one, memory, &lda, memory, &ldb, &one, memory, &ldc);
                        return road;
                    };
                    EXPECT_EQ(road_with(rows_a - 1, rows_b, m), "parameter 8") << transa << transb;
                    EXPECT_EQ(road_with(rows_a, rows_b - 1, m), "parameter 10") << transa << transb;
                    EXPECT_EQ(road_with(rows_a, rows_b, m - 1), "parameter 13") << transa << transb;
                    EXPECT_EQ(road_with(rows_a, rows_b, m).rfind("kernel", 0), 0u) << road;
                }
            }
        }
    });
}

TEST_F(sgemm_direct, a_level_raised_later_prints_a_line)
{
    on("avx512", "", [] {
        const std::string silent = road_of(by_name, {'N', 'N', 4, 4, 4});
        tesh_serv_verbose(1);
        EXPECT_EQ(road_of(by_name, {'N', 'N', 4, 4, 4}), silent + " line");
    });
}
} // namespace
