// SPDX-License-Identifier: BSD-3-Clause
// C := alpha*x*y^T + beta*C with one pass over C: the front and the dispatcher.
#include "frame/service/dispatch.h"
#include "gemm/sgemmger_paths.h"

namespace
{
tesh_blas_sgemmger_fn *sgemmger_address;

constexpr tesh_blas_sgemmger_fn *sgemmger_members[dispatch_path_count] = {
    tesh_blas_def_xsgemmger, tesh_blas_cnr_def_xsgemmger, tesh_blas_mc3_xsgemmger, tesh_blas_avx2_xsgemmger,
    tesh_blas_avx512_xsgemmger};
} // namespace

extern "C" void tesh_blas_sgemmger(const char *transa, const char *transb, const int64_t *m, const int64_t *n,
                                   const float *alpha, const float *x, const int64_t *incx, const float *y,
                                   const int64_t *incy, const float *beta, float *c, const int64_t *ldc)
{
    tesh_blas_xsgemmger(transa, transb, m, n, alpha, x, incx, y, incy, beta, c, ldc);
}

extern "C" void tesh_blas_xsgemmger(const char *transa, const char *transb, const int64_t *m, const int64_t *n,
                                    const float *alpha, const float *x, const int64_t *incx, const float *y,
                                    const int64_t *incy, const float *beta, float *c, const int64_t *ldc)
{
    dispatch<sgemmger_address, sgemmger_members>(transa, transb, m, n, alpha, x, incx, y, incy, beta, c, ldc);
}
