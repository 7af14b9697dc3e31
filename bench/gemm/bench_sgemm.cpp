// SPDX-License-Identifier: BSD-3-Clause
// SGEMM of one code path against its peers, in groups of shapes. The path routine is called by its own name, so that
// the processor's maker does not matter; --public calls the exported SGEMM instead.
//
// Each line tells the limit that binds the case (the multiply-add peak, or the bandwidth that the least possible
// traffic needs at this footprint) and the share of it that was reached. The peak loop runs in turn with the
// contestants, so that a change of the clock's frequency changes both.
#include "bench/peak/peak.h"
#include "bench/peak/peak_loops.h"
#include "bench/support/bench.h"
#include "bench/support/peers.h"
#include "gemm/sgemm_paths.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

extern "C" void sgemm_(const char *, const char *, const int64_t *, const int64_t *, const int64_t *, const float *,
                       const float *, const int64_t *, const float *, const int64_t *, const float *, float *,
                       const int64_t *, int64_t, int64_t);

namespace
{
typedef void fortran_sgemm(const char *, const char *, const int64_t *, const int64_t *, const int64_t *, const float *,
                           const float *, const int64_t *, const float *, const int64_t *, const float *, float *,
                           const int64_t *, int64_t, int64_t);

struct shape {
    char transa, transb;
    int64_t m, n, k;
    float beta;
    std::string ld;         // "least", "padded" (to 16 elements more than the least), or the number
    std::int64_t batch = 1; // products that a turn computes, each on operands of its own; times are those of one
};

struct storage {
    int64_t ld, step; // step: to the matrix of the next product [elements]
    std::unique_ptr<float, decltype(&std::free)> data{nullptr, &std::free};
    storage(int64_t rows, int64_t columns, const shape &s, std::mt19937 &generator)
        : ld(s.ld == "least"    ? rows
             : s.ld == "padded" ? rows + 16
                                : std::max<int64_t>(rows, std::atol(s.ld.c_str()))),
          step(ld * columns)
    {
        const std::size_t count = static_cast<std::size_t>(step * s.batch);
        data.reset(static_cast<float *>(std::aligned_alloc(4096, (count * 4 + 4095) / 4096 * 4096)));
        std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
        for (std::size_t i = 0; i < count; ++i)
            data.get()[i] = uniform(generator);
    }
    float *of(int64_t product) const { return data.get() + product * step; }
};

fortran_sgemm *path_routine(const std::string &isa)
{
    // The path routines take no character lengths; trailing arguments cost their callee nothing.
    static const std::map<std::string, tesh_blas_sgemm_fn *> routines = {{"def", tesh_blas_def_xsgemm},
                                                                         {"mc3", tesh_blas_mc3_xsgemm},
                                                                         {"avx2", tesh_blas_avx2_xsgemm},
                                                                         {"avx512", tesh_blas_avx512_xsgemm}};
    return reinterpret_cast<fortran_sgemm *>(reinterpret_cast<void *>(routines.at(isa)));
}

// The worst of some elements against sums in double, as a share of the bound of k + 2 roundings.
double worst_error(const shape &s, const storage &a, const storage &b, const storage &c, const std::vector<float> &old)
{
    std::mt19937 generator(7);
    double worst = 0.0;
    for (int t = 0; t < 200; ++t) {
        const int64_t i = static_cast<int64_t>(generator()) % s.m, j = static_cast<int64_t>(generator()) % s.n;
        const int64_t product = t % s.batch;
        double sum = 0.0, magnitude = 0.0;
        for (int64_t l = 0; l < s.k; ++l) {
            const double x = a.of(product)[s.transa == 'N' ? i + l * a.ld : l + i * a.ld];
            const double y = b.of(product)[s.transb == 'N' ? l + j * b.ld : j + l * b.ld];
            sum += x * y;
            magnitude += std::fabs(x * y);
        }
        const double before =
            s.beta == 0.0f
                ? 0.0
                : static_cast<double>(s.beta * old[static_cast<std::size_t>(product * c.step + i + j * c.ld)]);
        const double bound = static_cast<double>(s.k + 2) * 0x1p-24 * (magnitude + std::fabs(before));
        worst = std::max(worst, std::fabs(sum + before - static_cast<double>(c.of(product)[i + j * c.ld])) / bound);
    }
    return worst;
}

struct limit {
    bool by_traffic; // or by the multiply-add peak
    double seconds;
};

// Bytes that must move at least: operands once, C once or twice.
limit binding_limit(const shape &s, const std::string &isa)
{
    const double flops = 2.0 * static_cast<double>(s.m) * static_cast<double>(s.n) * static_cast<double>(s.k);
    const int lanes = tesh_bench::lanes(isa);
    const double bytes = 4.0 * static_cast<double>(s.m * s.k + s.k * s.n + (s.beta == 0.0f ? 1 : 2) * s.m * s.n);
    std::size_t footprint = 8192;
    while (static_cast<double>(footprint) < bytes * static_cast<double>(s.batch) &&
           footprint < tesh_bench::memory_footprint())
        footprint *= 2;
    const double compute = flops / tesh_bench::multiply_add_peak(lanes);
    const double move = bytes / tesh_bench::bandwidth(tesh_bench::traffic::load, lanes, footprint);
    return compute >= move ? limit{false, compute} : limit{true, move};
}

using group = std::vector<shape>;

void add_squares(group &g, const std::vector<int64_t> &sizes, const std::vector<std::string> &pairs,
                 const std::vector<float> &betas, const std::vector<std::string> &lds)
{
    for (const int64_t size : sizes)
        for (const std::string &pair : pairs)
            for (const float beta : betas)
                for (const std::string &ld : lds)
                    g.push_back({pair[0], pair[1], size, size, size, beta, ld});
}

std::map<std::string, group> all_groups()
{
    const std::vector<std::string> four = {"NN", "NT", "TN", "TT"};
    std::map<std::string, group> groups;
    std::vector<int64_t> tiny, between, small, medium, large = {768, 1000, 1024, 1536, 2000, 2048, 3072, 4096};
    for (int64_t size = 2; size <= 24; ++size)
        tiny.push_back(size);
    for (int64_t size = 25; size <= 63; ++size)
        if (size % 8 != 0 || size < 32)
            between.push_back(size);
    for (int64_t size = 32; size <= 96; size += 8)
        small.push_back(size);
    for (int64_t size = 128; size <= 512; size += 64)
        medium.push_back(size);
    for (const int64_t size : {200, 250, 300, 500}) // rests in rows and columns
        medium.push_back(size);
    add_squares(groups["tiny"], tiny, four, {0.0f}, {"least"});
    add_squares(groups["between"], between, four, {0.0f}, {"least"}); // with tiny and small, every size up to 64
    add_squares(groups["small"], small, four, {0.0f}, {"least"});
    add_squares(groups["medium"], medium, four, {0.0f}, {"least"});
    add_squares(groups["large"], large, four, {0.0f}, {"least"});
    add_squares(groups["beta"], {24, 96, 384, 1536}, {"NN", "TN"}, {0.0f, 1.0f, 0.5f}, {"least"});
    add_squares(groups["ld"], {96, 384, 1024, 2048}, four, {1.0f}, {"least", "padded", "4096"});
    add_squares(groups["batch"], {4, 8, 16, 32}, four, {0.0f, 1.0f}, {"least"});
    for (shape &s : groups["batch"])
        s.batch = 500;
    for (const int64_t k : {8, 16, 32, 64})
        for (const std::string &pair : four)
            groups["shallow"].push_back({pair[0], pair[1], 2000, 2000, k, 1.0f, "least"});
    for (const char *pair : {"NN", "NT", "TN"}) {
        groups["skinny"].push_back({pair[0], pair[1], 10000, 8, 1000, 0.0f, "least"});
        groups["skinny"].push_back({pair[0], pair[1], 8, 10000, 1000, 0.0f, "least"});
    }
    for (int64_t n = 2; n <= 15; ++n) {
        groups["dots"].push_back({'T', 'N', n, n, 20000, 0.0f, "least"});
        groups["dots-tall"].push_back({'T', 'N', 200, n, 20000, 0.0f, "least"});
    }
    return groups;
}

struct mean {
    double logs = 0.0, least = 1e300;
    int count = 0;
    void see(double x)
    {
        logs += std::log(x);
        least = std::min(least, x);
        ++count;
    }
    double value() const { return std::exp(logs / count); }
};

struct runner {
    tesh_bench::settings run;
    std::vector<tesh_bench::peer> peers;
    fortran_sgemm *ours;
    mean share, against;

