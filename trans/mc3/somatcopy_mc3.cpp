// SPDX-License-Identifier: BSD-3-Clause
// Out-of-place copy and transposition, mc3 path: page-geometry blocks of 4 x 4 tiles, lines by 8 elements, a
// 16-byte ladder.
#include "trans/body/block_kernel.h"
#include "trans/body/somatcopy2_n_body.h"
#include "trans/body/somatcopy_body.h"
#include "trans/body/unrollcopy_body.h"
#include "trans/trans_paths.h"

namespace
{
struct somatcopy_mc3 {
    static constexpr auto seq = tesh_trans_mc3_tesh_somatcopy2_seq;
    static constexpr auto n = tesh_trans_mc3_tesh_somatcopy2_n;
    static constexpr auto t = tesh_trans_mc3_tesh_somatcopy2_t;
    static void one_line(uint64_t length, const float *a, float *b, uint64_t ldb)
    {
        move_strided(length, a, 1, b, ldb);
    }
    static void one_column(uint64_t length, const float *a, uint64_t lda, float *b)
    {
        move_strided(length, a, lda, b, 1);
    }
};

// Runs of b are stored as they come.
struct run_store_mc3 {
    static constexpr bool stream = false;
    static constexpr bool inlined = false;
    using unfetched = run_store_mc3;
};

// The moves of a block in 128-bit registers.
struct moves_4 {
    template <class, int lines, uint64_t>
    [[gnu::always_inline]] static inline void move(uint64_t cols, const float *a, uint64_t lda, float *b, uint64_t ldb)
    {
        for (uint64_t j = 0; j < cols; j += 8) {
#pragma GCC unroll 4
            for (uint64_t i = 0; i < lines; i += 4)
                move_4x8(a + i * lda + j, lda, b + j * ldb + i, ldb);
        }
    }
    [[gnu::always_inline]] static inline void move_4x8(const float *a, uint64_t lda, float *b, uint64_t ldb)
    {
        move_4x4(a, lda, b, ldb);
        move_4x4(a + 4, lda, b + 4 * ldb, ldb);
    }
};

// lines lines of length elements, one behind the other at x, to lines of b.
void copy_runs(uint64_t lines, uint64_t length, const float *x, float *b, uint64_t ldb)
{
    for (uint64_t k = 0; k < lines; ++k, x += length, b += ldb) {
        uint64_t i = 0;
        for (; i + 4 <= length; i += 4)
            _mm_storeu_ps(b + i, _mm_loadu_ps(x + i));
        for (; i < length; ++i)
            move_element<false>(x + i, b + i, 1.0f);
    }
}

void xomatcopy_blk_t_one_transpose_kernel_by_src_rows(uint64_t rows, uint64_t cols, const float *a, uint64_t lda,
                                                      float *b, uint64_t ldb, uint64_t group)
{
    if (group != 1)
        transpose_grouped<moves_4, run_store_mc3, 0, false, copy_runs>(rows, cols, a, lda, b, ldb, group);
    else
        transpose_ungrouped<moves_4, run_store_mc3, run_store_mc3, 0, 0>(rows, cols, a, lda, b, ldb);
}

// Blocks of lines with all their columns.
void somatcopy2_t_blocks(uint64_t n_outer, uint64_t n_inner, const float *a, uint64_t lda, uint64_t stridea, float *b,
                         uint64_t ldb, uint64_t strideb, float alpha)
{
    if (somatcopy2_t_simple<somatcopy_mc3>(n_outer, n_inner, a, lda, stridea, b, ldb, strideb, alpha))
        return;
    const trans_blocking by = page_blocking<1>(lda, ldb);
    for (uint64_t i = 0; i < n_outer; i += by.block)
        xomatcopy_blk_t_one_transpose_kernel_by_src_rows(n_outer - i < by.block ? n_outer - i : by.block, n_inner,
                                                         a + i * lda, lda, b + i, ldb, by.group);
}

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
    somatcopy2_n_body<tesh_trans_mc3_tesh_unrollcopy>(n_outer, n_inner, a, lda, stridea, b, ldb, strideb, alpha);
}

void tesh_trans_mc3_tesh_somatcopy2_t(uint64_t n_outer, uint64_t n_inner, const float *a, uint64_t lda,
                                      uint64_t stridea, float *b, uint64_t ldb, uint64_t strideb, float alpha)
{
    somatcopy2_t_blocks(n_outer, n_inner, a, lda, stridea, b, ldb, strideb, alpha);
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
