// SPDX-License-Identifier: BSD-3-Clause
// Inner products of a packed pair on the cnr_def path: the first slab by beta, the later ones onto what is there.
#include "frame/path/vec_def.h"
#include "gemm/body/sgemm_inner_body.h"
#include "gemm/sgemm_paths.h"

extern "C" void tesh_blas_cnr_def_sgemm_inner(const int64_t *rows, const int64_t *columns, const int64_t *depth,
                                              const float *a_panel, const float *b_panel, float *work,
                                              [[maybe_unused]] const float *beta, float *c, const int64_t *ldc)
{
    inner_product<vec_def, inner_beta::one>(*rows, *columns, *depth, a_panel, b_panel, work, 1.0f, c, *ldc);
}

extern "C" void tesh_blas_cnr_def_sgemm_inner_roll(const int64_t *rows, const int64_t *columns, const int64_t *depth,
                                                   const float *a_panel, const float *b_panel, float *work,
                                                   [[maybe_unused]] const float *beta, float *c, const int64_t *ldc)
{
    inner_product<vec_def, inner_beta::one>(*rows, *columns, *depth, a_panel, b_panel, work, 1.0f, c, *ldc);
}

extern "C" void tesh_blas_cnr_def_sgemm_inner_z_roll(const int64_t *rows, const int64_t *columns, const int64_t *depth,
                                                     const float *a_panel, const float *b_panel, float *work,
                                                     [[maybe_unused]] const float *beta, float *c, const int64_t *ldc)
{
    inner_product<vec_def, inner_beta::zero>(*rows, *columns, *depth, a_panel, b_panel, work, 0.0f, c, *ldc);
}

extern "C" void tesh_blas_cnr_def_sgemm_inner_b_roll(const int64_t *rows, const int64_t *columns, const int64_t *depth,
                                                     const float *a_panel, const float *b_panel, float *work,
                                                     const float *beta, float *c, const int64_t *ldc)
{
    inner_product<vec_def, inner_beta::any>(*rows, *columns, *depth, a_panel, b_panel, work, *beta, c, *ldc);
}
