// SPDX-License-Identifier: BSD-3-Clause
// The initialisers of views, strategy and kernel info on the wide paths.
#include <cstring>
#include <string>

#include "frame/tesh_serv.h"
#include "gemm/body/sgemm_views.h"
#include "tests/gemm/wide_paths.h"

namespace
{
using tesh_test::wide_path;

class xsgemm_records : public testing::TestWithParam<const wide_path *>
{
protected:
    const wide_path &p = *GetParam();
    const bool wide = p.name == "avx512";

    gemm_strategy initial() const
    {
        gemm_strategy s;
        std::memset(&s, 0xa5, sizeof s);
        (wide ? tesh_blas_avx512_sgemm_initialize_strategy : tesh_blas_avx2_sgemm_initialize_strategy)(&s);
        return s;
    }
    gemm_kernel_info info(std::int32_t routine_id, std::uint32_t a_flags, std::uint32_t b_flags,
                          const gemm_strategy &s) const
    {
        blas_op_record op = {};
        op.routine_id = routine_id;
        blas_matrix_view a = {}, b = {}, c = {};
        a.flags = a_flags;
        b.flags = b_flags;
        gemm_kernel_info result;
        std::memset(static_cast<void *>(&result), 0xa5, sizeof result);
        (wide ? tesh_blas_avx512_sgemm_initialize_kernel_info
              : tesh_blas_avx2_sgemm_initialize_kernel_info)(&op, &a, &b, &c, &s, &result);
        return result;
    }
};

TEST_P(xsgemm_records, strategy_defaults)
{
    const gemm_strategy s = initial();
    EXPECT_EQ(s.b_policy, 0u);
    EXPECT_EQ(s.a_policy, 0u);
    EXPECT_EQ(s.loop_order, 0u);
    EXPECT_EQ(s.pack_mode, 0u);
    EXPECT_EQ(s.reserved, 0u);
    EXPECT_EQ(s.unroll_m, wide ? 48u : 24u);
    EXPECT_EQ(s.unroll_n, wide ? 8u : 4u);
    EXPECT_EQ(s.unroll_k, 1u);
    EXPECT_EQ(s.vector_length, wide ? 16u : 8u);
    ASSERT_NE(s.check, nullptr);
}

TEST_P(xsgemm_records, check_fills_what_is_left_at_zero)
{
    gemm_strategy s = initial();
    EXPECT_EQ(s.check(&s), 1);
    EXPECT_EQ(s.a_policy, 2u);
    EXPECT_EQ(s.b_policy, 2u);
    EXPECT_EQ(s.loop_order, 4u);
    EXPECT_EQ(s.m_align, wide ? 48u : 32u);
    EXPECT_EQ(s.column_word, 16u);
    EXPECT_EQ(s.depth_word, 16u);
    EXPECT_EQ(s.unroll_m, wide ? 48u : 24u);
    EXPECT_EQ(s.unroll_n, wide ? 8u : 4u);
}

TEST_P(xsgemm_records, check_keeps_what_was_chosen)
{
    gemm_strategy s = initial();
    s.a_policy = 4;
    s.b_policy = 8;
    s.loop_order = 64;
    EXPECT_EQ(s.check(&s), 1);
    EXPECT_EQ(s.a_policy, 4u);
    EXPECT_EQ(s.b_policy, 8u);
    EXPECT_EQ(s.loop_order, 64u);
}

TEST_P(xsgemm_records, check_corrects_each_unroll)
{
    for (std::uint64_t gemm_strategy::*field :
         {&gemm_strategy::unroll_m, &gemm_strategy::unroll_n, &gemm_strategy::unroll_k}) {
        gemm_strategy s = initial();
        const std::uint64_t right = s.*field;
        s.*field = 99;
        EXPECT_EQ(s.check(&s), 0);
        EXPECT_EQ(s.*field, right);
        EXPECT_EQ(s.check(&s), 1);
    }
}

TEST_P(xsgemm_records, check_without_copy_has_unrolls_of_its_own)
{
    gemm_strategy s = initial();
    s.a_policy = 16;
    EXPECT_EQ(s.check(&s), 0); // the packed unrolls were not the right ones
    EXPECT_EQ(s.unroll_m, 16u);
    EXPECT_EQ(s.unroll_n, 6u);
    EXPECT_EQ(s.unroll_k, 1u);
    EXPECT_EQ(s.m_align, 16u);
    EXPECT_EQ(s.b_policy, 4u);
    EXPECT_EQ(s.a_policy, 16u);
    EXPECT_EQ(s.loop_order, 4u);
    EXPECT_EQ(s.check(&s), 1);
}

TEST_P(xsgemm_records, slots_of_sgemm)
{
    const gemm_strategy s = initial();
    const gemm_kernel_info i = info(0, 1, 1, s);
    EXPECT_EQ(i.min_m_driver, 12);
    EXPECT_EQ(i.min_n_driver, wide ? 8 : 4);
    EXPECT_EQ(i.min_k_driver, 4);
    EXPECT_STREQ(i.routine_name, "SGEMM");
    EXPECT_EQ(i.mscale, p.mscale_wrapper);
    EXPECT_EQ(i.copy_a, p.copyan);
    EXPECT_EQ(i.copy_b, p.copybn);
    EXPECT_EQ(i.scale_tri, nullptr);
    EXPECT_EQ(i.ker0, p.ker0);
    EXPECT_EQ(i.kernel_tri, nullptr);
    EXPECT_EQ(i.driver, p.driver);
    EXPECT_EQ(i.pst, p.pst_wrapper);
    EXPECT_EQ(i.mscale_syrk, nullptr);
    EXPECT_EQ(i.driver_syrk, nullptr);
    EXPECT_EQ(i.strategy.a_policy, 2u); // the copy is checked,
    EXPECT_EQ(s.a_policy, 0u);          // the caller's record is not
}

TEST_P(xsgemm_records, copies_follow_the_flags_of_the_views)
{
    const gemm_strategy s = initial();
    for (const std::uint32_t flags : {2u, 4u, 2u | 16u}) {
        EXPECT_EQ(info(0, flags, 1, s).copy_a, p.copyat);
        EXPECT_EQ(info(0, 1, flags, s).copy_b, p.copybt);
    }
    EXPECT_EQ(info(0, 0, 0, s).copy_a, p.copyan);
    EXPECT_EQ(info(0, 0, 0, s).copy_b, p.copybn);
}

TEST_P(xsgemm_records, driver_follows_the_policy_of_a)
{
    gemm_strategy s = initial();
    s.a_policy = 4;
    EXPECT_EQ(info(0, 1, 1, s).driver, p.acopied_driver);
    EXPECT_EQ(info(0, 1, 1, s).copy_b, p.copybn);
    s.a_policy = 16;
    const gemm_kernel_info i = info(0, 1, 1, s);
    EXPECT_EQ(i.driver, wide ? tesh_blas_avx512_xsgemm_nocopy_driver : tesh_blas_avx2_xsgemm_nocopy_driver);
    EXPECT_EQ(i.copy_a, nullptr);
    EXPECT_EQ(i.copy_b, nullptr);
    EXPECT_EQ(i.strategy.unroll_n, 6u);
}

TEST_P(xsgemm_records, names_by_routine)
{
    const gemm_strategy s = initial();
    const std::pair<std::int32_t, const char *> names[] = {{0, "SGEMM"}, {1, "SSYMM"}, {3, "SSYRK"}, {5, "SSYR2K"},
                                                           {7, "STRMM"}, {8, "STRSM"}, {9, "SGEMMT"}};
    for (const auto &[id, name] : names)
        EXPECT_STREQ(info(id, 1, 1, s).routine_name, name);
}

TEST_P(xsgemm_records, strict_reproducibility_chooses_the_cnr_kernel)
{
    const gemm_strategy s = initial();
    const std::int32_t old = tesh_serv_cbwr_get(-1);
    tesh_cbwr = 0x10001;
    EXPECT_EQ(info(0, 1, 1, s).ker0, p.ker0_cnr);
    tesh_cbwr = 10;
    EXPECT_EQ(info(0, 1, 1, s).ker0, p.ker0);
    tesh_cbwr = old;
}

blas_matrix_view matrix(const char *uplo, const char *diag, const char *trans)
{
    blas_matrix_view v;
    std::memset(static_cast<void *>(&v), 0xa5, sizeof v);
    blas_initialize_matrix(uplo, diag, trans, &v, 7, 5, 11, &v);
    return v;
}

TEST(blas_initialize_matrix, fills_every_field_of_a_view)
{
    const blas_matrix_view v = matrix(nullptr, nullptr, "N");
    EXPECT_NE(v.base, nullptr);
    EXPECT_EQ(v.rows, 7);
    EXPECT_EQ(v.cols, 5);
    EXPECT_EQ(v.ld, 11);
    EXPECT_EQ(v.unroll_k, 0);
    EXPECT_EQ(v.panel, 0);
    EXPECT_EQ(v.padded_k, 7);
    EXPECT_EQ(v.elem_size, 4);
    EXPECT_EQ(v.flags, 1u);
}

TEST(blas_initialize_matrix, letters_become_flags)
{
    const struct {
        const char *uplo, *diag, *trans;
        std::uint32_t flags;
    } cases[] = {
        {nullptr, nullptr, "n", 1},  {nullptr, nullptr, "T", 2},  {nullptr, nullptr, "t", 2},
        {nullptr, nullptr, "C", 4},  {nullptr, nullptr, "c", 4},  {nullptr, nullptr, nullptr, 0},
        {nullptr, nullptr, "X", 0},  {"L", nullptr, nullptr, 8},  {"l", nullptr, nullptr, 8},
        {"U", nullptr, nullptr, 16}, {"u", nullptr, nullptr, 16}, {"X", nullptr, nullptr, 0},
        {nullptr, "N", nullptr, 32}, {nullptr, "n", nullptr, 32}, {nullptr, "U", nullptr, 64},
        {nullptr, "u", nullptr, 64}, {nullptr, "X", nullptr, 0},  {"U", "U", "T", 16 + 64 + 2},
        {"L", "N", "N", 8 + 32 + 1},
    };
    for (const auto &c : cases)
        EXPECT_EQ(matrix(c.uplo, c.diag, c.trans).flags, c.flags) << (c.trans == nullptr ? "-" : c.trans);
}

TEST(blas_initialize_matrix, all_but_n_and_null_are_addressed_as_transposed)
{
    for (const char *trans : {static_cast<const char *>(nullptr), "N", "n", "T", "t", "C", "c", "X"}) {
        const bool plain = trans == nullptr || *trans == 'N' || *trans == 'n';
        const blas_matrix_view v = matrix("U", "N", trans);
        EXPECT_EQ(v.address(3, 2, &v) - static_cast<char *>(v.base), (plain ? 2 * 11 + 3 : 3 * 11 + 2) * 4);
    }
}

INSTANTIATE_TEST_SUITE_P(paths, xsgemm_records, testing::ValuesIn(tesh_test::wide_paths_to_run()),
                         tesh_test::path_name);
} // namespace
