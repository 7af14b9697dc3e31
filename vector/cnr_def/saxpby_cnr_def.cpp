// SPDX-License-Identifier: BSD-3-Clause
// y := alpha*x + beta*y on the cnr_def path.
#include "vector/body/saxpby_def_body.h"
#include "vector/vector_paths.h"

extern "C" void tesh_blas_cnr_def_xsaxpby(const int64_t *n, const float *alpha, const float *x, const int64_t *incx,
                                          const float *beta, float *y, const int64_t *incy)
{
    saxpby_def_body(n, alpha, x, incx, beta, y, incy);
}
