// SPDX-License-Identifier: BSD-3-Clause
// How many packages, cores and logical processors this process may use. The thread visits every processor of its
// affinity mask and reads the processor's own identifier there; /proc/cpuinfo has a say where its numbers agree with
// each other. The thread's affinity is as before when the census ends.
#include "frame/service/machine_census.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "frame/service/processor.h"

namespace
{
constexpr int32_t cpu_bound = 8192;            // processors that are looked at [count]
constexpr size_t mask_bytes = cpu_bound / 8;   // [bytes]
constexpr int32_t line_bytes = 512;            // of /proc/cpuinfo [bytes]
constexpr int32_t physical_id_bound = 4096;    // packages that are told apart [count]
constexpr uint32_t leaf1_edx_multi = 1u << 28; // leaf 1 EBX and leaf 4 count logical processors

// What the processor says of the processor that the thread runs on.
struct cpu_identity {
    uint32_t apic_id, logical_per_package, cores_per_package;
};

struct machine_counts {
    int32_t packages, cores, logical;
};

// Per visited processor, three arrays of equal length [bytes].
struct visit_arrays {
    uint8_t *package, *core, *seen;
};

int32_t census_lock = 0;
// frame/service/fork_guard.h
[[gnu::section("tesh_fork_words"), gnu::used]] int32_t *const forked_census = &census_lock;
int64_t teshaff_len = 0; // [bytes] of the affinity mask, as the system gave it

cpu_identity identity_here(void)
{
    if (!detect_is_maker())
        return {1, 1, 1};
    cpuid_answer leaf1, leaf4;
    processor_cpuid_listed(1, 0, &leaf1);
    processor_cpuid_listed(4, 0, &leaf4); // zeros where there is no leaf 4
    const bool multi = (leaf1.edx & leaf1_edx_multi) != 0;
    return {leaf1.ebx >> 24, multi ? leaf1.ebx >> 16 & 0xff : 1, multi ? (leaf4.eax >> 26) + 1 : 1};
}

// Bits that number count things: ceil(log2(count)).
uint32_t field_width(uint32_t count)
{
    uint32_t width = 0;
    while (count > 1u << width)
        ++width;
    return width;
}

int64_t set_affinity(const uint8_t *mask)
{
    return syscall(SYS_sched_setaffinity, 0, teshaff_len, mask);
}

// The mask as it is, and stored back, which tells whether the system lets the thread move.
bool save_affinity(uint8_t *mask)
{
    memset(mask, 0, mask_bytes);
    teshaff_len = syscall(SYS_sched_getaffinity, 0, mask_bytes, mask);
    if (teshaff_len < 0)
        return false;
    if (teshaff_len == 0)
        teshaff_len = static_cast<int64_t>(mask_bytes);
    return set_affinity(mask) == 0;
}

// Visits the mask's processors below the bound; answers how many were reached.
int32_t visit(const uint8_t *mask, int32_t bound, const visit_arrays &arrays)
{
    int32_t visited = 0;
    for (int32_t cpu = 0; cpu < bound; ++cpu) {
        if ((mask[cpu / 8] >> (cpu % 8) & 1) == 0)
            continue;
        uint8_t only[mask_bytes] = {};
        only[cpu / 8] = static_cast<uint8_t>(1u << (cpu % 8));
        if (set_affinity(only) != 0)
            continue;
        sleep(0);
        const cpu_identity id = identity_here();
        const uint32_t smt_width = field_width(id.logical_per_package / id.cores_per_package);
        const uint32_t below_package = (1u << (smt_width + field_width(id.cores_per_package))) - 1;
        const uint32_t below_core = (1u << smt_width) - 1;
        arrays.package[visited] = static_cast<uint8_t>(id.apic_id & ~below_package);
        arrays.core[visited] = static_cast<uint8_t>(id.apic_id & below_package & ~below_core);
        ++visited;
    }
    set_affinity(mask);
    sleep(0);
    return visited;
}

// How many different values of a[i] | b[i] there are; seen has room for all.
int32_t count_distinct(const uint8_t *a, const uint8_t *b, int32_t count, uint8_t *seen)
{
    int32_t distinct = 0;
    for (int32_t i = 0; i < count; ++i) {
        const uint8_t value = a[i] | b[i];
        int32_t at = 0;
        while (at < distinct && seen[at] != value)
            ++at;
        if (at == distinct)
            seen[distinct++] = value;
    }
    return distinct;
}

// Lines of /proc/cpuinfo that begin a processor's entry, at most the bound; the bound if the file cannot be read.
int32_t count_processor_lines(void)
{
    FILE *file = fopen("/proc/cpuinfo", "r");
    if (file == nullptr)
        return cpu_bound;
    int32_t count = 0;
    char line[line_bytes];
    while (fgets(line, line_bytes, file) != nullptr) {
        if (strncmp(line, "processor", 9) == 0)
            ++count;
    }
    fclose(file);
    return count < cpu_bound ? count : cpu_bound;
}

// What /proc/cpuinfo says; zeros where it says nothing.
struct cpuinfo_counts {
    int32_t processors, packages, siblings, cpu_cores;
};

// The number behind the colon.
int32_t number_of_line(const char *line)
{
    const char *colon = strchr(line, ':');
    return colon != nullptr ? atoi(colon + 1) : 0;
}

cpuinfo_counts read_cpuinfo(void)
{
    cpuinfo_counts counts = {0, 0, 0, 0};
    FILE *file = fopen("/proc/cpuinfo", "r");
    if (file == nullptr)
        return counts;
    int32_t ids[physical_id_bound];
    char line[line_bytes];
    while (fgets(line, line_bytes, file) != nullptr) {
        if (strncmp(line, "processor", 9) == 0)
            ++counts.processors;
        else if (strncmp(line, "siblings", 8) == 0 && counts.processors == 1)
            counts.siblings = number_of_line(line);
        else if (strncmp(line, "cpu cores", 9) == 0 && counts.processors == 1)
            counts.cpu_cores = number_of_line(line);
        else if (strncmp(line, "physical id", 11) == 0) {
            const int32_t id = number_of_line(line);
            int32_t at = 0;
            while (at < counts.packages && ids[at] != id)
                ++at;
            if (at == counts.packages && at < physical_id_bound)
                ids[counts.packages++] = id;
        }
    }
    fclose(file);
    return counts;
}

// The file's numbers, where they agree with each other.
bool counts_of_cpuinfo(machine_counts *counts)
{
    const cpuinfo_counts info = read_cpuinfo();
    if (info.processors < 1 || info.packages < 1 || info.siblings < 1 || info.cpu_cores < 1)
        return false;
    int32_t cores;
    if (int64_t{info.cpu_cores} * info.packages == info.processors && info.cpu_cores == info.siblings)
        cores = info.processors;
    else if (int64_t{info.siblings} * info.packages == info.processors && info.siblings != info.cpu_cores)
        cores = info.cpu_cores * info.packages;
    else
        return false;
    *counts = {info.packages, cores, info.processors};
    return true;
}

// The visit of all processors; false where the system or memory refuses it.
bool probe(machine_counts *counts)
{
    uint8_t mask[mask_bytes];
    const int32_t bound = count_processor_lines();
    if (!save_affinity(mask))
        return false;
    const visit_arrays arrays = {static_cast<uint8_t *>(tesh_serv_malloc(cpu_bound, 0)),
                                 static_cast<uint8_t *>(tesh_serv_malloc(cpu_bound, 0)),
                                 static_cast<uint8_t *>(tesh_serv_malloc(cpu_bound, 0))};
    const bool in_memory = arrays.package != nullptr && arrays.core != nullptr && arrays.seen != nullptr;
    if (in_memory) {
        const int32_t visited = visit(mask, bound, arrays);
        counts->logical = visited;
        counts->packages = count_distinct(arrays.package, arrays.package, visited, arrays.seen);
        counts->cores = count_distinct(arrays.package, arrays.core, visited, arrays.seen);
    }
    tesh_serv_free(arrays.package);
    tesh_serv_free(arrays.core);
    tesh_serv_free(arrays.seen);
    return in_memory;
}

machine_counts count_machine(void)
{
    constexpr machine_counts one_of_everything = {1, 1, 1};
    machine_counts counts;
    if (!probe(&counts))
        return one_of_everything;
    // The file may number a container's processors in its own way, so that none of them could be visited.
    return counts_of_cpuinfo(&counts) || counts.logical > 0 ? counts : one_of_everything;
}

int32_t after_census(const int32_t *count)
{
    if (__atomic_load_n(&__threads_env_NOT_readed, __ATOMIC_ACQUIRE) == 0)
        TESH_Read_ThreadENV_Count_Cores();
    return *count;
}
} // namespace

