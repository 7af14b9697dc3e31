// SPDX-License-Identifier: BSD-3-Clause
// The public names as a program meets them: aliases, argument checks and their reports byte by byte, verbose lines, the
// C interface's mapping. Calls whose output or first-use behaviour counts run in children.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <regex>

#include "frame/entry/entry.h"
#include "frame/tesh.h"
#include "tests/support/child.h"
#include "tests/support/random.h"

namespace
{
using tesh_test::run_forked;

const int64_t i0 = 0, i1 = 1, i2 = 2, i3 = 3, im1 = -1;
const float one = 1.0f, zero = 0.0f;

std::string report(int parameter, const std::string &name)
{
    return "\nOrvan Tesh ERROR: Parameter " + std::to_string(parameter) + " was incorrect on entry to " + name + ".\n";
}

// Runs SGEMM on 2 x 2 operands with one argument replaced, and checks that nothing was written.
struct sgemm_call {
    const char *transa = "N", *transb = "N";
    const int64_t *m = &i2, *n = &i2, *k = &i2, *lda = &i2, *ldb = &i2, *ldc = &i2;

    int run() const
    {
        const float a[4] = {1, 2, 3, 4}, b[4] = {5, 6, 7, 8};
        float c[4] = {-1, -2, -3, -4};
        SGEMM(transa, transb, m, n, k, &one, a, lda, b, ldb, &zero, c, ldc);
        return c[0] == -1 && c[1] == -2 && c[2] == -3 && c[3] == -4 ? 0 : 1;
    }
};

void expect_report(const sgemm_call &call, int parameter)
{
    const auto child = run_forked([&] { return call.run(); });
    EXPECT_EQ(child.exit_code, 0) << "C was touched";
    EXPECT_EQ(child.out, report(parameter, "SGEMM "));
    EXPECT_EQ(child.err, "");
}

TEST(names, aliases_of_one_entry_share_one_address)
{
    const std::vector<std::vector<const char *>> rows = {
        {"SGEMM", "sgemm", "sgemm_", "SGEMM_64", "sgemm_64", "sgemm_64_", "tesh_blas__sgemm"},
        {"SAXPBY", "saxpby", "saxpby_", "SAXPBY_64", "saxpby_64", "saxpby_64_", "tesh_blas__saxpby"},
        {"LSAME", "lsame", "lsame_", "LSAME_64", "lsame_64", "lsame_64_", "tesh_lapack__lsame_"},
        {"TESH_GET_MAX_THREADS", "TESH_Get_Max_Threads", "tesh_get_max_threads", "tesh_get_max_threads_"},
        {"TESH_FREE_BUFFERS", "TESH_Free_Buffers", "tesh_free_buffers", "tesh_free_buffers_"},
    };
    for (const auto &row : rows)
        for (const char *name : row) {
            EXPECT_NE(dlsym(RTLD_DEFAULT, name), nullptr) << name;
            EXPECT_EQ(dlsym(RTLD_DEFAULT, name), dlsym(RTLD_DEFAULT, row[0])) << name;
        }
}

TEST(names, handlers_are_seven_separate_entries)
{
    const char *const names[] = {
        "xerbla", "xerbla_", "XERBLA_", "XERBLA", "cdecl_xerbla", "cblas_xerbla", "cblas_xerbla_malloc_error"};
    for (const char *x : names)
        for (const char *y : names)
            EXPECT_EQ(dlsym(RTLD_DEFAULT, x) == dlsym(RTLD_DEFAULT, y), x == y) << x << ' ' << y;
}

TEST(sgemm_check, reports_each_bad_argument_with_its_number)
{
    sgemm_call call;
    call.transa = "x";
    expect_report(call, 1);
    call = {};
    call.transb = "R";
    expect_report(call, 2);
    call = {};
    call.m = &im1;
    expect_report(call, 3);
    call = {};
    call.n = &im1;
    expect_report(call, 4);
    call = {};
    call.k = &im1;
    expect_report(call, 5);
    call = {};
    call.lda = &i1;
    expect_report(call, 8);
    call = {};
    call.ldb = &i1;
    expect_report(call, 10);
    call = {};
    call.ldc = &i1;
    expect_report(call, 13);
}

TEST(sgemm_check, reports_the_first_bad_argument_only)
{
    sgemm_call call;
    call.transb = "x";
    call.m = call.n = call.k = &im1;
    call.lda = call.ldb = call.ldc = &i0;
    expect_report(call, 2);
    call.transb = "N";
    call.m = &i2;
    expect_report(call, 4);
}

TEST(sgemm_check, leading_dimension_bounds_follow_the_transposition)
{
    const int64_t i5 = 5;
    sgemm_call call; // A is 2 x 5, B 5 x 2
    call.k = &i5;
    call.ldb = &i5;
    call.transa = "t";
    call.lda = &i3;
    expect_report(call, 8); // k rows now
    call.transa = "n";
    call.transb = "c";
    call.ldb = &i1;
    expect_report(call, 10); // n rows now
}

TEST(sgemm_check, zero_sizes_still_need_a_leading_dimension_of_one)
{
    sgemm_call call;
    call.m = call.n = call.k = &i0;
    call.lda = call.ldb = call.ldc = &i0;
    expect_report(call, 8);
    call.lda = &i1;
    expect_report(call, 10);
    call.ldb = &i1;
    expect_report(call, 13);
}

TEST(sgemm_check, empty_sizes_are_right)
{
    const auto child = run_forked([] {
        float c = 7;
        for (int empty = 0; empty < 3; ++empty) {
            const int64_t m = empty != 0, n = empty != 1, k = empty != 2;
            SGEMM("N", "T", &m, &n, &k, &one, &one, &i1, &one, &i1, &one, &c, &i1);
            for (int32_t layout : {101, 102})
                cblas_sgemm(layout, 111, 112, m, n, k, 1, &one, 1, &one, 1, 1, &c, 1);
        }
        return c == 7 ? 0 : 1;
    });
    EXPECT_EQ(child.exit_code, 0);
    EXPECT_EQ(child.out + child.err, "");
}

TEST(sgemm_check, answers_1_after_a_report_and_0_without_one)
{
    const auto child = run_forked([] {
        const auto check = [](const char *transa) {
            return tesh_blas_errchk_sgemm(transa, "N", &i2, &i2, &i2, &one, &one, &i2, &one, &i2, &one, &one, &i2, 1,
                                          1);
        };
        return check("c") * 10 + check("x");
    });
    EXPECT_EQ(child.exit_code, 1);
    EXPECT_EQ(child.out, report(1, "SGEMM "));
}

TEST(sgemm_check, bad_argument_prints_a_verbose_line_and_computes_nothing)
{
    const auto child = run_forked([] { return sgemm_call{"x"}.run(); }, {{"TESH_VERBOSE", "1"}});
    EXPECT_EQ(child.exit_code, 0);
    const std::string text = report(1, "SGEMM ");
    ASSERT_EQ(child.out.substr(0, text.size()), text);
    const std::regex lines(
        "TESH_VERBOSE Tesh 2025 [^\n]*, ilp64, sequential\n"
        "TESH_VERBOSE SGEMM\\(x,N,2,2,2,0x[0-9a-f]+,0x[0-9a-f]+,2,0x[0-9a-f]+,2,0x[0-9a-f]+,0x[0-9a-f]+,2"
        "\\) [0-9.]+(ns|us|s) CNR:OFF Dyn:1 FastMM:1\n");
    EXPECT_TRUE(std::regex_match(child.out.substr(text.size()), lines)) << child.out;
}

TEST(sgemm_check, what_stands_behind_a_bad_argument_is_not_read)
{
    sgemm_call call{"x"};
    call.m = call.n = call.k = call.lda = call.ldb = call.ldc = nullptr;
    expect_report(call, 1);
    call.transa = nullptr;
    expect_report(call, 1);
    call.transa = "N";
    call.transb = nullptr;
    expect_report(call, 2);
    call.transb = "N";
    call.m = &im1;
    expect_report(call, 3);
    call = {};
    call.lda = &i1;
    call.ldb = call.ldc = nullptr;
    expect_report(call, 8);
    call.lda = &i2;
    call.ldb = &i1;
    expect_report(call, 10);
}

TEST(sgemm_check, null_integers_behind_a_bad_argument_show_as_0_in_the_verbose_line)
{
    const auto child = run_forked(
        [] {
            sgemm_call call{"x"};
            call.m = call.k = call.ldb = call.ldc = nullptr;
            return call.run();
        },
        {{"TESH_VERBOSE", "1"}});
    EXPECT_EQ(child.exit_code, 0);
    const std::regex line("TESH_VERBOSE SGEMM\\(x,N,0,2,0,0x[0-9a-f]+,0x[0-9a-f]+,2,0x[0-9a-f]+,0,0x[0-9a-f]+,"
                          "0x[0-9a-f]+,0\\) ");
    EXPECT_TRUE(std::regex_search(child.out, line)) << child.out;
}

TEST(cblas_sgemm, dimension_is_reported_before_the_layout)
{
    float x[4] = {};
    const auto child = run_forked([&] {
        cblas_sgemm(100, 111, 111, -1, 2, 2, 1, x, 2, x, 2, 0, x, 2);
        return 0;
    });
    EXPECT_EQ(child.out, report(4, "cblas_sgemm"));
}

TEST(cblas_sgemm, reports_the_layout_behind_the_dimensions_and_in_front_of_the_leading_ones)
{
    struct row {
        int32_t layout, transa, transb;
        int64_t m, n, k, lda, ldb, ldc;
        int parameter;
    };
    const row rows[] = {
        {100, 110, 114, -1, -1, -1, 0, 0, 0, 2}, {100, 113, 114, -1, -1, -1, 0, 0, 0, 3},
        {100, 111, 112, 2, -1, -1, 0, 0, 0, 5},  {100, 111, 112, 2, 2, -1, 0, 0, 0, 6},
        {100, 111, 112, 2, 2, 2, 0, 0, 0, 1},    {102, 111, 111, 3, 2, 2, 2, 2, 3, 9},
        {102, 112, 111, 3, 2, 4, 3, 4, 3, 9},    {102, 111, 111, 3, 2, 4, 3, 3, 3, 11},
        {102, 111, 113, 3, 5, 4, 3, 4, 3, 11},   {102, 111, 111, 3, 2, 4, 3, 4, 2, 14},
        {101, 111, 111, 3, 2, 4, 3, 2, 2, 9},    {101, 112, 111, 3, 2, 4, 2, 2, 2, 9},
        {101, 111, 111, 3, 5, 4, 4, 4, 5, 11},   {101, 111, 112, 3, 5, 4, 4, 3, 5, 11},
        {101, 111, 111, 3, 5, 4, 4, 5, 4, 14},   {102, 111, 111, 0, 0, 0, 0, 0, 0, 9},
        {102, 111, 111, 0, 0, 0, 1, 0, 0, 11},   {102, 111, 111, 0, 0, 0, 1, 1, 0, 14},
        {101, 112, 112, 0, 0, 0, 0, 0, 0, 9},    {101, 112, 112, 0, 0, 0, 1, 0, 0, 11},
        {101, 112, 112, 0, 0, 0, 1, 1, 0, 14},
    };
    for (const row &r : rows) {
        float x[64] = {};
        const auto child = run_forked([&] {
            cblas_sgemm(r.layout, r.transa, r.transb, r.m, r.n, r.k, 1, x, r.lda, x, r.ldb, 0, x, r.ldc);
            return 0;
        });
        EXPECT_EQ(child.out, report(r.parameter, "cblas_sgemm")) << r.layout << ' ' << r.parameter;
    }
}

TEST(cblas_sgemm, row_major_with_empty_depth_accepts_leading_dimension_one)
{
    const auto child = run_forked([] {
        const float x = 0;
        float c[6] = {1, 2, 3, 4, 5, 6};
        cblas_sgemm(101, 111, 111, 2, 3, 0, 1, &x, 1, &x, 3, 2, c, 3);
        return c[0] == 2 && c[5] == 12 ? 0 : 1;
    });
    EXPECT_EQ(child.exit_code, 0);
    EXPECT_EQ(child.out, "");
}

TEST(cblas_sgemm, both_layouts_and_all_transpositions_agree_with_the_definition)
{
    tesh_test::random random;
    const int64_t m = 5, n = 4, k = 3, ld = 7;
    for (int32_t layout : {101, 102})
        for (int32_t ta : {111, 112, 113})
            for (int32_t tb : {111, 112, 113}) {
                float a[49], b[49], c[49], c0[49];
                random.fill_integers(a);
                random.fill_integers(b);
                random.fill_integers(c);
                std::copy(c, c + 49, c0);
                const auto at = [&](const float *x, int64_t i, int64_t j) {
                    return x[layout == 102 ? j * ld + i : i * ld + j];
                };
                cblas_sgemm(layout, ta, tb, m, n, k, 2.0f, a, ld, b, ld, -1.0f, c, ld);
                for (int64_t i = 0; i < m; ++i)
                    for (int64_t j = 0; j < n; ++j) {
                        float sum = 0;
                        for (int64_t l = 0; l < k; ++l)
                            sum += (ta == 111 ? at(a, i, l) : at(a, l, i)) * (tb == 111 ? at(b, l, j) : at(b, j, l));
                        EXPECT_EQ(at(c, i, j), 2.0f * sum - at(c0, i, j)) << layout << ' ' << ta << ' ' << tb;
                    }
            }
}

TEST(cblas_sgemm, verbose_line_names_sgemm_with_the_arguments_as_swapped)
{
    const auto child = run_forked([] {
        tesh_serv_verbose(1);
        float a[6] = {}, b[12] = {}, c[8] = {};
        cblas_sgemm(101, 112, 111, 2, 4, 3, 1, a, 2, b, 4, 0, c, 4);
        return 0;
    });
    EXPECT_NE(child.out.find("TESH_VERBOSE SGEMM(N,T,4,2,3,"), std::string::npos) << child.out;
}

TEST(saxpby, no_size_is_an_error)
{
    const auto child = run_forked([] {
        float y[2] = {1, 2};
        const float nan = std::numeric_limits<float>::quiet_NaN();
        for (const int64_t n : {int64_t(0), int64_t(-1), std::numeric_limits<int64_t>::min()})
            SAXPBY(&n, &nan, nullptr, &i1, &nan, y, &i1);
        cblas_saxpby(-5, nan, nullptr, 1, nan, y, 1);
        return y[0] == 1 && y[1] == 2 ? 0 : 1;
    });
    EXPECT_EQ(child.exit_code, 0);
    EXPECT_EQ(child.out + child.err, "");
}

TEST(saxpby, c_form_agrees_with_the_fortran_form)
{
    float x[5] = {1, 2, 3, 4, 5}, y[5] = {5, 4, 3, 2, 1}, z[5] = {5, 4, 3, 2, 1};
    const int64_t n = 5, inc = -1;
    const float alpha = 3, beta = -2;
    saxpby_64_(&n, &alpha, x, &inc, &beta, y, &i1);
    cblas_saxpby(5, 3, x, -1, -2, z, 1);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(y[i], 3.0f * x[4 - i] - 2.0f * static_cast<float>(5 - i));
        EXPECT_EQ(z[i], y[i]);
    }
}

