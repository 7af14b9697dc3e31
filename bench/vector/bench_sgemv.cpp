// SPDX-License-Identifier: BSD-3-Clause
// SGEMV of one path beside its peers, warm: square matrices in every cache level and in memory, and thin ones. Counted
// are the bytes that any method must move: A and x once, y twice. The share is that of the load limit: the plain loop
// over A, run in turn with the calls, brought to those bytes. Share and ratio are medians over the rounds. Results are
// held against double sums before they are timed.
#include "bench/peak/peak.h"
#include "bench/support/bench.h"
#include "bench/support/peers.h"
#include "vector/matrix_vector_paths.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>

namespace
{
using sgemv_fn = void(const char *, const int64_t *, const int64_t *, const float *, const float *, const int64_t *,
                      const float *, const int64_t *, const float *, float *, const int64_t *);

struct problem {
    char trans;
    int64_t m, n, lda;
    float beta;
    const float *a, *x;
    float *y;

    int64_t x_count() const { return trans == 'N' ? n : m; }
    int64_t y_count() const { return trans == 'N' ? m : n; }
    int64_t bytes() const { return 4 * (m * n + x_count() + 2 * y_count()); }
};

struct runner {
    std::string name, core;
    sgemv_fn *peer = nullptr; // null: this library's routine
    tesh_blas_sgemv_fn *own = nullptr;

    void operator()(const problem &p) const
    {
        const float alpha = 1.0f;
        const int64_t one = 1;
        if (own != nullptr)
            own(&p.trans, &p.m, &p.n, &alpha, p.a, &p.lda, p.x, &one, &p.beta, p.y, &one, 1);
        else
            peer(&p.trans, &p.m, &p.n, &alpha, p.a, &p.lda, p.x, &one, &p.beta, p.y, &one);
    }
};

// Some elements of the result of one call against double sums; ends the process on a wrong one.
void check(const runner &who, const problem &p)
{
    for (int64_t i = 0; i < p.y_count(); ++i)
        p.y[i] = 1.0f;
    who(p);
    const int64_t step = p.y_count() / 50 + 1;
    for (int64_t i = 0; i < p.y_count(); i += step) {
        double sum = p.beta, magnitude = std::fabs(sum);
        for (int64_t k = 0; k < p.x_count(); ++k) {
            const double product =
                static_cast<double>(p.trans == 'N' ? p.a[k * p.lda + i] : p.a[i * p.lda + k]) * p.x[k];
            sum += product;
            magnitude += std::fabs(product);
        }
        if (!(std::fabs(p.y[i] - sum) <= std::ldexp(static_cast<double>(p.x_count()) + 2.0, -23) * magnitude)) {
            std::printf("# %s: wrong result, %c %lld x %lld, element %lld\n", who.name.c_str(), p.trans,
                        static_cast<long long>(p.m), static_cast<long long>(p.n), static_cast<long long>(i));
            std::exit(1);
        }
    }
}

tesh_blas_sgemv_fn *own_routine(const std::string &isa)
{
    if (isa == "avx512")
        return tesh_blas_avx512_xsgemv;
    if (isa == "avx2")
        return tesh_blas_avx2_xsgemv;
    return isa == "mc3" ? tesh_blas_mc3_xsgemv : tesh_blas_def_xsgemv;
}

using shape = std::pair<int64_t, int64_t>;
std::vector<shape> shapes(const std::vector<int64_t> &sizes, bool thin)
{
    std::vector<shape> found;
    for (const int64_t size : sizes)
        found.emplace_back(size, size);
    if (thin) {
        for (const int64_t n : {1, 2, 3, 4, 6, 8, 16})
            found.emplace_back(512, n);
        for (const int64_t m : {4, 8, 16, 20, 32})
            found.emplace_back(m, 512);
        found.insert(found.end(), {{300, 20}, {300, 32}, {128, 64}, {64, 128}, {10000, 24}, {24, 10000}});
        for (const int64_t n : {1, 4, 8})
            found.emplace_back(2000000, n);
        for (const int64_t m : {4, 8, 16})
            found.emplace_back(m, 1000000);
    }
    return found;
}

struct float_array {
    explicit float_array(int64_t count, int64_t shift)
        : memory_(static_cast<float *>(
              std::aligned_alloc(4096, (static_cast<size_t>(count + shift) * 4 + 4095) / 4096 * 4096))),
          data(memory_.get() + shift)
    {
        for (int64_t i = 0; i < count; ++i)
            data[i] = static_cast<float>((i * 7919) % 2003) * 0x1p-11f - 0.5f;
    }
    struct release {
        void operator()(float *p) const { std::free(p); }
    };
    std::unique_ptr<float, release> memory_;
    float *data;
};
} // namespace

