// SPDX-License-Identifier: BSD-3-Clause
// The members of the level 1 families, one per code path. Each can be called directly on a processor that has the path.
#pragma once
#include "vector/vector.h"

extern "C" {
TESH_API tesh_blas_saxpby_fn tesh_blas_def_xsaxpby;
TESH_API tesh_blas_saxpy_fn tesh_blas_def_xsaxpy;
TESH_API tesh_blas_scopy_fn tesh_blas_def_xscopy;
TESH_API tesh_blas_sscal_fn tesh_blas_def_xsscal;
TESH_API tesh_blas_sswap_fn tesh_blas_def_xsswap;
TESH_API tesh_blas_srot_fn tesh_blas_def_xsrot;
TESH_API tesh_blas_snrm2_fn tesh_blas_def_xsnrm2;

TESH_API tesh_blas_saxpby_fn tesh_blas_cnr_def_xsaxpby;
TESH_API tesh_blas_saxpy_fn tesh_blas_cnr_def_xsaxpy;
TESH_API tesh_blas_scopy_fn tesh_blas_cnr_def_xscopy;
TESH_API tesh_blas_sscal_fn tesh_blas_cnr_def_xsscal;
TESH_API tesh_blas_sswap_fn tesh_blas_cnr_def_xsswap;
TESH_API tesh_blas_srot_fn tesh_blas_cnr_def_xsrot;
TESH_API tesh_blas_snrm2_fn tesh_blas_cnr_def_xsnrm2;

TESH_API tesh_blas_saxpby_fn tesh_blas_mc3_xsaxpby;
TESH_API tesh_blas_saxpy_fn tesh_blas_mc3_xsaxpy;
TESH_API tesh_blas_scopy_fn tesh_blas_mc3_xscopy;
TESH_API tesh_blas_sscal_fn tesh_blas_mc3_xsscal;
TESH_API tesh_blas_sswap_fn tesh_blas_mc3_xsswap;
TESH_API tesh_blas_srot_fn tesh_blas_mc3_xsrot;
TESH_API tesh_blas_snrm2_fn tesh_blas_mc3_xsnrm2;

TESH_API tesh_blas_saxpby_fn tesh_blas_avx2_xsaxpby;
TESH_API tesh_blas_saxpy_fn tesh_blas_avx2_xsaxpy;
TESH_API tesh_blas_scopy_fn tesh_blas_avx2_xscopy;
TESH_API tesh_blas_sscal_fn tesh_blas_avx2_xsscal;
TESH_API tesh_blas_sswap_fn tesh_blas_avx2_xsswap;
TESH_API tesh_blas_srot_fn tesh_blas_avx2_xsrot;
TESH_API tesh_blas_snrm2_fn tesh_blas_avx2_xsnrm2;
TESH_API tesh_blas_srotm_fn tesh_blas_avx2_xsrotm; // behind the path's own xsrot

TESH_API tesh_blas_saxpby_fn tesh_blas_avx512_xsaxpby;
TESH_API tesh_blas_saxpy_fn tesh_blas_avx512_xsaxpy;
TESH_API tesh_blas_scopy_fn tesh_blas_avx512_xscopy;
TESH_API tesh_blas_sscal_fn tesh_blas_avx512_xsscal;
TESH_API tesh_blas_sswap_fn tesh_blas_avx512_xsswap;
TESH_API tesh_blas_srot_fn tesh_blas_avx512_xsrot;
TESH_API tesh_blas_snrm2_fn tesh_blas_avx512_xsnrm2;
TESH_API tesh_blas_srotm_fn tesh_blas_avx512_xsrotm; // behind the path's own xsrot
} // extern "C"
