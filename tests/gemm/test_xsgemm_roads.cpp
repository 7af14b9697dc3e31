// SPDX-License-Identifier: BSD-3-Clause
// Which road a shape takes on the wide paths. In this program the ends of the roads are replaced by notes of the call.
#include <cmath>
#include <cstring>
#include <string>

#include "frame/tesh_serv.h"
#include "tests/gemm/wide_paths.h"
#include "tests/support/detour.h"

namespace
{
std::string road;
blas_op_record noted_op;
blas_matrix_view noted_a, noted_b, noted_c;
gemm_kernel_info noted_info;
float noted_beta;

enum ending { ending_pst, ending_t_smalln, ending_meq6, ending_meq6_b0 };
template <ending which>
void note(const char *, const char *, const int64_t *, const int64_t *, const int64_t *, const float *, const float *,
          const int64_t *, const float *, const int64_t *, const float *, float *, const int64_t *)
{
    const char *const names[] = {"pst", "t_smalln", "meq6", "meq6_b0"};
    road += names[which];
}
void note_records(blas_op_record *op, const blas_matrix_view *a, const blas_matrix_view *b, const blas_matrix_view *c)
{
    noted_op = *op;
    noted_a = *a;
    noted_b = *b;
    noted_c = *c;
}
void note_packed(blas_op_record *op, const blas_matrix_view *a, const blas_matrix_view *b, const blas_matrix_view *c,
                 const gemm_buffers *buffers, const gemm_kernel_info *info)
{
    road += buffers == nullptr ? "packed" : "packed with buffers";
    note_records(op, a, b, c);
    noted_info = *info;
}
void note_nocopy(blas_op_record *op, const blas_matrix_view *a, const blas_matrix_view *b, const blas_matrix_view *c,
                 const gemm_buffers *, const gemm_kernel_info *)
{
    road += "nocopy";
    note_records(op, a, b, c);
}
enum kernel_ending { nn_b0, nn_b1, nn_bn, tn_b0 };
template <kernel_ending which>
void note_kernel(int64_t, int64_t, int64_t, const float *, const float *, int64_t, const float *, int64_t,
                 const float *, float *, int64_t)
{
    const char *const names[] = {"NN_b0", "NN_b1", "NN_bn", "TN_b0"};
    road += names[which];
}
void note_mscale(const blas_matrix_view *, const float *beta)
{
    road += "mscale";
    noted_beta = *beta;
}

void replace_roads()
{
    static bool done = false;
    if (done)
        return;
    done = true;
    tesh_test::detour(tesh_blas_avx2_sgemm_pst, note<ending_pst>);
    tesh_test::detour(tesh_blas_avx512_sgemm_pst, note<ending_pst>);
    tesh_test::detour(tesh_blas_avx512_sgemm_t_smalln, note<ending_t_smalln>);
    tesh_test::detour(tesh_blas_avx2_sgemm_nocopy_anbn_meq6_keq6, note<ending_meq6>);
    tesh_test::detour(tesh_blas_avx2_sgemm_nocopy_anbn_meq6_keq6_b0, note<ending_meq6_b0>);
    tesh_test::detour(tesh_blas_avx2_s_generic_fullacopybcopy, note_packed);
    tesh_test::detour(tesh_blas_avx512_s_generic_fullacopybcopy, note_packed);
    tesh_test::detour(tesh_blas_avx2_xsgemm_nocopy_driver, note_nocopy);
    tesh_test::detour(tesh_blas_avx512_xsgemm_nocopy_driver, note_nocopy);
    tesh_test::detour(tesh_blas_avx2_sgemm_kernel_nocopy_NN_b0, note_kernel<nn_b0>);
    tesh_test::detour(tesh_blas_avx2_sgemm_kernel_nocopy_NN_b1, note_kernel<nn_b1>);
    tesh_test::detour(tesh_blas_avx2_sgemm_kernel_nocopy_NN_bn, note_kernel<nn_bn>);
    tesh_test::detour(tesh_blas_avx2_sgemm_kernel_nocopy_TN_b0, note_kernel<tn_b0>);
    tesh_test::detour(tesh_blas_avx512_sgemm_kernel_nocopy_NN_b0, note_kernel<nn_b0>);
    tesh_test::detour(tesh_blas_avx512_sgemm_kernel_nocopy_NN_b1, note_kernel<nn_b1>);
    tesh_test::detour(tesh_blas_avx512_sgemm_kernel_nocopy_NN_bn, note_kernel<nn_bn>);
    tesh_test::detour(tesh_blas_avx512_sgemm_kernel_nocopy_TN_b0, note_kernel<tn_b0>);
    tesh_test::detour(tesh_blas_avx2_sgemm_mscale_wrapper, note_mscale);
    tesh_test::detour(tesh_blas_avx512_sgemm_mscale_wrapper, note_mscale);
}

// The reproducibility setting as a whole; the strict flag closes the roads by shape.
struct setting {
    explicit setting(std::int32_t value) : old(tesh_serv_cbwr_get(-1)) { tesh_cbwr = value; }
    ~setting() { tesh_cbwr = old; }
    std::int32_t old;
};
constexpr std::int32_t strict = 0x10001;

float memory[4];
constexpr std::int64_t lda = 20001, ldb = 20002, ldc = 20003;

std::string road_of(tesh_blas_sgemm_fn *routine, char transa, char transb, std::int64_t m, std::int64_t n,
                    std::int64_t k, float alpha = 1.0f, float beta = 0.0f)
{
    replace_roads();
    road.clear();
    routine(&transa, &transb, &m, &n, &k, &alpha, memory, &lda, memory + 1, &ldb, &beta, memory + 2, &ldc);
    return road;
}

class xsgemm_avx512 : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!tesh_test::machine_has_path("avx512"))
            GTEST_SKIP() << "avx512: not on this machine";
    }
    tesh_blas_sgemm_fn *const routine = tesh_blas_avx512_xsgemm;
};
class xsgemm_avx2 : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!tesh_test::machine_has_path("avx2"))
            GTEST_SKIP() << "avx2: not on this machine";
    }
    tesh_blas_sgemm_fn *const routine = tesh_blas_avx2_xsgemm;
};

