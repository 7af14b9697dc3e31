// SPDX-License-Identifier: BSD-3-Clause
// What every benchmark shares: the command line, the pinned thread, interleaved timing, and lines of CSV.
//
//   int main(int argc, char **argv)
//   {
//       CLI::App app("SAXPBY against its peers");
//       const tesh_bench::settings run = tesh_bench::start(app, argc, argv);
//       const std::vector<tesh_bench::peer> peers = tesh_bench::load_peers(run); // bench/support/peers.h
//       auto times = tesh_bench::compare({tesh_bench::contestant(ours), tesh_bench::contestant(theirs)}, run.case_ms);
//       ... tesh_bench::csv, tesh_bench::multiply_add_peak, tesh_bench::bandwidth (bench/peak/peak.h)
//   }
//
// Times are in seconds. Lines that open with '#' tell of the run; the rest is CSV.
#pragma once
#include <CLI/CLI.hpp>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tesh_bench
{
struct settings {
    std::string isa = "avx512";     // def, mc3, avx2 or avx512: what peers are held to, and the path to measure
    int core = -1;                  // [cpu number] that the thread is pinned to; -1: the last one allowed
    double case_ms = 30.0;          // [ms] spent on one case, all contestants together
    std::vector<std::string> peers; // more libraries: file, or file:suffix of its symbols
    bool installed_peers = true;    // OpenBLAS and BLIS, where they are installed
};

// Adds the common options to app, parses the command line, and pins the thread. What the libraries read from the
// environment (their forced core types, TESH_TRUSTED_VENDORS=any) must stand there from the start of the process: where
// it does not, the program starts itself again with it. Ends the process on --help and on a bad option. Prints the
// command, the date, the processor and its features.
settings start(CLI::App &app, int argc, char **argv);

// 4, 8 or 16: lanes of a register of the instruction set.
int lanes(const std::string &isa);

double now(); // [s] of the monotonic clock

// Somebody to be timed: work(r) does the case r times. A cold contestant does it once each time, after prepare, which
// is not timed.
struct contestant {
    std::function<void(std::int64_t)> work;
    std::function<void()> prepare;

    contestant() = default;
    // once: a callable without arguments, doing the case one time. It is called in a loop that is compiled with it.
    template <class Once> explicit contestant(Once once, std::function<void()> before = nullptr) : prepare(before)
    {
        work = [once](std::int64_t repetitions) {
            for (std::int64_t r = 0; r < repetitions; ++r) {
                once();
                __asm__ volatile("" ::: "memory");
            }
        };
    }
};

struct timing {
    double best = 0.0;   // [s] per case
    double median = 0.0; // [s] per case
    double ratio = 1.0;  // median over the rounds of this one's time by the first one's: above 1, the first wins
    std::int64_t repetitions = 0; // [count] cases in all
};

// Runs the contestants in turn, round after round, so that what disturbs the machine disturbs all. The order within a
// round changes from round to round.
std::vector<timing> compare(const std::vector<contestant> &contestants, double case_ms);

// One line of CSV; text with a comma is the caller's mistake.
class csv
{
public:
    explicit csv(const std::string &header); // prints it
    csv &text(const std::string &value);
    csv &number(double value); // six digits
    csv &count(std::int64_t value);
    void end(); // prints the line

private:
    std::string line_;
};

// Writes over more than the last-level cache, so that nothing of the operands stays in any.
void flush_caches();

// Median of values; the vector is sorted.
double median(std::vector<double> &values);
} // namespace tesh_bench
