// SPDX-License-Identifier: BSD-3-Clause
// Limits of the machine, measured in the process that measures the library.
#pragma once
#include <cstddef>
#include <cstdint>

namespace tesh_bench
{
// What a loop moves, and the bytes that count for it per element of a vector.
enum class traffic {
    load,     // x read                     4
    store,    // y written                  4
    copy,     // y := x                     8
    scale,    // x := a*x in place          8
    update,   // y := a*x + y              12
    exchange, // x and y swapped         16
};

// Bytes per element, as above.
int traffic_bytes(traffic kind);
// Arrays that the loop walks: 1 or 2.
int traffic_arrays(traffic kind);

// [flop/s] of a loop that multiplies and adds in registers only, with registers of 4, 8 or 16 floats. Two operations
// per lane and step; 4 lanes: a product and a sum in instructions of their own, else fused.
// 0 where the processor lacks it.
double multiply_add_peak(int lanes);

// The plain loop itself, to be run on the operands of a measurement: repetitions times over n elements, n a multiple of
// eight registers. Null where the processor lacks the width.
typedef void traffic_loop(std::int64_t repetitions, std::int64_t n, float *x, float *y, float a);
traffic_loop *plain_loop(traffic kind, int lanes);

// [bytes/s] of the plain loop over aligned arrays that together hold footprint bytes, warm, the best of several tries.
// Footprints within a cache level give that level's limit. Measured once for each kind, width and footprint.
double bandwidth(traffic kind, int lanes, std::size_t footprint);

// A footprint in the middle of the first and second cache level, and one well beyond the last [bytes].
std::size_t level1_footprint();
std::size_t level2_footprint();
std::size_t memory_footprint();
} // namespace tesh_bench
