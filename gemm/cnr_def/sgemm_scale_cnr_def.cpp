// SPDX-License-Identifier: BSD-3-Clause
// C := 0 and C := beta*C on the cnr_def path.
#include "frame/path/vec_def.h"
#include "gemm/body/sgemm_scale_body.h"
#include "gemm/sgemm_paths.h"

extern "C" void tesh_blas_cnr_def_sgemm_zerom(const int64_t *rows, const int64_t *columns, float *c, const int64_t *ldc)
{
    clear_columns(*rows, *columns, c, *ldc);
}

extern "C" void tesh_blas_cnr_def_sgemm_scalm(const int64_t *rows, const int64_t *columns, const float *beta, float *c,
                                              const int64_t *ldc)
{
    scale_columns<vec_def, false>(*rows, *columns, *beta, c, *ldc);
}

extern "C" void tesh_blas_cnr_def_sgemm_mscale(const int64_t *rows, const int64_t *columns, const float *beta, float *c,
                                               const int64_t *ldc)
{
    scale_columns<vec_def, false>(*rows, *columns, *beta, c, *ldc);
}
