// SPDX-License-Identifier: BSD-3-Clause
// One row of loops per register width, compiled with that width's flags.
#pragma once
#include <stdint.h>

namespace tesh_bench
{
typedef float multiply_add_loop(int64_t rounds, float start);
typedef void traffic_loop(int64_t repetitions, int64_t n, float *x, float *y, float a);
struct peak_loops {
    multiply_add_loop *multiply_add;
    traffic_loop *traffic[6]; // by the value of enum traffic
};
extern const peak_loops peak_loops_def, peak_loops_avx2, peak_loops_avx512;
constexpr int64_t multiply_adds_per_round = 14; // [count] of whole registers

// The loop of multiply-adds in registers, long enough to time: runs in turn with what is held against the peak, so that
// a change of the clock's frequency changes both.
struct peak_loop {
    static constexpr int64_t rounds = 20000;
    multiply_add_loop *loop;
    double flops;
    explicit peak_loop(int lanes)
        : loop((lanes == 16  ? peak_loops_avx512
                : lanes == 8 ? peak_loops_avx2
                             : peak_loops_def)
                   .multiply_add),
          flops(2.0 * lanes * static_cast<double>(multiply_adds_per_round * rounds))
    {
    }
    void operator()() const { loop(rounds, 1.0f); }
};
} // namespace tesh_bench
