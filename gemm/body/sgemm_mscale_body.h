// SPDX-License-Identifier: BSD-3-Clause
// C := beta*C; beta = 0 stores zeros and does not read C. Two columns at a time; down a column four registers, then
// two, then one, then what is left.
//
// v: the path's full register. rest(count, column, change) does the last elements of one column.
#pragma once
#include "gemm/sgemm_paths.h"

namespace
{
template <class v> struct clear_by {
    template <class w = v> [[gnu::always_inline]] inline void one(float *p) const { w::store(p, w::zero()); }
    template <class mask> [[gnu::always_inline]] inline void part(float *p, mask m) const { v::store(p, v::zero(), m); }
};
template <class v> struct scale_by {
    float beta;
    template <class w = v> [[gnu::always_inline]] inline void one(float *p) const
    {
        w::store(p, w::mul(w::load(p), w::set1(beta)));
    }
    template <class mask> [[gnu::always_inline]] inline void part(float *p, mask m) const
    {
        v::store(p, v::mul(v::load(p, m), v::keep(v::set1(beta), m)), m);
    }
};

// count registers of each column from row i on.
template <class v, int count, int columns, class change>
[[gnu::always_inline]] inline void change_rows(float *c, int64_t ldc, int64_t i, change f)
{
#pragma GCC unroll 4
    for (int u = 0; u < count; ++u)
#pragma GCC unroll 2
        for (int j = 0; j < columns; ++j)
            f.one(c + j * ldc + i + u * v::width);
}

template <class v, class tail, int columns, class change>
[[gnu::always_inline]] inline void change_columns(int64_t m, float *c, int64_t ldc, change f)
{
    int64_t i = 0;
    for (; i + 4 * v::width <= m; i += 4 * v::width)
        change_rows<v, 4, columns>(c, ldc, i, f);
    if (m & (2 * v::width)) {
        change_rows<v, 2, columns>(c, ldc, i, f);
        i += 2 * v::width;
    }
    if (m & v::width) {
        change_rows<v, 1, columns>(c, ldc, i, f);
        i += v::width;
    }
    for (int j = 0; j < columns; ++j)
        tail::rest(m - i, c + j * ldc + i, f);
}

template <class v, class tail, class change>
inline void change_matrix(int64_t m, int64_t n, float *c, int64_t ldc, change f)
{
    for (; n >= 2; n -= 2, c += 2 * ldc)
        change_columns<v, tail, 2>(m, c, ldc, f);
    if (n == 1)
        change_columns<v, tail, 1>(m, c, ldc, f);
}

template <class v, class tail> inline void mscale(int64_t m, int64_t n, float beta, float *c, int64_t ldc)
{
    if (m <= 0)
        return;
    if (beta == 0.0f)
        change_matrix<v, tail>(m, n, c, ldc, clear_by<v>());
    else
        change_matrix<v, tail>(m, n, c, ldc, scale_by<v>{beta});
}
} // namespace
