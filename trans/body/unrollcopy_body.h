// SPDX-License-Identifier: BSD-3-Clause
// Copies count bytes in steps of halving size. v brings the register: store_bytes, load_bytes, bytes; and ahead, the
// prefetch distance [bytes], 0 for none.
#pragma once
#include <immintrin.h>
#include <stdint.h>

#include "trans/routes.h"

namespace
{
inline bool unrollcopy_refused(const void *dest, uint64_t dest_capacity, const void *src, uint64_t count)
{
    return dest == nullptr || src == nullptr || count == 0 || count > dest_capacity;
}

// One step of bytes, all in registers.
template <class v, uint64_t bytes, bool prefetch> inline void copy_step(char *dest, const char *src)
{
#pragma GCC unroll 64
    for (uint64_t at = 0; at < bytes; at += v::bytes) {
        if constexpr (prefetch) {
            if (at % 64 == 0) {
                _mm_prefetch(src + at + v::ahead, _MM_HINT_T0);
                _mm_prefetch(dest + at + v::ahead, _MM_HINT_T0);
            }
        }
        v::store_bytes(dest + at, v::load_bytes(src + at));
    }
}

// What is left below largest bytes: steps of largest / 2 down to one register.
template <class v, uint64_t largest> inline void copy_ladder(char *&dest, const char *&src, uint64_t &count)
{
    if constexpr (largest >= v::bytes) {
        if (count >= largest) {
            copy_step<v, largest, false>(dest, src);
            dest += largest;
            src += largest;
            count -= largest;
        }
        copy_ladder<v, largest / 2>(dest, src, count);
    }
}

// Rounds of round bytes, then the ladder; what is left is shorter than a register.
template <class v, uint64_t round> inline void copy_rounds(char *&dest, const char *&src, uint64_t &count)
{
    for (; count >= round; count -= round, dest += round, src += round)
        copy_step<v, round, (v::ahead > 0)>(dest, src);
    copy_ladder<v, round / 2>(dest, src, count);
}

// 0 to 63 bytes in moves of halving size; most is their greatest size.
template <uint64_t most> inline void copy_tail(char *dest, const char *src, uint64_t count)
{
    if constexpr (most > 0) {
        if (count & most) {
            __builtin_memcpy(dest, src, most);
            dest += most;
            src += most;
        }
        copy_tail<most / 2>(dest, src, count);
    }
}
} // namespace