int main(int argc, char **argv)
{
    CLI::App app("SGEMV against its peers");
    std::vector<int64_t> sizes = {8,   12,  16,  24,  32,  48,   64,   80,   96,   128, 200,
                                  256, 400, 448, 512, 800, 1024, 1500, 2048, 4096, 8000};
    int64_t shift = 0, extra_lda = 0;
    float beta = 1.0f;
    bool thin = true;
    std::string letters = "NT";
    app.add_option("--sizes", sizes, "orders of the square matrices")->delimiter(',');
    app.add_option("--shift", shift, "elements by which the operands stand behind a page boundary");
    app.add_option("--extra-lda", extra_lda, "lda - m");
    app.add_option("--beta", beta, "factor of y");
    app.add_option("--trans", letters, "letters to run");
    app.add_flag("--thin,!--no-thin", thin, "thin matrices too");
    const tesh_bench::settings run = tesh_bench::start(app, argc, argv);
    std::vector<runner> runners(1);
    runners[0].name = "tesh";
    runners[0].core = run.isa;
    runners[0].own = own_routine(run.isa);
    for (const tesh_bench::peer &peer : tesh_bench::load_peers(run)) {
        runners.push_back({peer.name, peer.core, peer.fortran<sgemv_fn>("sgemv"), nullptr});
        if (runners.back().peer == nullptr)
            runners.pop_back();
    }
    tesh_bench::csv out(
        "family,path,trans,m,n,lda,who,core,repetitions,best_s,median_s,gflops,gbytes_per_s,share,ratio");
    for (const char trans : letters) {
        for (const auto &[m, n] : shapes(sizes, thin)) {
            const int64_t lda = m + extra_lda;
            const float_array a(lda * n, shift), x(std::max(m, n), shift), y(std::max(m, n), shift);
            const problem p = {trans, m, n, lda, beta, a.data, x.data, y.data};
            std::vector<tesh_bench::contestant> contestants;
            for (const runner &who : runners) {
                check(who, p);
                contestants.emplace_back([&who, &p] { who(p); });
            }
            // A call on few elements costs more than its bytes: no limit is given.
            const int lanes = tesh_bench::lanes(run.isa);
            const int64_t whole = lda * n / (8 * lanes) * (8 * lanes);
            const bool limited = m * n >= 4096;
            tesh_bench::traffic_loop *const loop = tesh_bench::plain_loop(tesh_bench::traffic::load, lanes);
            if (limited)
                contestants.emplace_back([loop, whole, &a] { loop(1, whole, a.data, a.data, 0.0f); });
            const std::vector<tesh_bench::timing> times = tesh_bench::compare(contestants, run.case_ms);
            for (size_t w = 0; w < runners.size(); ++w) {
                const double rate = static_cast<double>(p.bytes()) / times[w].median;
                out.text("sgemv").text(run.isa).text(std::string(1, trans)).count(m).count(n).count(lda);
                out.text(runners[w].name).text(runners[w].core).count(times[w].repetitions);
                out.number(times[w].best).number(times[w].median);
                out.number(2e-9 * static_cast<double>(m * n) / times[w].median).number(rate * 1e-9);
                if (limited) // the loop's time by this one's, both medians over pairs with the first
                    out.number(times.back().ratio / times[w].ratio * static_cast<double>(p.bytes()) /
                               static_cast<double>(4 * whole));
                else
                    out.text("");
                out.number(times[w].ratio).end();
            }
        }
    }
    return 0;
}
