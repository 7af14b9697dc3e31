// SPDX-License-Identifier: BSD-3-Clause
// Independent libraries, loaded at run time, to be measured beside this one. None is needed.
#pragma once
#include "bench/support/bench.h"

#include <string>
#include <vector>

namespace tesh_bench
{
struct peer {
    std::string name;   // "openblas", "blis", or the file's name
    std::string core;   // the kernels that it says it took: "SkylakeX", "skx", ...; "?" where it does not say
    std::string suffix; // behind the names: "", "64_", "_64"
    void *handle = nullptr;

    // The routine by its Fortran name without the underscore ("saxpby"), or null. Integers go by the address of an
    // int64_t: a library with 32-bit integers reads the low half, which is the value.
    template <class F> F *fortran(const char *routine) const { return reinterpret_cast<F *>(find(routine, true)); }
    // The routine by its C name ("cblas_sgemm"), or null.
    template <class F> F *c(const char *routine) const { return reinterpret_cast<F *>(find(routine, false)); }

private:
    void *find(const char *routine, bool underscore) const;
};

// The installed peers and those of the command line, each held to run.isa; prints which kernels each took.
std::vector<peer> load_peers(const settings &run);
} // namespace tesh_bench