extern "C" {
int32_t __N_CPU_Packages = -1, __N_Cores_per_Packages = -1, __HT = -1;
int32_t __N_Logical_Cores = 1;
uint8_t __threads_env_NOT_readed = 0;

void TESH_Read_ThreadENV_Count_Cores(void)
{
    tesh_serv_lock(&census_lock);
    if (__atomic_load_n(&__threads_env_NOT_readed, __ATOMIC_RELAXED) == 0) {
        thread_settings_read();
        const machine_counts counts = count_machine();
        __N_Logical_Cores = counts.logical;
        __N_CPU_Packages = counts.packages;
        __N_Cores_per_Packages = counts.cores / counts.packages;
        __HT = counts.cores != counts.logical;
        __atomic_store_n(&__threads_env_NOT_readed, uint8_t{1}, __ATOMIC_RELEASE);
    }
    tesh_serv_unlock(&census_lock);
}

int32_t tesh_serv_get_ncpus(void)
{
    return after_census(&__N_CPU_Packages);
}

int32_t tesh_serv_get_ncorespercpu(void)
{
    return after_census(&__N_Cores_per_Packages);
}

int32_t tesh_serv_get_ht(void)
{
    return after_census(&__HT);
}

int32_t tesh_serv_get_nlogicalcores(void)
{
    return after_census(&__N_Logical_Cores);
}
}
