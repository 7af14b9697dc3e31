// SPDX-License-Identifier: BSD-3-Clause
// computes   C[m x n] += alpha*op(A)*op(B), m and n of at most 10, depth 1 to 10: a form for each depth
// registers  at depth 10: 10 of A + 1 sum + 1 product + 1 of alpha = 13 of 16
// layout     A, B, C where they lie, any alignment
// loop       the depth is straight-line code; rows four at a time, with their A in registers for all columns
// prefetch   none: operands this small are a few lines
// edges      of the last one to three rows the last one fills the idle lanes, so that a lane which is not stored raises
//            no floating-point flag that its neighbours do not raise
// measured   48 % of the 4-lane peak at 8 x 8 x 8, NN, beta 1, 36 ns a call (bench_sgemm --isa mc3 --group batch)
#include "frame/path/path_util.h"
#include "frame/path/vec_mc3.h"
#include "gemm/sgemm_mc3.h"

namespace
{
using reg = __m128;
constexpr int lanes = 4;

inline bool is_plain(const char *trans)
{
    return *trans == 'N' || *trans == 'n';
}

inline reg gather(const float *p, int64_t stride, int rows)
{
    const int64_t last = rows - 1;
    return _mm_setr_ps(p[0], p[min_of(1, last) * stride], p[min_of(2, last) * stride], p[min_of(3, last) * stride]);
}

inline void add_rows(float *c, reg x, int rows)
{
    if (rows == lanes) {
        _mm_storeu_ps(c, _mm_add_ps(_mm_loadu_ps(c), x));
        return;
    }
    float lane[lanes];
    _mm_storeu_ps(lane, x);
    for (int i = 0; i < rows; ++i)
        c[i] += lane[i];
}

// op(A) is plain or transposed by a_plain, op(B) by b_plain.
template <int depth, bool a_plain, bool b_plain>
inline void small_product(int64_t m, int64_t n, float alpha, const float *a, int64_t lda, const float *b, int64_t ldb,
                          float *c, int64_t ldc)
{
    const reg scale = _mm_set1_ps(alpha);
    for (int64_t i = 0; i < m; i += lanes) {
        const int rows = static_cast<int>(min_of(lanes, m - i));
        reg av[depth];
#pragma GCC unroll 10
        for (int l = 0; l < depth; ++l) {
            if (a_plain)
                av[l] = rows == lanes ? _mm_loadu_ps(a + l * lda + i) : gather(a + l * lda + i, 1, rows);
            else
                av[l] = gather(a + i * lda + l, lda, rows);
        }
        for (int64_t j = 0; j < n; ++j) {
            const float *const column = b_plain ? b + j * ldb : b + j;
            const int64_t next = b_plain ? 1 : ldb;
            reg sum = _mm_mul_ps(av[0], _mm_set1_ps(column[0]));
#pragma GCC unroll 10
            for (int l = 1; l < depth; ++l)
                sum = _mm_add_ps(sum, _mm_mul_ps(av[l], _mm_set1_ps(column[l * next])));
            add_rows(c + j * ldc + i, _mm_mul_ps(sum, scale), rows);
        }
    }
}

template <int depth>
inline void small_product(const char *transa, const char *transb, const int64_t *m, const int64_t *n,
                          const float *alpha, const float *a, const int64_t *lda, const float *b, const int64_t *ldb,
                          float *c, const int64_t *ldc)
{
    if (*alpha == 0.0f) // nothing to add, whatever A and B hold
        return;
    if (is_plain(transa)) {
        if (is_plain(transb))
            small_product<depth, true, true>(*m, *n, *alpha, a, *lda, b, *ldb, c, *ldc);
        else
            small_product<depth, true, false>(*m, *n, *alpha, a, *lda, b, *ldb, c, *ldc);
    } else {
        if (is_plain(transb))
            small_product<depth, false, true>(*m, *n, *alpha, a, *lda, b, *ldb, c, *ldc);
        else
            small_product<depth, false, false>(*m, *n, *alpha, a, *lda, b, *ldb, c, *ldc);
    }
}
} // namespace

