// SPDX-License-Identifier: BSD-3-Clause
// SGEMM: C := alpha*op(A)*op(B) + beta*C. Handler registration, argument check, verbose line, one call of the front.
#include "gemm/sgemm.h"
#include "frame/entry/entry.h"
#include "frame/entry/gemm_check.h"
#include "frame/entry/verbose_frame.h"
#include "frame/service/xerbla_slot.h"
#include "gemm/sgemm_direct.h"

namespace
{
verbose_cache sgemm_verbose;

int32_t sgemm_check(const char *transa, const char *transb, const int64_t *m, const int64_t *n, const int64_t *k,
                    const int64_t *lda, const int64_t *ldb, const int64_t *ldc)
{
    const int64_t parameter = gemm_bad_argument(transa, transb, m, n, k, lda, ldb, ldc);
    if (parameter == 0)
        return 0;
    tesh_serv_iface_xerbla("SGEMM ", &parameter, 6); // the blank is part of the reported name
    return 1;
}

// The whole frame: registers the handler, checks, resolves the verbose level, calls the front, prints the line. A
// failed check prints its line, too, with a time of about nothing.
[[gnu::cold, gnu::noinline]] void sgemm_in_full(const char *transa, const char *transb, const int64_t *m,
                                                const int64_t *n, const int64_t *k, const float *alpha, const float *a,
                                                const int64_t *lda, const float *b, const int64_t *ldb,
                                                const float *beta, float *c, const int64_t *ldc)
{
    tesh_set_xerbla_interface(cdecl_xerbla);
    const bool known_silent = verbose_state(sgemm_verbose) == 0;
    const bool failed = sgemm_check(transa, transb, m, n, k, lda, ldb, ldc) != 0;
    const bool silent = (known_silent && !failed) || verbose_resolve(sgemm_verbose) == 0;
    const double start = silent ? 0.0 : tesh_serv_iface_dsecnd();
    if (!failed)
        tesh_blas_sgemm(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
    if (silent)
        return;
    const double elapsed = verbose_elapsed(start);
    verbose_print(verbose_interface_ilp64, elapsed, "SGEMM(%c,%c,%lli,%lli,%lli,%p,%p,%lli,%p,%lli,%p,%p,%lli)",
                  *transa, *transb, verbose_integer(m), verbose_integer(n), verbose_integer(k),
                  static_cast<const void *>(alpha), static_cast<const void *>(a), verbose_integer(lda),
                  static_cast<const void *>(b), verbose_integer(ldb), static_cast<const void *>(beta),
                  static_cast<const void *>(c), verbose_integer(ldc));
}

// Nothing to register and nothing to print.
bool sgemm_is_silent()
{
    return __atomic_load_n(&tesh_xerbla_address, __ATOMIC_RELAXED) != nullptr && verbose_state(sgemm_verbose) == 0;
}

// A silent call with right arguments is a row of tests and a jump; all else goes through the frame in full, which makes
// them again.
inline void sgemm_by_front(const char *transa, const char *transb, const int64_t *m, const int64_t *n, const int64_t *k,
                           const float *alpha, const float *a, const int64_t *lda, const float *b, const int64_t *ldb,
                           const float *beta, float *c, const int64_t *ldc)
{
    const bool plain = sgemm_is_silent() && gemm_bad_argument(transa, transb, m, n, k, lda, ldb, ldc) == 0;
    const auto next = __builtin_expect(plain, 1) ? tesh_blas_sgemm : sgemm_in_full;
    next(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
} // namespace

extern "C" {
int32_t tesh_blas_errchk_sgemm(const char *transa, const char *transb, const int64_t *m, const int64_t *n,
                               const int64_t *k, const float *, const float *, const int64_t *lda, const float *,
                               const int64_t *ldb, const float *, const float *, const int64_t *ldc, int64_t, int64_t)
{
    return sgemm_check(transa, transb, m, n, k, lda, ldb, ldc);
}

void SGEMM(const char *transa, const char *transb, const int64_t *m, const int64_t *n, const int64_t *k,
           const float *alpha, const float *a, const int64_t *lda, const float *b, const int64_t *ldb,
           const float *beta, float *c, const int64_t *ldc)
{
    if (sgemm_is_silent() && sgemm_goes_direct(transa, transb, m, n, k, alpha, lda, ldb, ldc))
        return sgemm_direct_kernel(*transa, *transb, *beta)(*m, *n, *k, alpha, a, *lda, b, *ldb, beta, c, *ldc);
    sgemm_by_front(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

[[gnu::alias("SGEMM")]] decltype(SGEMM) sgemm;
[[gnu::alias("SGEMM")]] decltype(SGEMM) sgemm_;
[[gnu::alias("SGEMM")]] decltype(SGEMM) SGEMM_64;
[[gnu::alias("SGEMM")]] decltype(SGEMM) sgemm_64;
[[gnu::alias("SGEMM")]] decltype(SGEMM) sgemm_64_;
[[gnu::alias("SGEMM")]] decltype(SGEMM) tesh_blas__sgemm;

void cblas_sgemm(int32_t layout, int32_t transa, int32_t transb, int64_t m, int64_t n, int64_t k, float alpha,
                 const float *a, int64_t lda, const float *b, int64_t ldb, float beta, float *c, int64_t ldc)
{
    static const char *const ftrans[] = {"N", "T", "C"}; // by code minus 111
    const int64_t parameter = cblas_gemm_bad_argument(layout, transa, transb, m, n, k, lda, ldb, ldc);
    if (parameter != 0) {
        cblas_xerbla("cblas_sgemm", parameter);
        return;
    }
    const char *const op_a = ftrans[transa - CblasNoTrans], *const op_b = ftrans[transb - CblasNoTrans];
    if (layout == CblasColMajor)
        tesh_blas__sgemm(op_a, op_b, &m, &n, &k, &alpha, a, &lda, b, &ldb, &beta, c, &ldc);
    else // C^T = op(B)^T * op(A)^T
        tesh_blas__sgemm(op_b, op_a, &n, &m, &k, &alpha, b, &ldb, a, &lda, &beta, c, &ldc);
}
}
