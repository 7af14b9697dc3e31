// SPDX-License-Identifier: BSD-3-Clause
// STRMV on the avx2 path: x := op(A)*x for a triangular A.
#include "vector/body/strmv_body.h"
#include "vector/body/strmv_in_body.h"
#include "vector/body/strmv_in_masked.h"
#include "vector/body/vec_masked_avx2.h"
#include "vector/matrix_vector_paths.h"

extern "C" void tesh_blas_avx2_strmv_in(const char *uplo, const char *trans, const char *diag, const int64_t *n,
                                        const float *a, const int64_t *lda, float *x, const int64_t *incx)
{
    const triangle t = strmv_in_read(uplo, trans, diag, n, a, lda, x, incx);
    if (t.incx == 1)
        strmv_in_body(t, masked_ops<masked_avx2, contiguous_8>{contiguous_8(1)});
    else
        strmv_in_body(t, masked_ops<masked_avx2, strided_8>{{t.incx}});
}

extern "C" void tesh_blas_avx2_xstrmv(const char *uplo, const char *trans, const char *diag, const int64_t *n,
                                      const float *a, const int64_t *lda, float *x, const int64_t *incx, int64_t,
                                      int64_t, int64_t)
{
    strmv_body<tesh_blas_avx2_xsgemv, tesh_blas_avx2_strmv_in>(uplo, trans, diag, n, a, lda, x, incx);
}
