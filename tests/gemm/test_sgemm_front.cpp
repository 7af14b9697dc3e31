// SPDX-License-Identifier: BSD-3-Clause
// Which road the front takes for each shape. What it calls is played by this program: every call is written down with
// its arguments, and then does the product by plain loops, so that road and result are both held.
#include <array>
#include <cmath>

#include "frame/tesh_serv.h"
#include "tests/support/reference_gemm.h"
#include "vector/matrix_vector.h"
#include "vector/vector.h"

namespace
{
using tesh_test::gemm_operands;
using tesh_test::gemm_shape;

struct call {
    std::string what;          // routine, and for the matrix-vector product its letter
    std::int64_t m = 0, n = 0; // sizes as passed
    const float *matrix = nullptr, *x = nullptr;
    std::int64_t incx = 0, incy = 0;
    float beta = 0.0f;
    const float *out = nullptr;
};

std::vector<call> calls;
std::int32_t whole_cbwr = 1, cpu_type = 7, threads = 1;
bool refuse = false;
int blocks_out = 0;
std::vector<std::pair<std::size_t, std::int32_t>> requests;
std::vector<std::string> tested_names;

float at(const float *x, std::int64_t i, std::int64_t inc)
{
    return x[i * inc];
}
} // namespace

extern "C" {
int32_t tesh_serv_cbwr_get(int32_t what)
{
    EXPECT_EQ(what, -1);
    return whole_cbwr;
}
int32_t tesh_serv_cpu_detect(void)
{
    return cpu_type;
}
int32_t tesh_serv_domain_get_max_threads(int32_t domain)
{
    EXPECT_EQ(domain, 1);
    return threads;
}
void *tesh_serv_allocate(size_t size, int32_t alignment)
{
    requests.emplace_back(size, alignment);
    if (refuse)
        return nullptr;
    ++blocks_out;
    return std::aligned_alloc(static_cast<std::size_t>(alignment), (size + 127) / 128 * 128);
}
void tesh_serv_deallocate(void *pointer)
{
    --blocks_out;
    std::free(pointer);
}
int32_t tesh_serv_check_ptr_and_warn(const void *pointer, const char *name)
{
    tested_names.emplace_back(name);
    return pointer == nullptr;
}
void tesh_blas_xsgemm(const char *transa, const char *transb, const int64_t *m, const int64_t *n, const int64_t *k,
                      const float *alpha, const float *a, const int64_t *lda, const float *b, const int64_t *ldb,
                      const float *beta, float *c, const int64_t *ldc)
{
    calls.push_back({"xsgemm", *m, *n, a, b, *lda, *ldc, *beta, c});
    for (std::int64_t j = 0; j < *n; ++j) {
        for (std::int64_t i = 0; i < *m; ++i) {
            double sum = 0.0;
            for (std::int64_t p = 0; p < *k; ++p) {
                const float x = tesh_test::counts_as_n(*transa) ? a[i + p * *lda] : a[p + i * *lda];
                const float y = tesh_test::counts_as_n(*transb) ? b[p + j * *ldb] : b[j + p * *ldb];
                sum += static_cast<double>(x) * static_cast<double>(y);
            }
            float &out = c[i + j * *ldc];
            out = static_cast<float>(static_cast<double>(*alpha) * sum +
                                     (*beta == 0.0f ? 0.0 : double(*beta) * double(out)));
        }
    }
}
void tesh_blas_sgemv(const char *trans, const int64_t *m, const int64_t *n, const float *alpha, const float *a,
                     const int64_t *lda, const float *x, const int64_t *incx, const float *beta, float *y,
                     const int64_t *incy)
{
    calls.push_back({std::string("sgemv ") + *trans, *m, *n, a, x, *incx, *incy, *beta, y});
    const bool plain = *trans == 'N';
    const std::int64_t rows = plain ? *m : *n, columns = plain ? *n : *m;
    for (std::int64_t i = 0; i < rows; ++i) {
        double sum = 0.0;
        for (std::int64_t j = 0; j < columns; ++j)
            sum +=
                static_cast<double>(plain ? a[i + j * *lda] : a[j + i * *lda]) * static_cast<double>(at(x, j, *incx));
        float &out = y[i * *incy];
        out =
            static_cast<float>(static_cast<double>(*alpha) * sum + (*beta == 0.0f ? 0.0 : double(*beta) * double(out)));
    }
}
void tesh_blas_scopy(const int64_t *n, const float *x, const int64_t *incx, float *y, const int64_t *incy)
{
    calls.push_back({"scopy", *n, 0, nullptr, x, *incx, *incy, 0.0f, y});
    for (std::int64_t i = 0; i < *n; ++i)
        y[i * *incy] = x[i * *incx];
}
void tesh_blas_sgemmger(const char *, const char *, const int64_t *m, const int64_t *n, const float *alpha,
                        const float *x, const int64_t *incx, const float *y, const int64_t *incy, const float *beta,
                        float *c, const int64_t *ldc)
{
    calls.push_back({"sgemmger", *m, *n, x, y, *incx, *incy, *beta, c});
    for (std::int64_t j = 0; j < *n; ++j) {
        for (std::int64_t i = 0; i < *m; ++i) {
            float &out = c[i + j * *ldc];
            out = static_cast<float>(double(*alpha) * double(at(x, i, *incx)) * double(at(y, j, *incy)) +
                                     (*beta == 0.0f ? 0.0 : double(*beta) * double(out)));
        }
    }
}
}

