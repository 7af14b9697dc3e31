// SPDX-License-Identifier: BSD-3-Clause
// Wall time from the time-stamp counter, and the frequencies of counter and processor.
//   seconds = ticks / (frequency [GHz] * 999999999.9999999)
#include "frame/service/clocks.h"

#include <immintrin.h>
#include <string.h>
#include <sys/time.h>
#include <time.h>

#include "frame/service/processor.h"

namespace
{
constexpr double frequency_unknown = -1.0;
constexpr double nanoseconds_in_second = 999999999.9999999; // a hair below 1e9
constexpr double shortest_interval = 0.0001;                // of a measurement that counts [s]
constexpr double mhz_to_ghz = 0.001;

uint64_t serialized_ticks()
{
    cpuid_answer unused;
    processor_cpuid(0, 0, &unused); // nothing before it is still under way when the counter is read
    return __builtin_ia32_rdtsc();
}

double seconds_now()
{
    timeval now;
    gettimeofday(&now, nullptr);
    return static_cast<double>(now.tv_sec) + 1e-6 * static_cast<double>(now.tv_usec);
}

bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

// A decimal number with a point in every locale, which strtod does not read; the nearest double up to 15 digits. Blanks
// in front are skipped; 0 if none.
double read_decimal(const char *s)
{
    while (*s == ' ' || *s == '\t')
        ++s;
    double digits = 0.0, unit = 1.0;
    for (; is_digit(*s); ++s)
        digits = 10.0 * digits + (*s - '0');
    if (*s == '.') {
        for (++s; is_digit(*s); ++s, unit *= 10.0)
            digits = 10.0 * digits + (*s - '0');
    }
    return digits / unit;
}

// [GHz], 0 or below if the brand string names none.
double brand_frequency()
{
    constexpr uint32_t leaf_extended = 0x80000000, leaf_brand_end = 0x80000004;
    cpuid_answer answer;
    processor_cpuid(leaf_extended, 0, &answer);
    if (answer.eax < leaf_brand_end)
        return 0.0;
    processor_cpuid(leaf_brand_end, 0, &answer);
    char text[sizeof answer];
    memcpy(text, &answer, sizeof answer);
    return clocks_brand_frequency(text);
}

// [GHz], 0 if the system does not tell.
double cpuinfo_frequency()
{
    FILE *const file = tesh_serv_fopen("/proc/cpuinfo", "r");
    if (file == nullptr)
        return 0.0;
    double frequency = 0.0;
    char line[512];
    while (fgets(line, sizeof line, file) != nullptr) {
        if (strstr(line, "cpu MHz") == nullptr)
            continue;
        const char *const colon = strchr(line, ':');
        if (colon != nullptr)
            frequency = read_decimal(colon + 1) * mhz_to_ghz;
        break;
    }
    tesh_serv_fclose(file);
    return frequency;
}

double named_frequency()
{
    const double frequency = brand_frequency();
    return frequency > 0.0 ? frequency : cpuinfo_frequency();
}

// The counter against the wall clock, up to the next tick of time(), which comes once a second.
double measure_counter()
{
    constexpr double interval = 0.005; // [s]
    const time_t start = time(nullptr);
    const uint64_t first_ticks = serialized_ticks();
    const double first_seconds = seconds_now();
    while (difftime(time(nullptr), start) < interval)
        _mm_pause();
    const uint64_t ticks = serialized_ticks() - first_ticks;
    const double elapsed = seconds_now() - first_seconds;
    if (elapsed >= shortest_interval && ticks != 0)
        return static_cast<double>(ticks) * 1e-9 / elapsed;
    // The wall clock was set back or the counter stands: one tick a nanosecond where the processor has no name either,
    // since a measured frequency would need the counter's own.
    const double frequency = named_frequency();
    return frequency > 0.0 ? frequency : 1.0;
}

// Ticks that so many dependent operations of one cycle each take, with the cost of the readings; the best of a few.
uint64_t chain_ticks(int operations)
{
    constexpr int repetitions = 8;
    uint64_t best = UINT64_MAX;
    for (int r = 0; r < repetitions; ++r) {
        uint64_t value = 0;
        const uint64_t start = serialized_ticks();
        for (int i = 0; i < operations; i += 8)
            __asm__ volatile("not %0\n\tnot %0\n\tnot %0\n\tnot %0\n\tnot %0\n\tnot %0\n\tnot %0\n\tnot %0"
                             : "+r"(value));
        const uint64_t ticks = serialized_ticks() - start;
        best = ticks < best ? ticks : best;
    }
    return best;
}
} // namespace

double clocks_brand_frequency(const char text[16])
{
    constexpr int digits = 4; // in front of the unit: "d.dd", or a whole number of MHz
    for (int unit = digits; unit + 2 < 16; ++unit) {
        if (text[unit + 1] != 'H' || text[unit + 2] != 'z')
            continue;
        const int factor = text[unit] == 'T' ? 1000000 : text[unit] == 'G' ? 1000 : text[unit] == 'M' ? 1 : 0;
        if (factor == 0)
            continue;
        const char *const d = text + unit - digits;
        if (!is_digit(d[0]) || !(is_digit(d[1]) || d[1] == '.') || !is_digit(d[2]) || !is_digit(d[3]))
            return 0.0;
        const int first = d[0] - '0', third = d[2] - '0', fourth = d[3] - '0';
        const int mhz = d[1] == '.' ? first * factor + third * factor / 10 + fourth * factor / 100
                                    : first * 1000 + (d[1] - '0') * 100 + third * 10 + fourth;
        return mhz * mhz_to_ghz;
    }
    return 0.0;
}

extern "C" {
double tesh_clocks_freq = frequency_unknown;

// Two threads that measure at once store nearly the same value.
double tesh_serv_get_clocks_frequency(void)
{
    double frequency;
    __atomic_load(&tesh_clocks_freq, &frequency, __ATOMIC_RELAXED);
    if (frequency == frequency_unknown) {
        frequency = measure_counter();
        __atomic_store(&tesh_clocks_freq, &frequency, __ATOMIC_RELAXED);
    }
    return frequency;
}

void tesh_serv_get_cpu_clocks(uint64_t *out)
{
    const uint64_t ticks = serialized_ticks();
    if (out != nullptr)
        *out = ticks;
}

double tesh_serv_dsecnd(void)
{
    const double frequency = tesh_serv_get_clocks_frequency();
    return static_cast<double>(serialized_ticks()) / (frequency * nanoseconds_in_second);
}

float tesh_serv_second(void)
{
    return static_cast<float>(tesh_serv_dsecnd());
}

double tesh_serv_get_max_cpu_frequency(void)
{
    const double frequency = named_frequency();
    return frequency > 0.0 ? frequency : tesh_serv_get_cpu_frequency();
}

// The cycles that are known against the ticks that they take; the difference of two lengths leaves the cost of the
// readings out.
double tesh_serv_get_cpu_frequency(void)
{
    constexpr int cycles = 200000;
    const double counter_frequency = tesh_serv_get_clocks_frequency();
    const uint64_t once = chain_ticks(cycles), twice = chain_ticks(2 * cycles);
    if (twice <= once)
        return counter_frequency;
    return counter_frequency * cycles / static_cast<double>(twice - once);
}
}
