// SPDX-License-Identifier: BSD-3-Clause
// What the packed drivers hand to the slots, in which order, and where they turn to without memory.
#include <string>

#include "frame/tesh_serv.h"
#include "tests/gemm/driver_records.h"
#include "tests/support/detour.h"
#include "tests/support/failing_memory.h"

namespace
{
using tesh_test::gemm_operands;
using tesh_test::records;
using tesh_test::records_of;
using tesh_test::small_blocks;
using tesh_test::wide_path;

class sgemm_driver_calls : public testing::TestWithParam<const wide_path *>
{
protected:
    const wide_path &p = *GetParam();

    static void SetUpTestSuite() { tesh_test::failing_memory::install(); }
};

// The calls of a product of two by two by two blocks, of two, two and one panels' height: b, a and k with the numbers
// of the block or slice in the operand, a capital K where the kernel adds to C.
struct nest {
    const records *r;
    std::int64_t panel_m, bn, bk;
    std::string calls;
};
nest noted;
std::int64_t place(const blas_matrix_view &part, const blas_matrix_view &whole)
{
    return static_cast<const float *>(part.base) - static_cast<const float *>(whole.base);
}
std::string numbers(std::int64_t first, std::int64_t second)
{
    return std::to_string(first) + std::to_string(second) + " ";
}
void note_copy_a(const blas_matrix_view *source, blas_matrix_view *destination, const float *scale, std::int64_t)
{
    EXPECT_EQ(scale, &noted.r->op.alpha);
    const std::int64_t at = place(*source, noted.r->a), ld = noted.r->a.ld;
    noted.calls += "a" + numbers(at % ld / noted.panel_m, at / ld / noted.bk);
    destination->rows = source->cols;
    destination->cols = source->rows;
}
void note_copy_b(const blas_matrix_view *source, blas_matrix_view *destination, const float *scale, std::int64_t)
{
    EXPECT_EQ(*scale, 1.0f);
    const std::int64_t at = place(*source, noted.r->b), ld = noted.r->b.ld;
    noted.calls += "b" + numbers(at % ld / noted.bk, at / ld / noted.bn);
    destination->rows = source->rows;
    destination->cols = source->cols;
}
void note_kernel(const float *one, const blas_matrix_view *a, const blas_matrix_view *b, const float *beta,
                 const blas_matrix_view *c)
{
    EXPECT_EQ(*one, 1.0f);
    EXPECT_EQ(a->rows, b->rows); // depth
    EXPECT_EQ(a->cols, c->rows);
    EXPECT_EQ(b->cols, c->cols);
    const std::int64_t at = place(*c, noted.r->c), ld = noted.r->c.ld;
    noted.calls += (*beta == 0.0f ? "k" : "K") + numbers(at % ld / noted.panel_m, at / ld / noted.bn);
}

TEST_P(sgemm_driver_calls, loop_orders_nest_blocks_and_packing)
{
    const struct {
        std::uint32_t order;
        const char *calls;
    } cases[] = {
        {gemm_order_slices, "b00 a00 k00 a10 k10 b01 k01 k11 b10 a01 K00 a11 K10 b11 K01 K11 "
                            "b00 a20 k20 b01 k21 b10 a21 K20 b11 K21 "},
        {gemm_order_depth_slices, "b00 a00 k00 a10 k10 b01 k01 k11 b00 a20 k20 b01 k21 "
                                  "b10 a01 K00 a11 K10 b11 K01 K11 b10 a21 K20 b11 K21 "},
        {gemm_order_b_outer, "b00 a00 k00 a20 k20 b01 a00 k01 a20 k21 "
                             "b10 a01 K00 a21 K20 b11 a01 K01 a21 K21 "},
        {gemm_order_a_outer, "a00 b00 k00 b01 k01 a20 b00 k20 b01 k21 "
                             "a01 b10 K00 b11 K01 a21 b10 K20 b11 K21 "},
    };
    for (const auto &c : cases) {
        gemm_operands x({'N', 'N', 3 * p.panel_m, 2 * p.panel_n, 16, 0.7f, 0.0f});
        records r = records_of(p, x, c.order);
        r.info.copy_a = note_copy_a;
        r.info.copy_b = note_copy_b;
        r.info.ker0 = note_kernel;
        noted = {&r, p.panel_m, p.panel_n, 8, ""};
        const gemm_buffers blocks = small_blocks(p, r, 2 * p.panel_m, p.panel_n, 8);
        p.driver(&r.op, &r.a, &r.b, &r.c, &blocks, &r.info);
        EXPECT_EQ(noted.calls, c.calls) << c.order;
    }
}

// A of any loop order packed beforehand: column blocks only, each over the whole depth.
TEST_P(sgemm_driver_calls, packed_a_is_met_by_whole_columns_of_b)
{
    gemm_operands x({'N', 'N', 3 * p.panel_m, 3 * p.panel_n, 16, 0.7f, 0.0f});
    for (const std::uint32_t order : {4u, 32u, 5u}) {
        records r = records_of(p, x, order);
        r.info.strategy.a_policy = gemm_policy_given;
        r.info.copy_a = nullptr;
        r.info.copy_b = note_copy_b;
        r.info.ker0 = [](const float *one, const blas_matrix_view *a, const blas_matrix_view *b, const float *beta,
                         const blas_matrix_view *c) {
            EXPECT_EQ(a->base, noted.r);
            EXPECT_EQ(a->rows, 16);
            note_kernel(one, a, b, beta, c);
        };
        noted = {&r, p.panel_m, p.panel_n, 16, ""};
        gemm_buffers given = small_blocks(p, r, 3 * p.panel_m, p.panel_n, 16);
        given.a_block.base = &r;
        p.acopied_driver(&r.op, &r.a, &r.b, &r.c, &given, &r.info);
        EXPECT_EQ(noted.calls, "b00 k00 b01 k01 b02 k02 ") << order;
    }
}

// What the copy and kernel slots are handed in the default order.
struct seen_call {
    char what;
    std::int64_t rows, cols;
    const void *place;
    float factor;
};
std::vector<seen_call> seen;
void record_copy(const blas_matrix_view *source, blas_matrix_view *destination, const float *scale, std::int64_t)
{
    const bool a = source->flags == 2;
    destination->rows = a ? source->cols : source->rows;
    destination->cols = a ? source->rows : source->cols;
    seen.push_back({a ? 'a' : 'b', source->rows, source->cols, destination->base, *scale});
}
void record_kernel(const float *one, const blas_matrix_view *a, const blas_matrix_view *, const float *beta,
                   const blas_matrix_view *c)
{
    EXPECT_EQ(*one, 1.0f);
    seen.push_back({'k', c->rows, c->cols, a->base, *beta});
}

TEST_P(sgemm_driver_calls, default_order_packs_a_slice_before_its_first_use_only)
{
    gemm_operands x({'T', 'N', 2 * p.panel_m, 2 * p.panel_n, 16, 0.7f, 0.0f});
    records r = records_of(p, x, gemm_order_slices);
    r.info.copy_a = r.info.copy_b = record_copy;
    r.info.ker0 = record_kernel;
    seen.clear();
    const gemm_buffers two = small_blocks(p, r, 2 * p.panel_m, p.panel_n, 8);
    p.driver(&r.op, &r.a, &r.b, &r.c, &two, &r.info);
    std::string calls;
    for (const seen_call &call : seen)
        calls += call.what;
    EXPECT_EQ(calls, "bakakbkkbakakbkk");
    EXPECT_EQ(seen[1].rows, p.panel_m);
    EXPECT_EQ(seen[1].cols, 8);
    EXPECT_EQ(seen[1].factor, 0.7f);
    EXPECT_EQ(seen[0].factor, 1.0f);
    EXPECT_EQ(seen[2].factor, 0.0f);  // first depth block
    EXPECT_EQ(seen[10].factor, 1.0f); // second depth block
    EXPECT_EQ(static_cast<const char *>(seen[3].place) - static_cast<const char *>(seen[1].place), p.panel_m * 8 * 4);
    EXPECT_EQ(seen[6].place, seen[1].place); // the later column block reads the slice where it was packed

    // One column block: every slice in the same place.
    seen.clear();
    const gemm_buffers one = small_blocks(p, r, 2 * p.panel_m, 2 * p.panel_n, 16);
    p.driver(&r.op, &r.a, &r.b, &r.c, &one, &r.info);
    calls.clear();
    for (const seen_call &call : seen)
        calls += call.what;
    EXPECT_EQ(calls, "bakak");
    EXPECT_EQ(seen[3].place, seen[1].place);
}

TEST_P(sgemm_driver_calls, symmetric_operand_on_the_left_changes_places)
{
    const std::int64_t size = p.panel_m;
    gemm_operands x({'N', 'N', size, size, size, 1.0f, 0.0f});
    records r = records_of(p, x, gemm_order_slices);
    r.op.routine_id = blas_routine_ssymm;
    r.op.side_code = 0;
    static const void *a_source;
    static std::uint32_t a_flags;
    r.info.copy_a = [](const blas_matrix_view *source, blas_matrix_view *, const float *, std::int64_t) {
        a_source = source->base;
        a_flags = source->flags;
    };
    r.info.copy_b = [](const blas_matrix_view *, blas_matrix_view *, const float *, std::int64_t) {};
    r.info.ker0 = [](const float *, const blas_matrix_view *, const blas_matrix_view *, const float *,
                     const blas_matrix_view *) {};
    p.driver(&r.op, &r.a, &r.b, &r.c, nullptr, &r.info);
    EXPECT_EQ(a_source, r.b.base);
    EXPECT_EQ(a_flags, static_cast<std::uint32_t>(blas_view_trans));
    EXPECT_EQ(r.b.flags, static_cast<std::uint32_t>(blas_view_notrans));
}

// ---- without memory -----------------------------------------------------------------------------------------------
struct handed {
    const void *op, *a, *b, *c;
    float beta;
    int count;
} to_pst;
void note_pst(const blas_op_record *op, const blas_matrix_view *a, const blas_matrix_view *b, const blas_matrix_view *c)
{
    to_pst = {op, a, b, c, op->beta, to_pst.count + 1};
}
std::string warned;
std::int32_t note_warning(const void *pointer, const char *name)
{
    warned += pointer == nullptr ? std::string(name) + " " : "";
    return pointer == nullptr;
}

void expect_handed_on(const records &r, float beta)
{
    EXPECT_EQ(to_pst.count, 1);
    EXPECT_EQ(to_pst.op, &r.op);
    EXPECT_EQ(to_pst.a, &r.a);
    EXPECT_EQ(to_pst.b, &r.b);
    EXPECT_EQ(to_pst.c, &r.c);
    EXPECT_EQ(to_pst.beta, beta);
    EXPECT_EQ(warned, "SGEMM ");
}

TEST_P(sgemm_driver_calls, without_memory_the_same_four_records_go_to_the_bufferless_product)
{
    tesh_test::detour(tesh_serv_check_ptr_and_warn, note_warning);
    for (const bool packed_a : {false, true}) {
        for (const bool symmetric : {false, true}) {
            if (packed_a && symmetric)
                continue;
            for (const float beta : {0.0f, 1.0f, 0.5f}) {
                gemm_operands x({'N', 'N', p.panel_m, p.panel_m, p.panel_m, 0.7f, beta});
                records r = records_of(p, x, gemm_order_slices);
                r.op.routine_id = symmetric ? blas_routine_ssymm : blas_routine_sgemm;
                r.op.side_code = symmetric ? 0 : 2;
                r.info.strategy.a_policy = packed_a ? gemm_policy_given : gemm_policy_packed;
                r.info.pst = note_pst;
                r.info.copy_a = r.info.copy_b = nullptr;
                r.info.ker0 = nullptr;
                gemm_buffers none = small_blocks(p, r, p.panel_m, p.panel_n, 8);
                none.buffer_mode = 0;
                to_pst = {};
                warned.clear();
                (packed_a ? p.acopied_driver : p.driver)(&r.op, &r.a, &r.b, &r.c, &none, &r.info);
                expect_handed_on(r, beta == 0.5f ? 1.0f : beta); // 0.5 has been applied to C
                EXPECT_EQ(x.c[0], beta == 0.5f ? 0.5f * x.c0[0] : x.c0[0]);
            }
        }
    }
}

// The one request of a driver: refused, the product goes to the bufferless one; granted, it does not.
TEST_P(sgemm_driver_calls, only_a_refused_request_goes_to_the_bufferless_product)
{
    for (const bool packed_a : {false, true}) {
        for (const bool refused : {true, false}) {
            tesh_serv_free_buffers();
            gemm_operands x({'N', 'N', p.panel_m, p.panel_n, 9, 0.7f, 1.0f});
            records r = records_of(p, x, gemm_order_slices);
            r.info.strategy.a_policy = packed_a ? gemm_policy_given : gemm_policy_packed;
            r.info.pst = note_pst;
            gemm_buffers given = small_blocks(p, r, p.panel_m, p.panel_n, 16);
            std::vector<float> block(static_cast<std::size_t>(x.shape.m * x.shape.k));
            given.a_block.base = block.data();
            to_pst = {};
            tesh_test::failing_memory::refuse(refused ? 1 : 0, tesh_test::failing_memory::refusal::from_there_on);
            (packed_a ? p.acopied_driver : p.driver)(&r.op, &r.a, &r.b, &r.c, &given, &r.info);
            tesh_test::failing_memory::refuse(0);
            EXPECT_EQ(to_pst.count, refused ? 1 : 0) << packed_a;
        }
    }
}

TEST_P(sgemm_driver_calls, blocks_beyond_any_memory_go_to_the_bufferless_product)
{
    for (const std::int64_t size : {INT64_MAX, INT64_MAX / 8, INT64_C(1) << 46}) {
        for (const bool packed_a : {false, true}) {
            gemm_operands x({'N', 'N', p.panel_m, p.panel_n, 9, 0.7f, 1.0f});
            records r = records_of(p, x, gemm_order_slices);
            r.info.strategy.a_policy = packed_a ? gemm_policy_given : gemm_policy_packed;
            const gemm_buffers vast = small_blocks(p, r, size, size, size);
            (packed_a ? p.acopied_driver : p.driver)(&r.op, &r.a, &r.b, &r.c, &vast, &r.info);
            tesh_test::expect_gemm_result(x, false);
        }
    }
}

// Scratch that is still out would not be freed with the thread's buffers.
TEST_P(sgemm_driver_calls, scratch_is_given_back)
{
    for (const std::uint32_t order : {4u, 32u, 64u, 128u, 5u}) {
        tesh_serv_free_buffers();
        const std::int64_t before = tesh_test::failing_memory::blocks_out();
        gemm_operands x({'N', 'N', p.panel_m, p.panel_n, 9, 0.7f, 1.0f});
        records r = records_of(p, x, order);
        p.driver(&r.op, &r.a, &r.b, &r.c, nullptr, &r.info);
        EXPECT_GT(tesh_test::failing_memory::blocks_out(), before); // kept for the next call
        std::vector<float> block(static_cast<std::size_t>(x.shape.m * x.shape.k));
        r.info.strategy.a_policy = gemm_policy_given;
        gemm_buffers given = small_blocks(p, r, p.panel_m, p.panel_n, 16);
        given.a_block.base = block.data();
        p.acopied_driver(&r.op, &r.a, &r.b, &r.c, &given, &r.info);
        tesh_serv_free_buffers();
        EXPECT_EQ(tesh_test::failing_memory::blocks_out(), before) << order;
    }
}

INSTANTIATE_TEST_SUITE_P(paths, sgemm_driver_calls, testing::ValuesIn(tesh_test::wide_paths_to_run()),
                         tesh_test::path_name);
} // namespace
