// SPDX-License-Identifier: BSD-3-Clause
// Out-of-place copy and transposition, def path: recursion, lines by 8 elements, a copy by 8-byte words.
#include "trans/body/somatcopy2_n_body.h"
#include "trans/body/somatcopy2_rec_body.h"
#include "trans/body/somatcopy_body.h"
#include "trans/body/unrollcopy_body.h"
#include "trans/trans_paths.h"

namespace
{
struct somatcopy_def {
    static constexpr auto seq = tesh_trans_def_tesh_somatcopy2_seq;
    static constexpr auto n = tesh_trans_def_tesh_somatcopy2_n;
    static constexpr auto t = tesh_trans_def_tesh_somatcopy2_t;
};
} // namespace

extern "C" {
void tesh_trans_def_tesh_somatcopy(char ordering, char trans, uint64_t rows, uint64_t cols, float alpha, const float *a,
                                   uint64_t lda, float *b, uint64_t ldb)
{
    somatcopy_body<somatcopy_def>(ordering, trans, rows, cols, alpha, a, lda, b, ldb);
}

void tesh_trans_def_tesh_somatcopy2_seq(char ordering, char trans, uint64_t rows, uint64_t cols, float alpha,
                                        const float *a, uint64_t lda, uint64_t stridea, float *b, uint64_t ldb,
                                        uint64_t strideb)
{
    somatcopy2_seq_body<somatcopy_def>(ordering, trans, rows, cols, alpha, a, lda, stridea, b, ldb, strideb);
}

void tesh_trans_def_tesh_somatcopy2_n(uint64_t n_outer, uint64_t n_inner, const float *a, uint64_t lda,
                                      uint64_t stridea, float *b, uint64_t ldb, uint64_t strideb, float alpha)
{
    somatcopy2_n_body<tesh_trans_def_tesh_unrollcopy>(n_outer, n_inner, a, lda, stridea, b, ldb, strideb, alpha);
}

void tesh_trans_def_tesh_somatcopy2_t(uint64_t n_outer, uint64_t n_inner, const float *a, uint64_t lda,
                                      uint64_t stridea, float *b, uint64_t ldb, uint64_t strideb, float alpha)
{
    if (n_outer == 0 || n_inner == 0)
        return;
    if (alpha == 1.0f)
        tesh_xomatcopy2_rec_t_1(n_outer, n_inner, a, lda, stridea, b, ldb, strideb);
    else
        tesh_xomatcopy2_rec_t(n_outer, n_inner, a, lda, stridea, b, ldb, strideb, alpha);
}

void tesh_trans_def_tesh_unrollcopy(void *dest, uint64_t dest_capacity, const void *src, uint64_t count)
{
    trans_took(trans_route_unrollcopy);
    if (unrollcopy_refused(dest, dest_capacity, src, count))
        return;
    char *to = static_cast<char *>(dest);
    const char *from = static_cast<const char *>(src);
    const uint64_t words = count / 8;
#pragma GCC unroll 8
    for (uint64_t i = 0; i < words; ++i)
        __builtin_memcpy(to + 8 * i, from + 8 * i, 8);
    for (uint64_t i = 8 * words; i < count; ++i)
        to[i] = from[i];
}
}
