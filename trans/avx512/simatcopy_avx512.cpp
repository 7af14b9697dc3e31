// SPDX-License-Identifier: BSD-3-Clause
// In-place copy and transposition, avx512 path: 16 x 16 tiles of 4 x 4 pieces in 128-bit registers; rests of
// lines under a mask.
#include "frame/path/vec_avx512.h"
#include "trans/avx512/square_tile_avx512.h"
#include "trans/body/simatcopy_body.h"
#include "trans/body/simatcopy_mipt_t_body.h"
#include "trans/body/simatcopy_n_body.h"
#include "trans/body/simatcopy_square_t_body.h"
#include "trans/trans_paths.h"

namespace
{
struct simatcopy_avx512 {
    static constexpr auto square_n = tesh_trans_avx512_tesh_simatcopy_square_n;
    static constexpr auto mipt_n = tesh_trans_avx512_tesh_simatcopy_mipt_n;
    static constexpr auto mipt_t = tesh_trans_avx512_tesh_simatcopy_mipt_t;
    static constexpr auto square_t = tesh_trans_avx512_tesh_simatcopy_square_t;
    static constexpr auto ssqtrans = tesh_trans_avx512_ssqtrans;
    static constexpr auto team = tesh_trans_avx512_tesh_simatcopy_square_t_team;
};

struct line_avx512 : vec_avx512 {
    static inline void scale_rest(uint64_t n, const float *x, float *y, float alpha)
    {
        const mask rest = first(static_cast<int64_t>(n));
        store(y, mul(keep(set1(alpha), rest), load(x, rest)), rest); // an infinite alpha meets no zero
    }
};

using square_tile_avx512 =
    square_tile_of_16<tesh_trans_avx512_avx_strans_block_16x16, tesh_trans_avx512_avx_sswap_blocks_16x16>;
} // namespace

extern "C" {
void tesh_trans_avx512_tesh_simatcopy(char ordering, char trans, uint64_t rows, uint64_t cols, float alpha, float *ab,
                                      uint64_t lda, uint64_t ldb)
{
    simatcopy_body<simatcopy_avx512>(ordering, trans, rows, cols, alpha, ab, lda, ldb);
}

void tesh_trans_avx512_tesh_simatcopy_square_n(uint64_t n, float *a, float alpha)
{
    simatcopy_square_n_body<line_avx512>(n, a, alpha);
}

void tesh_trans_avx512_tesh_simatcopy_mipt_n(uint64_t n_outer, uint64_t n_inner, float *a, uint64_t lda, uint64_t ldb,
                                             float alpha)
{
    simatcopy_mipt_n_body<line_avx512>(n_outer, n_inner, a, lda, ldb, alpha);
}

void tesh_trans_avx512_tesh_simatcopy_mipt_t(uint64_t n_outer, uint64_t n_inner, float *a, uint64_t lda, uint64_t ldb,
                                             float alpha)
{
    simatcopy_mipt_t_body(n_outer, n_inner, a, lda, ldb, alpha);
}

void tesh_trans_avx512_tesh_simatcopy_square_t(uint64_t n, float *a, uint64_t lda, float alpha)
{
    simatcopy_square_t_body<simatcopy_avx512>(n, a, lda, alpha);
}

int32_t tesh_trans_avx512_ssqtrans(float *a, uint64_t n, uint64_t lda)
{
    return ssqtrans_body<tesh_trans_avx512_ssqtrans_fit_64>(a, n, lda);
}

void tesh_trans_avx512_ssqtrans_fit_64(float *a, uint64_t n, uint64_t lda)
{
    ssqtrans_fit_64_body<square_tile_avx512>(a, n, lda);
}

void tesh_trans_avx512_avx_strans_block_16x16(float *a, uint64_t lda)
{
    strans_16<strans_8x8, sswap_8x8>(a, lda);
}

void tesh_trans_avx512_avx_sswap_blocks_16x16(float *p, float *q, uint64_t lda)
{
    sswap_16_as_lda_asks<sswap_8x8>(p, q, lda);
}

void tesh_trans_avx512_tesh_simatcopy_square_t_team(uint64_t n, float *a, uint64_t lda, uint64_t worker,
                                                    uint64_t workers)
{
    simatcopy_square_t_team_body<square_tile_avx512>(n, a, lda, worker, workers);
}

void tesh_trans_avx512_tesh_simatcopy_square_t_64x64n(float *p, float *q, uint64_t lda, int32_t diagonal)
{
    simatcopy_square_t_64x64n_body<square_tile_avx512>(p, q, lda, diagonal);
}

void tesh_trans_avx512_ssqtrans_team(float *, uint64_t, uint64_t, uint64_t, uint64_t, int32_t *team_class)
{
    *team_class = square_team_class;
}
}
