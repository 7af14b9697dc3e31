// SPDX-License-Identifier: BSD-3-Clause
// Level 1 of one path against the machine's bandwidth and against peers held to the same instruction set.
//
// One line of CSV per family and length: the median time of a call, the bytes that it moves per second, the share of
// the limit, and each peer's time by ours (above 1: this library is faster). The limit is the plain loop with the same
// loads and stores, run in turn with the call on the same operands, or the multiply-add peak where that takes longer.
// Warm lines repeat a call on the same operands; cold lines flush the caches before each call.
#include "bench/peak/peak.h"
#include "bench/support/bench.h"
#include "bench/support/peers.h"
#include "vector/vector_paths.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>

namespace
{
using tesh_bench::traffic;

enum class family { saxpby, saxpby_beta_0, saxpy, scopy, sscal, sswap, srot, snrm2 };

struct routine {
    const char *name;
    family what;
    traffic kind;
    int multiply_adds; // per element, each a product, a fused one, or both lanes' worth of one in double precision
    const char *peer_name;
};
constexpr routine routines[] = {
    {"saxpby", family::saxpby, traffic::update, 2, "saxpby"},
    {"saxpby_beta_0", family::saxpby_beta_0, traffic::copy, 1, "saxpby"},
    {"saxpy", family::saxpy, traffic::update, 1, "saxpy"},
    {"scopy", family::scopy, traffic::copy, 0, "scopy"},
    {"sscal", family::sscal, traffic::scale, 1, "sscal"},
    {"sswap", family::sswap, traffic::exchange, 0, "sswap"},
    {"srot", family::srot, traffic::exchange, 4, "srot"},
    {"snrm2", family::snrm2, traffic::load, 2, "snrm2"},
};

struct members {
    tesh_blas_saxpby_fn *saxpby;
    tesh_blas_saxpy_fn *saxpy;
    tesh_blas_scopy_fn *scopy;
    tesh_blas_sscal_fn *sscal;
    tesh_blas_sswap_fn *sswap;
    tesh_blas_srot_fn *srot;
    tesh_blas_snrm2_fn *snrm2;
};
const std::map<std::string, members> paths = {
    {"def",
     {tesh_blas_def_xsaxpby, tesh_blas_def_xsaxpy, tesh_blas_def_xscopy, tesh_blas_def_xsscal, tesh_blas_def_xsswap,
      tesh_blas_def_xsrot, tesh_blas_def_xsnrm2}},
    {"mc3",
     {tesh_blas_mc3_xsaxpby, tesh_blas_mc3_xsaxpy, tesh_blas_mc3_xscopy, tesh_blas_mc3_xsscal, tesh_blas_mc3_xsswap,
      tesh_blas_mc3_xsrot, tesh_blas_mc3_xsnrm2}},
    {"avx2",
     {tesh_blas_avx2_xsaxpby, tesh_blas_avx2_xsaxpy, tesh_blas_avx2_xscopy, tesh_blas_avx2_xsscal,
      tesh_blas_avx2_xsswap, tesh_blas_avx2_xsrot, tesh_blas_avx2_xsnrm2}},
    {"avx512",
     {tesh_blas_avx512_xsaxpby, tesh_blas_avx512_xsaxpy, tesh_blas_avx512_xscopy, tesh_blas_avx512_xsscal,
      tesh_blas_avx512_xsswap, tesh_blas_avx512_xsrot, tesh_blas_avx512_xsnrm2}}};

// Factors that keep repeated calls within range and are special to nobody.
constexpr float alpha = 0.5f, beta = 0.5f, zero = 0.0f, minus_one = -1.0f, tiny = -1e-7f, cosine = 0.8f, sine = 0.6f;
constexpr std::int64_t one = 1;

struct operands {
    std::int64_t n;
    float *x, *y, *result;
};

// The call with function as the family's routine, once; the lambda is compiled into the loop that repeats it.
template <class Use> void with_call(family what, void *function, operands o, Use use)
{
    switch (what) {
    case family::saxpby:
        return use(
            [=] { reinterpret_cast<tesh_blas_saxpby_fn *>(function)(&o.n, &alpha, o.x, &one, &beta, o.y, &one); });
    case family::saxpby_beta_0:
        return use(
            [=] { reinterpret_cast<tesh_blas_saxpby_fn *>(function)(&o.n, &alpha, o.x, &one, &zero, o.y, &one); });
    case family::saxpy:
        return use([=] { reinterpret_cast<tesh_blas_saxpy_fn *>(function)(&o.n, &tiny, o.x, &one, o.y, &one); });
    case family::scopy:
        return use([=] { reinterpret_cast<tesh_blas_scopy_fn *>(function)(&o.n, o.x, &one, o.y, &one); });
    case family::sscal:
        return use([=] { reinterpret_cast<tesh_blas_sscal_fn *>(function)(&o.n, &minus_one, o.y, &one); });
    case family::sswap:
        return use([=] { reinterpret_cast<tesh_blas_sswap_fn *>(function)(&o.n, o.x, &one, o.y, &one); });
    case family::srot:
        return use(
            [=] { reinterpret_cast<tesh_blas_srot_fn *>(function)(&o.n, o.x, &one, o.y, &one, &cosine, &sine); });
    case family::snrm2:
        return use([=] { *o.result = reinterpret_cast<tesh_blas_snrm2_fn *>(function)(&o.n, o.x, &one); });
    }
}

void *member_of(const members &m, family what)
{
    switch (what) {
    case family::saxpby:
    case family::saxpby_beta_0:
        return reinterpret_cast<void *>(m.saxpby);
    case family::saxpy:
        return reinterpret_cast<void *>(m.saxpy);
    case family::scopy:
        return reinterpret_cast<void *>(m.scopy);
    case family::sscal:
        return reinterpret_cast<void *>(m.sscal);
    case family::sswap:
        return reinterpret_cast<void *>(m.sswap);
    case family::srot:
        return reinterpret_cast<void *>(m.srot);
    default:
        return reinterpret_cast<void *>(m.snrm2);
    }
}

float start_x(std::int64_t i)
{
    return static_cast<float>(i % 1009) * 1e-3f - 0.5f;
}
float start_y(std::int64_t i)
{
    return static_cast<float>(i % 997) * 1e-3f - 0.4f;
}

void fill(operands o)
{
    for (std::int64_t i = 0; i < o.n; ++i) {
        o.x[i] = start_x(i);
        o.y[i] = start_y(i);
    }
}

// One call on fresh operands against the formula in double precision. Norms may sum their squares in single precision:
// slack, the relative error allowed beside the rounding of the result.
bool right(family what, void *function, operands o, double slack)
{
    fill(o);
    with_call(what, function, o, [](auto call) { call(); });
    double worst = 0.0, squares = 0.0;
    for (std::int64_t i = 0; i < o.n; ++i) {
        const double x = static_cast<double>(start_x(i)), y = static_cast<double>(start_y(i));
        double want_x = x, want_y = y;
        switch (what) {
        case family::saxpby:
            want_y = 0.5 * x + 0.5 * y;
            break;
        case family::saxpby_beta_0:
            want_y = 0.5 * x;
            break;
        case family::saxpy:
            want_y = static_cast<double>(tiny) * x + y;
            break;
        case family::scopy:
            want_y = x;
            break;
        case family::sscal:
            want_y = -y;
            break;
        case family::sswap:
            std::swap(want_x, want_y);
            break;
        case family::srot:
            want_x = static_cast<double>(cosine) * x + static_cast<double>(sine) * y;
            want_y = static_cast<double>(cosine) * y - static_cast<double>(sine) * x;
            break;
        case family::snrm2:
            squares += x * x;
            break;
        }
        worst = std::max(worst, std::fabs(static_cast<double>(o.x[i]) - want_x));
        worst = std::max(worst, std::fabs(static_cast<double>(o.y[i]) - want_y));
    }
    if (what == family::snrm2)
        worst = std::fabs(static_cast<double>(*o.result) / std::sqrt(squares) - 1.0);
    fill(o);
    return worst < 3e-7 + (what == family::snrm2 ? slack : 0.0);
}

struct bench {
    tesh_bench::settings run;
    std::vector<tesh_bench::peer> peers;
    tesh_bench::csv out;
    float *x, *y; // at page boundaries
    std::vector<std::int64_t> offsets_x;
    std::int64_t offset_y;