    void one(tesh_bench::csv &out, const std::string &name, const shape &s)
    {
        std::mt19937 generator(1);
        const bool na = s.transa == 'N', nb = s.transb == 'N';
        storage a(na ? s.m : s.k, na ? s.k : s.m, s, generator), b(nb ? s.k : s.n, nb ? s.n : s.k, s, generator);
        storage c(s.m, s.n, s, generator);
        const std::vector<float> old(c.data.get(), c.of(s.batch));
        const float one = 1.0f;
        const auto call = [&](fortran_sgemm *f, int64_t product) {
            f(&s.transa, &s.transb, &s.m, &s.n, &s.k, &one, a.of(product), &a.ld, b.of(product), &b.ld, &s.beta,
              c.of(product), &c.ld, 1, 1);
        };
        const auto turn = [&](fortran_sgemm *f) {
            if (s.batch == 1)
                return tesh_bench::contestant([&call, f] { call(f, 0); });
            return tesh_bench::contestant([&call, &s, f] {
                for (int64_t product = 0; product < s.batch; ++product)
                    call(f, product);
            });
        };
        turn(ours).work(1);
        const double error = worst_error(s, a, b, c, old);
        std::vector<tesh_bench::contestant> all = {turn(ours)};
        for (const tesh_bench::peer &peer : peers)
            all.push_back(turn(peer.fortran<fortran_sgemm>("sgemm")));
        const tesh_bench::peak_loop peak(tesh_bench::lanes(run.isa));
        all.emplace_back(peak);
        std::vector<tesh_bench::timing> times = tesh_bench::compare(all, run.case_ms);
        const double peak_ratio = times.back().ratio * static_cast<double>(s.batch); // to the time of one product
        times.pop_back();
        for (tesh_bench::timing &time : times) {
            time.median /= static_cast<double>(s.batch);
            time.best /= static_cast<double>(s.batch);
        }
        const limit bound = binding_limit(s, run.isa);
        double ratio = 1e300;
        for (std::size_t p = 1; p < times.size(); ++p)
            ratio = std::min(ratio, times[p].ratio);
        const double flops = 2.0 * static_cast<double>(s.m) * static_cast<double>(s.n) * static_cast<double>(s.k);
        out.text(name).text(run.isa).text(std::string{s.transa, s.transb}).count(s.m).count(s.n).count(s.k);
        out.number(static_cast<double>(s.beta)).text(s.ld).number(times[0].median * 1e6).number(times[0].best * 1e6);
        const double reached = bound.by_traffic ? bound.seconds / times[0].median : flops / peak.flops * peak_ratio;
        out.number(flops / times[0].median * 1e-9).text(bound.by_traffic ? "traffic" : "peak").number(reached);
        for (std::size_t p = 1; p < times.size(); ++p)
            out.number(times[p].ratio);
        out.number(error).end();
        share.see(reached);
        if (times.size() > 1)
            against.see(ratio);
    }
};
} // namespace

