/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * Types shared by all headers of the library. Plain C99 or C++11.
 *
 * Every integer argument of a BLAS or LAPACK routine is a signed 64-bit value, under every name, with _64 or without.
 */
#ifndef TESH_TYPES_H
#define TESH_TYPES_H

#include <stddef.h>
#include <stdint.h>

/* Marks a declaration as part of the library's symbol table; everything else in it is hidden. */
#define TESH_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/* The 32-bit codes of the C interface, by the names of the CBLAS standard. */
enum tesh_cblas_layout { CblasRowMajor = 101, CblasColMajor = 102 };
enum tesh_cblas_transpose { CblasNoTrans = 111, CblasTrans = 112, CblasConjTrans = 113 };

/* Complex values as Fortran lays them out. */
typedef struct tesh_complex8 {
    float re, im;
} tesh_complex8;
typedef struct tesh_complex16 {
    double re, im;
} tesh_complex16;

#ifdef __cplusplus
}
#endif
#endif
