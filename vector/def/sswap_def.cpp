// SPDX-License-Identifier: BSD-3-Clause
// x and y exchanged on the def path.
#include "vector/body/sswap_sse_body.h"
#include "vector/vector_paths.h"

extern "C" void tesh_blas_def_xsswap(const int64_t *n, float *x, const int64_t *incx, float *y, const int64_t *incy)
{
    sswap_sse_body(n, x, incx, y, incy);
}