int main(int argc, char **argv)
{
    CLI::App app("SGEMM against its peers");
    std::vector<std::string> names, only_pairs;
    std::vector<int64_t> only_sizes;
    bool exported = false;
    std::map<std::string, group> groups = all_groups();
    app.add_option("--group", names, "Groups to run (default: all but the slow 'large')");
    app.add_option("--pair", only_pairs, "Only these transposition pairs: NN, NT, TN, TT");
    app.add_option("--size", only_sizes, "Only cases with one of these m");
    app.add_flag("--public", exported, "Call the exported SGEMM");
    runner r;
    r.run = tesh_bench::start(app, argc, argv);
    r.peers = tesh_bench::load_peers(r.run);
    r.ours = exported ? sgemm_ : path_routine(r.run.isa);
    std::printf("# peak: %.1f GFLOP/s with %d lanes\n",
                tesh_bench::multiply_add_peak(tesh_bench::lanes(r.run.isa)) * 1e-9, tesh_bench::lanes(r.run.isa));
    std::string header = "group,path,trans,m,n,k,beta,ld,median_us,best_us,gflops,limit,share_of_limit";
    for (const tesh_bench::peer &peer : r.peers)
        header += ",ratio_" + peer.name;
    tesh_bench::csv out(header + ",error_of_bound");
    for (const auto &[name, shapes] : groups) {
        const bool asked = std::find(names.begin(), names.end(), name) != names.end();
        if (names.empty() ? name == "large" : !asked)
            continue;
        r.share = r.against = mean();
        for (const shape &s : shapes) {
            const std::string pair{s.transa, s.transb};
            if (!only_pairs.empty() && std::find(only_pairs.begin(), only_pairs.end(), pair) == only_pairs.end())
                continue;
            if (!only_sizes.empty() && std::find(only_sizes.begin(), only_sizes.end(), s.m) == only_sizes.end())
                continue;
            r.one(out, name, s);
        }
        if (r.share.count > 0)
            std::printf("# %s: share of limit mean %.3f least %.3f\n", name.c_str(), r.share.value(), r.share.least);
        if (r.against.count > 0)
            std::printf("# %s: against the faster peer mean %.3f least %.3f\n", name.c_str(), r.against.value(),
                        r.against.least);
    }
    return 0;
}
