// SPDX-License-Identifier: BSD-3-Clause
// How many processes of one job share this machine, as the launchers say it in the environment.
#include <stdlib.h>

#include "frame/tesh_serv.h"

static int32_t mpi_ppn = 0; // 0 until asked, -1 unknown

namespace
{
constexpr int32_t unknown = -1;

// The positive number that the variable starts with and that ends at the terminator character; otherwise unknown.
int32_t positive_number(const char *name, char terminator)
{
    char text[4096]; // the list of pinned processors behind a number can be long
    if (tesh_serv_getenv(name, text, sizeof text) < 1)
        return unknown;
    char *end = nullptr;
    const long value = strtol(text, &end, 10);
    return *end == terminator && value > 0 && value <= INT32_MAX ? static_cast<int32_t>(value) : unknown;
}

int32_t processes_per_node(void)
{
    int32_t count = positive_number("TESH_MPI_PPN", 0);
    if (count < 0)
        count = positive_number("OV_MPI_NUMBER_OF_MPI_PROCESSES_PER_NODE", 0);
    if (count < 0)
        count = positive_number("OV_MPI_PIN_MAPPING", ':');
    if (count < 0)
        count = positive_number("OMPI_COMM_WORLD_LOCAL_SIZE", 0);
    if (count < 0)
        count = tesh_get_env_int("MPI_LOCALNRANKS");
    return count > 0 ? count : unknown;
}
} // namespace

extern "C" void tesh_serv_mpi_get_ppn(void)
{
    if (__atomic_load_n(&mpi_ppn, __ATOMIC_RELAXED) == 0)
        __atomic_store_n(&mpi_ppn, processes_per_node(), __ATOMIC_RELAXED);
}
