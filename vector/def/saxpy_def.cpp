// SPDX-License-Identifier: BSD-3-Clause
// y := alpha*x + y on the def path.
#include "vector/body/saxpy_def_body.h"
#include "vector/vector_paths.h"

extern "C" void tesh_blas_def_xsaxpy(const int64_t *n, const float *alpha, const float *x, const int64_t *incx,
                                     float *y, const int64_t *incy)
{
    saxpy_def_body(n, alpha, x, incx, y, incy);
}
