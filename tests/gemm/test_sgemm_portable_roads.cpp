// SPDX-License-Identifier: BSD-3-Clause
// What the portable forms call, in which order and on which blocks. The routines under them are played by this program,
// which writes every call down; the values are held elsewhere.
#include <array>
#include <cmath>

#include "gemm/sgemm_paths.h"
#include "tests/gemm/played_services.h"
#include "vector/matrix_vector_paths.h"

namespace
{
struct call {
    std::string what;
    std::int64_t m = 0, n = 0, k = 0;
    float beta = 0.0f;
    const float *a = nullptr, *b = nullptr;
    float *c = nullptr;
    bool operator==(const call &o) const
    {
        return what == o.what && m == o.m && n == o.n && k == o.k && beta == o.beta && a == o.a && b == o.b && c == o.c;
    }
};
std::vector<call> calls;

void PrintTo(const call &x, std::ostream *out)
{
    *out << x.what << " m=" << x.m << " n=" << x.n << " k=" << x.k << " beta=" << x.beta << " a=" << x.a << " b=" << x.b
         << " c=" << x.c << '\n';
}

void product(const char *what, const int64_t *m, const int64_t *n, const int64_t *k, const float *a, const float *b,
             const float *beta, float *c)
{
    calls.push_back({what, *m, *n, *k, *beta, a, b, c});
}

void copy(const char *what, const int64_t *depth, const int64_t *count, const float *source, float *panel)
{
    calls.push_back({what, *count, 0, *depth, 0.0f, source, nullptr, panel});
}

void inner(const char *what, const int64_t *rows, const int64_t *columns, const int64_t *depth, const float *a,
           const float *b, const float *beta, float *c)
{
    calls.push_back({what, *rows, *columns, *depth, *beta, a, b, c});
}
} // namespace

extern "C" {
void tesh_blas_def_sgemm_pst(const char *, const char *, const int64_t *m, const int64_t *n, const int64_t *k,
                             const float *, const float *a, const int64_t *, const float *b, const int64_t *,
                             const float *beta, float *c, const int64_t *)
{
    product("pst", m, n, k, a, b, beta, c);
}
void tesh_blas_def_xsgemv(const char *trans, const int64_t *m, const int64_t *n, const float *, const float *a,
                          const int64_t *, const float *x, const int64_t *incx, const float *beta, float *y,
                          const int64_t *incy, int64_t)
{
    EXPECT_EQ(*incy, 1);
    calls.push_back({std::string("gemv ") + *trans, *m, *n, *incx, *beta, a, x, y});
}
void tesh_blas_def_sgemm_zerom(const int64_t *m, const int64_t *n, float *c, const int64_t *)
{
    calls.push_back({"zerom", *m, *n, 0, 0.0f, nullptr, nullptr, c});
}
void tesh_blas_def_sgemm_scalm(const int64_t *m, const int64_t *n, const float *beta, float *c, const int64_t *)
{
    calls.push_back({"scalm", *m, *n, 0, *beta, nullptr, nullptr, c});
}
void tesh_blas_def_sgemm_mscale(const int64_t *m, const int64_t *n, const float *beta, float *c, const int64_t *)
{
    calls.push_back({"mscale", *m, *n, 0, *beta, nullptr, nullptr, c});
}
void tesh_blas_def_sgemm_copyan(const int64_t *k, const int64_t *m, const float *a, const int64_t *, const float *,
                                float *panel)
{
    copy("copyan", k, m, a, panel);
}
void tesh_blas_def_sgemm_copyat(const int64_t *k, const int64_t *m, const float *a, const int64_t *, const float *,
                                float *panel)
{
    copy("copyat", k, m, a, panel);
}
void tesh_blas_def_sgemm_copybn(const int64_t *k, const int64_t *n, const float *b, const int64_t *, float *panel)
{
    copy("copybn", k, n, b, panel);
}
void tesh_blas_def_sgemm_copybt(const int64_t *k, const int64_t *n, const float *b, const int64_t *, float *panel)
{
    copy("copybt", k, n, b, panel);
}
void tesh_blas_def_sgemm_inner(const int64_t *m, const int64_t *n, const int64_t *k, const float *a, const float *b,
                               float *, const float *beta, float *c, const int64_t *)
{
    inner("inner", m, n, k, a, b, beta, c);
}
void tesh_blas_def_sgemm_inner_roll(const int64_t *m, const int64_t *n, const int64_t *k, const float *a,
                                    const float *b, float *, const float *beta, float *c, const int64_t *)
{
    inner("roll", m, n, k, a, b, beta, c);
}
void tesh_blas_def_sgemm_inner_z_roll(const int64_t *m, const int64_t *n, const int64_t *k, const float *a,
                                      const float *b, float *, const float *beta, float *c, const int64_t *)
{
    inner("z_roll", m, n, k, a, b, beta, c);
}
void tesh_blas_def_sgemm_inner_b_roll(const int64_t *m, const int64_t *n, const int64_t *k, const float *a,
                                      const float *b, float *, const float *beta, float *c, const int64_t *)
{
    inner("b_roll", m, n, k, a, b, beta, c);
}
void tesh_blas_def_sgemm_kernel_0_zen(const int64_t *m, const int64_t *n, const int64_t *k, const float *,
                                      const float *, float *c, const int64_t *)
{
    calls.push_back({"zen", *m, *n, *k, 0.0f, nullptr, nullptr, c});
}
void tesh_blas_def_sgemm_kernel_0_bdz(const int64_t *m, const int64_t *n, const int64_t *k, const float *,
                                      const float *, float *c, const int64_t *)
{
    calls.push_back({"bdz", *m, *n, *k, 0.0f, nullptr, nullptr, c});
}
}

