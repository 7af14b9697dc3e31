// SPDX-License-Identifier: BSD-3-Clause
// SGEMV on the def path: y := alpha*op(A)*x + beta*y, rows peeled to 16-byte boundaries.
#include "frame/path/path_util.h"
#include "frame/path/vec_def.h"
#include "vector/body/sgemv_frame.h"
#include "vector/body/sgemv_panels.h"
#include "vector/matrix_vector_paths.h"

extern "C" void tesh_blas_def_xsgemv(const char *trans, const int64_t *m, const int64_t *n, const float *alpha,
                                     const float *a, const int64_t *lda, const float *x, const int64_t *incx,
                                     const float *beta, float *y, const int64_t *incy, int64_t)
{
    sgemv_call call;
    if (sgemv_read(call, trans, m, n, alpha, a, lda, x, incx, beta, y, incy))
        sgemv_by_panels<vec_def, sgemv_form::peeled>(call);
}
