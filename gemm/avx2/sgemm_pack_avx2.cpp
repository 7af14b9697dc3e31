// SPDX-License-Identifier: BSD-3-Clause
// Packing of the avx2 path: A in panels of 24 rows, B in panels of 4 columns.
#include "gemm/avx2/sgemm_path_avx2.h"
#include "gemm/body/sgemm_pack_body.h"

namespace
{
using v = lanes<8>;
} // namespace

extern "C" {
void tesh_blas_avx2_sgemm_scopy_down24_ea(const int64_t *depth, const int64_t *width, const float *source,
                                          const int64_t *ld, const float *scale, float *destination)
{
    scopy<pack_down<v, 24>>(depth, width, source, ld, scale, destination);
}
void tesh_blas_avx2_sgemm_scopy_right24_ea(const int64_t *depth, const int64_t *width, const float *source,
                                           const int64_t *ld, const float *scale, float *destination)
{
    scopy<pack_right<v, 24>>(depth, width, source, ld, scale, destination);
}
void tesh_blas_avx2_sgemm_scopy_down4_ea(const int64_t *depth, const int64_t *width, const float *source,
                                         const int64_t *ld, const float *scale, float *destination)
{
    scopy<pack_down<v, 4>>(depth, width, source, ld, scale, destination);
}
void tesh_blas_avx2_sgemm_scopy_right4_ea(const int64_t *depth, const int64_t *width, const float *source,
                                          const int64_t *ld, const float *scale, float *destination)
{
    scopy<pack_right<v, 4>>(depth, width, source, ld, scale, destination);
}

void tesh_blas_avx2_sgemm_copyan(const blas_matrix_view *source, blas_matrix_view *destination, const float *scale,
                                 int64_t)
{
    copy_a(tesh_blas_avx2_sgemm_scopy_down24_ea, source, destination, scale);
}
void tesh_blas_avx2_sgemm_copyat(const blas_matrix_view *source, blas_matrix_view *destination, const float *scale,
                                 int64_t)
{
    copy_a(tesh_blas_avx2_sgemm_scopy_right24_ea, source, destination, scale);
}
void tesh_blas_avx2_sgemm_copybn(const blas_matrix_view *source, blas_matrix_view *destination, const float *scale,
                                 int64_t)
{
    copy_b(tesh_blas_avx2_sgemm_scopy_right4_ea, source, destination, scale);
}
void tesh_blas_avx2_sgemm_copybt(const blas_matrix_view *source, blas_matrix_view *destination, const float *scale,
                                 int64_t)
{
    copy_b(tesh_blas_avx2_sgemm_scopy_down4_ea, source, destination, scale);
}
}
