// SPDX-License-Identifier: BSD-3-Clause
// SAXPBY: y := alpha*x + beta*y. No argument is an error, so there is neither a check nor a handler registration here.
#include "frame/entry/verbose_frame.h"
#include "frame/tesh_blas.h"
#include "vector/vector.h"

namespace
{
verbose_cache saxpby_verbose;

[[gnu::cold, gnu::noinline]] void saxpby_reported(const int64_t *n, const float *alpha, const float *x,
                                                  const int64_t *incx, const float *beta, float *y, const int64_t *incy)
{
    if (verbose_resolve(saxpby_verbose) == 0) {
        tesh_blas_saxpby(n, alpha, x, incx, beta, y, incy);
        return;
    }
    const double start = tesh_serv_iface_dsecnd();
    tesh_blas_saxpby(n, alpha, x, incx, beta, y, incy);
    const double elapsed = verbose_elapsed(start);
    verbose_print(verbose_interface_ilp64, elapsed, "SAXPBY(%lli,%p,%p,%lli,%p,%p,%lli)", verbose_integer(n),
                  static_cast<const void *>(alpha), static_cast<const void *>(x), verbose_integer(incx),
                  static_cast<const void *>(beta), static_cast<const void *>(y), verbose_integer(incy));
}
} // namespace

extern "C" {
void SAXPBY(const int64_t *n, const float *alpha, const float *x, const int64_t *incx, const float *beta, float *y,
            const int64_t *incy)
{
    if (__builtin_expect(verbose_state(saxpby_verbose) == 0, 1))
        tesh_blas_saxpby(n, alpha, x, incx, beta, y, incy);
    else
        saxpby_reported(n, alpha, x, incx, beta, y, incy);
}

[[gnu::alias("SAXPBY")]] decltype(SAXPBY) saxpby;
[[gnu::alias("SAXPBY")]] decltype(SAXPBY) saxpby_;
[[gnu::alias("SAXPBY")]] decltype(SAXPBY) SAXPBY_64;
[[gnu::alias("SAXPBY")]] decltype(SAXPBY) saxpby_64;
[[gnu::alias("SAXPBY")]] decltype(SAXPBY) saxpby_64_;
[[gnu::alias("SAXPBY")]] decltype(SAXPBY) tesh_blas__saxpby;

void cblas_saxpby(int64_t n, float alpha, const float *x, int64_t incx, float beta, float *y, int64_t incy)
{
    tesh_blas__saxpby(&n, &alpha, x, &incx, &beta, y, &incy);
}
}
