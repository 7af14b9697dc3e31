// SPDX-License-Identifier: BSD-3-Clause
// Packing of the generic form on the def path.
#include "gemm/body/sgemm_copy_body.h"
#include "gemm/sgemm_paths.h"

extern "C" void tesh_blas_def_sgemm_copyan(const int64_t *depth, const int64_t *rows, const float *a,
                                           const int64_t *lda, const float *alpha, float *panel)
{
    copy_a_down(*depth, *rows, a, *lda, *alpha, panel);
}

extern "C" void tesh_blas_def_sgemm_copyat(const int64_t *depth, const int64_t *rows, const float *a,
                                           const int64_t *lda, const float *alpha, float *panel)
{
    copy_a_right(*depth, *rows, a, *lda, *alpha, panel);
}

extern "C" void tesh_blas_def_sgemm_copybn(const int64_t *depth, const int64_t *columns, const float *b,
                                           const int64_t *ldb, float *panel)
{
    copy_b_right(*depth, *columns, b, *ldb, panel);
}

extern "C" void tesh_blas_def_sgemm_copybt(const int64_t *depth, const int64_t *columns, const float *b,
                                           const int64_t *ldb, float *panel)
{
    copy_b_down(*depth, *columns, b, *ldb, panel);
}
