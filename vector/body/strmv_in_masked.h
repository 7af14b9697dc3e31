// SPDX-License-Identifier: BSD-3-Clause
// The columns of a triangular block on the paths whose traits have masks: whole registers and one masked rest. access
// loads and stores elements of x that are access.inc apart; v::mul_add with a mask leaves the other lanes of the sum.
#pragma once
#include "frame/path/path_util.h"

namespace
{
template <class v, class access_type> struct masked_ops {
    access_type access;

    inline void add_piece(typename v::reg t, const float *column, float *x, int64_t count) const
    {
        const typename v::mask lanes = v::first(count);
        const typename v::reg sum = v::mul_add(v::load(column, lanes), t, access.load(x, lanes), lanes);
        access.store(x, sum, lanes);
    }
    inline void add(int64_t count, float t, const float *column, float *x) const
    {
        const typename v::reg factor = v::set1(t);
        for (int64_t i = 0; i < count; i += v::width)
            add_piece(factor, column + i, x + i * access.inc, min_of(count - i, v::width));
    }
    inline float dot(int64_t count, const float *column, const float *x) const
    {
        typename v::reg sum = v::zero();
        for (int64_t i = 0; i < count; i += v::width) {
            const typename v::mask lanes = v::first(min_of(count - i, v::width));
            sum = v::mul_add(v::load(column + i, lanes), access.load(x + i * access.inc, lanes), sum);
        }
        return v::sum(sum);
    }
};
} // namespace
