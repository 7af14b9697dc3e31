// SPDX-License-Identifier: BSD-3-Clause
// Block sizes and scratch memory of the packed frame on the avx512 path.
#include "gemm/avx512/sgemm_path_avx512.h"
#include "gemm/body/sgemm_buffers_body.h"

extern "C" {
int32_t tesh_blas_avx512_sgemm_get_bufs(gemm_buffers *buffers)
{
    return get_bufs(buffers);
}
int32_t tesh_blas_avx512_sgemm_get_bufs_pack(gemm_buffers *buffers)
{
    return get_bufs_pack<sgemm_path_avx512>(buffers);
}
int64_t tesh_blas_avx512_sgemm_get_size_bufs(gemm_buffers *buffers)
{
    return get_size_bufs(buffers);
}
void tesh_blas_avx512_sgemm_set_bufs_pack(void *memory, gemm_buffers *buffers)
{
    set_bufs_pack(memory, buffers);
}
void tesh_blas_avx512_sgemm_free_bufs(gemm_buffers *buffers)
{
    free_bufs(buffers);
}
void tesh_blas_avx512_sgemm_initialize_buffers(const blas_matrix_view *a, const blas_matrix_view *b,
                                               const gemm_strategy *strategy, gemm_buffers *buffers)
{
    initialize_buffers<sgemm_path_avx512>(a, b, strategy, buffers,
                                          {tesh_blas_avx512_sgemm_get_bufs, tesh_blas_avx512_sgemm_get_bufs_pack,
                                           tesh_blas_avx512_sgemm_get_size_bufs, tesh_blas_avx512_sgemm_set_bufs_pack,
                                           tesh_blas_avx512_sgemm_free_bufs});
}
}
