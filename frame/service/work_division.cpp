// SPDX-License-Identifier: BSD-3-Clause
// Shares of a range for a team of threads. For ids 0 .. nthreads - 1 the shares tile 0 .. n - 1 in the order of the
// ids; an id past the team has a share of nothing, and its start goes on by the same formula (in bands: the end of the
// range). Fewer than two threads: thread 0 has everything.
#include <math.h>

#include "frame/tesh_serv.h"

namespace
{
int64_t min_of(int64_t a, int64_t b)
{
    return a < b ? a : b;
}

int64_t share(int64_t start, int64_t count, int64_t *count_out)
{
    *count_out = count;
    return start;
}

// Modulo 2^64: the start of an id far past the team means nothing, and may not trap either.
int64_t multiply_add(int64_t a, int64_t b, int64_t c)
{
    return static_cast<int64_t>(static_cast<uint64_t>(a) * static_cast<uint64_t>(b) + static_cast<uint64_t>(c));
}

// Rows of the triangle's top that hold k of nthreads equal areas: r (r + 1) / 2 = k area, solved for r.
int64_t band_edge(int64_t k, int64_t nthreads, int64_t n)
{
    if (k == nthreads)
        return n;
    const double order = static_cast<double>(n);
    const double area = (order + 1.0) * order / 2.0 / static_cast<double>(nthreads);
    return static_cast<int64_t>((sqrt(8.0 * static_cast<double>(k) * area + 1.0) - 1.0) / 2.0);
}
} // namespace

extern "C" {
int64_t tesh_serv_divbythreads(const int64_t *id, const int64_t *nthreads, const int64_t *n, int64_t *count_out)
{
    const int64_t team = *nthreads < 2 ? 1 : *nthreads;
    const int64_t q = *n / team, r = *n % team;
    return share(multiply_add(q, *id, min_of(*id, r)), *id < team ? q + (*id < r) : 0, count_out);
}

int64_t tesh_serv_divbythreadsnb(const int64_t *id, const int64_t *nthreads, const int64_t *n, const int64_t *nb,
                                 int64_t *count_out)
{
    const int64_t team = *nthreads < 2 ? 1 : *nthreads;
    const int64_t block = *nb < 1 ? 1 : *nb;
    // n / (block team), without a product that could overflow
    const int64_t blocks = *n / block;
    const int64_t rounds = blocks / team, extra = blocks % team, tail = *n % block;
    int64_t count = *id < team ? rounds * block : 0;
    if (*id < extra)
        count += block;
    if (*id == team - 1)
        count += tail;
    return share(multiply_add(multiply_add(rounds, *id, min_of(*id, extra)), block, 0), count, count_out);
}

int64_t tesh_serv_divbythreadstr(const int64_t *id, const int64_t *nthreads, const int64_t *n, const char *uplo,
                                 int64_t *count_out)
{
    const int64_t team = *nthreads < 2 ? 1 : *nthreads;
    if (*id >= team)
        return share(*n, 0, count_out);
    int64_t start, end;
    if ((*uplo & ~0x20) == 'U') {
        start = band_edge(*id, team, *n);
        end = band_edge(*id + 1, team, *n);
    } else {
        start = *n - band_edge(team - *id, team, *n);
        end = *n - band_edge(team - *id - 1, team, *n);
    }
    return share(start, end - start, count_out);
}
}
