// SPDX-License-Identifier: BSD-3-Clause
// The arguments of a matrix product, judged in the order of the Fortran interface and in that of the C interface.
#pragma once
#include "frame/tesh_blas.h"

namespace
{
// Whether *character is the upper-case letter in either case (bit 5 is the case of an ASCII letter); false for null.
inline bool is_letter(const char *character, char letter)
{
    return character != nullptr &&
           (static_cast<unsigned char>(*character) & 0xdfu) == static_cast<unsigned char>(letter);
}

inline bool is_transposition(const char *character)
{
    return is_letter(character, 'N') || is_letter(character, 'C') || is_letter(character, 'T');
}

constexpr int64_t at_least_one(int64_t bound)
{
    return bound > 1 ? bound : 1;
}

// The number of the first bad argument, 0 if there is none. An integer is read when its turn comes and not before:
// those behind a bad argument may be null.
inline int64_t gemm_bad_argument(const char *transa, const char *transb, const int64_t *m, const int64_t *n,
                                 const int64_t *k, const int64_t *lda, const int64_t *ldb, const int64_t *ldc)
{
    if (!is_transposition(transa))
        return 1;
    if (!is_transposition(transb))
        return 2;
    if (*m < 0)
        return 3;
    if (*n < 0)
        return 4;
    if (*k < 0)
        return 5;
    const int64_t rows_of_a = is_letter(transa, 'N') ? *m : *k;
    const int64_t rows_of_b = is_letter(transb, 'N') ? *k : *n;
    if (*lda < at_least_one(rows_of_a))
        return 8;
    if (*ldb < at_least_one(rows_of_b))
        return 10;
    if (*ldc < at_least_one(*m))
        return 13;
    return 0;
}

// The same for the C interface, whose layout is judged only after the dimensions.
inline int64_t cblas_gemm_bad_argument(int32_t layout, int32_t transa, int32_t transb, int64_t m, int64_t n, int64_t k,
                                       int64_t lda, int64_t ldb, int64_t ldc)
{
    if (transa < CblasNoTrans || transa > CblasConjTrans)
        return 2;
    if (transb < CblasNoTrans || transb > CblasConjTrans)
        return 3;
    if (m < 0)
        return 4;
    if (n < 0)
        return 5;
    if (k < 0)
        return 6;
    if (layout != CblasRowMajor && layout != CblasColMajor)
        return 1;
    const bool a_plain = transa == CblasNoTrans, b_plain = transb == CblasNoTrans;
    const bool columns = layout == CblasColMajor; // row-major: the fast dimension is the other one
    if (lda < at_least_one(a_plain == columns ? m : k))
        return 9;
    if (ldb < at_least_one(b_plain == columns ? k : n))
        return 11;
    if (ldc < at_least_one(columns ? m : n))
        return 14;
    return 0;
}
} // namespace
