// SPDX-License-Identifier: BSD-3-Clause
// The machine's limits, for every register width: CSV of lanes, what, footprint, value, unit.
#include "bench/peak/peak.h"
#include "bench/support/bench.h"

int main(int argc, char **argv)
{
    CLI::App app("Limits of this machine: multiply-add peak and bandwidth");
    const tesh_bench::settings run = tesh_bench::start(app, argc, argv);
    static_cast<void>(run);
    tesh_bench::csv out("lanes,what,footprint_bytes,value,unit");
    for (int lanes : {4, 8, 16}) {
        if (tesh_bench::multiply_add_peak(lanes) == 0.0)
            continue;
        out.count(lanes)
            .text("multiply_add")
            .count(0)
            .number(tesh_bench::multiply_add_peak(lanes) * 1e-9)
            .text("GFLOP/s")
            .end();
        for (std::size_t footprint :
             {tesh_bench::level1_footprint(), tesh_bench::level2_footprint(), tesh_bench::memory_footprint()})
            for (auto [kind, name] :
                 {std::pair(tesh_bench::traffic::load, "load"), std::pair(tesh_bench::traffic::store, "store"),
                  std::pair(tesh_bench::traffic::copy, "copy"), std::pair(tesh_bench::traffic::scale, "scale"),
                  std::pair(tesh_bench::traffic::update, "update"),
                  std::pair(tesh_bench::traffic::exchange, "exchange")})
                out.count(lanes)
                    .text(name)
                    .count(static_cast<std::int64_t>(footprint))
                    .number(tesh_bench::bandwidth(kind, lanes, footprint) * 1e-9)
                    .text("GB/s")
                    .end();
    }
    return 0;
}
