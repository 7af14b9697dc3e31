// SPDX-License-Identifier: BSD-3-Clause
// sqrt(sum x(i)^2) on the cnr_def path.
#include "vector/body/snrm2_sse_body.h"
#include "vector/vector_paths.h"

extern "C" float tesh_blas_cnr_def_xsnrm2(const int64_t *n, const float *x, const int64_t *incx)
{
    return snrm2_sse_body(n, x, incx);
}
