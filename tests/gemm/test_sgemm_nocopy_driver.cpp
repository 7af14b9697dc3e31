// SPDX-License-Identifier: BSD-3-Clause
// The no-copy driver alone: every kernel, and the bufferless product, is replaced by a recorder that does the block in
// plain loops, so that the blocks and the choice of kernels can be asserted, and their results, too.
#include <array>

#include "tests/gemm/nocopy_paths.h"
#include "tests/support/detour.h"

namespace
{
using tesh_test::gemm_shape;
using tesh_test::nocopy_path;

struct recorded {
    int transposition, form;
    std::int64_t m, n, k;
};
std::vector<recorded> calls;
int pst_calls;

template <int transposition, int form>
void record(int64_t m, int64_t n, int64_t k, const float *alpha, const float *a, int64_t lda, const float *b,
            int64_t ldb, const float *beta, float *c, int64_t ldc)
{
    calls.push_back({transposition, form, m, n, k});
    for (int64_t j = 0; j < n; ++j) {
        for (int64_t i = 0; i < m; ++i) {
            float sum = 0.0f;
            for (int64_t l = 0; l < k; ++l)
                sum += (transposition & 2 ? a[l + i * lda] : a[i + l * lda]) *
                       (transposition & 1 ? b[j + l * ldb] : b[l + j * ldb]);
            float &x = c[i + j * ldc];
            x = form == 0 ? *alpha * sum : form == 1 ? x + *alpha * sum : *beta * x + *alpha * sum;
        }
    }
}

void record_pst(const char *transa, const char *transb, const int64_t *m, const int64_t *n, const int64_t *k,
                const float *alpha, const float *a, const int64_t *lda, const float *b, const int64_t *ldb,
                const float *beta, float *c, const int64_t *ldc)
{
    ++pst_calls;
    ASSERT_EQ(*transa, 'T');
    ASSERT_EQ(*transb, 'N');
    const std::vector<recorded> before = calls;
    *beta == 0.0f ? record<2, 0>(*m, *n, *k, alpha, a, *lda, b, *ldb, beta, c, *ldc)
                  : record<2, 2>(*m, *n, *k, alpha, a, *lda, b, *ldb, beta, c, *ldc);
    calls = before;
}

template <int transposition> void replace_class(const nocopy_path &p)
{
    tesh_test::detour(p.kernels[transposition][0], record<transposition, 0>);
    tesh_test::detour(p.kernels[transposition][1], record<transposition, 1>);
    tesh_test::detour(p.kernels[transposition][2], record<transposition, 2>);
}

void replace_all(const nocopy_path &p)
{
    static std::vector<const nocopy_path *> done;
    for (const nocopy_path *path : done)
        if (path == &p)
            return;
    done.push_back(&p);
    replace_class<0>(p);
    replace_class<1>(p);
    replace_class<2>(p);
    replace_class<3>(p);
    tesh_test::detour(p.pst, record_pst);
}

class sgemm_nocopy_driver : public testing::TestWithParam<const nocopy_path *>
{
protected:
    const nocopy_path &p = *GetParam();

    void SetUp() override { replace_all(p); }

