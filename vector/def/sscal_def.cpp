// SPDX-License-Identifier: BSD-3-Clause
// x := alpha*x on the def path.
#include "vector/body/sscal_def_body.h"
#include "vector/vector_paths.h"

extern "C" void tesh_blas_def_xsscal(const int64_t *n, const float *alpha, float *x, const int64_t *incx)
{
    sscal_def_body(n, alpha, x, incx);
}