TEST_F(xsgemm_avx512, empty_c_takes_no_road)
{
    EXPECT_EQ(road_of(routine, 'N', 'N', 0, 5, 5), "");
    EXPECT_EQ(road_of(routine, 'N', 'N', 5, 0, 5), "");
    EXPECT_EQ(road_of(routine, 'N', 'N', -1, 5, 5), "");
    EXPECT_EQ(road_of(routine, 'T', 'N', 5, -7, 5000, 0.0f, 0.0f), "");
}

TEST_F(xsgemm_avx512, few_columns_and_a_long_depth_are_dot_products)
{
    EXPECT_EQ(road_of(routine, 'T', 'N', 500, 15, 360), "t_smalln");
    EXPECT_EQ(road_of(routine, 't', 'n', 1, 15, 360), "t_smalln");
    EXPECT_EQ(road_of(routine, 'T', 'N', 500, 2, 48), "t_smalln");
    EXPECT_EQ(road_of(routine, 'T', 'N', 500, 15, 359), "packed");
    EXPECT_EQ(road_of(routine, 'T', 'N', 500, 16, 384), "packed");
    EXPECT_EQ(road_of(routine, 'T', 'N', 500, 1, 384), "packed");
    EXPECT_EQ(road_of(routine, 'T', 'N', 3, 2, 47), "nocopy");
    EXPECT_EQ(road_of(routine, 'T', 'T', 100, 15, 360), "nocopy");
    EXPECT_EQ(road_of(routine, 'N', 'N', 100, 15, 360), "nocopy");
    EXPECT_EQ(road_of(routine, 'C', 'N', 100, 15, 360), "nocopy"); // only T asks for dot products
    EXPECT_EQ(road_of(routine, 'T', 'N', 500, 15, 360, std::nanf("")), "t_smalln");
}

