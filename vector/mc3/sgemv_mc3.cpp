// SPDX-License-Identifier: BSD-3-Clause
// SGEMV on the mc3 path: y := alpha*op(A)*x + beta*y, rows peeled to 16-byte boundaries; with a reproducibility branch
// in force, the form whose bits are the same at every alignment.
#include "frame/path/path_util.h"
#include "frame/path/vec_mc3.h"
#include "frame/tesh_serv.h"
#include "vector/body/sgemv_frame.h"
#include "vector/body/sgemv_panels.h"
#include "vector/matrix_vector_paths.h"

extern "C" void tesh_blas_mc3_xsgemv_cnr(const char *trans, const int64_t *m, const int64_t *n, const float *alpha,
                                         const float *a, const int64_t *lda, const float *x, const int64_t *incx,
                                         const float *beta, float *y, const int64_t *incy, int64_t)
{
    sgemv_call call;
    if (sgemv_read(call, trans, m, n, alpha, a, lda, x, incx, beta, y, incy))
        sgemv_by_panels<vec_mc3, sgemv_form::fixed>(call);
}

extern "C" void tesh_blas_mc3_xsgemv(const char *trans, const int64_t *m, const int64_t *n, const float *alpha,
                                     const float *a, const int64_t *lda, const float *x, const int64_t *incx,
                                     const float *beta, float *y, const int64_t *incy, int64_t trans_length)
{
    constexpr int32_t branch = 1;     // asks for the branch
    constexpr int32_t branch_off = 1; // and the answer without one
    sgemv_call call;
    if (!sgemv_read(call, trans, m, n, alpha, a, lda, x, incx, beta, y, incy))
        return;
    if (tesh_serv_cbwr_get(branch) != branch_off)
        tesh_blas_mc3_xsgemv_cnr(trans, m, n, alpha, a, lda, x, incx, beta, y, incy, trans_length);
    else
        sgemv_by_panels<vec_mc3, sgemv_form::peeled>(call);
}