    // Runs the driver, holds the result against the reference, and leaves what it called in calls and pst_calls.
    void run(const char *trans, std::int64_t m, std::int64_t n, std::int64_t k, float alpha = 1.0f, float beta = 0.0f)
    {
        gemm_shape s;
        s.transa = trans[0];
        s.transb = trans[1];
        s.m = m;
        s.n = n;
        s.k = k;
        s.alpha = alpha;
        s.beta = beta;
        s.pad_a = s.pad_b = s.pad_c = 2;
        tesh_test::gemm_operands x(s, tesh_test::gemm_values::integers);
        calls.clear();
        pst_calls = 0;
        x.run(tesh_test::as_product(p.driver));
        tesh_test::expect_gemm_result(x, true);
    }
    static std::vector<std::int64_t> sizes(std::int64_t recorded::*size)
    {
        std::vector<std::int64_t> list;
        for (const recorded &call : calls)
            list.push_back(call.*size);
        return list;
    }
};

using list = std::vector<std::int64_t>;

struct cut {
    std::int64_t rest;
    list blocks;
};

TEST_P(sgemm_nocopy_driver, depth_is_cut_by_its_rest)
{
    const std::vector<cut> wide = {{96, {96}},
                                   {383, {383}},
                                   {384, {384}},
                                   {385, {193, 192}},
                                   {500, {250, 250}},
                                   {767, {384, 383}},
                                   {768, {384, 384}},
                                   {1000, {384, 308, 308}},
                                   {1152, {384, 384, 384}}};
    const std::vector<cut> avx2_n = {{256, {256}},      {257, {129, 128}}, {300, {150, 150}},
                                     {511, {256, 255}}, {512, {256, 256}}, {600, {256, 172, 172}}};
    const std::vector<cut> avx2_t = {{96, {96}}, {97, {49, 48}}, {191, {96, 95}}, {192, {96, 96}}, {250, {96, 77, 77}}};
    for (int transposition = 0; transposition < 4; ++transposition) {
        const std::vector<cut> &cuts = p.name == "avx512" ? wide : transposition & 1 ? avx2_t : avx2_n;
        for (const cut &c : cuts) {
            run(tesh_test::nocopy_classes[transposition], 4, 9, c.rest);
            EXPECT_EQ(sizes(&recorded::k), c.blocks) << transposition << " " << c.rest;
            for (const recorded &call : calls)
                EXPECT_EQ(call.transposition, transposition);
        }
    }
}

TEST_P(sgemm_nocopy_driver, columns_are_cut_by_their_rest)
{
    const std::vector<cut> wide_n = {{96, {96}},      {97, {49, 48}},      {127, {64, 63}},
                                     {128, {64, 64}}, {200, {64, 64, 72}}, {230, {64, 64, 51, 51}}};
    const std::vector<cut> wide_t = {
        {384, {384}}, {576, {576}}, {577, {289, 288}}, {767, {384, 383}}, {768, {384, 384}}};
    const std::vector<cut> avx2_n = {{72, {72}}, {73, {37, 36}}, {95, {48, 47}}, {96, {48, 48}}, {150, {48, 48, 54}}};
    const std::vector<cut> avx2_t = {
        {144, {144}}, {145, {73, 72}}, {191, {96, 95}}, {192, {96, 96}}, {300, {96, 96, 108}}};
    for (int transposition = 0; transposition < 4; ++transposition) {
        const bool a_transposed = transposition & 2;
        const std::vector<cut> &cuts = p.name == "avx512" ? a_transposed ? wide_t : wide_n
                                       : a_transposed     ? avx2_t
                                                          : avx2_n;
        for (const cut &c : cuts) {
            run(tesh_test::nocopy_classes[transposition], 5, c.rest, 2);
            EXPECT_EQ(sizes(&recorded::n), c.blocks) << transposition << " " << c.rest;
        }
    }
}

TEST_P(sgemm_nocopy_driver, rows_are_cut_by_their_rest)
{
    const std::vector<cut> cuts = {
        {6048, {6048}}, {6049, {3025, 3024}}, {8063, {4032, 4031}}, {8064, {4032, 4032}}, {10000, {4032, 5968}}};
    for (int transposition = 0; transposition < 4; ++transposition) {
        for (const cut &c : cuts) {
            run(tesh_test::nocopy_classes[transposition], c.rest, 2, 2);
            EXPECT_EQ(sizes(&recorded::m), c.blocks) << transposition << " " << c.rest;
        }
    }
}

TEST_P(sgemm_nocopy_driver, depth_is_outermost_then_rows_then_columns)
{
    run("NN", 6049, 97, 600);
    ASSERT_FALSE(calls.empty());
    for (std::size_t at = 1; at < calls.size(); ++at)
        EXPECT_LE(calls[at].k, calls[at - 1].k);
    const list k = sizes(&recorded::k), m = sizes(&recorded::m), n = sizes(&recorded::n);
    if (p.name == "avx512") {
        EXPECT_EQ(k, (list{300, 300, 300, 300, 300, 300, 300, 300}));
        EXPECT_EQ(m, (list{3025, 3025, 3024, 3024, 3025, 3025, 3024, 3024}));
        EXPECT_EQ(n, (list{49, 48, 49, 48, 49, 48, 49, 48}));
    } else {
        EXPECT_EQ(k, (list{256, 256, 256, 256, 172, 172, 172, 172, 172, 172, 172, 172}));
        EXPECT_EQ(m, (list{3025, 3025, 3024, 3024, 3025, 3025, 3024, 3024, 3025, 3025, 3024, 3024}));
        EXPECT_EQ(n, (list{48, 49, 48, 49, 48, 49, 48, 49, 48, 49, 48, 49}));
    }
}

TEST_P(sgemm_nocopy_driver, first_depth_block_brings_beta_and_later_ones_add)
{
    const std::vector<std::pair<float, int>> first = {{0.0f, 0}, {-0.0f, 0}, {1.0f, 1}, {2.0f, 2}};
    for (int transposition = 0; transposition < 4; ++transposition) {
        for (const auto &[beta, form] : first) {
            run(tesh_test::nocopy_classes[transposition], 4, 9, 400, 2.0f, beta);
            ASSERT_GE(calls.size(), 2u);
            EXPECT_EQ(calls.front().form, form);
            for (std::size_t at = 1; at < calls.size(); ++at)
                EXPECT_EQ(calls[at].form, 1);
        }
    }
}

TEST_P(sgemm_nocopy_driver, nan_beta_takes_the_general_kernel)
{
    gemm_shape s;
    s.m = s.n = 4;
    s.k = 2;
    s.beta = NAN;
    tesh_test::gemm_operands x(s);
    calls.clear();
    x.run(tesh_test::as_product(p.driver));
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].form, 2);
}

