// SPDX-License-Identifier: BSD-3-Clause
// Binding of SGEMM to a code path at the first call.
#include "frame/service/dispatch.h"
#include "gemm/sgemm_direct.h"
#include "gemm/sgemm_paths.h"

namespace
{
constexpr tesh_blas_sgemm_fn *members[dispatch_path_count] = {
    tesh_blas_def_xsgemm,  tesh_blas_cnr_def_xsgemm, tesh_blas_mc3_xsgemm,
    tesh_blas_avx2_xsgemm, tesh_blas_avx512_xsgemm,
};
} // namespace

extern "C" {
tesh_blas_sgemm_fn *tesh_xsgemm_address;

void tesh_blas_xsgemm(const char *transa, const char *transb, const int64_t *m, const int64_t *n, const int64_t *k,
                      const float *alpha, const float *a, const int64_t *lda, const float *b, const int64_t *ldb,
                      const float *beta, float *c, const int64_t *ldc)
{
    return dispatch<tesh_xsgemm_address, members>(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
}