namespace
{
class sgemm_front : public testing::Test
{
protected:
    void SetUp() override
    {
        whole_cbwr = 1;
        cpu_type = 7;
        threads = 1;
        refuse = false;
        calls.clear();
        requests.clear();
        tested_names.clear();
    }
    void TearDown() override { EXPECT_EQ(blocks_out, 0); }
    // Runs the front on fresh operands, holds the product, and leaves the calls that it made.
    const gemm_operands &run(const gemm_shape &s)
    {
        calls.clear();
        requests.clear();
        tested_names.clear();
        operands = std::make_unique<gemm_operands>(s, tesh_test::gemm_values::integers);
        operands->run(tesh_blas_sgemm);
        tesh_test::expect_gemm_result(*operands, true);
        return *operands;
    }
    std::vector<std::string> roads() const
    {
        std::vector<std::string> result;
        for (const call &c : calls)
            result.push_back(c.what);
        return result;
    }
    std::unique_ptr<gemm_operands> operands;
};
using names = std::vector<std::string>;

TEST_F(sgemm_front, empty_c_is_not_touched_and_nothing_is_asked)
{
    for (const auto &[m, n] : {std::pair<std::int64_t, std::int64_t>{0, 4}, {4, 0}, {-1, 4}, {4, -1}}) {
        const std::int64_t k = 3, ld = 4;
        const float alpha = 1.0f, beta = 0.0f;
        tesh_blas_sgemm("N", "N", &m, &n, &k, &alpha, nullptr, &ld, nullptr, &ld, &beta, nullptr, &ld);
    }
    EXPECT_TRUE(calls.empty());
}

TEST_F(sgemm_front, no_depth_goes_to_the_code_path)
{
    for (const std::int64_t m : {1, 5})
        for (const std::int64_t n : {1, 5}) {
            run({'N', 'N', m, n, 0, 1.0f, 2.0f});
            EXPECT_EQ(roads(), names{"xsgemm"});
        }
}

TEST_F(sgemm_front, one_row_is_a_matrix_vector_product_with_the_stride_of_c)
{
    for (const char transa : {'N', 'n', 'T', 't', 'C', 'c', 'Q'}) {
        for (const char transb : {'N', 'n', 'T', 't', 'C', 'c', 'Q'}) {
            const gemm_operands &x = run({transa, transb, 1, 6, 5, 2.0f, 3.0f, 1, 2, 4});
            ASSERT_EQ(calls.size(), 1u);
            const bool b_plain = tesh_test::counts_as_n(transb);
            EXPECT_EQ(calls[0].what, b_plain ? "sgemv T" : "sgemv N");
            EXPECT_EQ(calls[0].m, b_plain ? 5 : 6);
            EXPECT_EQ(calls[0].n, b_plain ? 6 : 5);
            EXPECT_EQ(calls[0].matrix, x.b.data());
            EXPECT_EQ(calls[0].x, x.a.data());
            EXPECT_EQ(calls[0].incx, tesh_test::counts_as_n(transa) ? x.shape.lda() : 1);
            EXPECT_EQ(calls[0].incy, x.shape.ldc());
        }
    }
}

TEST_F(sgemm_front, one_column_is_a_matrix_vector_product_of_unit_stride)
{
    for (const char transa : {'N', 'n', 'T', 't', 'C', 'c', 'Q'}) {
        for (const char transb : {'N', 'n', 'T', 't', 'C', 'c', 'Q'}) {
            const gemm_operands &x = run({transa, transb, 6, 1, 5, 2.0f, 3.0f, 1, 2, 4});
            ASSERT_EQ(calls.size(), 1u);
            const bool a_plain = tesh_test::counts_as_n(transa);
            EXPECT_EQ(calls[0].what, a_plain ? "sgemv N" : "sgemv T");
            EXPECT_EQ(calls[0].m, a_plain ? 6 : 5);
            EXPECT_EQ(calls[0].n, a_plain ? 5 : 6);
            EXPECT_EQ(calls[0].matrix, x.a.data());
            EXPECT_EQ(calls[0].x, x.b.data());
            EXPECT_EQ(calls[0].incx, tesh_test::counts_as_n(transb) ? 1 : x.shape.ldb());
            EXPECT_EQ(calls[0].incy, 1);
        }
    }
}

TEST_F(sgemm_front, one_element_takes_the_row_before_the_column)
{
    run({'N', 'N', 1, 1, 5, 1.0f, 1.0f, 1, 1, 7});
    ASSERT_EQ(roads(), names{"sgemv T"});
    EXPECT_EQ(calls[0].incy, 8);
}

TEST_F(sgemm_front, one_row_of_depth_one_takes_the_row_before_the_update)
{
    run({'N', 'N', 1, 6, 1, 1.0f, 1.0f});
    EXPECT_EQ(roads(), names{"sgemv T"});
}

TEST_F(sgemm_front, depth_one_is_an_update_with_increments_by_letter)
{
    for (const char transa : {'N', 'T', 'c'}) {
        for (const char transb : {'N', 'T', 'c'}) {
            const gemm_operands &x = run({transa, transb, 6, 5, 1, 2.0f, 3.0f, 1, 2, 0});
            ASSERT_EQ(roads(), names{"sgemmger"});
            EXPECT_EQ(calls[0].incx, transa == 'N' ? 1 : x.shape.lda());
            EXPECT_EQ(calls[0].incy, transb == 'N' ? x.shape.ldb() : 1);
            EXPECT_TRUE(requests.empty());
        }
    }
}

TEST_F(sgemm_front, a_long_strided_vector_is_gathered_before_the_update)
{
    const gemm_operands &x = run({'T', 'N', 100, 100, 1, 2.0f, 3.0f, 6});
    ASSERT_EQ(roads(), (names{"scopy", "sgemmger"}));
    EXPECT_EQ(calls[0].m, 100);
    EXPECT_EQ(calls[0].x, x.a.data());
    EXPECT_EQ(calls[0].incx, 7);
    EXPECT_EQ(calls[0].incy, 1);
    EXPECT_EQ(calls[1].matrix, calls[0].out);
    EXPECT_EQ(calls[1].incx, 1);
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0], (std::pair<std::size_t, std::int32_t>{400, 128}));
    EXPECT_EQ(tested_names, names{"SGEMM"});
}

