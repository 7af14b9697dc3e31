// SPDX-License-Identifier: BSD-3-Clause
// B := alpha*op(A): handler registration, argument check, verbose line, one call of the dispatcher. By address and by
// value.
#include "frame/entry/entry.h"
#include "frame/entry/matcopy_check.h"
#include "frame/entry/matcopy_frame.h"
#include "frame/tesh_trans.h"
#include "trans/trans.h"

namespace
{
constexpr int64_t somatcopy_ldb_parameter = 9;

inline void somatcopy_checked(char ordering, char trans, uint64_t rows, uint64_t cols, float alpha, const float *a,
                              uint64_t lda, float *b, uint64_t ldb)
{
    if (tesh_trans_errchk_tesh_somatcopy(ordering, trans, rows, cols, alpha, a, lda, b, ldb) == 0)
        tesh_trans_tesh_somatcopy(ordering, trans, rows, cols, alpha, a, lda, b, ldb);
}
} // namespace

extern "C" {
int32_t tesh_trans_errchk_tesh_somatcopy(char ordering, char trans, uint64_t rows, uint64_t cols, float, const float *,
                                         uint64_t lda, const float *, uint64_t ldb)
{
    return matcopy_report("tesh_somatcopy",
                          matcopy_bad_argument(ordering, trans, rows, cols, lda, ldb, somatcopy_ldb_parameter));
}

void TESH_Somatcopy(char ordering, char trans, size_t rows, size_t cols, float alpha, const float *a, size_t lda,
                    float *b, size_t ldb)
{
    matcopy_frame([=] { somatcopy_checked(ordering, trans, rows, cols, alpha, a, lda, b, ldb); },
                  [=](int32_t interface, double elapsed) {
                      verbose_print(interface, elapsed, "TESH_SOMATCOPY(%c, %c, %zu, %zu, %f, %p, %zu, %p, %zu)",
                                    ordering, trans, rows, cols, static_cast<double>(alpha),
                                    static_cast<const void *>(a), lda, static_cast<const void *>(b), ldb);
                  });
}

void TESH_SOMATCOPY(const char *ordering, const char *trans, const int64_t *rows, const int64_t *cols,
                    const float *alpha, const float *a, const int64_t *lda, float *b, const int64_t *ldb)
{
    const char order = *ordering, form = *trans;
    const uint64_t m = static_cast<uint64_t>(*rows), n = static_cast<uint64_t>(*cols);
    const uint64_t ld_a = static_cast<uint64_t>(*lda), ld_b = static_cast<uint64_t>(*ldb);
    const float factor = *alpha;
    matcopy_frame([=] { somatcopy_checked(order, form, m, n, factor, a, ld_a, b, ld_b); },
                  [=](int32_t interface, double elapsed) { // the record shows the low 32 bits of each integer
                      verbose_print(interface, elapsed, "TESH_SOMATCOPY(%c, %c, %d, %d, %f, %p, %d, %p, %d)", order,
                                    form, static_cast<int32_t>(m), static_cast<int32_t>(n), static_cast<double>(factor),
                                    static_cast<const void *>(a), static_cast<int32_t>(ld_a),
                                    static_cast<const void *>(b), static_cast<int32_t>(ld_b));
                  });
}

[[gnu::alias("TESH_SOMATCOPY")]] decltype(TESH_SOMATCOPY) tesh_somatcopy;
[[gnu::alias("TESH_SOMATCOPY")]] decltype(TESH_SOMATCOPY) tesh_somatcopy_;
}
