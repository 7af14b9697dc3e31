// SPDX-License-Identifier: BSD-3-Clause
// A cached block taken and given back, beside malloc and free of the same size: CSV of size, who, and nanoseconds a
// pair. The hit path of the cached layer asks the system for nothing and does not depend on the size.
//
// alone: the process has one thread, and both allocators can do without locked instructions; threaded: another thread
// exists and sleeps.
// untouched: the pair alone. touched: one store to the block in between, so that pages given back to the system between
// calls cost what they cost a caller.
#include <chrono>
#include <cstdlib>
#include <thread>

#include "bench/support/bench.h"
#include "frame/tesh_serv.h"

namespace
{
struct system_blocks {
    static void *take(std::size_t size) { return std::malloc(size); }
    static void give_back(void *block) { std::free(block); }
};

struct cached_blocks {
    static void *take(std::size_t size) { return tesh_serv_allocate(size, 64); }
    static void give_back(void *block) { tesh_serv_deallocate(block); }
};

template <class Blocks> tesh_bench::contestant pair_of(std::size_t size, bool touch)
{
    return tesh_bench::contestant([size, touch] {
        auto *const block = static_cast<volatile char *>(Blocks::take(size));
        // The compiler may not drop the pair.
        __asm__ volatile("" ::"r"(block) : "memory");
        if (touch)
            *block = 1;
        Blocks::give_back(const_cast<char *>(block));
    });
}
void measure(const tesh_bench::settings &run, tesh_bench::csv &out, const char *process)
{
    for (std::size_t size : {std::size_t{4} << 10, std::size_t{1} << 20, std::size_t{64} << 20}) {
        for (const bool touch : {false, true}) {
            const auto times = tesh_bench::compare(
                {pair_of<cached_blocks>(size, touch), pair_of<system_blocks>(size, touch)}, run.case_ms);
            const char *const names[] = {"tesh_serv_allocate", "malloc"};
            for (std::size_t who = 0; who < times.size(); ++who)
                out.count(static_cast<std::int64_t>(size))
                    .text(process)
                    .text(touch ? "touched" : "untouched")
                    .text(names[who])
                    .count(times[who].repetitions)
                    .number(times[who].best * 1e9)
                    .number(times[who].median * 1e9)
                    .number(times[who].ratio)
                    .end();
        }
    }
}
} // namespace

int main(int argc, char **argv)
{
    CLI::App app("tesh_serv_allocate + tesh_serv_deallocate beside malloc + free");
    const tesh_bench::settings run = tesh_bench::start(app, argc, argv);
    tesh_bench::csv out("bytes,process,use,who,repetitions,best_ns,median_ns,ratio_to_cached");
    measure(run, out, "alone");
    std::thread([] { std::this_thread::sleep_for(std::chrono::hours(1)); }).detach();
    measure(run, out, "threaded");
    return 0;
}