TEST_F(sgemm_front, gathering_begins_at_65_rows_and_only_for_a_stride)
{
    const gemm_operands &x = run({'T', 'N', 64, 3, 1, 1.0f, 1.0f, 6});
    ASSERT_EQ(roads(), names{"sgemmger"});
    EXPECT_EQ(calls[0].incx, 7);
    EXPECT_EQ(calls[0].matrix, x.a.data());
    run({'T', 'N', 65, 3, 1, 1.0f, 1.0f, 6});
    EXPECT_EQ(roads(), (names{"scopy", "sgemmger"}));
    run({'T', 'N', 65, 3, 1, 1.0f, 1.0f, 0}); // a leading dimension of 1 is no stride
    EXPECT_EQ(roads(), names{"sgemmger"});
    run({'N', 'N', 65, 3, 1, 1.0f, 1.0f, 6});
    EXPECT_EQ(roads(), names{"sgemmger"});
}

TEST_F(sgemm_front, without_memory_the_update_reads_in_place)
{
    refuse = true;
    const gemm_operands &x = run({'T', 'N', 100, 100, 1, 2.0f, 0.0f, 6});
    ASSERT_EQ(roads(), names{"sgemmger"});
    EXPECT_EQ(calls[0].matrix, x.a.data());
    EXPECT_EQ(calls[0].incx, 7);
    EXPECT_EQ(tested_names, names{"SGEMM"});
}

TEST_F(sgemm_front, reproducible_mode_sends_every_shape_to_the_code_path)
{
    whole_cbwr = 0x10000 | 4;
    for (const auto &[m, n, k] :
         {std::array<std::int64_t, 3>{1, 6, 5}, {6, 1, 5}, {6, 5, 1}, {1, 1, 1}, {3, 60, 200}}) {
        run({'N', 'T', m, n, k, 1.0f, 1.0f});
        EXPECT_EQ(roads(), names{"xsgemm"});
    }
    whole_cbwr = 4; // a branch without the flag forbids nothing
    run({'N', 'N', 1, 6, 5, 1.0f, 1.0f});
    EXPECT_EQ(roads(), names{"sgemv T"});
}

