// SPDX-License-Identifier: BSD-3-Clause
// Out-of-place copy and transposition, mc3 path: page-geometry blocks of 4 x 4 tiles, SSE lines, a 16-byte ladder.
#include "frame/path/vec_mc3.h"
#include "trans/body/somatcopy2_n_body.h"
#include "trans/body/somatcopy2_t_body.h"
#include "trans/body/somatcopy_body.h"
#include "trans/body/unrollcopy_body.h"
#include "trans/trans_paths.h"

namespace
{
struct somatcopy_mc3 {
    static constexpr auto seq = tesh_trans_mc3_tesh_somatcopy2_seq;
    static constexpr auto n = tesh_trans_mc3_tesh_somatcopy2_n;
    static constexpr auto t = tesh_trans_mc3_tesh_somatcopy2_t;
    using block = block_of_4;
    static void one_line(uint64_t length, const float *a, float *b, uint64_t ldb)
    {
        move_strided(length, a, 1, b, ldb);
    }
    static void one_column(uint64_t length, const float *a, uint64_t lda, float *b)
    {
        move_strided(length, a, lda, b, 1);
    }
};

struct bytes_mc3 {
    static constexpr uint64_t bytes = 16, ahead = 0;
    static inline __m128i load_bytes(const char *p) { return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p)); }
    static inline void store_bytes(char *p, __m128i x) { _mm_storeu_si128(reinterpret_cast<__m128i *>(p), x); }
};
constexpr uint64_t copy_round_mc3 = 256; // [bytes]
} // namespace

extern "C" {
void tesh_trans_mc3_tesh_somatcopy(char ordering, char trans, uint64_t rows, uint64_t cols, float alpha, const float *a,
                                   uint64_t lda, float *b, uint64_t ldb)
{
    somatcopy_body<somatcopy_mc3>(ordering, trans, rows, cols, alpha, a, lda, b, ldb);
}

void tesh_trans_mc3_tesh_somatcopy2_seq(char ordering, char trans, uint64_t rows, uint64_t cols, float alpha,
                                        const float *a, uint64_t lda, uint64_t stridea, float *b, uint64_t ldb,
                                        uint64_t strideb)
{
    somatcopy2_seq_body<somatcopy_mc3>(ordering, trans, rows, cols, alpha, a, lda, stridea, b, ldb, strideb);
}

void tesh_trans_mc3_tesh_somatcopy2_n(uint64_t n_outer, uint64_t n_inner, const float *a, uint64_t lda,
                                      uint64_t stridea, float *b, uint64_t ldb, uint64_t strideb, float alpha)
{
    somatcopy2_n_body<vec_mc3, tesh_trans_mc3_tesh_unrollcopy>(n_outer, n_inner, a, lda, stridea, b, ldb, strideb,
                                                               alpha);
}

void tesh_trans_mc3_tesh_somatcopy2_t(uint64_t n_outer, uint64_t n_inner, const float *a, uint64_t lda,
                                      uint64_t stridea, float *b, uint64_t ldb, uint64_t strideb, float alpha)
{
    somatcopy2_t_blocks<somatcopy_mc3>(n_outer, n_inner, a, lda, stridea, b, ldb, strideb, alpha);
}

void tesh_trans_mc3_tesh_unrollcopy(void *dest, uint64_t dest_capacity, const void *src, uint64_t count)
{
    trans_took(trans_route_unrollcopy);
    if (unrollcopy_refused(dest, dest_capacity, src, count))
        return;
    char *to = static_cast<char *>(dest);
    const char *from = static_cast<const char *>(src);
    copy_rounds<bytes_mc3, copy_round_mc3>(to, from, count);
    copy_tail<8>(to, from, count);
}
}
