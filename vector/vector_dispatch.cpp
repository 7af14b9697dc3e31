// SPDX-License-Identifier: BSD-3-Clause
// Dispatchers of the level 1 families: bound to a path at first call.
#include "frame/service/dispatch.h"
#include "vector/vector_paths.h"

namespace
{
tesh_blas_saxpby_fn *saxpby_address;
tesh_blas_saxpy_fn *saxpy_address;
tesh_blas_scopy_fn *scopy_address;
tesh_blas_sscal_fn *sscal_address;
tesh_blas_sswap_fn *sswap_address;
tesh_blas_srot_fn *srot_address;
tesh_blas_snrm2_fn *snrm2_address;

constexpr tesh_blas_saxpby_fn *saxpby_members[dispatch_path_count] = {tesh_blas_def_xsaxpby, tesh_blas_cnr_def_xsaxpby,
                                                                      tesh_blas_mc3_xsaxpby, tesh_blas_avx2_xsaxpby,
                                                                      tesh_blas_avx512_xsaxpby};
constexpr tesh_blas_saxpy_fn *saxpy_members[dispatch_path_count] = {tesh_blas_def_xsaxpy, tesh_blas_cnr_def_xsaxpy,
                                                                    tesh_blas_mc3_xsaxpy, tesh_blas_avx2_xsaxpy,
                                                                    tesh_blas_avx512_xsaxpy};
constexpr tesh_blas_scopy_fn *scopy_members[dispatch_path_count] = {tesh_blas_def_xscopy, tesh_blas_cnr_def_xscopy,
                                                                    tesh_blas_mc3_xscopy, tesh_blas_avx2_xscopy,
                                                                    tesh_blas_avx512_xscopy};
constexpr tesh_blas_sscal_fn *sscal_members[dispatch_path_count] = {tesh_blas_def_xsscal, tesh_blas_cnr_def_xsscal,
                                                                    tesh_blas_mc3_xsscal, tesh_blas_avx2_xsscal,
                                                                    tesh_blas_avx512_xsscal};
constexpr tesh_blas_sswap_fn *sswap_members[dispatch_path_count] = {tesh_blas_def_xsswap, tesh_blas_cnr_def_xsswap,
                                                                    tesh_blas_mc3_xsswap, tesh_blas_avx2_xsswap,
                                                                    tesh_blas_avx512_xsswap};
constexpr tesh_blas_srot_fn *srot_members[dispatch_path_count] = {
    tesh_blas_def_xsrot, tesh_blas_cnr_def_xsrot, tesh_blas_mc3_xsrot, tesh_blas_avx2_xsrot, tesh_blas_avx512_xsrot};
constexpr tesh_blas_snrm2_fn *snrm2_members[dispatch_path_count] = {tesh_blas_def_xsnrm2, tesh_blas_cnr_def_xsnrm2,
                                                                    tesh_blas_mc3_xsnrm2, tesh_blas_avx2_xsnrm2,
                                                                    tesh_blas_avx512_xsnrm2};
} // namespace

extern "C" void tesh_blas_xsaxpby(const int64_t *n, const float *alpha, const float *x, const int64_t *incx,
                                  const float *beta, float *y, const int64_t *incy)
{
    dispatch<saxpby_address, saxpby_members>(n, alpha, x, incx, beta, y, incy);
}

extern "C" void tesh_blas_xsaxpy(const int64_t *n, const float *alpha, const float *x, const int64_t *incx, float *y,
                                 const int64_t *incy)
{
    dispatch<saxpy_address, saxpy_members>(n, alpha, x, incx, y, incy);
}

extern "C" void tesh_blas_xscopy(const int64_t *n, const float *x, const int64_t *incx, float *y, const int64_t *incy)
{
    dispatch<scopy_address, scopy_members>(n, x, incx, y, incy);
}

extern "C" void tesh_blas_xsscal(const int64_t *n, const float *alpha, float *x, const int64_t *incx)
{
    dispatch<sscal_address, sscal_members>(n, alpha, x, incx);
}

extern "C" void tesh_blas_xsswap(const int64_t *n, float *x, const int64_t *incx, float *y, const int64_t *incy)
{
    dispatch<sswap_address, sswap_members>(n, x, incx, y, incy);
}

extern "C" void tesh_blas_xsrot(const int64_t *n, float *x, const int64_t *incx, float *y, const int64_t *incy,
                                const float *c, const float *s)
{
    dispatch<srot_address, srot_members>(n, x, incx, y, incy, c, s);
}

extern "C" float tesh_blas_xsnrm2(const int64_t *n, const float *x, const int64_t *incx)
{
    return dispatch<snrm2_address, snrm2_members>(n, x, incx);
}
