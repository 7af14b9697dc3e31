// SPDX-License-Identifier: BSD-3-Clause
// Register traits of the mc3 path: 4 floats in a register, multiply and add rounded apart. SSE4.2 has nothing beyond
// SSE2 for products and sums of floats, so they are those of def.
#pragma once
#include "frame/path/vec_def.h"

namespace
{
struct vec_mc3 : vec_def {
};
} // namespace
