// SPDX-License-Identifier: BSD-3-Clause
// The array that makes a modified rotation of a plain one: flag -1, all four entries of the matrix, by columns.
#pragma once
#include <stdint.h>

namespace
{
// The bits go through integer registers. Stores of floats wait in the queue of the vector unit behind the arithmetic of
// what ran before, and the loads of the entries and the whole of the loop after them (n = 512: 14 of 86 cycles).
struct rotation_array {
    float entry[5];
    inline rotation_array(const float *c, const float *s)
    {
        uint32_t cosine, sine;
        __builtin_memcpy(&cosine, c, sizeof cosine);
        __builtin_memcpy(&sine, s, sizeof sine);
        const uint32_t minus_one = 0xbf800000u, sign = 0x80000000u;
        const uint32_t bits[5] = {minus_one, cosine, sine ^ sign, sine, cosine};
        __builtin_memcpy(entry, bits, sizeof bits);
    }
};
} // namespace
