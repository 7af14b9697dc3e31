// SPDX-License-Identifier: BSD-3-Clause
// The members of the fused rank-1 update, one per code path.
#pragma once
#include "gemm/sgemm.h"

extern "C" {
TESH_API tesh_blas_sgemmger_fn tesh_blas_def_xsgemmger;
TESH_API tesh_blas_sgemmger_fn tesh_blas_cnr_def_xsgemmger;
TESH_API tesh_blas_sgemmger_fn tesh_blas_mc3_xsgemmger;
TESH_API tesh_blas_sgemmger_fn tesh_blas_avx2_xsgemmger;
TESH_API tesh_blas_sgemmger_fn tesh_blas_avx512_xsgemmger;
}
