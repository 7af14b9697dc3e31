// SPDX-License-Identifier: BSD-3-Clause
// The kernels of the no-copy path alone, every class and beta form, on operands against guard pages.
#include <immintrin.h>
#include <pthread.h>
#include <sys/mman.h>

#include "tests/gemm/nocopy_paths.h"

namespace
{
using tesh_test::gemm_shape;
using tesh_test::guard;
using tesh_test::nocopy_path;

class sgemm_kernel_nocopy : public testing::TestWithParam<const nocopy_path *>
{
protected:
    const nocopy_path &p = *GetParam();
    tesh_test::worst_ratio worst;

    void TearDown() override { EXPECT_LE(worst.value, 1.0); }

    // One class and beta form on a shape, both guards.
    bool check(gemm_shape s, int transposition, int form)
    {
        s.transa = tesh_test::nocopy_classes[transposition][0];
        s.transb = tesh_test::nocopy_classes[transposition][1];
        s.beta = tesh_test::nocopy_betas[form];
        for (const guard side : {guard::at_end, guard::at_start}) {
            s.side = side;
            tesh_test::expect_gemm(tesh_test::as_product(p.kernels[transposition][form]), s, &worst);
            if (HasFatalFailure())
                return false;
        }
        return true;
    }
    bool check_all(const gemm_shape &s)
    {
        for (int transposition = 0; transposition < 4; ++transposition)
            for (int form = 0; form < 3; ++form)
                if (!check(s, transposition, form))
                    return false;
        return true;
    }
};

gemm_shape shape(std::int64_t m, std::int64_t n, std::int64_t k, std::int64_t pad = 0)
{
    gemm_shape s;
    s.m = m;
    s.n = n;
    s.k = k;
    s.pad_a = s.pad_b = s.pad_c = pad;
    return s;
}

// The bytes of stack that a call writes, on a thread with a patterned stack of its own.
std::size_t stack_of(const std::function<void()> &body)
{
    constexpr std::size_t bytes = 4 << 20;
    constexpr int pattern = 0xa5;
    void *const stack = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    std::memset(stack, pattern, bytes);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstack(&attributes, stack, bytes);
    const auto start = [](void *argument) -> void * {
        (*static_cast<const std::function<void()> *>(argument))();
        return nullptr;
    };
    pthread_t thread;
    EXPECT_EQ(pthread_create(&thread, &attributes, start, const_cast<std::function<void()> *>(&body)), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    const std::uint8_t *const low = static_cast<const std::uint8_t *>(stack);
    std::size_t untouched = 0;
    while (untouched < bytes && low[untouched] == pattern)
        ++untouched;
    munmap(stack, bytes);
    return bytes - untouched;
}

// From a depth of 16 on tiles of few sums have several sets of them.
TEST_P(sgemm_kernel_nocopy, every_m_and_n_up_to_the_tile_and_beyond)
{
    for (std::int64_t m = 1; m <= p.tile_m + 17; ++m)
        for (std::int64_t n = 1; n <= 2 * p.tile_n + 2; ++n)
            for (int transposition = 0; transposition < 4; ++transposition)
                for (const std::int64_t k : {(m + n) % 2 * 6 + 3, 16 + (m + 3 * n) % 24}) {
                    const int form = static_cast<int>((m + n + transposition) % 3);
                    gemm_shape s = shape(m, n, k, m % 3);
                    s.alpha = n % 2 == 0 ? 1.0f : -0.7f;
                    if (!check(s, transposition, form))
                        return;
                }
}

TEST_P(sgemm_kernel_nocopy, every_class_and_beta_form_on_tiles_and_their_tails)
{
    for (const std::int64_t m : {p.tile_m - 1, p.tile_m, 2 * p.tile_m + 3, 2 * p.tile_m + 15})
        for (const std::int64_t n : {p.tile_n - 1, 3 * p.tile_n, 5 * p.tile_n + 1})
            for (const float alpha : {1.0f, 0.7f}) {
                gemm_shape s = shape(m, n, 17, 1);
                s.alpha = alpha;
                if (!check_all(s))
                    return;
            }
}

TEST_P(sgemm_kernel_nocopy, every_depth_up_to_20_and_around_the_blocks)
{
    std::vector<std::int64_t> depths;
    for (std::int64_t k = 0; k <= 20; ++k)
        depths.push_back(k);
    for (const std::int64_t edge : {32, 96, 256, 384})
        depths.insert(depths.end(), {edge - 1, edge, edge + 1});
    for (const std::int64_t k : depths)
        for (int transposition = 0; transposition < 4; ++transposition)
            if (!check(shape(p.tile_m + 5, p.tile_n + 3, k), transposition, static_cast<int>(k % 3)))
                return;
}

TEST_P(sgemm_kernel_nocopy, blocks_without_rows_columns_or_depth)
{
    for (const std::int64_t m : {0, 1, 7, 25})
        for (const std::int64_t n : {0, 1, 5, 13})
            for (const std::int64_t k : {0, 1, 15, 105})
                if (m == 0 || n == 0 || k == 0)
                    if (!check_all(shape(m, n, k, 1)))
                        return;
}

// The last rows of a block may share registers among columns or among depth steps.
TEST_P(sgemm_kernel_nocopy, few_rows_against_any_number_of_columns)
{
    for (std::int64_t m = 1; m <= 7; ++m)
        for (std::int64_t n = 1; n <= 100; ++n)
            for (int transposition = 0; transposition < 4; ++transposition) {
                gemm_shape s = shape(m, n, n % 10 == 0 ? 75 : 14 + (m + n) % 13, n % 3);
                s.alpha = n % 2 == 0 ? 1.0f : -0.7f;
                if (!check(s, transposition, static_cast<int>((m + n + transposition) % 3)))
                    return;
            }
}

// Rows and columns that are runs of depth may be multiplied several steps at a time where the columns are few.
TEST_P(sgemm_kernel_nocopy, few_columns_of_deep_transposed_products)
{
    constexpr int a_transposed = 2;
    for (std::int64_t m = 1; m <= 25; ++m)
        for (std::int64_t n = 1; n <= 17; ++n) {
            gemm_shape s = shape(m, n, 60 + (m + 3 * n) % 16, n % 3);
            s.alpha = n % 2 == 0 ? 1.0f : -0.7f;
            if (!check(s, a_transposed, static_cast<int>((m + n) % 3)))
                return;
        }
    for (std::int64_t n = 1; n <= 16; ++n)
        for (const std::int64_t m : {3, 37})
            if (!check(shape(m, n, 256 + n), a_transposed, static_cast<int>(n % 3)))
                return;
}

// Runs one class and beta form, and holds C in every bit against one sum over the depth for each element. alpha = 1 and
// a beta of 2 at most leave the sum and its meeting with C as the only roundings.
void expect_sums_in_order(const nocopy_path &p, gemm_shape s, int transposition, int form)
{
    constexpr float betas[3] = {0.0f, 1.0f, 2.0f};
    s.transa = tesh_test::nocopy_classes[transposition][0];
    s.transb = tesh_test::nocopy_classes[transposition][1];
    s.beta = betas[form];
    const tesh_test::gemm_operands x(s);
    x.run(tesh_test::as_product(p.kernels[transposition][form]));
    const std::int64_t a_row = transposition & 2 ? s.lda() : 1, a_step = transposition & 2 ? 1 : s.lda();
    const std::int64_t b_column = transposition & 1 ? 1 : s.ldb(), b_step = transposition & 1 ? s.ldb() : 1;
    for (std::int64_t j = 0; j < s.n; ++j)
        for (std::int64_t i = 0; i < s.m; ++i) {
            float sum = 0.0f;
            for (std::int64_t l = 0; l < s.k; ++l)
                sum = std::fmaf(x.a.data()[i * a_row + l * a_step], x.b.data()[j * b_column + l * b_step], sum);
            const std::size_t at = static_cast<std::size_t>(i + j * s.ldc());
            ASSERT_EQ(x.c[at], s.beta == 0.0f ? sum : s.beta * x.c0[at] + sum) << s.name() << " " << i << " " << j;
        }
}

// Whichever body the lie of A asks for.
TEST_P(sgemm_kernel_nocopy, full_tiles_add_the_depth_in_its_order)
{
    for (const std::int64_t tiles_n : {2, 5})
        for (const std::int64_t k : {1, 8, 15, 16, 50, 105})
            for (int turn = 0; turn < 24; ++turn) {
                expect_sums_in_order(p, shape(2 * p.tile_m, tiles_n * p.tile_n, k, turn / 12), turn % 4, turn / 4 % 3);
                if (HasFatalFailure())
                    return;
            }
}

// A last register of 1 to 8 rows, which columns share: its sums are those of a register to each column, in place, out
// of the panel and beside the copy into it, below and beyond the size from which on lines are fetched.
TEST(sgemm_kernel_nocopy_avx512, a_last_register_of_few_rows_adds_the_depth_in_its_order)
{
    if (!tesh_test::machine_has_path("avx512"))
        GTEST_SKIP() << "this processor has no avx512 path";
    std::vector<std::int64_t> rows;
    for (std::int64_t rest = 1; rest <= 8; ++rest)
        rows.insert(rows.end(), {16 + rest, 32 + rest, 64 + rest, 96 + rest});
    int turn = 0;
    for (const std::int64_t m : rows)
        for (const std::int64_t n : {33, 36, 37, 38, 39, 42, 43})
            for (const std::int64_t k : {1, 7, 16, 135})
                for (const std::int64_t pad : {0, 1})
                    for (int transposition = 0; transposition < 4; ++transposition, ++turn) {
                        gemm_shape s = shape(m, n, k, pad);
                        s.side = turn / 4 % 2 == 0 ? guard::at_end : guard::at_start;
                        expect_sums_in_order(tesh_test::nocopy_avx512(), s, transposition, turn % 3);
                        if (testing::Test::HasFatalFailure())
                            return;
                    }
}

// A at an odd float, or with an odd leading dimension, is copied where more columns than the limit use it.
TEST_P(sgemm_kernel_nocopy, badly_lying_a_on_both_sides_of_the_column_limit)
{
    for (const std::int64_t n : {p.whole_columns, p.whole_columns + 1, p.whole_columns + p.tile_n + 2})
        for (const std::int64_t m : {std::int64_t{1}, p.tile_m - 3, p.tile_m, 2 * p.tile_m + 5})
            for (const std::int64_t pad : {0, 1})
                for (const std::size_t shift : {0u, 4u, 8u}) {
                    gemm_shape s = shape(m, n, 11, pad);
                    s.shift_bytes = shift;
                    for (int transposition = 0; transposition < 4; ++transposition)
                        if (!check(s, transposition, static_cast<int>((m + pad) % 3)))
                            return;
                }
}

TEST_P(sgemm_kernel_nocopy, columns_of_a_pages_apart)
{
    for (const std::int64_t m : {std::int64_t{5}, p.tile_m + 1})
        for (int transposition = 0; transposition < 4; ++transposition) {
            const std::int64_t k = 9;
            gemm_shape s = shape(m, p.whole_columns + 1, k);
            s.pad_a = 1024 - (transposition & 2 ? k : m);
            if (!check(s, transposition, static_cast<int>(m % 3)))
                return;
        }
}

// The panel takes so many bytes of stack that its use shows. m is odd,
// so that m + 1 is a leading dimension that lies well.
void expect_panel_where_due(const nocopy_path &p, std::int64_t m)
{
    const std::int64_t k = 2048, few = p.whole_columns, many = few + 1;
    const std::size_t panel = static_cast<std::size_t>((k + 16) / 16 * 16 * p.tile_m * 4);
    const struct {
        std::int64_t lda;
        std::size_t shift_bytes;
        std::int64_t n;
        bool in_panel;
    } table[] = {{m + 1, 0, many, false},    {m + 1, 8, many, false}, {m + 1, 4, many, true}, {m + 1, 4, few, false},
                 {m + 2, 0, many, true},     {m + 2, 0, few, false},  {1024, 0, many, false}, {1025, 0, many, true},
                 {m + 2, 4, many + 7, true}, {m + 2, 0, 33, true},    {m + 1, 0, 33, false}};
    for (const auto &row : table) {
        const std::int64_t lda = row.lda;
        const std::vector<float> b(static_cast<std::size_t>(k * row.n), 1.0f);
        std::vector<float> c(static_cast<std::size_t>(m * row.n));
        std::vector<float> memory(static_cast<std::size_t>(std::max(lda * k, m * k) + 16), 1.0f);
        float *const aligned = memory.data() + (64 - reinterpret_cast<std::uintptr_t>(memory.data()) % 64) % 64 / 4;
        const float *const a = aligned + row.shift_bytes / 4;
        const float alpha = 1.0f, beta = 0.0f;
        for (int transposition = 0; transposition < 4; ++transposition) {
            const bool a_transposed = transposition & 2;
            const std::size_t used = stack_of([&] {
                p.kernels[transposition][0](m, row.n, k, &alpha, a, a_transposed ? k : lda, b.data(),
                                            transposition & 1 ? row.n : k, &beta, c.data(), m);
            });
            EXPECT_EQ(used >= panel, a_transposed || row.in_panel)
                << tesh_test::nocopy_classes[transposition] << " m " << m << " lda " << lda << " shift "
                << row.shift_bytes << " n " << row.n << ": " << used << " bytes of stack";
            EXPECT_EQ(c.back(), static_cast<float>(k));
        }
    }
}
TEST_P(sgemm_kernel_nocopy, a_goes_through_the_panel_where_it_is_transposed_or_lies_badly_for_many_columns)
{
    for (const std::int64_t m :
         {std::int64_t{1}, std::int64_t{15}, std::int64_t{17}, std::int64_t{31}, std::int64_t{33}, p.tile_m + 1})
        expect_panel_where_due(p, m);
}

// Blocks large enough for their next columns and rows to be fetched ahead: at the end that asks for what is not there.
TEST_P(sgemm_kernel_nocopy, fetching_ahead_leaves_no_trace)
{
    for (int transposition = 0; transposition < 4; ++transposition)
        for (const std::int64_t m : {p.tile_m - 1, 2 * p.tile_m + 16, 5 * p.tile_m + 3})
            for (const std::int64_t n : {p.tile_n + 1, p.tile_n + 2, p.tile_n + 3, 4 * p.tile_n + 1})
                if (!check(shape(m, n, 131, 1), transposition, static_cast<int>((m + n) % 3)))
                    return;
}

TEST_P(sgemm_kernel_nocopy, operands_of_any_alignment)
{
    for (std::size_t shift = 0; shift < 64; shift += 4) {
        gemm_shape s = shape(p.tile_m + 7, p.tile_n + 3, 10, 2);
        s.shift_bytes = shift;
        for (int transposition = 0; transposition < 4; ++transposition)
            if (!check(s, transposition, static_cast<int>(shift / 4 % 3)))
                return;
    }
}

// A lane or a depth step beyond an operand holds nothing that an infinity could turn into a NaN, and raises no flag.
// The infinity is element (step, n-1) of op(B), all others are 1.
void expect_infinity_in_its_column(const nocopy_path &p, gemm_shape s, int transposition, std::int64_t step)
{
    s.transa = tesh_test::nocopy_classes[transposition][0];
    s.transb = tesh_test::nocopy_classes[transposition][1];
    tesh_test::gemm_operands x(s);
    for (tesh_test::guarded_array<float> *operand : {&x.a, &x.b, &x.c})
        std::fill(operand->begin(), operand->end(), 1.0f);
    x.b[static_cast<std::size_t>(s.transb == 'N' ? (s.n - 1) * s.ldb() + step : s.n - 1 + step * s.ldb())] = INFINITY;
    const unsigned clean = _mm_getcsr() & ~0x3fu;
    _mm_setcsr(clean);
    x.run(tesh_test::as_product(p.kernels[transposition][1]));
    ASSERT_EQ(_mm_getcsr() & 0x3fu, 0u) << s.name() << " step " << step;
    for (std::int64_t j = 0; j < s.n; ++j)
        for (std::int64_t i = 0; i < s.m; ++i)
            ASSERT_EQ(x.c[static_cast<std::size_t>(j * s.ldc() + i)],
                      j == s.n - 1 ? INFINITY : static_cast<float>(s.k + 1))
                << s.name();
}
TEST_P(sgemm_kernel_nocopy, infinities_stay_in_their_row_and_column_and_raise_no_flag)
{
    for (int transposition = 0; transposition < 4; ++transposition)
        for (std::int64_t m = 1; m <= p.tile_m + 1; ++m)
            for (std::int64_t n = 1; n <= p.tile_n + 1; ++n)
                for (const std::int64_t step : {0, 1, 3, 6, 10, 74}) {
                    expect_infinity_in_its_column(p, shape(m, n, step < 11 ? 11 : 75), transposition, step);
                    if (HasFatalFailure())
                        return;
                }
}
// Rows of every count in a last register, in place and beside their copy into the panel.
TEST_P(sgemm_kernel_nocopy, infinities_of_many_columns_stay_in_theirs_and_raise_no_flag)
{
    for (int transposition = 0; transposition < 4; ++transposition)
        for (std::int64_t m = 1; m <= 48; ++m)
            for (const std::int64_t n : {33, 38, 44})
                for (const std::int64_t pad : {0, 1}) {
                    gemm_shape s = shape(m, n, 11);
                    s.pad_a = pad;
                    expect_infinity_in_its_column(p, s, transposition, 10 * pad);
                    if (HasFatalFailure())
                        return;
                }
}

TEST_P(sgemm_kernel_nocopy, a_nan_of_a_fills_its_row_alone)
{
    const std::int64_t m = p.tile_m + 3, n = p.tile_n + 1;
    for (int transposition = 0; transposition < 4; ++transposition)
        for (const std::int64_t row : {std::int64_t{0}, p.tile_m - 1, m - 1}) {
            gemm_shape s = shape(m, n, 9, 1);
            s.transa = tesh_test::nocopy_classes[transposition][0];
            s.transb = tesh_test::nocopy_classes[transposition][1];
            s.beta = 1.0f;
            tesh_test::gemm_operands x(s);
            x.a[static_cast<std::size_t>(s.transa == 'N' ? row + 8 * s.lda() : 8 + row * s.lda())] = NAN;
            x.run(tesh_test::as_product(p.kernels[transposition][1]));
            tesh_test::expect_gemm_result(x, false, &worst);
        }
}

TEST_P(sgemm_kernel_nocopy, nan_alpha_and_nan_beta_reach_every_element)
{
    for (int transposition = 0; transposition < 4; ++transposition) {
        for (int form = 0; form < 3; ++form) {
            for (const bool in_alpha : {true, false}) {
                if (!in_alpha && form != 2)
                    continue;
                gemm_shape s = shape(p.tile_m + 1, p.tile_n + 1, 4);
                s.transa = tesh_test::nocopy_classes[transposition][0];
                s.transb = tesh_test::nocopy_classes[transposition][1];
                s.alpha = in_alpha ? NAN : 1.0f;
                s.beta = in_alpha ? tesh_test::nocopy_betas[form] : NAN;
                tesh_test::gemm_operands x(s);
                x.run(tesh_test::as_product(p.kernels[transposition][form]));
                for (const float value : x.c)
                    ASSERT_TRUE(std::isnan(value)) << s.name();
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(paths, sgemm_kernel_nocopy, testing::ValuesIn(tesh_test::nocopy_paths_to_run()),
                         tesh_test::nocopy_path_name);
} // namespace
