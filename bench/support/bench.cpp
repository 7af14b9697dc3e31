// SPDX-License-Identifier: BSD-3-Clause
// Command line, pinning, the peers' instruction set, clock, CSV, and contestants in turn.
#include "bench/support/bench.h"

#include <sched.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>

namespace
{
// The packaged peers by the kernels that match an instruction set. OpenBLAS takes a name, BLIS the number of its
// configuration: 0 is skx, 3 haswell, 5 penryn.
const std::map<std::string, std::pair<const char *, const char *>> peer_cores = {
    {"avx512", {"SkylakeX", "0"}}, {"avx2", {"Haswell", "3"}}, {"mc3", {"Nehalem", "5"}}, {"def", {"Nehalem", "5"}}};

// True if the environment lacked the value.
bool put(const char *name, const char *value)
{
    const char *old = std::getenv(name);
    if (old != nullptr && std::strcmp(old, value) == 0)
        return false;
    setenv(name, value, 1);
    return true;
}

void pin(int core)
{
    cpu_set_t allowed;
    sched_getaffinity(0, sizeof allowed, &allowed);
    if (core < 0)
        for (int i = 0; i < CPU_SETSIZE; ++i)
            if (CPU_ISSET(i, &allowed))
                core = i;
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(core, &one);
    if (sched_setaffinity(0, sizeof one, &one) != 0)
        std::printf("# not pinned to core %d\n", core);
    else
        std::printf("# core: %d\n", core);
}

void print_machine()
{
    std::ifstream info("/proc/cpuinfo");
    std::string line, model, features;
    while (std::getline(info, line) && features.empty()) {
        if (line.rfind("model name", 0) == 0)
            model = line.substr(line.find(':') + 2);
        if (line.rfind("flags", 0) == 0) {
            std::istringstream words(line);
            for (std::string word; words >> word;)
                if (word == "sse4_2" || word == "avx" || word == "fma" || word == "fma4" ||
                    word.rfind("avx2", 0) == 0 || word.rfind("avx512", 0) == 0 || word.rfind("avx_", 0) == 0 ||
                    word.rfind("amx", 0) == 0)
                    features += " " + word;
        }
    }
    std::printf("# processor: %s\n# features:%s\n", model.c_str(), features.c_str());
}
} // namespace

tesh_bench::settings tesh_bench::start(CLI::App &app, int argc, char **argv)
{
    settings run;
    app.add_option("--isa", run.isa, "Instruction set: def, mc3, avx2, avx512")
        ->check(CLI::IsMember({"def", "mc3", "avx2", "avx512"}))
        ->capture_default_str();
    app.add_option("--core", run.core, "Processor to run on (-1: the last one allowed)")->capture_default_str();
    app.add_option("--case-ms", run.case_ms, "Milliseconds per case")->capture_default_str();
    app.add_option("--peer", run.peers, "Another peer: FILE or FILE:SUFFIX");
    app.add_flag("!--no-installed-peers", run.installed_peers, "Leave OpenBLAS and BLIS out");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &e) {
        std::exit(app.exit(e));
    }
    const auto cores = peer_cores.at(run.isa);
    bool changed = put("OPENBLAS_CORETYPE", cores.first);
    changed |= put("BLIS_ARCH_TYPE", cores.second);
    changed |= put("TESH_TRUSTED_VENDORS", "any");
    if (changed) {
        std::fflush(stdout);
        execv("/proc/self/exe", argv);
        std::perror("starting again");
        std::exit(1);
    }
    std::printf("# command:");
    for (int i = 0; i < argc; ++i)
        std::printf(" %s", argv[i]);
    char date[64];
    const time_t seconds = time(nullptr);
    strftime(date, sizeof date, "%Y-%m-%d %H:%M:%S UTC", gmtime(&seconds));
    std::printf("\n# date: %s\n", date);
    print_machine();
    pin(run.core);
    return run;
}

int tesh_bench::lanes(const std::string &isa)
{
    return isa == "avx512" ? 16 : isa == "avx2" ? 8 : 4;
}

double tesh_bench::now()
{
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

double tesh_bench::median(std::vector<double> &values)
{
    std::sort(values.begin(), values.end());
    const std::size_t half = values.size() / 2;
    return values.size() % 2 != 0 ? values[half] : 0.5 * (values[half - 1] + values[half]);
}

namespace
{
double timed(const tesh_bench::contestant &who, std::int64_t repetitions)
{
    if (who.prepare)
        who.prepare();
    const double begin = tesh_bench::now();
    who.work(repetitions);
    return (tesh_bench::now() - begin) / static_cast<double>(repetitions);
}
} // namespace

std::vector<tesh_bench::timing> tesh_bench::compare(const std::vector<contestant> &contestants, double case_ms)
{
    constexpr double slice =
        150e-6; // [s] of one stretch: a thousand times the clock's own cost, a tenth of a time slice
    constexpr int least_rounds = 9;
    const std::size_t count = contestants.size();
    std::vector<std::int64_t> repetitions(count, 1);
    std::vector<std::vector<double>> samples(count);
    for (std::size_t i = 0; i < count; ++i) {
        timed(contestants[i], 1); // the first call binds and warms up
        if (contestants[i].prepare)
            continue;
        double once = timed(contestants[i], 1);
        while (once * static_cast<double>(repetitions[i]) < slice) {
            repetitions[i] *= 2;
            once = timed(contestants[i], repetitions[i]);
        }
    }
    const double end = now() + case_ms * 1e-3;
    for (int round = 0; round < least_rounds || now() < end; ++round)
        for (std::size_t k = 0; k < count; ++k) {
            const std::size_t i = (k + static_cast<std::size_t>(round)) % count;
            samples[i].push_back(timed(contestants[i], repetitions[i]));
        }
    std::vector<timing> result(count);
    for (std::size_t i = 0; i < count; ++i) {
        std::vector<double> ratios;
        for (std::size_t round = 0; round < samples[i].size(); ++round)
            ratios.push_back(samples[i][round] / samples[0][round]);
        result[i].ratio = median(ratios);
        result[i].repetitions = repetitions[i] * static_cast<std::int64_t>(samples[i].size());
    }
    for (std::size_t i = 0; i < count; ++i) {
        result[i].median = median(samples[i]);
        result[i].best = samples[i].front();
    }
    return result;
}

tesh_bench::csv::csv(const std::string &header)
{
    std::printf("%s\n", header.c_str());
}

tesh_bench::csv &tesh_bench::csv::text(const std::string &value)
{
    line_ += line_.empty() ? value : "," + value;
    return *this;
}

tesh_bench::csv &tesh_bench::csv::number(double value)
{
    char digits[32];
    std::snprintf(digits, sizeof digits, "%.6g", value);
    return text(digits);
}

tesh_bench::csv &tesh_bench::csv::count(std::int64_t value)
{
    return text(std::to_string(value));
}

void tesh_bench::csv::end()
{
    std::printf("%s\n", line_.c_str());
    std::fflush(stdout);
    line_.clear();
}

void tesh_bench::flush_caches()
{
    static std::vector<char> buffer(std::size_t(96) << 20); // three times the last-level cache of the machine at hand
    static char value = 0;
    std::memset(buffer.data(), ++value, buffer.size());
    __asm__ volatile("" ::"r"(buffer.data()) : "memory");
}
