/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * Scaled transposition and copy of single-precision matrices, out of place and in place. An extension: no standard
 * publishes these names.
 *
 * ordering: 'C', 'c' column-major, 'R', 'r' row-major; trans: 'N', 'n', 'R', 'r' keep the layout, 'T', 't', 'C', 'c'
 * transpose (the matrix is real, conjugation has no effect). rows and cols describe the source; lda is the leading
 * dimension of the source and ldb that of the result, in elements, unsigned. alpha is applied once to each element.
 * Nothing is allocated; padding between lines that holds no element of the result keeps its bytes. Thread-safe for
 * disjoint arrays.
 *
 * A bad argument is reported once, under "tesh_simatcopy" or "tesh_somatcopy", and the arrays stay untouched. Tested in
 * this order: 1 ordering; 7 lda, zero or below rows ('C') or cols ('R'); 2 trans; 8 (in place) or 9 (out of place) ldb,
 * zero or below the result's line. A zero leading dimension is an error even for an empty matrix.
 */
#ifndef TESH_TRANS_H
#define TESH_TRANS_H
#include "tesh_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* AB := alpha*op(AB). A square matrix with lda = ldb and alpha = 1 is the fast case. */
TESH_API void TESH_Simatcopy(char ordering, char trans, size_t rows, size_t cols, float alpha, float *ab, size_t lda,
                             size_t ldb);

/* B := alpha*op(A). A and B must not overlap. */
TESH_API void TESH_Somatcopy(char ordering, char trans, size_t rows, size_t cols, float alpha, const float *a,
                             size_t lda, float *b, size_t ldb);

/* The same with every argument by address; integers are 64 bits wide. All names of one routine are one entry point. */
TESH_API void TESH_SIMATCOPY(const char *ordering, const char *trans, const int64_t *rows, const int64_t *cols,
                             const float *alpha, float *ab, const int64_t *lda, const int64_t *ldb);
TESH_API void tesh_simatcopy(const char *ordering, const char *trans, const int64_t *rows, const int64_t *cols,
                             const float *alpha, float *ab, const int64_t *lda, const int64_t *ldb);
TESH_API void tesh_simatcopy_(const char *ordering, const char *trans, const int64_t *rows, const int64_t *cols,
                              const float *alpha, float *ab, const int64_t *lda, const int64_t *ldb);
TESH_API void TESH_SOMATCOPY(const char *ordering, const char *trans, const int64_t *rows, const int64_t *cols,
                             const float *alpha, const float *a, const int64_t *lda, float *b, const int64_t *ldb);
TESH_API void tesh_somatcopy(const char *ordering, const char *trans, const int64_t *rows, const int64_t *cols,
                             const float *alpha, const float *a, const int64_t *lda, float *b, const int64_t *ldb);
TESH_API void tesh_somatcopy_(const char *ordering, const char *trans, const int64_t *rows, const int64_t *cols,
                              const float *alpha, const float *a, const int64_t *lda, float *b, const int64_t *ldb);

#ifdef __cplusplus
}
#endif
#endif
