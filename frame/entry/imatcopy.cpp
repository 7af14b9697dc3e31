// SPDX-License-Identifier: BSD-3-Clause
// AB := alpha*op(AB): handler registration, argument check, verbose line, one call of the dispatcher. By address and by
// value.
#include "frame/entry/entry.h"
#include "frame/entry/matcopy_check.h"
#include "frame/entry/matcopy_frame.h"
#include "frame/tesh_trans.h"
#include "trans/trans.h"

namespace
{
constexpr int64_t simatcopy_ldb_parameter = 8;

inline void simatcopy_checked(char ordering, char trans, uint64_t rows, uint64_t cols, float alpha, float *ab,
                              uint64_t lda, uint64_t ldb)
{
    if (tesh_trans_errchk_tesh_simatcopy(ordering, trans, rows, cols, alpha, ab, lda, ldb) == 0)
        tesh_trans_tesh_simatcopy(ordering, trans, rows, cols, alpha, ab, lda, ldb);
}
} // namespace

extern "C" {
int32_t tesh_trans_errchk_tesh_simatcopy(char ordering, char trans, uint64_t rows, uint64_t cols, float, const float *,
                                         uint64_t lda, uint64_t ldb)
{
    return matcopy_report("tesh_simatcopy",
                          matcopy_bad_argument(ordering, trans, rows, cols, lda, ldb, simatcopy_ldb_parameter));
}

void TESH_Simatcopy(char ordering, char trans, size_t rows, size_t cols, float alpha, float *ab, size_t lda, size_t ldb)
{
    matcopy_frame([=] { simatcopy_checked(ordering, trans, rows, cols, alpha, ab, lda, ldb); },
                  [=](int32_t interface, double elapsed) {
                      verbose_print(interface, elapsed, "TESH_SIMATCOPY(%c, %c, %zu, %zu, %f, %p, %zu, %zu)", ordering,
                                    trans, rows, cols, static_cast<double>(alpha), static_cast<const void *>(ab), lda,
                                    ldb);
                  });
}

void TESH_SIMATCOPY(const char *ordering, const char *trans, const int64_t *rows, const int64_t *cols,
                    const float *alpha, float *ab, const int64_t *lda, const int64_t *ldb)
{
    const char order = *ordering, form = *trans;
    const uint64_t m = static_cast<uint64_t>(*rows), n = static_cast<uint64_t>(*cols);
    const uint64_t ld_a = static_cast<uint64_t>(*lda), ld_b = static_cast<uint64_t>(*ldb);
    const float factor = *alpha; // may lie in the matrix
    matcopy_frame([=] { simatcopy_checked(order, form, m, n, factor, ab, ld_a, ld_b); },
                  [=](int32_t interface, double elapsed) { // the record shows the low 32 bits of each integer
                      verbose_print(interface, elapsed, "TESH_SIMATCOPY(%c, %c, %d, %d, %f, %p, %d, %d)", order, form,
                                    static_cast<int32_t>(m), static_cast<int32_t>(n), static_cast<double>(factor),
                                    static_cast<const void *>(ab), static_cast<int32_t>(ld_a),
                                    static_cast<int32_t>(ld_b));
                  });
}

[[gnu::alias("TESH_SIMATCOPY")]] decltype(TESH_SIMATCOPY) tesh_simatcopy;
[[gnu::alias("TESH_SIMATCOPY")]] decltype(TESH_SIMATCOPY) tesh_simatcopy_;
}