TEST_F(sgemm_front, few_rows_take_the_narrow_road_on_type_4_with_one_thread_only)
{
    const gemm_shape s{'N', 'T', 3, 64, 200, 1.0f, 2.0f, 1, 2, 3};
    for (const std::int32_t type : {0, 3, 5, 7}) {
        cpu_type = type;
        run(s);
        EXPECT_EQ(roads(), names{"xsgemm"}) << type;
    }
    cpu_type = 4;
    threads = 2;
    run(s);
    EXPECT_EQ(roads(), names{"xsgemm"});
    threads = 1;
    run(s);
    EXPECT_EQ(roads(), names(6, "sgemv N"));
}

TEST_F(sgemm_front, narrow_slabs_of_130_are_100_and_30)
{
    cpu_type = 4;
    const gemm_operands &x = run({'n', 't', 2, 50, 130, 2.0f, 3.0f, 1, 2, 3});
    ASSERT_EQ(calls.size(), 4u);
    for (std::size_t i = 0; i < 4; ++i) {
        const std::int64_t row = static_cast<std::int64_t>(i % 2), k0 = i < 2 ? 0 : 100;
        EXPECT_EQ(calls[i].what, "sgemv N");
        EXPECT_EQ(calls[i].m, 50);
        EXPECT_EQ(calls[i].n, i < 2 ? 100 : 30);
        EXPECT_EQ(calls[i].beta, i < 2 ? 3.0f : 1.0f);
        EXPECT_EQ(calls[i].matrix, x.b.data() + k0 * x.shape.ldb());
        EXPECT_EQ(calls[i].x, x.a.data() + row + k0 * x.shape.lda());
        EXPECT_EQ(calls[i].incx, x.shape.lda());
        EXPECT_EQ(calls[i].out, x.c.data() + row);
        EXPECT_EQ(calls[i].incy, x.shape.ldc());
    }
}

TEST_F(sgemm_front, narrow_slabs_of_200_are_two_of_100)
{
    cpu_type = 4;
    run({'N', 'T', 2, 50, 200, 1.0f, 0.0f});
    ASSERT_EQ(calls.size(), 4u);
    EXPECT_EQ(calls[3].n, 100);
    EXPECT_EQ(calls[3].beta, 1.0f);
    run({'N', 'T', 2, 50, 201, 1.0f, 0.0f});
    ASSERT_EQ(calls.size(), 6u);
    EXPECT_EQ(calls[5].n, 1);
}

TEST_F(sgemm_front, the_narrow_road_has_edges)
{
    cpu_type = 4;
    const auto narrow = [&](char transa, char transb, std::int64_t m, std::int64_t n, std::int64_t k) {
        run({transa, transb, m, n, k, 1.0f, 1.0f});
        return calls[0].what == "sgemv N" && calls.size() > 1;
    };
    EXPECT_TRUE(narrow('N', 'T', 7, 50, 130));
    EXPECT_FALSE(narrow('N', 'T', 8, 50, 130));
    EXPECT_FALSE(narrow('N', 'T', 7, 49, 130));
    EXPECT_FALSE(narrow('N', 'T', 7, 50, 129));
    EXPECT_FALSE(narrow('N', 'c', 3, 64, 200));
    EXPECT_FALSE(narrow('N', 'C', 3, 64, 200));
    EXPECT_FALSE(narrow('N', 'N', 3, 64, 200));
    EXPECT_FALSE(narrow('T', 'T', 3, 64, 200));
    EXPECT_FALSE(narrow('N', 'T', 1, 64, 200)); // one row has its own road
}

TEST_F(sgemm_front, everything_else_goes_to_the_code_path_unchanged)
{
    for (const float alpha : {0.0f, 1.0f, 2.0f}) {
        for (const float beta : {0.0f, 1.0f, 2.0f}) {
            const gemm_operands &x = run({'T', 'C', 5, 4, 3, alpha, beta, 1, 2, 3});
            ASSERT_EQ(roads(), names{"xsgemm"});
            EXPECT_EQ(calls[0].matrix, x.a.data());
            EXPECT_EQ(calls[0].x, x.b.data());
            EXPECT_EQ(calls[0].out, x.c.data());
            EXPECT_EQ(calls[0].beta, beta);
        }
    }
}
} // namespace
