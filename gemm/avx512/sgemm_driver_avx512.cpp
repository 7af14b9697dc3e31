// SPDX-License-Identifier: BSD-3-Clause
// The packed drivers of the avx512 path, and the way from the records back to the bufferless product.
#include "gemm/body/sgemm_driver_body.h"

extern "C" {
void tesh_blas_avx512_s_generic_fullacopybcopy(blas_op_record *op, const blas_matrix_view *a, const blas_matrix_view *b,
                                               const blas_matrix_view *c, const gemm_buffers *buffers,
                                               const gemm_kernel_info *info)
{
    generic_fullacopybcopy<tesh_blas_avx512_sgemm_initialize_buffers>(op, a, b, c, buffers, info);
}
void tesh_blas_avx512_xsgemm_acopiedbcopy(blas_op_record *op, const blas_matrix_view *a, const blas_matrix_view *b,
                                          const blas_matrix_view *c, const gemm_buffers *buffers,
                                          const gemm_kernel_info *info)
{
    acopiedbcopy(op, a, b, c, buffers, info);
}
void tesh_blas_avx512_s_pst_wrapper(const blas_op_record *op, const blas_matrix_view *a, const blas_matrix_view *b,
                                    const blas_matrix_view *c)
{
    pst_wrapper(tesh_blas_avx512_sgemm_pst, op, a, b, c);
}
}
