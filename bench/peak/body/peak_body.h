// SPDX-License-Identifier: BSD-3-Clause
// The loops behind bench/peak/peak.h, for one register width.
#pragma once
#include <stdint.h>

namespace
{
// Covers latency times width of the pipes where product and sum are instructions of their own, and leaves two operands
// in 16 registers.
constexpr int peak_accumulators = 14;

// rounds steps of peak_accumulators products and sums; answers a value that depends on all. A product of the sum itself
// needs no copy of an operand: where two-operand instructions would take a copy for each product, they would fill every
// slot that vector instructions have in a cycle, and the loop would read a seventh less at some places in memory.
template <class v> float multiply_add_body(int64_t rounds, float start)
{
    typename v::reg acc[peak_accumulators];
    const typename v::reg x = v::set1(start), y = v::set1(start);
    for (int i = 0; i < peak_accumulators; ++i)
        acc[i] = v::set1(start);
    for (int64_t r = 0; r < rounds; ++r) {
#pragma GCC unroll 14
        for (int i = 0; i < peak_accumulators; ++i)
            acc[i] = v::mul_add(acc[i], x, y);
    }
    for (int i = 1; i < peak_accumulators; ++i)
        acc[0] = v::add(acc[0], acc[i]);
    float lanes[v::width];
    v::store(lanes, acc[0]);
    return lanes[0];
}

// kind as tesh_bench::traffic; n a multiple of 8 registers; both arrays aligned to 64 bytes.
template <class v, int kind> void traffic_body(int64_t repetitions, int64_t n, float *x, float *y, float a)
{
    const typename v::reg av = v::set1(a);
    for (int64_t r = 0; r < repetitions; ++r) {
#pragma GCC unroll 1
        for (int64_t i = 0; i < n; i += 8 * v::width) {
#pragma GCC unroll 8
            for (int u = 0; u < 8; ++u) {
                const int64_t at = i + u * v::width;
                if constexpr (kind == 0) {
                    const typename v::reg value = v::load(x + at);
                    __asm__ volatile("" ::"x"(value));
                } else if constexpr (kind == 1) {
                    v::store(y + at, av);
                } else if constexpr (kind == 2) {
                    v::store(y + at, v::load(x + at));
                } else if constexpr (kind == 3) {
                    v::store(y + at, v::mul(av, v::load(y + at)));
                } else if constexpr (kind == 4) {
                    v::store(y + at, v::mul_add(av, v::load(x + at), v::load(y + at)));
                } else {
                    const typename v::reg x_v = v::load(x + at), y_v = v::load(y + at);
                    v::store(x + at, y_v);
                    v::store(y + at, x_v);
                }
            }
        }
        __asm__ volatile("" ::: "memory");
    }
}
} // namespace
