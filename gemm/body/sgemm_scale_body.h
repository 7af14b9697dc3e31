// SPDX-License-Identifier: BSD-3-Clause
// C := 0 and C := beta*C, column by column. beta = 0 stores zeros and reads nothing. With peels a scalar head runs up
// to a 16-byte boundary of each column before the vectors.
#pragma once
#include "frame/tesh_types.h"

namespace
{
inline void clear_columns(int64_t rows, int64_t columns, float *c, int64_t ldc)
{
    if (rows < 1)
        return;
    for (int64_t j = 0; j < columns; ++j)
        __builtin_memset(c + j * ldc, 0, static_cast<size_t>(rows) * sizeof(float));
}

template <class v, bool peels> inline void scale_column(int64_t rows, float beta, float *c)
{
    int64_t i = 0;
    if constexpr (peels) {
        for (; i < rows && reinterpret_cast<uintptr_t>(c + i) % 16 != 0; ++i)
            c[i] = beta * c[i];
    }
    const typename v::reg factor = v::set1(beta);
    for (; i + 4 * v::width <= rows; i += 4 * v::width) {
#pragma GCC unroll 4
        for (int w = 0; w < 4; ++w)
            v::store(c + i + w * v::width, v::mul(factor, v::load(c + i + w * v::width)));
    }
    for (; i + v::width <= rows; i += v::width)
        v::store(c + i, v::mul(factor, v::load(c + i)));
    for (; i < rows; ++i)
        c[i] = beta * c[i];
}

template <class v, bool peels>
inline void scale_columns(int64_t rows, int64_t columns, float beta, float *c, int64_t ldc)
{
    if (beta == 0.0f)
        return clear_columns(rows, columns, c, ldc);
    for (int64_t j = 0; j < columns; ++j)
        scale_column<v, peels>(rows, beta, c + j * ldc);
}
} // namespace
