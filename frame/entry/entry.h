// SPDX-License-Identifier: BSD-3-Clause
// The argument checks of the public routines: the routine's own arguments with the hidden character lengths behind. 0
// when the call may go on, 1 when an error was reported.
#pragma once
#include "frame/tesh_types.h"

#ifdef __cplusplus
extern "C" {
#endif

TESH_API int32_t tesh_blas_errchk_sgemm(const char *transa, const char *transb, const int64_t *m, const int64_t *n,
                                        const int64_t *k, const float *alpha, const float *a, const int64_t *lda,
                                        const float *b, const int64_t *ldb, const float *beta, const float *c,
                                        const int64_t *ldc, int64_t transa_length, int64_t transb_length);

// The copy routines take the values; TESH_SIMATCOPY and TESH_SOMATCOPY have no lengths to pass.
TESH_API int32_t tesh_trans_errchk_tesh_simatcopy(char ordering, char trans, uint64_t rows, uint64_t cols, float alpha,
                                                  const float *ab, uint64_t lda, uint64_t ldb);
TESH_API int32_t tesh_trans_errchk_tesh_somatcopy(char ordering, char trans, uint64_t rows, uint64_t cols, float alpha,
                                                  const float *a, uint64_t lda, const float *b, uint64_t ldb);

#ifdef __cplusplus
}
#endif
