// SPDX-License-Identifier: BSD-3-Clause
// C := alpha*x*y^T + C, square and warm, against the machine's bandwidth and the peers' SGER:
// CSV as in bench_vector.cpp.
#include "bench/peak/peak.h"
#include "bench/support/bench.h"
#include "bench/support/peers.h"
#include "gemm/sgemmger_paths.h"
#include "vector/matrix_vector.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>

namespace
{
const std::map<std::string, tesh_blas_sgemmger_fn *> paths = {{"def", tesh_blas_def_xsgemmger},
                                                              {"mc3", tesh_blas_mc3_xsgemmger},
                                                              {"avx2", tesh_blas_avx2_xsgemmger},
                                                              {"avx512", tesh_blas_avx512_xsgemmger}};
constexpr float alpha = -1e-7f, beta = 1.0f; // repeated calls stay within range
constexpr std::int64_t one = 1;

float *array(std::int64_t n)
{
    const std::size_t bytes = (static_cast<std::size_t>(n) * 4 + 4095) / 4096 * 4096;
    float *p = static_cast<float *>(std::aligned_alloc(4096, bytes));
    if (p == nullptr)
        std::exit(1);
    for (std::int64_t i = 0; i < n; ++i)
        p[i] = static_cast<float>(i % 1009) * 1e-3f - 0.5f;
    return p;
}

// The difference that one call makes, against alpha*x*y^T; C is left at zero.
template <class Call> bool right(Call call, std::int64_t n, const float *x, const float *y, float *c)
{
    std::fill(c, c + n * n, 0.0f);
    call();
    double worst = 0.0;
    for (std::int64_t j = 0; j < n; ++j)
        for (std::int64_t i = 0; i < n; ++i) {
            const double want = static_cast<double>(alpha) * static_cast<double>(x[i]) * static_cast<double>(y[j]);
            worst = std::max(worst, std::fabs(static_cast<double>(c[i + j * n]) - want));
        }
    std::fill(c, c + n * n, 0.0f);
    return worst < 1e-14;
}
} // namespace

int main(int argc, char **argv)
{
    CLI::App app("The rank-1 update against the machine and its peers");
    std::vector<std::int64_t> sizes = {8, 16, 20, 32, 50, 64, 100, 200, 300, 1000, 3000};
    app.add_option("--n", sizes, "Rows and columns");
    const tesh_bench::settings run = tesh_bench::start(app, argc, argv);
    std::string header = "family,path,m=n,repetitions,best_ns,median_ns,GB/s,share_of_limit";
    std::vector<tesh_blas_sger_fn *> peers;
    for (const tesh_bench::peer &p : tesh_bench::load_peers(run))
        if (auto *theirs = p.fortran<tesh_blas_sger_fn>("sger")) {
            peers.push_back(theirs);
            header += "," + p.name + "_by_ours";
        }
    tesh_bench::csv out(header);
    tesh_blas_sgemmger_fn *const ours = paths.at(run.isa);
    const int lanes = tesh_bench::lanes(run.isa);
    tesh_bench::traffic_loop *const loop = tesh_bench::plain_loop(tesh_bench::traffic::scale, lanes);
    for (std::int64_t n : sizes) {
        float *const x = array(n), *const y = array(n), *const c = array(n * n);
        std::vector<tesh_bench::contestant> contestants;
        auto enter = [&](auto call) {
            if (!right(call, n, x, y, c)) {
                std::printf("# wrong result at %ld\n", static_cast<long>(n));
                std::exit(1);
            }
            contestants.emplace_back(call);
        };
        enter([=] { ours("N", "N", &n, &n, &alpha, x, &one, y, &one, &beta, c, &n); });
        for (tesh_blas_sger_fn *theirs : peers)
            enter([=] { theirs(&n, &n, &alpha, x, &one, y, &one, c, &n); });
        const std::int64_t whole = n * n / (8 * lanes) * (8 * lanes);
        if (whole > 0)
            contestants.emplace_back([=] { loop(1, whole, c, c, 1.0f); });
        const std::vector<tesh_bench::timing> times = tesh_bench::compare(contestants, run.case_ms);
        out.text("sgemmger").text(run.isa).count(n).count(times[0].repetitions).number(times[0].best * 1e9);
        out.number(times[0].median * 1e9).number(8e-9 * static_cast<double>(n * n) / times[0].median);
        if (whole > 0)
            out.number(times.back().ratio * static_cast<double>(n * n) / static_cast<double>(whole));
        else
            out.text("");
        for (std::size_t i = 1; i <= peers.size(); ++i)
            out.number(times[i].ratio);
        out.end();
        std::free(x);
        std::free(y);
        std::free(c);
    }
    return 0;
}
