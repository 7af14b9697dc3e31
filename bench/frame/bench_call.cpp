// SPDX-License-Identifier: BSD-3-Clause
// What a call costs before any arithmetic: SAXPBY with n = 0, SGEMM with m = 0, and the smallest product that computes
// something, 1 x 1 x 1; beside them a call through a pointer that does nothing. Run it with TESH_TRUSTED_VENDORS=any.
#include <benchmark/benchmark.h>

#include "frame/tesh.h"

namespace
{
[[gnu::noinline]] void nothing(const int64_t *n)
{
    benchmark::DoNotOptimize(n);
}

void call_through_a_pointer(benchmark::State &state)
{
    const int64_t n = 0;
    void (*volatile const call)(const int64_t *) = nothing;
    for (auto _ : state)
        call(&n);
}
BENCHMARK(call_through_a_pointer);

void saxpby_of_length(benchmark::State &state)
{
    const int64_t n = state.range(0), inc = 1;
    const float alpha = 1.5f, beta = 0.5f;
    float x[64] = {}, y[64] = {};
    for (auto _ : state) {
        SAXPBY(&n, &alpha, x, &inc, &beta, y, &inc);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(saxpby_of_length)->Arg(0)->Arg(1)->Arg(16)->Arg(64);

void sgemm_of_order(benchmark::State &state)
{
    const int64_t n = state.range(0), ld = 16;
    const float alpha = 1.5f, beta = 0.5f;
    float a[256] = {}, b[256] = {}, c[256] = {};
    for (auto _ : state) {
        SGEMM("N", "N", &n, &n, &n, &alpha, a, &ld, b, &ld, &beta, c, &ld);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(sgemm_of_order)->Arg(0)->Arg(1)->Arg(2)->Arg(8)->Arg(16);
} // namespace

BENCHMARK_MAIN();
