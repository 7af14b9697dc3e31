// SPDX-License-Identifier: BSD-3-Clause
// y := alpha*x as an operation of the line loops; x and y may be one vector.
#pragma once
#include "vector/body/element.h"

namespace
{
struct scale_single {
    float alpha;
    void one(const float *x, float *y) const { store_one(y, alpha * load_one(x)); }
};

template <class v> struct scale_line_op {
    static constexpr bool in_fours = false;
    typename v::reg alpha;
    template <class access> void at(const access &a, const float *x, float *y) const
    {
        a.store(y, v::mul(a.keep(alpha), a.load(x)));
    }
};
} // namespace
