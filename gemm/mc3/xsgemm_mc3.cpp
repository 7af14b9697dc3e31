// SPDX-License-Identifier: BSD-3-Clause
// C := alpha*op(A)*op(B) + beta*C on the mc3 path. Tiny products with beta = 1 go by unrolled loops; all else scales C
// first and adds the product, blocked (columns, then depth, then rows) or, for what is thinner than a tile,
// by the bufferless form.
#include "frame/path/path_util.h"
#include "frame/path/vec_mc3.h"
#include "frame/tesh_serv.h"
#include "gemm/sgemm_mc3.h"
#include "gemm/sgemm_paths.h"

namespace
{
constexpr int64_t small_rows = 11, small_depth = 10; // below, and up to, which the unrolled forms serve

inline bool is_plain(const char *trans)
{
    return *trans == 'N' || *trans == 'n';
}

struct operands {
    bool a_plain, b_plain;
    const float *a, *b;
    int64_t lda, ldb;
    const float *block_of_a(int64_t i, int64_t l) const { return a_plain ? a + l * lda + i : a + i * lda + l; }
    const float *block_of_b(int64_t l, int64_t j) const { return b_plain ? b + j * ldb + l : b + l * ldb + j; }
};

// A B block that stays in the second-level cache, and A packed panel by panel just before its use.
inline void multiply_by_panels(const operands &x, const mc3_gemm_descriptor *desc, const mc3_gemm_buffers *buffers,
                               int64_t rows, int64_t cols, int64_t depth, int64_t i0, int64_t l0, const float *alpha,
                               float *c, const int64_t *ldc)
{
    const int64_t step = mc3_gemm_panel_tiles * desc->kernel.unroll_m;
    for (int64_t i = 0; i < rows; i += step) {
        const int64_t height = min_of(step, rows - i);
        desc->kernel.copya[x.a_plain ? 0 : 1](&depth, &height, x.block_of_a(i0 + i, l0), &x.lda, alpha, buffers->a);
        desc->kernel.ker0(&height, &cols, &depth, buffers->a, buffers->b, c + i, ldc);
    }
}
} // namespace

extern "C" {
void tesh_blas_mc3_sgemm_mscale(const int64_t *m, const int64_t *n, const float *beta, float *c, const int64_t *ldc)
{
    const __m128 s = _mm_set1_ps(*beta);
    for (int64_t j = 0; j < *n; ++j) {
        float *const column = c + j * *ldc;
        if (*beta == 0.0f) {
            __builtin_memset(column, 0, static_cast<size_t>(max_of(*m, 0)) * sizeof(float));
            continue;
        }
        int64_t i = 0;
        for (; i + 4 <= *m; i += 4)
            _mm_storeu_ps(column + i, _mm_mul_ps(_mm_loadu_ps(column + i), s));
        for (; i < *m; ++i)
            column[i] *= *beta;
    }
}

void tesh_blas_mc3_xsgemm_par(const char *transa, const char *transb, const int64_t *m, const int64_t *n,
                              const int64_t *k, const float *alpha, const float *a, const int64_t *lda, const float *b,
                              const int64_t *ldb, float *c, const int64_t *ldc, const mc3_gemm_descriptor *desc,
                              int64_t version)
{
    const float one = 1.0f;
    const int32_t scheme = version == 4 ? mc3_gemm_scheme_a_panel_b_block : mc3_gemm_scheme_a_block_b_block;
    mc3_gemm_buffers buffers = {};
    const int32_t refused =
        desc->kernel.get_bufs_size(scheme, mc3_gemm_size_of_problem, m, n, k, desc, &buffers) != 0 ||
        desc->kernel.get_bufs(scheme, &buffers) != 0;
    if (refused || tesh_serv_check_ptr_and_warn(buffers.base, "SGEMM") != 0) {
        tesh_blas_mc3_sgemm_pst(transa, transb, m, n, k, alpha, a, lda, b, ldb, &one, c, ldc);
        return;
    }
    const operands x = {is_plain(transa), is_plain(transb), a, b, *lda, *ldb};
    const mc3_gemm_kernel &kernel = desc->kernel;
    for (int64_t j = 0; j < *n; j += desc->block_n) {
        const int64_t cols = min_of(desc->block_n, *n - j);
        for (int64_t l = 0; l < *k; l += desc->block_k) {
            const int64_t depth = min_of(desc->block_k, *k - l);
            if (cols >= kernel.ext_min_n && depth >= kernel.ext_min_k)
                kernel.copyb_ext(transb, &depth, &cols, x.block_of_b(l, j), ldb, &one, buffers.b);
            else
                kernel.copyb[x.b_plain ? 0 : 1](&depth, &cols, x.block_of_b(l, j), ldb, &one, buffers.b);
            for (int64_t i = 0; i < *m; i += desc->block_m) {
                const int64_t rows = min_of(desc->block_m, *m - i);
                float *const block = c + j * *ldc + i;
                if (version == 4) {
                    multiply_by_panels(x, desc, &buffers, rows, cols, depth, i, l, alpha, block, ldc);
                    continue;
                }
                if (rows >= kernel.ext_min_m && depth >= kernel.ext_min_k)
                    kernel.copya_ext(transa, &depth, &rows, x.block_of_a(i, l), lda, alpha, buffers.a);
                else
                    kernel.copya[x.a_plain ? 0 : 1](&depth, &rows, x.block_of_a(i, l), lda, alpha, buffers.a);
                kernel.ker0(&rows, &cols, &depth, buffers.a, buffers.b, block, ldc);
            }
        }
    }
    tesh_blas_mc3_sgemm_free_bufs(&buffers);
}

void tesh_blas_mc3_xsgemm(const char *transa, const char *transb, const int64_t *m, const int64_t *n, const int64_t *k,
                          const float *alpha, const float *a, const int64_t *lda, const float *b, const int64_t *ldb,
                          const float *beta, float *c, const int64_t *ldc)
{
    if (*m <= 0 || *n <= 0)
        return;
    if (*m < small_rows && *n < small_rows && *k >= 1 && *k <= small_depth && *beta == 1.0f) {
        tesh_blas_mc3_sgemm_sm_01_10(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
        return;
    }
    mc3_gemm_descriptor desc;
    tesh_blas_mc3_sgemm_zero_desc(&desc);
    tesh_blas_mc3_sgemm_get_optimal_kernel(&desc);
    const float one = 1.0f;
    if (!(*beta == 1.0f))
        tesh_blas_mc3_sgemm_mscale(m, n, beta, c, ldc);
    if (*alpha == 0.0f)
        return;
    if (*m >= desc.kernel.unroll_m && *n >= desc.kernel.unroll_n && *k >= desc.kernel.unroll_k) {
        desc.kernel.get_blks_size(m, n, k, &desc);
        const int64_t version = tesh_blas_mc3_sgemm_get_kernel_version(n, k, &desc);
        tesh_blas_mc3_xsgemm_par(transa, transb, m, n, k, alpha, a, lda, b, ldb, c, ldc, &desc, version);
    } else {
        tesh_blas_mc3_sgemm_pst(transa, transb, m, n, k, alpha, a, lda, b, ldb, &one, c, ldc);
    }
}
}
