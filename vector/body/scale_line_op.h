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
    typename v::reg alpha;
    void whole(const float *x, float *y) const { v::store(y, v::mul(alpha, v::load(x))); }
    void some(const float *x, float *y, typename v::mask m) const { v::store(y, v::mul(alpha, v::load(x, m)), m); }
};
} // namespace
