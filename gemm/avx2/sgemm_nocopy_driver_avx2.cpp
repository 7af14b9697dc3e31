// SPDX-License-Identifier: BSD-3-Clause
// The no-copy driver of the avx2 path.
#include "gemm/avx2/sgemm_nocopy_path_avx2.h"

extern "C" void tesh_blas_avx2_xsgemm_nocopy_driver(blas_op_record *op, const blas_matrix_view *a,
                                                    const blas_matrix_view *b, const blas_matrix_view *c,
                                                    const gemm_buffers *, const gemm_kernel_info *)
{
    nocopy_driver<nocopy_path>(op, a, b, c);
}
