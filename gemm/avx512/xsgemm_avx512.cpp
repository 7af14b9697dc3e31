// SPDX-License-Identifier: BSD-3-Clause
// C := alpha*op(A)*op(B) + beta*C on the avx512 path, by its bufferless product.
#include "gemm/sgemm_paths.h"

extern "C" void tesh_blas_avx512_xsgemm(const char *transa, const char *transb, const int64_t *m, const int64_t *n,
                                        const int64_t *k, const float *alpha, const float *a, const int64_t *lda,
                                        const float *b, const int64_t *ldb, const float *beta, float *c,
                                        const int64_t *ldc)
{
    tesh_blas_avx512_sgemm_pst(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
