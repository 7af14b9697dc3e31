/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * BLAS and CBLAS names of libtesh.
 *
 * Fortran names take every argument by address, integers as signed 64-bit values, matrices column-major with a leading
 * dimension in elements. The hidden character lengths that a Fortran compiler appends are accepted and never read, so C
 * callers leave them out. All names of one routine are one entry point. Every routine is thread-safe for disjoint
 * outputs.
 *
 * A bad argument is reported once, through the handler chain at the end of this file, with the routine's name and the
 * number of the argument; the outputs stay untouched.
 */
#ifndef TESH_BLAS_H
#define TESH_BLAS_H
#include "tesh_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * C := alpha*op(A)*op(B) + beta*C, op(X) = X for 'N', 'n', X^T for 'T', 't', 'C', 'c'; op(A) is m x k, op(B) k x n, C m
 * x n. beta = 0 does not read C. Errors by number: 1 transa, 2 transb, 3 m < 0, 4 n < 0, 5 k < 0, 8 lda < max(1, rows
 * of A), 10 ldb < max(1, rows of B), 13 ldc < max(1, m). Published as SGEMM in the Level 3 BLAS (Dongarra et al.,
 * 1990).
 */
TESH_API void SGEMM(const char *transa, const char *transb, const int64_t *m, const int64_t *n, const int64_t *k,
                    const float *alpha, const float *a, const int64_t *lda, const float *b, const int64_t *ldb,
                    const float *beta, float *c, const int64_t *ldc);
TESH_API void sgemm(const char *transa, const char *transb, const int64_t *m, const int64_t *n, const int64_t *k,
                    const float *alpha, const float *a, const int64_t *lda, const float *b, const int64_t *ldb,
                    const float *beta, float *c, const int64_t *ldc);
TESH_API void sgemm_(const char *transa, const char *transb, const int64_t *m, const int64_t *n, const int64_t *k,
                     const float *alpha, const float *a, const int64_t *lda, const float *b, const int64_t *ldb,
                     const float *beta, float *c, const int64_t *ldc);
TESH_API void SGEMM_64(const char *transa, const char *transb, const int64_t *m, const int64_t *n, const int64_t *k,
                       const float *alpha, const float *a, const int64_t *lda, const float *b, const int64_t *ldb,
                       const float *beta, float *c, const int64_t *ldc);
TESH_API void sgemm_64(const char *transa, const char *transb, const int64_t *m, const int64_t *n, const int64_t *k,
                       const float *alpha, const float *a, const int64_t *lda, const float *b, const int64_t *ldb,
                       const float *beta, float *c, const int64_t *ldc);
TESH_API void sgemm_64_(const char *transa, const char *transb, const int64_t *m, const int64_t *n, const int64_t *k,
                        const float *alpha, const float *a, const int64_t *lda, const float *b, const int64_t *ldb,
                        const float *beta, float *c, const int64_t *ldc);
TESH_API void tesh_blas__sgemm(const char *transa, const char *transb, const int64_t *m, const int64_t *n,
                               const int64_t *k, const float *alpha, const float *a, const int64_t *lda, const float *b,
                               const int64_t *ldb, const float *beta, float *c, const int64_t *ldc);

/*
 * y := alpha*x + beta*y over n elements; n <= 0 does nothing. alpha = 0 still reads x unless beta = 1; beta = 0 does
 * not read y. A negative increment starts at index (1 - n)*inc. No argument is an error. Published as SAXPBY in the
 * BLAS Technical Forum standard (Blackford et al., 2002, _AXPBY).
 */
TESH_API void SAXPBY(const int64_t *n, const float *alpha, const float *x, const int64_t *incx, const float *beta,
                     float *y, const int64_t *incy);
TESH_API void saxpby(const int64_t *n, const float *alpha, const float *x, const int64_t *incx, const float *beta,
                     float *y, const int64_t *incy);
TESH_API void saxpby_(const int64_t *n, const float *alpha, const float *x, const int64_t *incx, const float *beta,
                      float *y, const int64_t *incy);
TESH_API void SAXPBY_64(const int64_t *n, const float *alpha, const float *x, const int64_t *incx, const float *beta,
                        float *y, const int64_t *incy);
TESH_API void saxpby_64(const int64_t *n, const float *alpha, const float *x, const int64_t *incx, const float *beta,
                        float *y, const int64_t *incy);
TESH_API void saxpby_64_(const int64_t *n, const float *alpha, const float *x, const int64_t *incx, const float *beta,
                         float *y, const int64_t *incy);
TESH_API void tesh_blas__saxpby(const int64_t *n, const float *alpha, const float *x, const int64_t *incx,
                                const float *beta, float *y, const int64_t *incy);

/*
 * SGEMM with arguments by value, codes of tesh_cblas_layout and tesh_cblas_transpose. A leading dimension is at least 1
 * and the length of a stored column, or of a stored row in row-major layout. Row-major calls run as the transposed
 * column-major product. Errors by number, tested in this order: 2 transa, 3 transb, 4 m, 5 n, 6 k, 1 layout, 9 lda, 11
 * ldb, 14 ldc. Published in the C interface of the BLAS Technical Forum standard (Blackford et al., 2002).
 */
TESH_API void cblas_sgemm(int32_t layout, int32_t transa, int32_t transb, int64_t m, int64_t n, int64_t k, float alpha,
                          const float *a, int64_t lda, const float *b, int64_t ldb, float beta, float *c, int64_t ldc);

/* SAXPBY with arguments by value. Published as the last. */
TESH_API void cblas_saxpby(int64_t n, float alpha, const float *x, int64_t incx, float beta, float *y, int64_t incy);

/*
 * The error-handler chain: cdecl_xerbla calls xerbla, that xerbla_, that XERBLA_, that XERBLA, and that the library's
 * own report on standard output. Each link is found by dynamic symbol: a program that defines one of these names takes
 * the rest of the chain over. name need not be terminated; *code is the number of the bad argument, 64 bits wide.
 */
TESH_API void xerbla(const char *name, const int64_t *code, int32_t name_length);
TESH_API void xerbla_(const char *name, const int64_t *code, int32_t name_length);
TESH_API void XERBLA_(const char *name, const int64_t *code, int32_t name_length);
TESH_API void XERBLA(const char *name, const int64_t *code, int32_t name_length);
TESH_API void cdecl_xerbla(const char *name, const int64_t *code, int32_t name_length);

/* Reports a bad argument, or (code 1000) missing memory, of a C interface routine through the chain above. */
TESH_API void cblas_xerbla(const char *name, int64_t parameter);
TESH_API void cblas_xerbla_malloc_error(const char *name);

/* The number of threads that the library may use: 1, for it runs on the caller's thread. All names are one entry. */
TESH_API int32_t TESH_GET_MAX_THREADS(void);
TESH_API int32_t TESH_Get_Max_Threads(void);
TESH_API int32_t tesh_get_max_threads(void);
TESH_API int32_t tesh_get_max_threads_(void);

/*
 * Gives the scratch memory that the library keeps between calls back to the system; blocks in use by a running call on
 * another thread stay. All names are one entry point. Thread-safe.
 */
TESH_API void TESH_FREE_BUFFERS(void);
TESH_API void TESH_Free_Buffers(void);
TESH_API void tesh_free_buffers(void);
TESH_API void tesh_free_buffers_(void);

#ifdef __cplusplus
}
#endif
#endif