namespace
{
// Operands that nobody reads or writes: addresses only.
class portable_roads : public testing::Test
{
protected:
    void SetUp() override
    {
        played::reset();
        calls.clear();
    }
    void run(tesh_blas_sgemm_fn *routine, char transa, char transb, std::int64_t m, std::int64_t n, std::int64_t k,
             float alpha = 1.0f, float beta = 2.0f)
    {
        calls.clear();
        played::requests.clear();
        routine(&transa, &transb, &m, &n, &k, &alpha, a, &lda, b, &ldb, &beta, c, &ldc);
        EXPECT_TRUE(played::blocks.empty());
    }
    std::vector<std::string> names() const
    {
        std::vector<std::string> result;
        for (const call &x : calls)
            result.push_back(x.what);
        return result;
    }
    std::vector<call> only(const std::string &what) const
    {
        std::vector<call> result;
        for (const call &x : calls)
            if (x.what == what)
                result.push_back(x);
        return result;
    }
    static constexpr std::int64_t lda = 10000, ldb = 20000, ldc = 30000;
    std::unique_ptr<tesh_test::guarded_array<float>> space =
        std::make_unique<tesh_test::guarded_array<float>>(std::size_t{1} << 30);
    float *a = space->data(), *b = a + (1 << 28), *c = b + (1 << 28);
};
using list = std::vector<std::string>;

TEST_F(portable_roads, the_model_decides_on_type_0)
{
    const auto first = [&] {
        run(tesh_blas_def_xsgemm, 'N', 'N', 16, 16, 16);
        return calls.empty() ? std::string() : calls[0].what;
    };
    EXPECT_EQ(first(), "copybn");
    EXPECT_EQ(played::requests[0].bytes, 16u * 448u + 311552u);
    played::bulldozer = true;
    EXPECT_EQ(first(), "mscale");
    EXPECT_EQ(calls.back().what, "bdz");
    played::bulldozer = false;
    played::zen = true;
    EXPECT_EQ(first(), "mscale");
    EXPECT_EQ(calls.back().what, "zen");
    played::barcelona = true; // asked first
    EXPECT_EQ(first(), "mscale");
    EXPECT_EQ(calls.back().what, "roll");
    played::cpu_type = 1;
    EXPECT_EQ(first(), "copybn");
}

TEST_F(portable_roads, eight_cubed_is_one_slab_and_seven_deep_is_bufferless)
{
    run(tesh_blas_def_xsgemm, 'N', 'N', 8, 8, 8);
    EXPECT_EQ(names(), (list{"copybn", "copyan", "b_roll"}));
    EXPECT_EQ(calls[2].k, 8);
    for (const auto &[m, n, k] : {std::array<std::int64_t, 3>{8, 8, 7}, {7, 8, 8}, {8, 7, 8}}) {
        run(tesh_blas_def_xsgemm, 'N', 'N', m, n, k);
        ASSERT_EQ(names(), list{"pst"});
        EXPECT_EQ(calls[0], (call{"pst", m, n, k, 2.0f, a, b, c}));
        EXPECT_TRUE(played::requests.empty());
    }
}

TEST_F(portable_roads, beta_chooses_the_first_inner_routine)
{
    run(tesh_blas_def_xsgemm, 'T', 'T', 8, 8, 8, 1.0f, 0.0f);
    EXPECT_EQ(names(), (list{"copybt", "copyat", "z_roll"}));
    run(tesh_blas_def_xsgemm, 'C', 'C', 8, 8, 8, 1.0f, 1.0f);
    EXPECT_EQ(names(), (list{"copybt", "copyat", "roll"}));
    run(tesh_blas_def_xsgemm, 'n', 'n', 8, 8, 8, 1.0f, 0.5f);
    EXPECT_EQ(names(), (list{"copybn", "copyan", "b_roll"}));
    run(tesh_blas_def_xsgemm, 'n', 'n', 8, 8, 8, 1.0f, std::nanf(""));
    EXPECT_EQ(names(), (list{"copybn", "copyan", "b_roll"}));
}

TEST_F(portable_roads, the_last_slab_of_224_runs_first)
{
    run(tesh_blas_def_xsgemm, 'N', 'T', 8, 8, 224);
    ASSERT_EQ(names(), (list{"copybt", "copyan", "b_roll", "copybt", "copyan", "inner"}));
    EXPECT_EQ(calls[0].a, b + 112 * ldb);
    EXPECT_EQ(calls[1].a, a + 112 * lda);
    EXPECT_EQ(calls[2].k, 112);
    EXPECT_EQ(calls[2].beta, 2.0f);
    EXPECT_EQ(calls[3].a, b);
    EXPECT_EQ(calls[4].a, a);
    EXPECT_EQ(calls[5].k, 112);
    EXPECT_EQ(calls[5].beta, 1.0f);
}

TEST_F(portable_roads, the_short_slab_of_225_is_one_deep_runs_first_and_is_filled_up_to_4)
{
    run(tesh_blas_def_xsgemm, 'N', 'N', 8, 8, 225);
    ASSERT_EQ(names(), (list{"copybn", "copyan", "b_roll", "copybn", "copyan", "inner", "copybn", "copyan", "inner"}));
    EXPECT_EQ(calls[0].k, 1);
    EXPECT_EQ(calls[0].a, b + 224);
    EXPECT_EQ(calls[1].a, a + 224 * lda);
    EXPECT_EQ(calls[2].k, 4);
    EXPECT_EQ(calls[3].a, b);
    EXPECT_EQ(calls[6].a, b + 112);
}

TEST_F(portable_roads, rest_rows_go_bufferless_slab_by_slab)
{
    run(tesh_blas_def_xsgemm, 'N', 'N', 13, 8, 120);
    const std::vector<call> rests = only("pst");
    ASSERT_EQ(rests.size(), 2u);
    EXPECT_EQ(rests[0], (call{"pst", 5, 8, 8, 2.0f, a + 8 + 112 * lda, b + 112, c + 8}));
    EXPECT_EQ(rests[1], (call{"pst", 5, 8, 112, 1.0f, a + 8, b, c + 8}));
}

TEST_F(portable_roads, rest_columns_are_matrix_vector_products_of_the_whole_depth)
{
    run(tesh_blas_def_xsgemm, 'N', 'N', 13, 9, 120);
    ASSERT_EQ(only("gemv N").size(), 1u);
    EXPECT_EQ(calls.back(), (call{"gemv N", 13, 120, 1, 2.0f, a, b + 8 * ldb, c + 8 * ldc}));
    run(tesh_blas_def_xsgemm, 'T', 'T', 13, 11, 120);
    const std::vector<call> rests = only("gemv T");
    ASSERT_EQ(rests.size(), 3u);
    for (int j = 8; j < 11; ++j)
        EXPECT_EQ(rests[static_cast<std::size_t>(j - 8)], (call{"gemv T", 120, 13, ldb, 2.0f, a, b + j, c + j * ldc}));
    for (const call &x : only("copybt"))
        EXPECT_EQ(x.m, 8);
}

TEST_F(portable_roads, rows_go_in_chunks_of_640)
{
    for (const std::int64_t m : {640, 648, 4480, 4488, 5120, 5128, 10240}) {
        run(tesh_blas_def_xsgemm, 'N', 'N', m, 8, 8);
        std::int64_t next = 0;
        for (const call &x : only("b_roll")) {
            EXPECT_EQ(x.c, c + next);
            EXPECT_EQ(x.m, std::min<std::int64_t>(640, m - next));
            next += x.m;
        }
        EXPECT_EQ(next, m);
        EXPECT_EQ(only("copybn").size(), 1u) << "B is packed once a slab";
    }
}

TEST_F(portable_roads, columns_go_in_blocks_of_2000_and_the_slabs_run_inside)
{
    run(tesh_blas_def_xsgemm, 'N', 'N', 8, 4003, 113);
    ASSERT_EQ(names(), (list{"copybn", "copyan", "b_roll", "copybn", "copyan", "inner", "copybn", "copyan", "b_roll",
                             "copybn", "copyan", "inner", "gemv N", "gemv N", "gemv N"}));
    EXPECT_EQ(calls[0].m, 2000);
    EXPECT_EQ(calls[6].a, b + 2000 * ldb + 112);
    EXPECT_EQ(played::requests[0].bytes, 2000u * 448u + 311552u);
    EXPECT_EQ(played::requests[0].alignment, 128);
    EXPECT_EQ(calls[12].b, b + 4000 * ldb);
}

TEST_F(portable_roads, alpha_zero_only_scales)
{
    run(tesh_blas_def_xsgemm, 'N', 'N', 20, 20, 20, 0.0f, 0.0f);
    EXPECT_EQ(names(), list{"zerom"});
    run(tesh_blas_def_xsgemm, 'N', 'N', 20, 20, 20, 0.0f, 1.0f);
    EXPECT_EQ(names(), list{});
    run(tesh_blas_def_xsgemm, 'N', 'N', 20, 20, 20, 0.0f, 3.0f);
    EXPECT_EQ(calls, (std::vector<call>{{"scalm", 20, 20, 0, 3.0f, nullptr, nullptr, c}}));
    for (tesh_blas_sgemm_fn *routine : {tesh_blas_def_xsgemm_bdz, tesh_blas_def_xsgemm1_0_brc}) {
        run(routine, 'N', 'N', 20, 20, 20, 0.0f, 3.0f);
        EXPECT_EQ(calls, (std::vector<call>{{"mscale", 20, 20, 0, 3.0f, nullptr, nullptr, c}}));
        run(routine, 'N', 'N', 20, 20, 20, 0.0f, 1.0f);
        EXPECT_TRUE(calls.empty());
    }
}

TEST_F(portable_roads, a_refused_request_leaves_the_whole_product_to_the_bufferless_one)
{
    played::refuse = true;
    run(tesh_blas_def_xsgemm, 'N', 'N', 20, 20, 20);
    EXPECT_EQ(calls, (std::vector<call>{{"pst", 20, 20, 20, 2.0f, a, b, c}}));
    EXPECT_EQ(played::warned, list{"SGEMM"});
    for (const auto &[routine, name] :
         {std::pair<tesh_blas_sgemm_fn *, const char *>{tesh_blas_def_xsgemm_bdz, "xdgemm"},
          {tesh_blas_def_xsgemm1_brc, "SGEMM"}}) {
        played::warned.clear();
        run(routine, 'N', 'N', 20, 20, 20);
        ASSERT_EQ(names(), (list{"mscale", "pst"}));
        EXPECT_EQ(calls[1].beta, 1.0f) << "beta has gone over C already";
        EXPECT_EQ(played::warned, list{name});
    }
}

TEST_F(portable_roads, the_16_x_4_form_goes_depth_rows_columns)
{
    played::zen = true;
    run(tesh_blas_def_xsgemm_bdz, 'T', 'N', 6420, 400, 193, 1.0f, 1.0f);
    struct block {
        std::int64_t m, n, k, i, j;
    };
    const std::vector<block> want = {{6400, 384, 96, 0, 0},   {6400, 16, 96, 0, 384},  {20, 384, 96, 6400, 0},
                                     {20, 16, 96, 6400, 384}, {6400, 384, 96, 0, 0},   {6400, 16, 96, 0, 384},
                                     {20, 384, 96, 6400, 0},  {20, 16, 96, 6400, 384}, {6400, 384, 1, 0, 0},
                                     {6400, 16, 1, 0, 384},   {20, 384, 1, 6400, 0},   {20, 16, 1, 6400, 384}};
    ASSERT_EQ(calls.size(), want.size());
    for (std::size_t i = 0; i < want.size(); ++i)
        EXPECT_EQ(calls[i], (call{"zen", want[i].m, want[i].n, want[i].k, 0.0f, nullptr, nullptr,
                                  c + want[i].i + want[i].j * ldc}));
    EXPECT_EQ(played::requests[0].bytes, (6400u * 4u + 384u * 8u) * 96u + 16896u);
    EXPECT_EQ(played::requests[0].alignment, 128);
}

TEST_F(portable_roads, the_256_x_256_form_takes_columns_outside_and_rows_inside)
{
    run(tesh_blas_def_xsgemm1_brc, 'N', 'N', 304, 520, 300, 1.0f, 1.0f);
    struct block {
        std::int64_t m, n, k, i, j;
    };
    const std::vector<block> want = {{256, 512, 152, 0, 0},  {48, 512, 152, 256, 0}, {256, 512, 148, 0, 0},
                                     {48, 512, 148, 256, 0}, {256, 8, 152, 0, 512},  {48, 8, 152, 256, 512},
                                     {256, 8, 148, 0, 512},  {48, 8, 148, 256, 512}};
    ASSERT_EQ(calls.size(), want.size());
    for (std::size_t i = 0; i < want.size(); ++i) {
        EXPECT_EQ(calls[i].what, "roll");
        EXPECT_EQ(calls[i].m, want[i].m);
        EXPECT_EQ(calls[i].n, want[i].n);
        EXPECT_EQ(calls[i].k, want[i].k);
        EXPECT_EQ(calls[i].c, c + want[i].i + want[i].j * ldc);
    }
}
} // namespace
