// SPDX-License-Identifier: BSD-3-Clause
// Out-of-place copy and transposition, avx2 path: panels of blocks, 8 columns of 16 or 8 lines at a time, a 32-byte
// ladder that prefetches.
#include "trans/body/somatcopy2_n_body.h"
#include "trans/body/somatcopy2_t_panels_body.h"
#include "trans/body/somatcopy_body.h"
#include "trans/body/unrollcopy_body.h"
#include "trans/trans_paths.h"

namespace
{
struct somatcopy_avx2 {
    static constexpr auto seq = tesh_trans_avx2_tesh_somatcopy2_seq;
    static constexpr auto n = tesh_trans_avx2_tesh_somatcopy2_n;
    static constexpr auto t = tesh_trans_avx2_tesh_somatcopy2_t;
    static constexpr uint64_t aligned_bytes = 32; // of B, for whole lines
    // [elements] of a store to a block of B: narrow where its lines share cache sets (trans/body/settled.h).
    static uint64_t store_width(const float *, uint64_t ldb, uint64_t)
    {
        return ldb * sizeof(float) % aliased_bytes == 0 ? 4 : 8;
    }
    static void one_line(uint64_t length, const float *a, float *b, uint64_t ldb)
    {
        move_strided(length, a, 1, b, ldb);
    }
    static void one_column(uint64_t length, const float *a, uint64_t lda, float *b)
    {
        move_strided(length, a, lda, b, 1);
    }
};

struct bytes_avx2 {
    static constexpr uint64_t bytes = 32, ahead = 1024;
    static inline __m256i load_bytes(const char *p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p)); }
    static inline void store_bytes(char *p, __m256i x) { _mm256_storeu_si256(reinterpret_cast<__m256i *>(p), x); }
};
constexpr uint64_t copy_round_avx2 = 512; // [bytes]
} // namespace

extern "C" {
void tesh_trans_avx2_tesh_somatcopy(char ordering, char trans, uint64_t rows, uint64_t cols, float alpha,
                                    const float *a, uint64_t lda, float *b, uint64_t ldb)
{
    somatcopy_body<somatcopy_avx2>(ordering, trans, rows, cols, alpha, a, lda, b, ldb);
}

void tesh_trans_avx2_tesh_somatcopy2_seq(char ordering, char trans, uint64_t rows, uint64_t cols, float alpha,
                                         const float *a, uint64_t lda, uint64_t stridea, float *b, uint64_t ldb,
                                         uint64_t strideb)
{
    somatcopy2_seq_body<somatcopy_avx2>(ordering, trans, rows, cols, alpha, a, lda, stridea, b, ldb, strideb);
}

void tesh_trans_avx2_tesh_somatcopy2_n(uint64_t n_outer, uint64_t n_inner, const float *a, uint64_t lda,
                                       uint64_t stridea, float *b, uint64_t ldb, uint64_t strideb, float alpha)
{
    somatcopy2_n_body<tesh_trans_avx2_tesh_unrollcopy>(n_outer, n_inner, a, lda, stridea, b, ldb, strideb, alpha);
}

void tesh_trans_avx2_tesh_somatcopy2_t(uint64_t n_outer, uint64_t n_inner, const float *a, uint64_t lda,
                                       uint64_t stridea, float *b, uint64_t ldb, uint64_t strideb, float alpha)
{
    somatcopy2_t_panels<somatcopy_avx2>(n_outer, n_inner, a, lda, stridea, b, ldb, strideb, alpha);
}

void tesh_trans_avx2_tesh_unrollcopy(void *dest, uint64_t dest_capacity, const void *src, uint64_t count)
{
    trans_took(trans_route_unrollcopy);
    if (unrollcopy_refused(dest, dest_capacity, src, count))
        return;
    char *to = static_cast<char *>(dest);
    const char *from = static_cast<const char *>(src);
    copy_rounds<bytes_avx2, copy_round_avx2>(to, from, count);
    copy_tail<16>(to, from, count);
}
}