TEST(verbose, level_switched_on_after_the_first_call_takes_effect_at_the_next)
{
    const auto child = run_forked([] {
        float x[1] = {1}, y[1] = {1};
        for (int32_t level : {0, 1, 0, 2}) {
            tesh_serv_verbose(level);
            cblas_saxpby(1, 1, x, 1, 1, y, 1);
            cblas_sgemm(102, 111, 111, 1, 1, 1, 1, x, 1, x, 1, 0, y, 1);
        }
        return 0;
    });
    const std::regex line("TESH_VERBOSE (SAXPBY|SGEMM)\\(");
    const auto lines =
        std::distance(std::sregex_iterator(child.out.begin(), child.out.end(), line), std::sregex_iterator());
    EXPECT_EQ(lines, 4) << child.out;
}

TEST(verbose, saxpby_line_prints_the_scalars_as_addresses)
{
    const auto child = run_forked([] {
        tesh_serv_verbose(1);
        float x[2] = {1, 2}, y[2] = {1, 1};
        const int64_t n = 2, incx = -1, incy = 1;
        const float alpha = 2, beta = 3;
        char expected[256];
        std::snprintf(expected, sizeof expected, "SAXPBY(2,%p,%p,-1,%p,%p,1)", static_cast<const void *>(&alpha),
                      static_cast<const void *>(x), static_cast<const void *>(&beta), static_cast<const void *>(y));
        std::fputs(expected, stderr);
        SAXPBY(&n, &alpha, x, &incx, &beta, y, &incy);
        return 0;
    });
    EXPECT_NE(child.out.find("\nTESH_VERBOSE " + child.err + " "), std::string::npos) << child.out << child.err;
}

TEST(handlers, cblas_xerbla_malloc_error_reports_missing_workspace)
{
    const auto child = run_forked([] {
        cblas_xerbla_malloc_error("cblas_sgemm");
        return 0;
    });
    EXPECT_EQ(child.out, "\nOrvan Tesh INTERNAL ERROR: Insufficient workspace available in function cblas_sgemm.\n");
}

TEST(utilities, answers_of_the_sequential_form)
{
    EXPECT_EQ(TESH_Get_Max_Threads(), 1);
    EXPECT_NE(lsame_("n", "N", 0, 0), 0);
    EXPECT_EQ(lsame_("n", "M", 1, 1), 0);
    TESH_Free_Buffers();
}
} // namespace
