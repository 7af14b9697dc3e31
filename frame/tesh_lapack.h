/* SPDX-License-Identifier: BSD-3-Clause */
/* LAPACK names of libtesh. Thread-safe: no routine here keeps state. */
#ifndef TESH_LAPACK_H
#define TESH_LAPACK_H
#include "tesh_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * 1 if *a and *b are the same letter without regard to ASCII case, else 0; 0 if either pointer is null. The lengths are
 * ignored. Published in LAPACK as LSAME. All names are one entry point.
 */
TESH_API int32_t LSAME(const char *a, const char *b, int64_t a_length, int64_t b_length);
TESH_API int32_t lsame(const char *a, const char *b, int64_t a_length, int64_t b_length);
TESH_API int32_t lsame_(const char *a, const char *b, int64_t a_length, int64_t b_length);
TESH_API int32_t LSAME_64(const char *a, const char *b, int64_t a_length, int64_t b_length);
TESH_API int32_t lsame_64(const char *a, const char *b, int64_t a_length, int64_t b_length);
TESH_API int32_t lsame_64_(const char *a, const char *b, int64_t a_length, int64_t b_length);
TESH_API int32_t tesh_lapack__lsame_(const char *a, const char *b, int64_t a_length, int64_t b_length);

#ifdef __cplusplus
}
#endif
#endif
