// SPDX-License-Identifier: BSD-3-Clause
// C := alpha*op(A)*op(B) + beta*C: the front of every single-precision product. A product with one row, one column or
// depth one is a matrix-vector product or a rank-1 update and is done as such; all else goes to the code path. Shape
// alone decides: alpha, beta and NaN have their own handling on each road.
#include "frame/tesh_serv.h"
#include "gemm/sgemm.h"
#include "vector/matrix_vector.h"
#include "vector/vector.h"

namespace
{
constexpr int64_t reproducible_bit = 0x10000;
constexpr int64_t one = 1;
constexpr float one_point_zero = 1.0f;

constexpr int64_t narrow_max_m = 7, narrow_min_n = 50, narrow_min_k = 130;
constexpr int64_t narrow_slab = 100;   // depth of one pass over C
constexpr int32_t narrow_cpu_type = 4; // the only type that gains by it
constexpr int64_t gather_min_m = 65;   // from here on a strided vector of A is gathered before the update
constexpr int32_t gather_alignment = 128;

bool is_n(const char *trans)
{
    return *trans == 'N' || *trans == 'n';
}

bool is_t(const char *trans)
{
    return *trans == 'T' || *trans == 't';
}

// A few rows, many columns: one matrix-vector product per row of C and slab of the depth. The slab is the outer loop,
// so that its part of B is read from cache by all rows but the first.
[[gnu::noinline]] void narrow_product(int64_t m, const int64_t *n, int64_t k, const float *alpha, const float *a,
                                      const int64_t *lda, const float *b, const int64_t *ldb, const float *beta,
                                      float *c, const int64_t *ldc)
{
    for (int64_t k0 = 0; k0 < k; k0 += narrow_slab) {
        const int64_t kb = k0 + narrow_slab < k ? narrow_slab : k - k0;
        for (int64_t i = 0; i < m; ++i)
            tesh_blas_sgemv("N", n, &kb, alpha, b + k0 * *ldb, ldb, a + i + k0 * *lda, lda,
                            k0 == 0 ? beta : &one_point_zero, c + i, ldc);
    }
}

// k = 1. A vector of A that lies along a row costs a cache line per element, once per column of C: a long one is
// gathered first. Without memory for that the update reads it in place.
void rank_1_update(const char *transa, const char *transb, const int64_t *m, const int64_t *n, const float *alpha,
                   const float *a, const int64_t *lda, const float *b, const int64_t *ldb, const float *beta, float *c,
                   const int64_t *ldc)
{
    const int64_t inca = is_n(transa) ? 1 : *lda, incb = is_n(transb) ? *ldb : 1;
    if (inca != 1 && *m >= gather_min_m) {
        size_t bytes;
        void *buffer = __builtin_mul_overflow(static_cast<size_t>(*m), sizeof(float), &bytes)
                           ? nullptr
                           : tesh_serv_allocate(bytes, gather_alignment);
        if (tesh_serv_check_ptr_and_warn(buffer, "SGEMM") == 0) {
            float *gathered = static_cast<float *>(buffer);
            tesh_blas_scopy(m, a, &inca, gathered, &one);
            tesh_blas_sgemmger(transa, transb, m, n, alpha, gathered, &one, b, &incb, beta, c, ldc);
            tesh_serv_deallocate(buffer);
            return;
        }
    }
    tesh_blas_sgemmger(transa, transb, m, n, alpha, a, &inca, b, &incb, beta, c, ldc);
}

// Every test behind that for an empty C, in its order.
[[gnu::noinline]] void by_thin_shape(const char *transa, const char *transb, const int64_t *m, const int64_t *n,
                                     const int64_t *k, const float *alpha, const float *a, const int64_t *lda,
                                     const float *b, const int64_t *ldb, const float *beta, float *c,
                                     const int64_t *ldc)
{
    if ((tesh_serv_cbwr_get(-1) & reproducible_bit) != 0 || *k == 0)
        return tesh_blas_xsgemm(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);

    // One row of C is op(B)^T times that row of op(A).
    if (*m == 1) {
        const int64_t *inca = is_n(transa) ? lda : &one;
        if (is_n(transb))
            return tesh_blas_sgemv("T", k, n, alpha, b, ldb, a, inca, beta, c, ldc);
        return tesh_blas_sgemv("N", n, k, alpha, b, ldb, a, inca, beta, c, ldc);
    }
    if (is_n(transa) && is_t(transb) && *n >= narrow_min_n && *k >= narrow_min_k && *m <= narrow_max_m) {
        if (tesh_serv_cpu_detect() != narrow_cpu_type || tesh_serv_domain_get_max_threads(1) != 1)
            return tesh_blas_xsgemm(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
        return narrow_product(*m, n, *k, alpha, a, lda, b, ldb, beta, c, ldc);
    }
    if (*n == 1) {
        const int64_t *incb = is_n(transb) ? &one : ldb;
        if (is_n(transa))
            return tesh_blas_sgemv("N", m, k, alpha, a, lda, b, incb, beta, c, &one);
        return tesh_blas_sgemv("T", k, m, alpha, a, lda, b, incb, beta, c, &one);
    }
    if (*k == 1)
        return rank_1_update(transa, transb, m, n, alpha, a, lda, b, ldb, beta, c, ldc);
    return tesh_blas_xsgemm(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

// Every test. An empty C is told before any argument on the stack is loaded.
[[gnu::noinline]] void by_shape(const char *transa, const char *transb, const int64_t *m, const int64_t *n,
                                const int64_t *k, const float *alpha, const float *a, const int64_t *lda,
                                const float *b, const int64_t *ldb, const float *beta, float *c, const int64_t *ldc)
{
    if (*m > 0 && *n > 0)
        by_thin_shape(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

// Whether no test of by_shape can take the product away from the code path, whatever the reproducibility setting.
// Without a branch: the caller then leaves the arguments on its stack where they are.
bool goes_to_the_path(int64_t m, int64_t n, int64_t k)
{
    return (m > 1) & (n > 1) & (k > 1) & ((m > narrow_max_m) | (n < narrow_min_n) | (k < narrow_min_k));
}
} // namespace

extern "C" void tesh_blas_sgemm(const char *transa, const char *transb, const int64_t *m, const int64_t *n,
                                const int64_t *k, const float *alpha, const float *a, const int64_t *lda,
                                const float *b, const int64_t *ldb, const float *beta, float *c, const int64_t *ldc)
{
    static tesh_blas_sgemm_fn *const next[] = {by_shape, tesh_blas_xsgemm};
    next[goes_to_the_path(*m, *n, *k)](transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
