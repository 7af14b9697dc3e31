// SPDX-License-Identifier: BSD-3-Clause
// The packed drivers alone, with blocks so small that small products cross every block edge.
#include <cmath>
#include <cstring>

#include "frame/tesh_serv.h"
#include "tests/gemm/driver_records.h"
#include "tests/support/failing_memory.h"

namespace
{
using tesh_test::gemm_operands;
using tesh_test::gemm_shape;
using tesh_test::guard;
using tesh_test::records;
using tesh_test::records_of;
using tesh_test::small_blocks;
using tesh_test::wide_path;

constexpr std::uint32_t orders[] = {gemm_order_slices, gemm_order_depth_slices, gemm_order_b_outer, gemm_order_a_outer};

class sgemm_driver : public testing::TestWithParam<const wide_path *>
{
protected:
    const wide_path &p = *GetParam();
    tesh_test::worst_ratio worst;

    static void SetUpTestSuite() { tesh_test::failing_memory::install(); }
    void TearDown() override { EXPECT_LE(worst.value, 1.0); }

    void check(const gemm_shape &s, std::uint32_t order, std::int64_t bm, std::int64_t bn, std::int64_t bk)
    {
        const auto product = [&](const gemm_operands &x) {
            records r = records_of(p, x, order);
            const gemm_buffers blocks = small_blocks(p, r, bm, bn, bk);
            p.driver(&r.op, &r.a, &r.b, &r.c, bm > 0 ? &blocks : nullptr, &r.info);
        };
        for (const auto values : {tesh_test::gemm_values::uniform, tesh_test::gemm_values::integers}) {
            gemm_operands x(s, values);
            if (s.beta == 0.0f) {
                for (std::int64_t j = 0; j < s.n; ++j)
                    for (std::int64_t i = 0; i < s.m; ++i)
                        x.c[static_cast<std::size_t>(j * s.ldc() + i)] = std::nanf("");
                x.keep_c();
            }
            product(x);
            const bool whole = s.alpha == std::trunc(s.alpha) && s.beta == std::trunc(s.beta);
            tesh_test::expect_gemm_result(x, values == tesh_test::gemm_values::integers && whole, &worst);
        }
    }
};

TEST_P(sgemm_driver, every_loop_order_crosses_every_block_edge)
{
    const std::int64_t bm = 2 * p.panel_m, bn = 2 * p.panel_n, bk = 8;
    for (const std::uint32_t order : orders) {
        for (const char transa : {'N', 'T'}) {
            for (const char transb : {'N', 'T'}) {
                for (const std::int64_t m : {bm - 1, bm, bm + 1, 2 * bm + p.panel_m + 3}) {
                    for (const std::int64_t n : {bn - 1, bn, bn + 1, 3 * bn + 3}) {
                        for (const std::int64_t k : {bk - 1, bk, bk + 1, 2 * bk + 5}) {
                            gemm_shape s{transa, transb, m, n, k, 1.0f, static_cast<float>((m + n + k) % 2)};
                            s.pad_a = m % 3;
                            s.pad_b = n % 3;
                            s.pad_c = k % 3;
                            s.side = k % 2 == 0 ? guard::at_end : guard::at_start;
                            check(s, order, bm, bn, bk);
                            if (HasFatalFailure())
                                return;
                        }
                    }
                }
            }
        }
    }
}

TEST_P(sgemm_driver, blocks_that_are_no_multiple_of_the_panels)
{
    for (const std::uint32_t order : orders) {
        check({'N', 'N', 3 * p.panel_m, 5 * p.panel_n, 17, 0.7f, 1.0f}, order, p.panel_m + 5, p.panel_n + 1, 5);
        if (HasFatalFailure())
            return;
    }
}

TEST_P(sgemm_driver, alpha_and_beta_of_every_kind)
{
    for (const std::uint32_t order : orders) {
        for (const float alpha : {0.0f, 1.0f, -1.0f, 0.7f, 2.0f}) {
            for (const float beta : {0.0f, 1.0f, -1.0f, 0.7f, 2.0f}) {
                check({'T', 'N', 2 * p.panel_m + 3, 2 * p.panel_n + 3, 19, alpha, beta, 1, 1, 1}, order, p.panel_m,
                      p.panel_n, 8);
                if (HasFatalFailure())
                    return;
            }
        }
    }
}

TEST_P(sgemm_driver, nan_in_alpha_or_beta_reaches_every_element)
{
    for (const std::uint32_t order : orders) {
        for (const bool in_alpha : {true, false}) {
            gemm_shape s{'N', 'N', p.panel_m + 3, p.panel_n + 1, 5, 1.0f, 1.0f};
            (in_alpha ? s.alpha : s.beta) = std::nanf("");
            gemm_operands x(s);
            records r = records_of(p, x, order);
            p.driver(&r.op, &r.a, &r.b, &r.c, nullptr, &r.info);
            for (const float c : x.c)
                ASSERT_TRUE(std::isnan(c));
        }
    }
}

TEST_P(sgemm_driver, own_blocks_over_two_depth_and_column_blocks)
{
    for (const std::uint32_t order : orders) {
        check({'N', 'T', 2 * p.panel_m + 1, 384 + p.panel_n + 1, 401, 1.0f, 0.0f}, order, 0, 0, 0);
        if (HasFatalFailure())
            return;
    }
}

TEST_P(sgemm_driver, without_depth_c_is_scaled_and_the_operands_are_not_read)
{
    for (const float beta : {0.0f, 1.0f, 0.5f}) {
        gemm_operands x({'N', 'N', 30, 7, 0, 1.0f, beta, 0, 0, 2});
        records r = records_of(p, x, gemm_order_slices);
        r.a.base = r.b.base = nullptr;
        p.driver(&r.op, &r.a, &r.b, &r.c, nullptr, &r.info);
        tesh_test::expect_gemm_result(x, true);
    }
}

TEST_P(sgemm_driver, alpha_zero_scales_c_and_reads_no_operand)
{
    for (const float beta : {0.0f, 1.0f, 0.5f}) {
        gemm_operands x({'N', 'N', 30, 7, 9, 0.0f, beta, 0, 0, 2});
        records r = records_of(p, x, gemm_order_slices);
        r.a.base = r.b.base = nullptr;
        p.driver(&r.op, &r.a, &r.b, &r.c, nullptr, &r.info);
        tesh_test::expect_gemm_result(x, true);
    }
}

TEST_P(sgemm_driver, empty_c_is_left_alone)
{
    for (const bool rows : {true, false}) {
        gemm_operands x({'N', 'N', 4, 4, 4, 1.0f, 0.0f});
        records r = records_of(p, x, gemm_order_slices);
        (rows ? r.c.rows : r.c.cols) = 0;
        p.driver(&r.op, &r.a, &r.b, &r.c, nullptr, &r.info);
        EXPECT_EQ(std::memcmp(x.c.data(), x.c0.data(), x.c.size() * sizeof(float)), 0);
    }
}

TEST_P(sgemm_driver, unknown_loop_order_runs_nothing)
{
    gemm_operands x({'N', 'N', 30, 7, 9, 1.0f, 1.0f});
    records r = records_of(p, x, 5);
    p.driver(&r.op, &r.a, &r.b, &r.c, nullptr, &r.info);
    EXPECT_EQ(std::memcmp(x.c.data(), x.c0.data(), x.c.size() * sizeof(float)), 0);
}

// Another beta than 0 and 1 is applied once, and the record says so afterwards.
TEST_P(sgemm_driver, beta_is_settled_in_the_record)
{
    for (const float beta : {0.0f, 1.0f, 0.5f}) {
        gemm_operands x({'N', 'N', 30, 7, 9, 1.0f, beta});
        records r = records_of(p, x, gemm_order_slices);
        p.driver(&r.op, &r.a, &r.b, &r.c, nullptr, &r.info);
        EXPECT_EQ(r.op.beta, beta == 0.0f ? 0.0f : 1.0f);
    }
}

TEST_P(sgemm_driver, refused_memory_falls_to_the_bufferless_product)
{
    for (const std::uint32_t order : orders) {
        for (std::int64_t nth = 1;; ++nth) {
            tesh_serv_free_buffers();
            tesh_test::failing_memory::refuse(nth, tesh_test::failing_memory::refusal::from_there_on);
            gemm_operands x({'N', 'T', p.panel_m + 7, p.panel_n + 3, 33, 0.7f, 0.3f, 1, 2, 3});
            records r = records_of(p, x, order);
            p.driver(&r.op, &r.a, &r.b, &r.c, nullptr, &r.info);
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
}

TEST_P(sgemm_driver, unknown_buffer_mode_falls_to_the_bufferless_product)
{
    gemm_operands x({'T', 'T', p.panel_m + 7, p.panel_n + 3, 33, 0.7f, 0.3f, 1, 2, 3});
    records r = records_of(p, x, gemm_order_slices);
    gemm_buffers b = small_blocks(p, r, p.panel_m, p.panel_n, 8);
    b.buffer_mode = 9;
    p.driver(&r.op, &r.a, &r.b, &r.c, &b, &r.info);
    tesh_test::expect_gemm_result(x, false, &worst);
}

TEST_P(sgemm_driver, pst_wrapper_hands_on_every_argument)
{
    for (const char transa : {'N', 'T'}) {
        for (const char transb : {'N', 'T'}) {
            gemm_operands x({transa, transb, 5, 6, 7, 0.7f, 0.3f, 1, 2, 3});
            const records r = records_of(p, x, gemm_order_slices);
            p.pst_wrapper(&r.op, &r.a, &r.b, &r.c);
            tesh_test::expect_gemm_result(x, false, &worst);
        }
    }
}

// A packed beforehand, times alpha.
TEST_P(sgemm_driver, packed_a_needs_only_b_packed)
{
    for (const float beta : {0.0f, 1.0f, 0.5f}) {
        for (const std::int64_t n : {p.panel_n - 1, 3 * p.panel_n + 1}) {
            gemm_operands x({'N', 'T', 2 * p.panel_m + 5, n, 150, 0.7f, beta, 1, 1, 1});
            records r = records_of(p, x, gemm_order_slices);
            r.info.strategy.a_policy = gemm_policy_given;
            std::vector<float> block(static_cast<std::size_t>(x.shape.m * x.shape.k));
            gemm_buffers given;
            p.initialize_buffers(&r.a, &r.b, &r.info.strategy, &given);
            given.block_n = 2 * p.panel_n;
            given.block_k = 20; // less than the depth of the packed block
            given.a_block.base = block.data();
            r.info.copy_a(&r.a, &given.a_block, &r.op.alpha, 0);
            p.acopied_driver(&r.op, &r.a, &r.b, &r.c, &given, &r.info);
            tesh_test::expect_gemm_result(x, false, &worst);
            if (HasFatalFailure())
                return;
        }
    }
}

TEST_P(sgemm_driver, packed_a_without_memory_for_b_falls_to_the_bufferless_product)
{
    gemm_operands x({'N', 'N', p.panel_m, p.panel_n, 9, 0.7f, 0.5f});
    records r = records_of(p, x, gemm_order_slices);
    gemm_buffers given;
    p.initialize_buffers(&r.a, &r.b, &r.info.strategy, &given);
    given.buffer_mode = 0;
    p.acopied_driver(&r.op, &r.a, &r.b, &r.c, &given, &r.info);
    tesh_test::expect_gemm_result(x, false, &worst);
}

// The road of a path routine by hand: strategy, kernel info, and the driver that stands in its slot.
TEST_P(sgemm_driver, slots_of_the_initialisers_carry_the_product)
{
    const bool wide = p.name == "avx512";
    for (const std::uint32_t a_policy : {0u, 2u, 16u}) {
        for (const std::uint32_t order : {0u, 4u, 32u, 64u, 128u}) {
            for (const char transa : {'N', 'T'}) {
                gemm_operands x({transa, 'N', 2 * p.panel_m + 5, 2 * p.panel_n + 3, 50, 0.7f, 0.3f, 1, 2, 3});
                records r = records_of(p, x, 0);
                r.info = {};
                gemm_strategy s;
                (wide ? tesh_blas_avx512_sgemm_initialize_strategy : tesh_blas_avx2_sgemm_initialize_strategy)(&s);
                s.a_policy = a_policy;
                s.loop_order = order;
                (wide ? tesh_blas_avx512_sgemm_initialize_kernel_info
                      : tesh_blas_avx2_sgemm_initialize_kernel_info)(&r.op, &r.a, &r.b, &r.c, &s, &r.info);
                r.info.driver(&r.op, &r.a, &r.b, &r.c, nullptr, &r.info);
                tesh_test::expect_gemm_result(x, false, &worst);
                if (HasFatalFailure())
                    return;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(paths, sgemm_driver, testing::ValuesIn(tesh_test::wide_paths_to_run()), tesh_test::path_name);
} // namespace
