// SPDX-License-Identifier: BSD-3-Clause
// The bodies of the packed frame with registers of one float, a tile of 2 x 2 and blocks of two tiles, so that products
// of a few elements cross every edge of tiles and blocks.
#include <immintrin.h>

#include "gemm/body/sgemm_buffers_body.h"
#include "gemm/body/sgemm_driver_body.h"
#include "gemm/body/sgemm_kernel_body.h"
#include "gemm/body/sgemm_mscale_body.h"
#include "gemm/body/xsgemm_body.h"
#include "tests/support/reference_gemm.h"

namespace
{
using tesh_test::gemm_operands;
using tesh_test::gemm_shape;
using tesh_test::guard;

struct one_float {
    using reg = float;
    static constexpr int width = 1;
    static reg zero() { return 0.0f; }
    static reg load(const float *p) { return *p; }
    static void store(float *p, reg x) { *p = x; }
    static reg set1(float x) { return x; }
    static reg broadcast(const float *p) { return *p; }
    static reg add(reg x, reg y) { return x + y; }
    static reg mul(reg x, reg y) { return x * y; }
    static void accumulate(reg &z, reg x, reg y) { z += x * y; }
};

struct small_path {
    static constexpr int panel_m = 2, panel_n = 2;
    static constexpr int min_m_driver = 1, min_n_driver = 1, min_k_driver = 1;
    static constexpr int vector_length = 1, m_align = 2;
    static constexpr std::int64_t block_k = 8, block_k_least = 1, block_k_whole = 8;
    static constexpr std::int64_t block_m_most = 4, block_n_most = 4, block_n_shallow = 2, shallow_k = 2;
    static constexpr std::int64_t half_depth(std::int64_t k) { return (k + 1) / 2; }
    static constexpr int c_groups = 1, a_ahead = 4, b_ahead = 4, next_a_lines = 1, c_head = 0;
    static void fetch_c(const char *p) { _mm_prefetch(p, _MM_HINT_T0); }
};

// Panels of two, and a last one of one.
void pack(std::int64_t depth, std::int64_t width, float *panel,
          const std::function<float(std::int64_t l, std::int64_t i)> &element)
{
    for (std::int64_t first = 0; first < width; first += 2)
        for (std::int64_t l = 0; l < depth; ++l)
            for (std::int64_t i = first; i < std::min(first + 2, width); ++i)
                *panel++ = element(l, i);
}
float at(const blas_matrix_view *v, std::int64_t i, std::int64_t j)
{
    return *reinterpret_cast<const float *>(v->address(i, j, v));
}
void pack_a(const blas_matrix_view *source, blas_matrix_view *block, const float *scale, std::int64_t)
{
    block->rows = source->cols;
    block->cols = source->rows;
    pack(block->rows, block->cols, static_cast<float *>(block->base),
         [&](std::int64_t l, std::int64_t i) { return at(source, i, l) * *scale; });
}
void pack_b(const blas_matrix_view *source, blas_matrix_view *block, const float *scale, std::int64_t)
{
    block->rows = source->rows;
    block->cols = source->cols;
    pack(block->rows, block->cols, static_cast<float *>(block->base),
         [&](std::int64_t l, std::int64_t j) { return at(source, l, j) * *scale; });
}

template <bool read_c, int sets>
void kernel(const std::int64_t *m, const std::int64_t *n, const std::int64_t *k, const float *, const float *a,
            const float *b, float *c, std::int64_t ldc)
{
    packed_pair pair = {*n, *k, a, b, c, ldc};
    for (std::int64_t left = *m; left >= 2; left -= 2)
        pair.rows<small_path, one_float, 2, read_c>();
    if (*m & 1)
        pair.rows<small_path, one_float, 1, read_c, sets>();
}
void ker0_plain(const float *one, const blas_matrix_view *a, const blas_matrix_view *b, const float *beta,
                const blas_matrix_view *c)
{
    ker0(kernel<true, 2>, kernel<false, 2>, one, a, b, beta, c);
}
void ker0_one_chain(const float *one, const blas_matrix_view *a, const blas_matrix_view *b, const float *beta,
                    const blas_matrix_view *c)
{
    ker0(kernel<true, 1>, kernel<false, 1>, one, a, b, beta, c);
}

struct no_rest {
    template <class change> static void rest(std::int64_t count, float *, change) { EXPECT_EQ(count, 0); }
};
void scale(const blas_matrix_view *c, const float *beta)
{
    mscale<one_float, no_rest>(c->rows, c->cols, *beta, static_cast<float *>(c->base), c->ld);
}

std::int32_t take(gemm_buffers *buffers)
{
    return get_bufs(buffers);
}
void give(gemm_buffers *buffers)
{
    free_bufs(buffers);
}
void small_buffers(const blas_matrix_view *a, const blas_matrix_view *b, const gemm_strategy *strategy,
                   gemm_buffers *buffers)
{
    initialize_buffers<small_path>(a, b, strategy, buffers, {take, nullptr, nullptr, nullptr, give});
}

void packed_driver(blas_op_record *op, const blas_matrix_view *a, const blas_matrix_view *b, const blas_matrix_view *c,
                   const gemm_buffers *given, const gemm_kernel_info *info)
{
    generic_fullacopybcopy<small_buffers>(op, a, b, c, given, info);
}
void no_driver(blas_op_record *, const blas_matrix_view *, const blas_matrix_view *, const blas_matrix_view *,
               const gemm_buffers *, const gemm_kernel_info *)
{
    FAIL() << "another driver than the packed one";
}
void no_pst(const blas_op_record *, const blas_matrix_view *, const blas_matrix_view *, const blas_matrix_view *)
{
    FAIL() << "there is memory";
}

std::int32_t check(gemm_strategy *strategy);
struct path : small_path {
    static void initialize_strategy(gemm_strategy *strategy) { ::initialize_strategy<small_path>(strategy, check); }
    static constexpr auto &copyan = pack_a, &copyat = pack_a;
    static constexpr auto &copybn = pack_b, &copybt = pack_b;
    static constexpr auto &ker0 = ker0_plain, &ker0_cnr = ker0_one_chain;
    static constexpr auto &mscale_wrapper = scale;
    static constexpr auto &packed_driver = ::packed_driver, &acopied_driver = no_driver, &nocopy_driver = no_driver;
    static constexpr auto &pst_wrapper = no_pst;
};
std::int32_t check(gemm_strategy *strategy)
{
    return normalise<path>(strategy);
}

void product(const gemm_operands &x, std::uint32_t order)
{
    const gemm_shape &s = x.shape;
    sgemm_records r;
    gemm_strategy strategy;
    gemm_kernel_info info;
    fill_records(&r, &s.transa, &s.transb, s.m, s.n, s.k, s.alpha, x.a.data(), s.lda(), x.b.data(), s.ldb(), s.beta,
                 x.c.data(), s.ldc());
    path::initialize_strategy(&strategy);
    strategy.loop_order = order;
    initialize_kernel_info<path>(&r.op, &r.a, &r.b, &strategy, &info);
    info.driver(&r.op, &r.a, &r.b, &r.c, nullptr, &info);
}

// With the register kernel of the setting that holds.
void small_products()
{
    std::int64_t count = 0;
    for (const std::uint32_t order : {4u, 32u, 64u, 128u}) {
        for (const char transa : {'N', 'T'}) {
            for (const char transb : {'N', 'T'}) {
                for (std::int64_t m = 1; m <= 9; ++m) {
                    for (std::int64_t n = 1; n <= 9; ++n) {
                        for (const std::int64_t k : {0, 1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17}) {
                            const float factors[] = {0.0f, 1.0f, 2.0f, -1.0f};
                            ++count;
                            gemm_shape s{transa,
                                         transb,
                                         m,
                                         n,
                                         k,
                                         factors[1 + count % 3],
                                         factors[count % 4],
                                         k % 2,
                                         n % 2,
                                         m % 3,
                                         count % 2 == 0 ? guard::at_end : guard::at_start};
                            const gemm_operands x(s, tesh_test::gemm_values::integers);
                            product(x, order);
                            tesh_test::expect_gemm_result(x, true);
                            if (testing::Test::HasFatalFailure())
                                return;
                        }
                    }
                }
            }
        }
    }
}

TEST(sgemm_bodies, small_products_cross_every_edge_of_tiles_and_blocks)
{
    small_products();
}

TEST(sgemm_bodies, small_products_cross_every_edge_in_strict_mode)
{
    const std::int32_t free_setting = tesh_serv_cbwr_get(-1);
    tesh_cbwr = 0x10001;
    small_products();
    tesh_cbwr = free_setting;
}
} // namespace
