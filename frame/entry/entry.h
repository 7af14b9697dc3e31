// SPDX-License-Identifier: BSD-3-Clause
// The argument checks of the public routines: the routine's own arguments with the hidden character lengths behind. 0 when the
// call may go on, 1 when an error was reported.
#pragma once
#include "frame/tesh_types.h"

#ifdef __cplusplus
extern "C" {
#endif

TESH_API int32_t tesh_blas_errchk_sgemm(const char *transa, const char *transb, const int64_t *m, const int64_t *n,
                                        const int64_t *k, const float *alpha, const float *a, const int64_t *lda,
                                        const float *b, const int64_t *ldb, const float *beta, const float *c,
                                        const int64_t *ldc, int64_t transa_length, int64_t transb_length);

#ifdef __cplusplus
}
#endif
