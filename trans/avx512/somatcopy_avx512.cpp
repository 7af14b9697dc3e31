// SPDX-License-Identifier: BSD-3-Clause
// Out-of-place copy and transposition, avx512 path: panels of blocks, 8 columns of 16 or 8 lines at a time, gather and
// scatter for strides, a 64-byte ladder with non-temporal rounds.
#include "trans/avx512/strided_avx512.h"
#include "trans/body/somatcopy2_n_body.h"
#include "trans/body/somatcopy2_t_panels_body.h"
#include "trans/body/somatcopy_body.h"
#include "trans/body/unrollcopy_body.h"
#include "trans/trans_paths.h"

namespace
{
// Least rests that run under a mask [elements].
constexpr uint64_t masked_least_copy = 7, masked_least_scatter = 8, masked_least_gather = 6;

struct somatcopy_avx512 {
    static constexpr auto seq = tesh_trans_avx512_tesh_somatcopy2_seq;
    static constexpr auto n = tesh_trans_avx512_tesh_somatcopy2_n;
    static constexpr auto t = tesh_trans_avx512_tesh_somatcopy2_t;
    static constexpr uint64_t aligned_bytes = 64; // of B, for whole lines
    // [elements] of a store to a block of B: half a cache line where its runs begin with one.
    static uint64_t store_width(const float *b, uint64_t ldb, uint64_t lanes)
    {
        return lanes == 8 && ldb % 16 == 0 && reinterpret_cast<uintptr_t>(b) % aligned_bytes == 0 ? 8 : 4;
    }
    static void one_line(uint64_t length, const float *a, float *b, uint64_t ldb)
    {
        strided_avx512<false, true, false, masked_least_scatter>(length, a, 1, b, ldb, 1.0f);
    }
    static void one_column(uint64_t length, const float *a, uint64_t lda, float *b)
    {
        strided_avx512<false, false, true, masked_least_gather>(length, a, lda, b, 1, 1.0f);
    }
};

struct bytes_avx512 {
    static constexpr uint64_t bytes = 64, ahead = 24576;
    static inline __m512i load_bytes(const char *p) { return _mm512_loadu_si512(p); }
    static inline void store_bytes(char *p, __m512i x) { _mm512_storeu_si512(p, x); }
};
constexpr uint64_t copy_round_avx512 = 4096;   // [bytes]
constexpr uint64_t copy_stream_round = 2048;   // [bytes] of a round of non-temporal stores
constexpr uint64_t copy_stream_least = 102401; // [bytes] from which they are used, to an aligned dest
} // namespace

extern "C" {
void tesh_trans_avx512_tesh_somatcopy(char ordering, char trans, uint64_t rows, uint64_t cols, float alpha,
                                      const float *a, uint64_t lda, float *b, uint64_t ldb)
{
    somatcopy_body<somatcopy_avx512>(ordering, trans, rows, cols, alpha, a, lda, b, ldb);
}

void tesh_trans_avx512_tesh_somatcopy2_seq(char ordering, char trans, uint64_t rows, uint64_t cols, float alpha,
                                           const float *a, uint64_t lda, uint64_t stridea, float *b, uint64_t ldb,
                                           uint64_t strideb)
{
    somatcopy2_seq_body<somatcopy_avx512>(ordering, trans, rows, cols, alpha, a, lda, stridea, b, ldb, strideb);
}

void tesh_trans_avx512_tesh_somatcopy2_n(uint64_t n_outer, uint64_t n_inner, const float *a, uint64_t lda,
                                         uint64_t stridea, float *b, uint64_t ldb, uint64_t strideb, float alpha)
{
    trans_took(trans_route_somatcopy2_n);
    if (is_block_copy(n_inner, lda, stridea, ldb, strideb, alpha)) {
        tesh_trans_avx512_tesh_unrollcopy(b, n_outer * lda * sizeof *b, a, n_outer * lda * sizeof *b);
        return;
    }
    if (n_inner == 0) // however many lines there are
        return;
    if (alpha == 1.0f)
        for (uint64_t i = 0; i < n_outer; ++i)
            strided_avx512<false, false, false, masked_least_copy>(n_inner, a + i * lda, stridea, b + i * ldb, strideb,
                                                                   alpha);
    else
        for (uint64_t i = 0; i < n_outer; ++i)
            strided_avx512<true, false, false, masked_least_copy>(n_inner, a + i * lda, stridea, b + i * ldb, strideb,
                                                                  alpha);
}

void tesh_trans_avx512_tesh_somatcopy2_t(uint64_t n_outer, uint64_t n_inner, const float *a, uint64_t lda,
                                         uint64_t stridea, float *b, uint64_t ldb, uint64_t strideb, float alpha)
{
    somatcopy2_t_panels<somatcopy_avx512>(n_outer, n_inner, a, lda, stridea, b, ldb, strideb, alpha);
}

void tesh_trans_avx512_tesh_unrollcopy(void *dest, uint64_t dest_capacity, const void *src, uint64_t count)
{
    trans_took(trans_route_unrollcopy);
    if (unrollcopy_refused(dest, dest_capacity, src, count))
        return;
    char *to = static_cast<char *>(dest);
    const char *from = static_cast<const char *>(src);
    if (count >= copy_stream_least && reinterpret_cast<uintptr_t>(dest) % 64 == 0) {
        for (; count > copy_stream_round; count -= copy_stream_round) {
#pragma GCC unroll 32
            for (uint64_t at = 0; at < copy_stream_round; at += 64)
                _mm512_stream_si512(reinterpret_cast<__m512i *>(to + at), bytes_avx512::load_bytes(from + at));
            to += copy_stream_round;
            from += copy_stream_round;
        }
        _mm_sfence(); // before any store that follows
    }
    copy_rounds<bytes_avx512, copy_round_avx512>(to, from, count);
    copy_tail<32>(to, from, count);
}
}
