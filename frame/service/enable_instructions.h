// SPDX-License-Identifier: BSD-3-Clause
// The instruction limit: which levels detection may still use.
#pragma once
#include "frame/tesh_types.h"

enum limit_level : uint32_t {
    limit_avx,
    limit_avx2,
    limit_avx512,
    limit_avx512_e1,
    limit_avx512_e2,
    limit_avx512_e3,
    limit_avx512_e4,
    limit_avx512_e5,
    limit_avx2_e1,
    limit_avx10, // off unless asked for; all others are on unless a limit takes them away
};

extern "C" {
extern uint32_t limit_levels_on; // a bit per level
}

namespace
{
inline bool limit_allows(limit_level level)
{
    return (__atomic_load_n(&limit_levels_on, __ATOMIC_ACQUIRE) >> level & 1) != 0;
}
} // namespace
