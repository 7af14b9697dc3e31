// SPDX-License-Identifier: BSD-3-Clause
// modified rotation on the avx2 path.
#include "frame/path/vec_avx2.h"
#include "vector/body/srotm_line_body.h"
#include "vector/vector_paths.h"

extern "C" void tesh_blas_avx2_xsrotm(const int64_t *n, float *x, const int64_t *incx, float *y, const int64_t *incy,
                                      const float *param)
{
    srotm_line_body<vec_avx2>(n, x, incx, y, incy, param);
}