TEST_F(xsgemm_avx512, alpha_zero_scales_c)
{
    EXPECT_EQ(road_of(routine, 'T', 'N', 500, 15, 360, 0.0f, 0.5f), "mscale");
    EXPECT_EQ(noted_beta, 0.5f);
    EXPECT_EQ(road_of(routine, 'N', 'N', 3, 3, 3, 0.0f, 0.0f), "mscale");
    EXPECT_EQ(noted_beta, 0.0f);
    EXPECT_EQ(road_of(routine, 'N', 'N', 3, 3, 3, -0.0f, 1.0f), "");
    EXPECT_EQ(road_of(routine, 'N', 'N', 3, 3, 3, 0.0f, std::nanf("")), "mscale");
}

TEST_F(xsgemm_avx512, a_as_it_lies_is_packed_from_192_on)
{
    for (const char letter : {'N', 'n'}) {
        EXPECT_EQ(road_of(routine, letter, 'N', 191, 10000, 100), "nocopy");
        EXPECT_EQ(road_of(routine, letter, 'T', 10000, 191, 100), "nocopy");
        EXPECT_EQ(road_of(routine, letter, 'N', 192, 192, 1), "packed");
        EXPECT_EQ(road_of(routine, letter, 'T', 192, 192, 0), "packed");
    }
}

TEST_F(xsgemm_avx512, a_transposed_is_packed_by_m_or_by_a_short_depth)
{
    for (const char letter : {'T', 't', 'C', 'c'}) {
        EXPECT_EQ(road_of(routine, letter, 'N', 200, 100, 1000), "packed");
        EXPECT_EQ(road_of(routine, letter, 'N', 150, 100, 1000), "nocopy");
        EXPECT_EQ(road_of(routine, letter, 'N', 150, 100, 150), "packed");
        EXPECT_EQ(road_of(routine, letter, 'N', 150, 100, 151), "nocopy");
        EXPECT_EQ(road_of(routine, letter, 'T', 191, 191, 10), "nocopy"); // m <= n
        EXPECT_EQ(road_of(routine, letter, 'T', 192, 10000, 10), "packed");
        EXPECT_EQ(road_of(routine, letter, 'T', 191, 190, 191), "packed");
    }
}

// Dot products ask for rows, all else for columns.
TEST_F(xsgemm_avx512, packed_road_leaves_slivers_to_the_bufferless_product)
{
    EXPECT_EQ(road_of(routine, 'T', 'N', 11, 5, 4), "pst");
    EXPECT_EQ(road_of(routine, 'T', 'N', 12, 5, 4), "packed");
    EXPECT_EQ(road_of(routine, 'T', 'N', 12, 1, 4), "packed");
    EXPECT_EQ(road_of(routine, 'T', 'T', 300, 7, 4), "pst");
    EXPECT_EQ(road_of(routine, 'T', 'T', 300, 8, 4), "packed");
    EXPECT_EQ(road_of(routine, 'T', 'C', 9, 8, 4), "packed");
}

TEST_F(xsgemm_avx512, strict_reproducibility_packs_every_shape)
{
    const setting on(strict);
    EXPECT_EQ(road_of(routine, 'T', 'N', 500, 15, 360), "packed");
    EXPECT_EQ(noted_info.ker0, tesh_blas_avx512_sgemm_ker0_cnr);
    EXPECT_EQ(road_of(routine, 'N', 'N', 1, 1, 1), "packed");
    EXPECT_EQ(road_of(routine, 'T', 'N', 2, 2, 2), "packed");
    EXPECT_EQ(road_of(routine, 'T', 'T', 2, 2, 0), "packed");
    EXPECT_EQ(road_of(routine, 'N', 'N', 2, 2, 2, 0.0f, 2.0f), "mscale");
    EXPECT_EQ(road_of(routine, 'N', 'N', 0, 2, 2), "");
}

TEST_F(xsgemm_avx2, a_is_packed_from_72_as_it_lies_and_from_56_transposed)
{
    EXPECT_EQ(road_of(routine, 'N', 'N', 72, 71, 100), "nocopy");
    EXPECT_EQ(road_of(routine, 'N', 'T', 71, 72, 100), "nocopy");
    EXPECT_EQ(road_of(routine, 'n', 'T', 72, 72, 1), "packed");
    EXPECT_EQ(road_of(routine, 'T', 'N', 55, 56, 100), "nocopy");
    EXPECT_EQ(road_of(routine, 'T', 'N', 56, 55, 100), "nocopy");
    EXPECT_EQ(road_of(routine, 'c', 'T', 56, 56, 1), "packed");
    EXPECT_EQ(road_of(routine, 'T', 'N', 500, 15, 360), "nocopy"); // no road of its own for few columns
}

