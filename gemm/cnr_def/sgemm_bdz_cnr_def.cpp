// SPDX-License-Identifier: BSD-3-Clause
// Blocks, scratch and packing of the 16 x 4 form on the cnr_def path.
#include "gemm/body/sgemm_bdz_body.h"
#include "gemm/body/sgemm_bdz_pack_body.h"

extern "C" void tesh_blas_cnr_def_sgemm_blk_info_bdz(const int64_t *m, const int64_t *n, const int64_t *k,
                                                     int64_t *unroll_m, int64_t *unroll_n, int64_t *unroll_k,
                                                     int64_t *block_m, int64_t *block_n, int64_t *block_k)
{
    *unroll_m = bdz_unroll_m;
    *unroll_n = bdz_unroll_n;
    *unroll_k = bdz_unroll_k;
    bdz_blocks(*m, *n, *k, block_m, block_n, block_k);
}

extern "C" void tesh_blas_cnr_def_sgemm_getbufs_bdz(const int64_t *block_m, const int64_t *block_n,
                                                    const int64_t *block_k, void **base, float **a_panel,
                                                    float **b_panel)
{
    bdz_get_buffers(*block_m, *block_n, *block_k, base, a_panel, b_panel);
}

extern "C" void tesh_blas_cnr_def_sgemm_freebufs_bdz(void *base)
{
    tesh_serv_deallocate(base);
}

extern "C" void tesh_blas_cnr_def_sgemm_scopy_right4_bdz(const int64_t *depth, const int64_t *count,
                                                         const float *source, const int64_t *ld, const float *scale,
                                                         float *panel)
{
    pack_scaled_block<4, false>(depth, count, source, ld, scale, panel);
}

extern "C" void tesh_blas_cnr_def_sgemm_scopy_down4_bdz(const int64_t *depth, const int64_t *count, const float *source,
                                                        const int64_t *ld, const float *scale, float *panel)
{
    pack_scaled_block<4, true>(depth, count, source, ld, scale, panel);
}

extern "C" void tesh_blas_cnr_def_sgemm_scopy_right16_bdz(const int64_t *depth, const int64_t *count,
                                                          const float *source, const int64_t *ld, const float *scale,
                                                          float *panel)
{
    pack_scaled_block<16, false>(depth, count, source, ld, scale, panel);
}

extern "C" void tesh_blas_cnr_def_sgemm_scopy_down16_bdz(const int64_t *depth, const int64_t *count,
                                                         const float *source, const int64_t *ld, const float *scale,
                                                         float *panel)
{
    pack_scaled_block<16, true>(depth, count, source, ld, scale, panel);
}