    void line(const routine &r, std::int64_t n, bool cold)
    {
        constexpr std::int64_t longest_placed = 10000; // beyond the first cache only the first placement is taken
        const std::size_t placements = cold || n > longest_placed ? 1 : offsets_x.size();
        std::vector<tesh_bench::timing> mean;
        double share = 0.0;
        for (std::size_t p = 0; p < placements; ++p)
            place(r, n, cold, x + offsets_x[p], run.case_ms / static_cast<double>(placements), mean, share);
        const double count = static_cast<double>(placements),
                     bytes = static_cast<double>(n) * tesh_bench::traffic_bytes(r.kind);
        out.text(r.name).text(run.isa).text(cold ? "cold" : "warm").count(n).count(mean[0].repetitions);
        out.number(mean[0].best / count * 1e9).number(mean[0].median / count * 1e9);
        out.number(bytes / (mean[0].median / count) * 1e-9);
        if (share > 0.0)
            out.number(share / count);
        else
            out.text("");
        std::size_t next = 1;
        for (const tesh_bench::peer &p : peers)
            if (p.fortran<void()>(r.peer_name) != nullptr)
                out.number(mean[next++].ratio / count);
            else
                out.text("");
        out.end();
    }

    // One placement: times and ratios are added to sum, the share of the limit to share, if there is one.
    void place(const routine &r, std::int64_t n, bool cold, float *placed_x, double case_ms,
               std::vector<tesh_bench::timing> &sum, double &share)
    {
        float result = 0.0f;
        const operands o = {n, placed_x, y + offset_y, &result};
        std::vector<void *> functions = {member_of(paths.at(run.isa), r.what)};
        for (const tesh_bench::peer &p : peers)
            functions.push_back(reinterpret_cast<void *>(p.fortran<void()>(r.peer_name)));
        std::vector<tesh_bench::contestant> contestants;
        for (void *function : functions) {
            if (function == nullptr)
                continue;
            const bool peer = function != functions.front();
            if (!right(r.what, function, o, peer ? static_cast<double>(n) * 6e-8 : 0.0)) {
                std::printf("# wrong result: %s n %ld\n", r.name, static_cast<long>(n));
                std::exit(1);
            }
            with_call(r.what, function, o, [&](auto call) {
                contestants.emplace_back(call, cold ? std::function<void()>(tesh_bench::flush_caches) : nullptr);
            });
        }
        // A call of few elements costs more than its bytes, and a cold one more than any loop: no limit is given.
        const bool limited = !cold && n >= 1000;
        const int lanes = tesh_bench::lanes(run.isa);
        const std::int64_t whole = n / (8 * lanes) * (8 * lanes);
        tesh_bench::traffic_loop *const loop = tesh_bench::plain_loop(r.kind, lanes);
        if (limited)
            contestants.emplace_back([=] { loop(1, whole, o.x, o.y, r.kind == traffic::scale ? 1.0f : 0.0f); });
        const std::vector<tesh_bench::timing> times = tesh_bench::compare(contestants, case_ms);
        sum.resize(times.size(), {0.0, 0.0, 0.0, 0});
        for (std::size_t i = 0; i < times.size(); ++i) {
            sum[i].best += times[i].best;
            sum[i].median += times[i].median;
            sum[i].ratio += times[i].ratio;
            sum[i].repetitions += times[i].repetitions;
        }
        if (limited) {
            const double scale = static_cast<double>(n) / static_cast<double>(whole);
            const double arithmetic =
                2.0 * static_cast<double>(n) * r.multiply_adds / tesh_bench::multiply_add_peak(lanes);
            share += std::max(times.back().ratio * scale, arithmetic / times[0].median);
        }
    }
};

// n elements and a page of offset, from a page boundary on.
float *array(std::int64_t n)
{
    void *p = std::aligned_alloc(4096, static_cast<std::size_t>((n + 2048) * 4 + 4095) / 4096 * 4096);
    if (p == nullptr)
        std::exit(1);
    return static_cast<float *>(p);
}
} // namespace

