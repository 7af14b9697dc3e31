// SPDX-License-Identifier: BSD-3-Clause
// The loops that measure the machine, with registers of 16 floats.
#include "bench/peak/body/peak_body.h"
#include "bench/peak/peak_loops.h"
#include "frame/path/vec_avx512.h"

const tesh_bench::peak_loops tesh_bench::peak_loops_avx512 = {
    multiply_add_body<vec_avx512>,
    {traffic_body<vec_avx512, 0>, traffic_body<vec_avx512, 1>, traffic_body<vec_avx512, 2>, traffic_body<vec_avx512, 3>,
     traffic_body<vec_avx512, 4>, traffic_body<vec_avx512, 5>}};
static_assert(tesh_bench::multiply_adds_per_round == peak_accumulators);