TEST_F(xsgemm_avx2, six_by_six_left_factor)
{
    EXPECT_EQ(road_of(routine, 'N', 'N', 6, 1000, 6, 1.0f, 1.0f), "meq6");
    EXPECT_EQ(road_of(routine, 'n', 'n', 6, 1, 6, 1.0f, std::nanf("")), "meq6");
    EXPECT_EQ(road_of(routine, 'N', 'N', 6, 1000, 6, 1.0f, 0.0f), "meq6_b0");
    EXPECT_EQ(road_of(routine, 'N', 'N', 6, 1000, 6, 1.0f, -0.0f), "meq6_b0");
    EXPECT_EQ(road_of(routine, 'N', 'T', 6, 1000, 6, 1.0f, 1.0f), "nocopy");
    EXPECT_EQ(road_of(routine, 'T', 'N', 6, 1000, 6, 1.0f, 1.0f), "nocopy");
    EXPECT_EQ(road_of(routine, 'N', 'N', 6, 1000, 7, 1.0f, 1.0f), "nocopy");
    EXPECT_EQ(road_of(routine, 'N', 'N', 5, 1000, 6, 1.0f, 1.0f), "nocopy");
    EXPECT_EQ(road_of(routine, 'N', 'N', 6, 1000, 6, 0.0f, 0.5f), "mscale");
}

TEST_F(xsgemm_avx2, empty_c_and_alpha_zero)
{
    EXPECT_EQ(road_of(routine, 'N', 'N', 0, 5, 5), "");
    EXPECT_EQ(road_of(routine, 'N', 'N', 5, -1, 5), "");
    EXPECT_EQ(road_of(routine, 'N', 'N', 5, 5, 5, 0.0f, 1.0f), "");
    EXPECT_EQ(road_of(routine, 'N', 'N', 5, 5, 5, 0.0f, 0.0f), "mscale");
}

TEST_F(xsgemm_avx2, strict_reproducibility_packs_every_shape)
{
    const setting on(strict);
    EXPECT_EQ(road_of(routine, 'N', 'N', 6, 1000, 6), "packed");
    EXPECT_EQ(noted_info.ker0, tesh_blas_avx2_sgemm_ker0_cnr);
    EXPECT_EQ(road_of(routine, 'T', 'N', 11, 3, 2), "packed");
    EXPECT_EQ(road_of(routine, 'N', 'N', 1, 1, 1), "packed");
}

// Up to 32 in each size the no-copy kernel is called without its driver, as the driver would.
void expect_smallest_products(tesh_blas_sgemm_fn *routine)
{
    EXPECT_EQ(road_of(routine, 'N', 'N', 32, 32, 32, 1.0f, 0.0f), "NN_b0");
    EXPECT_EQ(road_of(routine, 'n', 'N', 32, 1, 7, 1.0f, 1.0f), "NN_b1");
    EXPECT_EQ(road_of(routine, 'N', 'n', 1, 32, 7, 1.0f, 0.5f), "NN_bn");
    EXPECT_EQ(road_of(routine, 'N', 'N', 3, 3, 3, std::nanf(""), std::nanf("")), "NN_bn");
    EXPECT_EQ(road_of(routine, 'T', 'N', 5, 2, 9), "TN_b0");
    EXPECT_EQ(road_of(routine, 'c', 'n', 5, 2, 9), "TN_b0");
    EXPECT_EQ(road_of(routine, 'N', 'N', 33, 32, 32), "nocopy");
    EXPECT_EQ(road_of(routine, 'N', 'N', 32, 33, 32), "nocopy");
    EXPECT_EQ(road_of(routine, 'N', 'N', 32, 32, 33), "nocopy");
    EXPECT_EQ(road_of(routine, 'N', 'N', 32, 32, 0), "nocopy");
    EXPECT_EQ(road_of(routine, 'N', 'N', 32, 32, -1), "nocopy");
    EXPECT_EQ(road_of(routine, 'T', 'N', 3, 5, 4), "pst"); // so few dot products
    EXPECT_EQ(road_of(routine, 'N', 'N', 32, 32, 32, 0.0f, 0.5f), "mscale");
}

