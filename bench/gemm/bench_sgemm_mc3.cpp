// SPDX-License-Identifier: BSD-3-Clause
// SGEMM of the mc3 path, called by its own name, beside peers held to their SSE4.2-level kernels: run it with --isa mc3.
// Share: of the measured peak of multiply and add in registers of 4 floats.
#include <cmath>
#include <vector>

#include "bench/peak/peak.h"
#include "bench/support/bench.h"
#include "bench/support/peers.h"
#include "gemm/sgemm_paths.h"

namespace
{
using sgemm_fn = tesh_blas_sgemm_fn;

struct product {
    char transa, transb;
    int64_t m, n, k;
    float alpha = 1.0f, beta = 0.0f;
    std::vector<float> a, b, c;
    int64_t lda, ldb, ldc;

    product(char ta, char tb, int64_t rows, int64_t cols, int64_t depth)
        : transa(ta), transb(tb), m(rows), n(cols), k(depth), lda(ta == 'N' ? m : k), ldb(tb == 'N' ? k : n), ldc(m)
    {
        a.resize(static_cast<size_t>(m * k));
        b.resize(static_cast<size_t>(k * n));
        c.resize(static_cast<size_t>(m * n));
        for (size_t i = 0; i < a.size(); ++i)
            a[i] = static_cast<float>(i % 7) - 3.0f;
        for (size_t i = 0; i < b.size(); ++i)
            b[i] = static_cast<float>(i % 5) - 2.0f;
    }
    void run(sgemm_fn *f)
    {
        f(&transa, &transb, &m, &n, &k, &alpha, a.data(), &lda, b.data(), &ldb, &beta, c.data(), &ldc);
    }
    // Small integers: every right answer is exact.
    bool right(sgemm_fn *f)
    {
        run(f);
        for (int64_t j = 0; j < n; j += 1 + n / 7)
            for (int64_t i = 0; i < m; i += 1 + m / 7) {
                double sum = 0;
                for (int64_t l = 0; l < k; ++l) {
                    const int64_t at_a = transa == 'N' ? l * lda + i : i * lda + l;
                    const int64_t at_b = transb == 'N' ? j * ldb + l : l * ldb + j;
                    sum += static_cast<double>(a[static_cast<size_t>(at_a)]) *
                           static_cast<double>(b[static_cast<size_t>(at_b)]);
                }
                if (sum != static_cast<double>(c[static_cast<size_t>(j * ldc + i)]))
                    return false;
            }
        return true;
    }
};
} // namespace

int main(int argc, char **argv)
{
    CLI::App app("SGEMM of the mc3 path against its peers");
    int64_t largest = 2048;
    app.add_option("--largest", largest, "largest order of a square product");
    const tesh_bench::settings run = tesh_bench::start(app, argc, argv);
    const auto peers = tesh_bench::load_peers(run);
    const double peak = tesh_bench::multiply_add_peak(4);

    tesh_bench::csv csv("family,path,trans,n,repetitions,best_s,median_s,gflops,share_of_peak,peer,peer_core,"
                        "peer_time_over_ours");
    for (int64_t n : {8, 16, 32, 64, 128, 256, 384, 512, 768, 1024, 1536, 2048}) {
        if (n > largest)
            break;
        for (const char *trans : {"NN", "NT", "TN", "TT"}) {
            product x(trans[0], trans[1], n, n, n);
            if (!x.right(tesh_blas_mc3_xsgemm)) {
                std::fprintf(stderr, "wrong result at n = %lld\n", static_cast<long long>(n));
                return 1;
            }
            std::vector<tesh_bench::contestant> all = {tesh_bench::contestant([&] { x.run(tesh_blas_mc3_xsgemm); })};
            for (const auto &peer : peers) {
                sgemm_fn *const theirs = peer.fortran<sgemm_fn>("sgemm");
                all.push_back(tesh_bench::contestant([&x, theirs] { x.run(theirs); }));
            }
            const auto times = tesh_bench::compare(all, run.case_ms);
            const double flops = 2.0 * std::pow(static_cast<double>(n), 3);
            for (size_t i = 1; i < all.size() || i == 1; ++i) {
                csv.text("sgemm").text("mc3").text(trans).count(n).count(times[0].repetitions);
                csv.number(times[0].best).number(times[0].median).number(flops / times[0].median * 1e-9);
                csv.number(flops / times[0].median / peak);
                csv.text(peers.empty() ? "" : peers[i - 1].name).text(peers.empty() ? "" : peers[i - 1].core);
                csv.number(peers.empty() ? 0.0 : times[i].ratio).end();
            }
        }
    }
    return 0;
}
