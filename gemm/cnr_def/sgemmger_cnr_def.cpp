// SPDX-License-Identifier: BSD-3-Clause
// C := alpha*x*y^T + beta*C on the cnr_def path. The characters steer nothing.
#include "frame/path/vec_def.h"
#include "gemm/body/sgemmger_body.h"
#include "gemm/sgemmger_paths.h"

extern "C" void tesh_blas_cnr_def_xsgemmger(const char *, const char *, const int64_t *m, const int64_t *n,
                                            const float *alpha, const float *x, const int64_t *incx, const float *y,
                                            const int64_t *incy, const float *beta, float *c, const int64_t *ldc)
{
    sgemmger_body<vec_def>(m, n, alpha, x, incx, y, incy, beta, c, ldc);
}
