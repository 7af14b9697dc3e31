// SPDX-License-Identifier: BSD-3-Clause
// Blocks, scratch and packing of the 256 x 256 form on the cnr_def path.
#include "gemm/body/sgemm_brc_body.h"
#include "gemm/body/sgemm_brc_pack_body.h"

extern "C" void tesh_blas_cnr_def_sgemm_blk_info_1_brc(const int64_t *m, const int64_t *n, const int64_t *k,
                                                       int64_t *unroll_m, int64_t *unroll_n, int64_t *unroll_k,
                                                       int64_t *block_m, int64_t *block_n, int64_t *block_k)
{
    *unroll_m = brc_unroll_m;
    *unroll_n = brc_unroll_n;
    *unroll_k = brc_unroll_k;
    brc_blocks(*m, *n, *k, block_m, block_n, block_k);
}

extern "C" void tesh_blas_cnr_def_sgemm_getbufs_brc(int32_t with_a, int32_t with_b, const int64_t *block_m,
                                                    const int64_t *block_n, const int64_t *block_k, void **base,
                                                    float **a_panel, float **work, float **b_panel)
{
    brc_get_buffers(with_a != 0, with_b != 0, *block_m, *block_n, *block_k, base, a_panel, work, b_panel);
}

extern "C" void tesh_blas_cnr_def_sgemm_freebufs_brc(void *base)
{
    tesh_serv_deallocate(base);
}

extern "C" void tesh_blas_cnr_def_sgemm_copyan_1_brc(const int64_t *depth, const int64_t *rows, const float *a,
                                                     const int64_t *lda, const float *alpha, float *panel)
{
    pack_with_rest<8, true>(true, *depth, *rows, a, *lda, *alpha, panel);
}

extern "C" void tesh_blas_cnr_def_sgemm_copyat_1_brc(const int64_t *depth, const int64_t *rows, const float *a,
                                                     const int64_t *lda, const float *alpha, float *panel)
{
    pack_with_rest<8, true>(false, *depth, *rows, a, *lda, *alpha, panel);
}

extern "C" void tesh_blas_cnr_def_sgemm_copybn_brc(const int64_t *depth, const int64_t *columns, const float *b,
                                                   const int64_t *ldb, float *panel)
{
    pack_with_rest<4, false, false>(false, *depth, *columns, b, *ldb, 1.0f, panel);
}

extern "C" void tesh_blas_cnr_def_sgemm_copybt_brc(const int64_t *depth, const int64_t *columns, const float *b,
                                                   const int64_t *ldb, float *panel)
{
    pack_with_rest<4, false>(true, *depth, *columns, b, *ldb, 1.0f, panel);
}
