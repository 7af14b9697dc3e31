// SPDX-License-Identifier: BSD-3-Clause
// The loops that measure the machine, with registers of 8 floats.
#include "bench/peak/body/peak_body.h"
#include "bench/peak/peak_loops.h"
#include "frame/path/vec_avx2.h"

const tesh_bench::peak_loops tesh_bench::peak_loops_avx2 = {multiply_add_body<vec_avx2>,
                                                            {traffic_body<vec_avx2, 0>, traffic_body<vec_avx2, 1>,
                                                             traffic_body<vec_avx2, 2>, traffic_body<vec_avx2, 3>,
                                                             traffic_body<vec_avx2, 4>, traffic_body<vec_avx2, 5>}};
static_assert(tesh_bench::multiply_adds_per_round == peak_accumulators);