TEST_F(xsgemm_avx512, smallest_products_go_straight_to_a_kernel)
{
    expect_smallest_products(routine);
    EXPECT_EQ(road_of(routine, 'T', 'N', 5, 2, 5), "pst"); // packed, and too few rows for it
    EXPECT_EQ(road_of(routine, 'N', 'N', 6, 6, 6), "NN_b0");
}
TEST_F(xsgemm_avx2, smallest_products_go_straight_to_a_kernel)
{
    expect_smallest_products(routine);
    EXPECT_EQ(road_of(routine, 'T', 'N', 5, 2, 5), "TN_b0");
    EXPECT_EQ(road_of(routine, 'N', 'N', 6, 6, 6), "meq6_b0");
}

// What the drivers of both roads are handed.
void expect_records(tesh_blas_sgemm_fn *routine, const std::string &expected_road, std::int64_t m, std::int64_t n,
                    std::int64_t k)
{
    struct letter {
        char c;
        std::int32_t code;
        std::uint32_t flags;
    };
    for (const letter &la : {letter{'N', 0, 1}, letter{'t', 1, 2}, letter{'C', 2, 4}, letter{'X', -1, 0}}) {
        for (const letter &lb : {letter{'n', 0, 1}, letter{'T', 1, 2}, letter{'c', 2, 4}, letter{'x', -1, 0}}) {
            ASSERT_EQ(road_of(routine, la.c, lb.c, m, n, k, 0.7f, 0.3f), expected_road);
            EXPECT_EQ(noted_op.side, nullptr);
            EXPECT_EQ(noted_op.uplo, nullptr);
            EXPECT_EQ(noted_op.diag, nullptr);
            EXPECT_EQ(noted_op.alpha, 0.7f);
            EXPECT_EQ(noted_op.beta, 0.3f);
            EXPECT_EQ(noted_op.side_code, 2);
            EXPECT_EQ(noted_op.uplo_code, 2);
            EXPECT_EQ(noted_op.diag_code, 2);
            EXPECT_EQ(noted_op.transa_code, la.code);
            EXPECT_EQ(noted_op.transb_code, lb.code);
            EXPECT_EQ(noted_op.routine_id, 0);
            struct operand {
                const blas_matrix_view &view;
                const float *base;
                std::int64_t rows, cols, ld;
                std::uint32_t flags;
                bool plain;
            };
            for (const operand &x : {operand{noted_a, memory, m, k, lda, la.flags, la.code == 0},
                                     operand{noted_b, memory + 1, k, n, ldb, lb.flags, lb.code == 0},
                                     operand{noted_c, memory + 2, m, n, ldc, 0, true}}) {
                EXPECT_EQ(x.view.base, x.base);
                EXPECT_EQ(x.view.rows, x.rows);
                EXPECT_EQ(x.view.cols, x.cols);
                EXPECT_EQ(x.view.ld, x.ld);
                EXPECT_EQ(x.view.unroll_k, 0);
                EXPECT_EQ(x.view.panel, 0);
                EXPECT_EQ(x.view.padded_k, x.rows);
                EXPECT_EQ(x.view.elem_size, 4);
                EXPECT_EQ(x.view.flags, x.flags);
                const char *base = reinterpret_cast<const char *>(x.base);
                EXPECT_EQ(x.view.address(3, 5, &x.view), base + (x.plain ? 5 * x.ld + 3 : 3 * x.ld + 5) * 4);
            }
        }
    }
}

TEST_F(xsgemm_avx512, records_of_both_roads)
{
    expect_records(routine, "packed", 300, 200, 500);
    expect_records(routine, "nocopy", 30, 40, 50);
}
TEST_F(xsgemm_avx2, records_of_both_roads)
{
    expect_records(routine, "packed", 300, 200, 500);
    expect_records(routine, "nocopy", 30, 40, 50);
}
} // namespace
