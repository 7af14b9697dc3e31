// SPDX-License-Identifier: BSD-3-Clause
// x := op(A)*x in place for one triangular block, in the element order of the textbook loops: column by column, a
// column reading x before it is finished. Without blocking. A unit diagonal is not read.
//
// ops moves along one column: add does x += t * column, dot returns column * x, both over count contiguous elements of
// the column and elements of x that are ops.inc apart.
#pragma once
#include "vector/body/element.h"

namespace
{
struct triangle {
    bool upper, transposed, unit;
    int64_t n;      // order [elements]
    const float *a; // column-major
    int64_t lda;    // [elements]
    float *x;       // at its first logical element
    int64_t incx;   // [elements]
};

inline triangle strmv_in_read(const char *uplo, const char *trans, const char *diag, const int64_t *n, const float *a,
                              const int64_t *lda, float *x, const int64_t *incx)
{
    return {*uplo == 'U' || *uplo == 'u',
            *trans != 'N' && *trans != 'n',
            *diag == 'U' || *diag == 'u',
            *n,
            a,
            *lda,
            x + first_index(*n, *incx),
            *incx};
}

template <class ops_type> inline void strmv_in_body(const triangle &t, const ops_type &ops)
{
    const bool upwards = t.upper != t.transposed;
    for (int64_t k = 0; k < t.n; ++k) {
        const int64_t j = upwards ? k : t.n - 1 - k;
        const int64_t from = t.upper ? 0 : j + 1, count = t.upper ? j : t.n - from;
        const float *column = t.a + j * t.lda;
        float *const own = t.x + j * t.incx, *const others = t.x + from * t.incx;
        float element = load_one(own);
        if (!t.transposed)
            ops.add(count, element, column + from, others);
        if (!t.unit)
            element *= load_one(column + j);
        if (t.transposed)
            element += ops.dot(count, column + from, others);
        store_one(own, element);
    }
}

// Registers of v whose elements of x are inc apart, loaded and stored one by one where that is not 1; a scalar rest.
template <class v, bool contiguous> struct lane_ops {
    int64_t inc;

    inline typename v::reg load(const float *x) const
    {
        if (contiguous)
            return v::load(x);
        float lane[v::width];
        for (int l = 0; l < v::width; ++l)
            lane[l] = load_one(x + l * inc);
        return v::load(lane);
    }
    inline void store(float *x, typename v::reg value) const
    {
        if (contiguous) {
            v::store(x, value);
            return;
        }
        float lane[v::width];
        v::store(lane, value);
        for (int l = 0; l < v::width; ++l)
            store_one(x + l * inc, lane[l]);
    }
    inline void add(int64_t count, float t, const float *column, float *x) const
    {
        const typename v::reg factor = v::set1(t);
        int64_t i = 0;
        for (; i + v::width <= count; i += v::width)
            store(x + i * inc, v::mul_add(v::load(column + i), factor, load(x + i * inc)));
        for (; i < count; ++i)
            store_one(x + i * inc, load_one(x + i * inc) + load_one(column + i) * t);
    }
    inline float dot(int64_t count, const float *column, const float *x) const
    {
        typename v::reg sum = v::zero();
        int64_t i = 0;
        for (; i + v::width <= count; i += v::width)
            sum = v::mul_add(v::load(column + i), load(x + i * inc), sum);
        float lane[v::width];
        v::store(lane, sum);
        float total = (lane[0] + lane[2]) + (lane[1] + lane[3]);
        for (; i < count; ++i)
            total += load_one(column + i) * load_one(x + i * inc);
        return total;
    }
};

// The paths of 4 lanes.
template <class v> inline void strmv_in_by_lanes(const triangle &t)
{
    static_assert(v::width == 4, "dot adds four lanes");
    if (t.incx == 1)
        strmv_in_body(t, lane_ops<v, true>{1});
    else
        strmv_in_body(t, lane_ops<v, false>{t.incx});
}
} // namespace
