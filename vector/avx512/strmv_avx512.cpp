// SPDX-License-Identifier: BSD-3-Clause
// STRMV on the avx512 path: x := op(A)*x for a triangular A.
#include "vector/body/strmv_body.h"
#include "vector/body/strmv_in_body.h"
#include "vector/body/strmv_in_masked.h"
#include "vector/body/vec_masked_avx512.h"
#include "vector/matrix_vector_paths.h"

namespace
{
template <class access_type> void multiply(const triangle &t)
{
    strmv_in_body(t, masked_ops<masked_avx512, access_type>{access_type(t.incx)});
}
} // namespace

extern "C" void tesh_blas_avx512_strmv_in(const char *uplo, const char *trans, const char *diag, const int64_t *n,
                                          const float *a, const int64_t *lda, float *x, const int64_t *incx)
{
    const triangle t = strmv_in_read(uplo, trans, diag, n, a, lda, x, incx);
    if (t.incx == 1)
        multiply<contiguous_16>(t);
    else if (fits_stride_32(t.incx))
        multiply<stride_32>(t);
    else
        multiply<stride_64>(t);
}

extern "C" void tesh_blas_avx512_xstrmv(const char *uplo, const char *trans, const char *diag, const int64_t *n,
                                        const float *a, const int64_t *lda, float *x, const int64_t *incx, int64_t,
                                        int64_t, int64_t)
{
    strmv_body<tesh_blas_avx512_xsgemv, tesh_blas_avx512_strmv_in>(uplo, trans, diag, n, a, lda, x, incx);
}
