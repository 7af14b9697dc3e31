// SPDX-License-Identifier: BSD-3-Clause
// What the timed public routines share: the cached verbose state and the record that a timed call prints.
//
// Each routine owns a verbose_cache. Its pointer starts at a constant -1; the first call that reads -1 replaces it by
// the address of the live level, so that from then on one load tells whether anything is to be printed, and a level
// that is changed later takes effect at the next call. All threads store the same address: no lock.
#pragma once
#include <stdarg.h>

#include "frame/tesh_serv.h"

namespace
{
constexpr size_t verbose_record_bytes = 450;
constexpr int32_t verbose_interface_ilp64 = 2; // the integer interface's number in a verbose line
constexpr int32_t verbose_unknown = -1;

struct verbose_cache {
    const int32_t *level = &verbose_unknown;
};

inline int32_t verbose_state(const verbose_cache &cache)
{
    return __atomic_load_n(__atomic_load_n(&cache.level, __ATOMIC_RELAXED), __ATOMIC_RELAXED);
}

// The live level, resolved from the environment if nobody has done so yet.
inline int32_t verbose_resolve(verbose_cache &cache)
{
    if (verbose_state(cache) == verbose_unknown)
        __atomic_store_n(&cache.level, tesh_serv_iface_verbose_mode(), __ATOMIC_RELAXED);
    return verbose_state(cache);
}

// The second half of a timed call: start is the first reading. A first reading of exactly 0.0 equals its own negation
// and reports a time of 0 without a second reading.
inline double verbose_elapsed(double start)
{
    double elapsed = -start;
    if (!(start == elapsed))
        elapsed = tesh_serv_iface_dsecnd() - start;
    return elapsed;
}

// An integer argument for the record: a null pointer prints as 0.
inline long long verbose_integer(const int64_t *argument)
{
    return argument != nullptr ? static_cast<long long>(*argument) : 0;
}

[[gnu::cold, gnu::noinline, gnu::format(printf, 3, 4)]] void verbose_print(int32_t interface, double seconds,
                                                                           const char *format, ...)
{
    char buffer[verbose_record_bytes];
    __builtin_memset(buffer, 0, sizeof buffer);
    va_list args;
    va_start(args, format);
    tesh_serv_vsnprintf_s(buffer, sizeof buffer, sizeof buffer - 1, format, args);
    va_end(args);
    buffer[sizeof buffer - 1] = 0;
    tesh_serv_iface_print_verbose_info(interface, buffer, seconds);
}
} // namespace
