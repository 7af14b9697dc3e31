// SPDX-License-Identifier: BSD-3-Clause
// The loops that measure the machine, with registers of 4 floats.
#include "bench/peak/body/peak_body.h"
#include "bench/peak/peak_loops.h"
#include "frame/path/vec_def.h"

const tesh_bench::peak_loops tesh_bench::peak_loops_def = {multiply_add_body<vec_def>,
                                                           {traffic_body<vec_def, 0>, traffic_body<vec_def, 1>,
                                                            traffic_body<vec_def, 2>, traffic_body<vec_def, 3>,
                                                            traffic_body<vec_def, 4>, traffic_body<vec_def, 5>}};
static_assert(tesh_bench::multiply_adds_per_round == peak_accumulators);