extern "C" {
void tesh_blas_mc3_sgemm_sm_01(const char *transa, const char *transb, const int64_t *m, const int64_t *n,
                               const int64_t *, const float *alpha, const float *a, const int64_t *lda, const float *b,
                               const int64_t *ldb, const float *, float *c, const int64_t *ldc)
{
    small_product<1>(transa, transb, m, n, alpha, a, lda, b, ldb, c, ldc);
}

void tesh_blas_mc3_sgemm_sm_02(const char *transa, const char *transb, const int64_t *m, const int64_t *n,
                               const int64_t *, const float *alpha, const float *a, const int64_t *lda, const float *b,
                               const int64_t *ldb, const float *, float *c, const int64_t *ldc)
{
    small_product<2>(transa, transb, m, n, alpha, a, lda, b, ldb, c, ldc);
}

void tesh_blas_mc3_sgemm_sm_03(const char *transa, const char *transb, const int64_t *m, const int64_t *n,
                               const int64_t *, const float *alpha, const float *a, const int64_t *lda, const float *b,
                               const int64_t *ldb, const float *, float *c, const int64_t *ldc)
{
    small_product<3>(transa, transb, m, n, alpha, a, lda, b, ldb, c, ldc);
}

void tesh_blas_mc3_sgemm_sm_04(const char *transa, const char *transb, const int64_t *m, const int64_t *n,
                               const int64_t *, const float *alpha, const float *a, const int64_t *lda, const float *b,
                               const int64_t *ldb, const float *, float *c, const int64_t *ldc)
{
    small_product<4>(transa, transb, m, n, alpha, a, lda, b, ldb, c, ldc);
}

void tesh_blas_mc3_sgemm_sm_05(const char *transa, const char *transb, const int64_t *m, const int64_t *n,
                               const int64_t *, const float *alpha, const float *a, const int64_t *lda, const float *b,
                               const int64_t *ldb, const float *, float *c, const int64_t *ldc)
{
    small_product<5>(transa, transb, m, n, alpha, a, lda, b, ldb, c, ldc);
}

void tesh_blas_mc3_sgemm_sm_06(const char *transa, const char *transb, const int64_t *m, const int64_t *n,
                               const int64_t *, const float *alpha, const float *a, const int64_t *lda, const float *b,
                               const int64_t *ldb, const float *, float *c, const int64_t *ldc)
{
    small_product<6>(transa, transb, m, n, alpha, a, lda, b, ldb, c, ldc);
}

void tesh_blas_mc3_sgemm_sm_07(const char *transa, const char *transb, const int64_t *m, const int64_t *n,
                               const int64_t *, const float *alpha, const float *a, const int64_t *lda, const float *b,
                               const int64_t *ldb, const float *, float *c, const int64_t *ldc)
{
    small_product<7>(transa, transb, m, n, alpha, a, lda, b, ldb, c, ldc);
}

void tesh_blas_mc3_sgemm_sm_08(const char *transa, const char *transb, const int64_t *m, const int64_t *n,
                               const int64_t *, const float *alpha, const float *a, const int64_t *lda, const float *b,
                               const int64_t *ldb, const float *, float *c, const int64_t *ldc)
{
    small_product<8>(transa, transb, m, n, alpha, a, lda, b, ldb, c, ldc);
}

void tesh_blas_mc3_sgemm_sm_09(const char *transa, const char *transb, const int64_t *m, const int64_t *n,
                               const int64_t *, const float *alpha, const float *a, const int64_t *lda, const float *b,
                               const int64_t *ldb, const float *, float *c, const int64_t *ldc)
{
    small_product<9>(transa, transb, m, n, alpha, a, lda, b, ldb, c, ldc);
}

void tesh_blas_mc3_sgemm_sm_10(const char *transa, const char *transb, const int64_t *m, const int64_t *n,
                               const int64_t *, const float *alpha, const float *a, const int64_t *lda, const float *b,
                               const int64_t *ldb, const float *, float *c, const int64_t *ldc)
{
    small_product<10>(transa, transb, m, n, alpha, a, lda, b, ldb, c, ldc);
}

void tesh_blas_mc3_sgemm_sm_01_10(const char *transa, const char *transb, const int64_t *m, const int64_t *n,
                                  const int64_t *k, const float *alpha, const float *a, const int64_t *lda,
                                  const float *b, const int64_t *ldb, const float *beta, float *c, const int64_t *ldc)
{
    static tesh_blas_sgemm_fn *const by_depth[] = {
        tesh_blas_mc3_sgemm_sm_01, tesh_blas_mc3_sgemm_sm_02, tesh_blas_mc3_sgemm_sm_03, tesh_blas_mc3_sgemm_sm_04,
        tesh_blas_mc3_sgemm_sm_05, tesh_blas_mc3_sgemm_sm_06, tesh_blas_mc3_sgemm_sm_07, tesh_blas_mc3_sgemm_sm_08,
        tesh_blas_mc3_sgemm_sm_09, tesh_blas_mc3_sgemm_sm_10,
    };
    if (*k >= 1 && *k <= 10)
        by_depth[*k - 1](transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
}