TEST_P(sgemm_nocopy_driver, nan_alpha_is_not_zero)
{
    gemm_shape s;
    s.m = s.n = 4;
    s.k = 2;
    s.alpha = NAN;
    tesh_test::gemm_operands x(s);
    calls.clear();
    x.run(tesh_test::as_product(p.driver));
    EXPECT_EQ(calls.size(), 1u);
}

TEST_P(sgemm_nocopy_driver, letters_of_both_cases_and_the_conjugate_choose_the_class)
{
    const std::vector<std::pair<std::string, int>> pairs = {
        {"NN", 0}, {"nn", 0}, {"NT", 1}, {"nt", 1}, {"NC", 1}, {"nc", 1}, {"TN", 2}, {"tn", 2}, {"CN", 2},
        {"cn", 2}, {"TT", 3}, {"tt", 3}, {"TC", 3}, {"tc", 3}, {"CT", 3}, {"ct", 3}, {"CC", 3}, {"cc", 3}};
    for (const auto &[letters, transposition] : pairs) {
        run(letters.c_str(), 5, 9, 3);
        ASSERT_EQ(calls.size(), 1u) << letters;
        EXPECT_EQ(calls[0].transposition, transposition) << letters;
    }
}

TEST_P(sgemm_nocopy_driver, tiny_dot_products_take_the_bufferless_product)
{
    const std::vector<std::array<std::int64_t, 2>> tiny = {{1, 1}, {1, 15}, {2, 15}, {3, 10}, {3, 1}},
                                                   not_tiny = {{3, 15}, {3, 11}, {4, 1}, {1, 16}, {2, 16}, {4, 7}};
    for (const char *letters : {"TN", "cn"}) {
        for (const auto &[m, n] : tiny) {
            run(letters, m, n, 1000, 1.0f, 2.0f);
            EXPECT_EQ(pst_calls, 1) << m << " " << n;
            EXPECT_TRUE(calls.empty());
        }
        for (const auto &[m, n] : not_tiny) {
            run(letters, m, n, 20);
            EXPECT_EQ(pst_calls, 0) << m << " " << n;
            EXPECT_EQ(calls.size(), 1u);
        }
    }
    for (const char *letters : {"NN", "NT", "TT"}) {
        run(letters, 2, 2, 20);
        EXPECT_EQ(pst_calls, 0);
        EXPECT_EQ(calls.size(), 1u);
    }
}

TEST_P(sgemm_nocopy_driver, nothing_to_add_scales_c_alone)
{
    for (const char *letters : {"NN", "NT", "TN", "TT"}) {
        for (const std::int64_t m : {1, 3, 4, 5, 15, 16, 17, 35}) {
            for (const std::int64_t n : {1, 7, 8, 9, 17}) {
                for (const float beta : {0.0f, 1.0f, 2.0f}) {
                    if (letters[0] == 'T' && letters[1] == 'N' && m * n < 32)
                        continue;
                    run(letters, m, n, 0, 1.0f, beta);
                    EXPECT_TRUE(calls.empty());
                    run(letters, m, n, 3, 0.0f, beta);
                    EXPECT_TRUE(calls.empty());
                    if (HasFatalFailure())
                        return;
                }
            }
        }
    }
}

TEST_P(sgemm_nocopy_driver, clearing_c_does_not_read_it_and_reads_no_operand)
{
    const std::int64_t m = 9, n = 11, ldc = 13;
    std::vector<float> c(static_cast<std::size_t>(ldc * n), NAN);
    for (const float alpha : {0.0f, 1.0f}) {
        const std::int64_t k = alpha == 0.0f ? 5 : 0, ld = 20;
        const float beta = 0.0f;
        std::fill(c.begin(), c.end(), NAN);
        tesh_test::as_product(p.driver)("N", "N", &m, &n, &k, &alpha, nullptr, &ld, nullptr, &ld, &beta, c.data(),
                                        &ldc);
        for (std::size_t at = 0; at < c.size(); ++at) {
            if (static_cast<std::int64_t>(at) % ldc < m)
                ASSERT_EQ(c[at], 0.0f);
            else
                ASSERT_TRUE(std::isnan(c[at]));
        }
    }
}

TEST_P(sgemm_nocopy_driver, empty_c_is_left_alone)
{
    for (const auto &[m, n] : std::vector<std::array<std::int64_t, 2>>{{0, 3}, {3, 0}, {-1, 3}, {3, -1}}) {
        const std::int64_t k = 2, ld = 4;
        const float alpha = 1.0f, beta = 0.0f;
        float c = 7.0f;
        calls.clear();
        pst_calls = 0;
        tesh_test::as_product(p.driver)("T", "N", &m, &n, &k, &alpha, nullptr, &ld, nullptr, &ld, &beta, &c, &ld);
        EXPECT_EQ(c, 7.0f);
        EXPECT_TRUE(calls.empty());
        EXPECT_EQ(pst_calls, 0);
    }
}

INSTANTIATE_TEST_SUITE_P(paths, sgemm_nocopy_driver, testing::ValuesIn(tesh_test::nocopy_paths_to_run()),
                         tesh_test::nocopy_path_name);
} // namespace
