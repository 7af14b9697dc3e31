// SPDX-License-Identifier: BSD-3-Clause
// SGEMM of the portable path against the machine's peak and the peers. --form generic: the 4-lane form, share of the
// 4-lane multiply-and-add peak (run it with --isa def, so that peers take their SSE kernels); every processor that is
// not of type 0 runs it, and with TESH_TRUSTED_VENDORS=any the type is what the processor has. --form zen: the 16 x 4
// form, share of the 8-lane fused peak (--isa avx2).
#include <cmath>
#include <cstdio>
#include <vector>

#include "bench/peak/peak.h"
#include "bench/peak/peak_loops.h"
#include "bench/support/peers.h"
#include "gemm/sgemm_paths.h"

namespace
{
using sgemm_fn = tesh_blas_sgemm_fn;

struct problem {
    char transa, transb;
    std::int64_t m, n, k, lda, ldb, ldc;
    float alpha, beta;
    std::vector<float> a, b;

    problem(char ta, char tb, std::int64_t rows, std::int64_t columns, std::int64_t depth, float factor)
        : transa(ta), transb(tb), m(rows), n(columns), k(depth), lda((ta == 'N' ? m : k) + 8),
          ldb((tb == 'N' ? k : n) + 8), ldc(m + 8), alpha(1.0f), beta(factor),
          a(static_cast<std::size_t>(lda * (ta == 'N' ? k : m))), b(static_cast<std::size_t>(ldb * (tb == 'N' ? n : k)))
    {
        fill(a, 1);
        fill(b, 2);
    }
    static void fill(std::vector<float> &x, std::uint32_t state)
    {
        for (float &value : x) {
            state = state * 1664525u + 1013904223u;
            value = static_cast<float>(state >> 8) / static_cast<float>(1 << 23) - 1.0f;
        }
    }
    void run(sgemm_fn *product, float *c) const
    {
        product(&transa, &transb, &m, &n, &k, &alpha, a.data(), &lda, b.data(), &ldb, &beta, c, &ldc);
    }
    // Largest error over a scatter of elements by the bound of k + 2 roundings.
    double worst(const std::vector<float> &c, float c0) const
    {
        double result = 0.0;
        for (std::int64_t sample = 0; sample < 200; ++sample) {
            const std::int64_t i = sample * 7919 % m, j = sample * 104729 % n;
            double sum = static_cast<double>(beta * c0), size = std::fabs(sum);
            for (std::int64_t p = 0; p < k; ++p) {
                const double x =
                    static_cast<double>(a[static_cast<std::size_t>(transa == 'N' ? i + p * lda : p + i * lda)]);
                const double y =
                    static_cast<double>(b[static_cast<std::size_t>(transb == 'N' ? p + j * ldb : j + p * ldb)]);
                sum += x * y;
                size += std::fabs(x * y);
            }
            const double bound = static_cast<double>(k + 2) * std::ldexp(size, -24);
            const double error = std::fabs(static_cast<double>(c[static_cast<std::size_t>(i + j * ldc)]) - sum);
            result = std::fmax(result, bound > 0.0 ? error / bound : 0.0);
        }
        return result;
    }
};
} // namespace

int main(int argc, char **argv)
{
    CLI::App app("SGEMM of the portable path");
    std::string form = "generic";
    std::vector<std::int64_t> sizes = {64, 128, 256, 384, 512, 768, 1024, 1536, 2048};
    float beta = 1.0f;
    bool all_pairs = false;
    app.add_option("--form", form, "generic or zen")->check(CLI::IsMember({"generic", "zen"}));
    app.add_option("--sizes", sizes, "Squares to run");
    app.add_option("--beta", beta, "beta of every product");
    app.add_flag("--all-pairs", all_pairs, "All four transposition pairs, not only NN");
    const tesh_bench::settings run = tesh_bench::start(app, argc, argv);
    const bool zen = form == "zen";
    sgemm_fn *ours = zen ? tesh_blas_def_xsgemm_bdz : tesh_blas_def_xsgemm;
    const double peak = tesh_bench::multiply_add_peak(zen ? 8 : 4);
    std::printf("# peak %.1f GFLOP/s, %d lanes\n", peak / 1e9, zen ? 8 : 4);
    const tesh_bench::peak_loop limit(zen ? 8 : 4); // in turn with the contestants
    const std::vector<tesh_bench::peer> peers = tesh_bench::load_peers(run);
    tesh_bench::csv csv("form,case,size,beta,ms_best,ms_median,gflops_best,share_best,gflops_median,share_median,error_"
                        "by_bound,peer_ratios");
    for (const char *pair : {"NN", "NT", "TN", "TT"}) {
        for (const std::int64_t n : sizes) {
            const problem x(pair[0], pair[1], n, n, n, beta);
            std::vector<float> c(static_cast<std::size_t>(x.ldc * n), 0.5f);
            x.run(ours, c.data());
            const double error = x.worst(c, 0.5f);
            std::vector<tesh_bench::contestant> field;
            field.emplace_back([&] { x.run(ours, c.data()); });
            std::vector<std::string> names;
            for (const tesh_bench::peer &p : peers) {
                sgemm_fn *theirs = p.fortran<sgemm_fn>("sgemm");
                if (theirs == nullptr)
                    continue;
                names.push_back(p.name);
                field.emplace_back([&x, &c, theirs] { x.run(theirs, c.data()); });
            }
            field.emplace_back(limit);
            const std::vector<tesh_bench::timing> times = tesh_bench::compare(field, run.case_ms);
            const double flops = 2.0 * std::pow(static_cast<double>(n), 3);
            csv.text(form).text(pair).count(n).number(static_cast<double>(beta));
            csv.number(times[0].best * 1e3).number(times[0].median * 1e3);
            csv.number(flops / times[0].best / 1e9).number(flops / times[0].best / limit.flops * times.back().best);
            csv.number(flops / times[0].median / 1e9).number(flops / limit.flops * times.back().ratio);
            csv.number(error);
            std::string ratios;
            for (std::size_t i = 0; i < names.size(); ++i) {
                char text[64];
                std::snprintf(text, sizeof text, "%s%s=%.3f", i == 0 ? "" : " ", names[i].c_str(), times[i + 1].ratio);
                ratios += text;
            }
            csv.text(ratios).end();
        }
        if (!all_pairs)
            break;
    }
    return 0;
}
