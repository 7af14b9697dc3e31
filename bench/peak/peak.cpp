// SPDX-License-Identifier: BSD-3-Clause
// The machine itself: the best of some tries of each loop, kept for the process.
#include "bench/peak/peak.h"

#include "bench/peak/peak_loops.h"
#include "bench/support/bench.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <tuple>

namespace
{
const tesh_bench::peak_loops *loops_of(int lanes)
{
    __builtin_cpu_init();
    if (lanes == 4)
        return &tesh_bench::peak_loops_def;
    if (lanes == 8)
        return __builtin_cpu_supports("fma") && __builtin_cpu_supports("avx2") ? &tesh_bench::peak_loops_avx2 : nullptr;
    return __builtin_cpu_supports("avx512vl") ? &tesh_bench::peak_loops_avx512 : nullptr;
}

// Least time of one call of work, over tries that last some 30 ms together.
template <class Work> double best_time(Work work)
{
    double best = 1e30;
    const double end = tesh_bench::now() + 30e-3;
    for (int i = 0; i < 5 || tesh_bench::now() < end; ++i) {
        const double begin = tesh_bench::now();
        work();
        best = std::min(best, tesh_bench::now() - begin);
    }
    return best;
}

// [bytes] of a data cache, or what most processors have.
std::size_t cache_bytes(int name, std::size_t otherwise)
{
    const long bytes = sysconf(name);
    return bytes > 0 ? static_cast<std::size_t>(bytes) : otherwise;
}
} // namespace

int tesh_bench::traffic_bytes(traffic kind)
{
    constexpr int bytes[] = {4, 4, 8, 8, 12, 16};
    return bytes[static_cast<int>(kind)];
}

int tesh_bench::traffic_arrays(traffic kind)
{
    return kind == traffic::copy || kind == traffic::update || kind == traffic::exchange ? 2 : 1;
}

tesh_bench::traffic_loop *tesh_bench::plain_loop(traffic kind, int lanes)
{
    const peak_loops *loops = loops_of(lanes);
    return loops == nullptr ? nullptr : loops->traffic[static_cast<int>(kind)];
}

double tesh_bench::multiply_add_peak(int lanes)
{
    static std::map<int, double> known;
    const auto found = known.find(lanes);
    if (found != known.end())
        return found->second;
    const peak_loops *loops = loops_of(lanes);
    if (loops == nullptr)
        return known[lanes] = 0.0;
    constexpr std::int64_t rounds = 20000;
    volatile float sink;
    const double seconds = best_time([&] { sink = loops->multiply_add(rounds, 1e-3f); });
    return known[lanes] = 2.0 * lanes * static_cast<double>(multiply_adds_per_round * rounds) / seconds;
}

double tesh_bench::bandwidth(traffic kind, int lanes, std::size_t footprint)
{
    static std::map<std::tuple<traffic, int, std::size_t>, double> known;
    const auto key = std::make_tuple(kind, lanes, footprint);
    const auto found = known.find(key);
    if (found != known.end())
        return found->second;
    const peak_loops *loops = loops_of(lanes);
    if (loops == nullptr)
        return known[key] = 0.0;
    const std::int64_t step = 8 * lanes;
    const std::size_t arrays = static_cast<std::size_t>(traffic_arrays(kind));
    const std::int64_t n =
        std::max<std::int64_t>(step, static_cast<std::int64_t>(footprint / arrays / 4) / step * step);
    // The second array begins 1088 bytes behind the first one's end, modulo pages: no store shares its low address bits
    // with a load that is due.
    const std::size_t bytes = static_cast<std::size_t>(n) * 4, shift = 1088;
    char *map = static_cast<char *>(std::aligned_alloc(4096, (arrays * (bytes + 8192) + 4095) / 4096 * 4096));
    float *x = reinterpret_cast<float *>(map);
    float *y = arrays == 1 ? x : reinterpret_cast<float *>(map + (bytes + 4095) / 4096 * 4096 + shift);
    std::fill(x, x + n, 1.0f);
    std::fill(y, y + n, 1.0f);
    traffic_loop *loop = loops->traffic[static_cast<int>(kind)];
    const std::int64_t repetitions = std::max<std::int64_t>(1, 4000000 / static_cast<std::int64_t>(arrays * bytes));
    loop(repetitions, n, x, y, 1.0f);
    const double seconds = best_time([&] { loop(repetitions, n, x, y, kind == traffic::scale ? 1.0f : 0.0f); });
    std::free(map);
    const double moved = static_cast<double>(repetitions) * static_cast<double>(n) * traffic_bytes(kind);
    return known[key] = moved / seconds;
}

std::size_t tesh_bench::level1_footprint()
{
    return cache_bytes(_SC_LEVEL1_DCACHE_SIZE, 32768) / 2;
}

std::size_t tesh_bench::level2_footprint()
{
    return cache_bytes(_SC_LEVEL2_CACHE_SIZE, 1048576) / 2;
}

std::size_t tesh_bench::memory_footprint()
{
    // Far beyond the share of the last level that a core has, even where the machine reports the cache of all of them.
    return std::size_t(256) << 20;
}
