// SPDX-License-Identifier: BSD-3-Clause
// Waiting for stores to reach the first cache.
//
// Lines that are multiples of 1024 bytes apart share few sets of the first cache. The processor fetches the cache lines
// of all stores in its queue ahead of time: those of one set throw each other out before they are written, again and
// again. An address that waits for the stores of the last step keeps those of the next one out of the queue.
#pragma once
#include <stdint.h>

namespace
{
constexpr uint64_t aliased_bytes = 1024; // of the distance between lines; its multiples share sets

// 0, known only when a store to the element at p, or to that at p + 1, has left the queue: a load across the end of a
// store takes nothing from the queue.
[[gnu::always_inline]] inline uint64_t settled_zero(const float *p)
{
    uint64_t none = 0, across;
    __asm__("" : "+r"(none)); // hides that the result is a constant
    __builtin_memcpy(&across, p, sizeof across);
    return across & none;
}
} // namespace