int main(int argc, char **argv)
{
    CLI::App app("Level 1 against the machine and its peers");
    std::vector<std::int64_t> lengths = {8,    16,   24,   32,   48,    64,    100,    128,    200,     256,     512,
                                         1000, 2000, 3000, 4000, 10000, 30000, 100000, 300000, 1000000, 10000000};
    std::vector<std::int64_t> cold_lengths = {100, 1000, 10000, 100000};
    std::vector<std::string> only;
    std::vector<std::int64_t> offsets_x = {0, 80, 272, 528, 784};
    std::int64_t offset_y = 0;
    app.add_option("--n", lengths, "Lengths of warm calls");
    app.add_option("--cold-n", cold_lengths, "Lengths of cold calls");
    app.add_option("--family", only, "Families (all)");
    app.add_option("--offset-x", offsets_x, "Elements from a page boundary to x, below 2048, one or more placements");
    app.add_option("--offset-y", offset_y, "Elements from a page boundary to y, below 2048")->capture_default_str();
    const tesh_bench::settings run = tesh_bench::start(app, argc, argv);
    const std::vector<tesh_bench::peer> peers = tesh_bench::load_peers(run);
    std::string header = "family,path,operands,n,repetitions,best_ns,median_ns,GB/s,share_of_limit";
    for (const tesh_bench::peer &p : peers)
        header += "," + p.name + "_by_ours";
    std::int64_t longest = 0;
    for (const std::vector<std::int64_t> &list : {lengths, cold_lengths})
        for (std::int64_t n : list)
            longest = std::max(longest, n);
    bench b = {run, peers, tesh_bench::csv(header), array(longest), array(longest), offsets_x, offset_y};
    for (const routine &r : routines) {
        if (!only.empty() && std::find(only.begin(), only.end(), r.name) == only.end())
            continue;
        for (std::int64_t n : lengths)
            b.line(r, n, false);
        for (std::int64_t n : cold_lengths)
            b.line(r, n, true);
    }
    return 0;
}
