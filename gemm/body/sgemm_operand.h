// SPDX-License-Identifier: BSD-3-Clause
// The thirteen arguments of SGEMM by value, and the addresses of blocks of op(A) and op(B).
#pragma once
#include <stdint.h>

namespace
{
struct sgemm_operand {
    const char *transa, *transb;
    int64_t m, n, k;
    float alpha;
    const float *a;
    int64_t lda;
    const float *b;
    int64_t ldb;
    float beta;
    float *c;
    int64_t ldc;

    // Any letter but N counts as transposed.
    bool a_transposed() const { return *transa != 'N' && *transa != 'n'; }
    bool b_transposed() const { return *transb != 'N' && *transb != 'n'; }
    const float *a_at(int64_t i, int64_t l) const { return a_transposed() ? a + l + i * lda : a + i + l * lda; }
    const float *b_at(int64_t l, int64_t j) const { return b_transposed() ? b + j + l * ldb : b + l + j * ldb; }
};
} // namespace
