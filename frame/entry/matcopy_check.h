// SPDX-License-Identifier: BSD-3-Clause
// The arguments of the copy routines, judged in one order for both: ordering, lda, trans, ldb. All comparisons are
// unsigned; a leading dimension of zero is wrong even for an empty matrix.
#pragma once
#include <stdint.h>

#include "frame/tesh_serv.h"

namespace
{
constexpr size_t matcopy_name_bound = 4096; // longest name that is measured [bytes]

// 0, or the number of the first bad argument; ldb_parameter is the number of ldb in the routine's list.
inline int64_t matcopy_bad_argument(char ordering, char trans, uint64_t rows, uint64_t cols, uint64_t lda, uint64_t ldb,
                                    int64_t ldb_parameter)
{
    const bool by_columns = ordering == 'C' || ordering == 'c';
    if (!by_columns && ordering != 'R' && ordering != 'r')
        return 1;
    if (lda == 0 || lda < (by_columns ? rows : cols))
        return 7;
    const bool keeps = trans == 'N' || trans == 'n' || trans == 'R' || trans == 'r';
    if (!keeps && trans != 'T' && trans != 't' && trans != 'C' && trans != 'c')
        return 2;
    if (ldb == 0 || ldb < (by_columns == keeps ? rows : cols))
        return ldb_parameter;
    return 0;
}

// 0 for no bad argument; otherwise reports it under the routine's name and answers 1.
inline int32_t matcopy_report(const char *name, int64_t parameter)
{
    if (__builtin_expect(parameter == 0, 1))
        return 0;
    tesh_serv_xerbla(name, &parameter, static_cast<int32_t>(tesh_serv_strnlen_s(name, matcopy_name_bound)));
    return 1;
}
} // namespace
