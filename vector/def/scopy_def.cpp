// SPDX-License-Identifier: BSD-3-Clause
// y := x on the def path.
#include "vector/body/scopy_def_body.h"
#include "vector/vector_paths.h"

extern "C" void tesh_blas_def_xscopy(const int64_t *n, const float *x, const int64_t *incx, float *y,
                                     const int64_t *incy)
{
    scopy_def_body(n, x, incx, y, incy);
}
