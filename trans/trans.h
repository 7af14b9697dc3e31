// SPDX-License-Identifier: BSD-3-Clause
// Scaled transposition and copy for the entry layer and the other rooms. Arguments by value, right already: nothing is
// reported, and letters outside the known sets do nothing. No routine allocates, locks or keeps state.
#pragma once
#include "frame/tesh_types.h"

#ifdef __cplusplus
extern "C" {
#endif

// AB := alpha*op(AB); rows, cols of the source, lda of the source, ldb of the result [elements].
typedef void tesh_trans_simatcopy_fn(char ordering, char trans, uint64_t rows, uint64_t cols, float alpha, float *ab,
                                     uint64_t lda, uint64_t ldb);
// B := alpha*op(A).
typedef void tesh_trans_somatcopy_fn(char ordering, char trans, uint64_t rows, uint64_t cols, float alpha,
                                     const float *a, uint64_t lda, float *b, uint64_t ldb);
// The same with a stride between the elements of a line of each array.
typedef void tesh_trans_somatcopy2_fn(char ordering, char trans, uint64_t rows, uint64_t cols, float alpha,
                                      const float *a, uint64_t lda, uint64_t stridea, float *b, uint64_t ldb,
                                      uint64_t strideb);
// A worker's share of the square transposition in place: workers 0 .. workers-1 together do the whole of it, in any
// order and at the same time.
typedef void tesh_trans_simatcopy_team_fn(uint64_t n, float *a, uint64_t lda, uint64_t worker, uint64_t workers);

// Dispatchers.
TESH_API tesh_trans_simatcopy_fn tesh_trans_tesh_simatcopy;
TESH_API tesh_trans_somatcopy_fn tesh_trans_tesh_somatcopy;
TESH_API tesh_trans_somatcopy2_fn tesh_trans_tesh_somatcopy2_seq;

// Where a library with threads of its own hands the work to a team. This one runs on the caller's thread: the first
// goes on to tesh_trans_tesh_somatcopy2_seq, the second answers 0, not done.
TESH_API tesh_trans_somatcopy2_fn tesh_trans_tesh_somatcopy2_par;
TESH_API int32_t tesh_trans_tesh_simatcopy_square_t_par(uint64_t n, float *a, uint64_t lda,
                                                        tesh_trans_simatcopy_team_fn *worker);

#ifdef __cplusplus
}
#endif
