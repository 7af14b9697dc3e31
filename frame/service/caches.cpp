// SPDX-License-Identifier: BSD-3-Clause
// Sizes of the data caches. With a reproducibility branch in force they are fixed, since blocking follows them and with
// it the order of sums.
#include "frame/service/caches.h"

#include "frame/service/processor.h"

namespace
{
constexpr int32_t levels_max = 4;
constexpr int32_t branch_off = 1, branch_auto = 2, branch_sse4_2 = 8;
constexpr int32_t type_sse4_2 = 3; // processor type

void ask_processor(uint32_t leaf, uint32_t subleaf, uint32_t r[4])
{
    cpuid_answer answer;
    processor_cpuid(leaf, subleaf, &answer);
    r[0] = answer.eax;
    r[1] = answer.ebx;
    r[2] = answer.ecx;
    r[3] = answer.edx;
}

// The sizes that a branch stands for on any machine.
void fixed_sizes(bool third_level, int64_t sizes[5])
{
    sizes[0] = third_level ? 3 : 2;
    sizes[1] = 32768;
    sizes[2] = 262144;
    sizes[3] = third_level ? 4194304 : 0;
    sizes[4] = 0;
}
} // namespace

void caches_walk(caches_cpuid_fn cpuid, int64_t sizes[5])
{
    constexpr uint32_t leaf_caches = 4, subleaves_max = 32; // a list without an end is cut
    constexpr uint32_t type_none = 0, type_instruction = 2;
    for (int32_t i = 0; i <= levels_max; ++i)
        sizes[i] = 0;
    uint32_t r[4];
    cpuid(0, 0, r);
    if (r[0] < leaf_caches)
        return;
    for (uint32_t subleaf = 0; subleaf < subleaves_max && sizes[0] < levels_max; ++subleaf) {
        cpuid(leaf_caches, subleaf, r);
        const uint32_t type = r[0] & 0x1f;
        if (type == type_none)
            return;
        if (type == type_instruction)
            continue;
        const int64_t ways = (r[1] >> 22) + INT64_C(1);
        const int64_t partitions = ((r[1] >> 12) & 0x3ff) + INT64_C(1);
        const int64_t line_bytes = (r[1] & 0xfff) + INT64_C(1);
        const int64_t sets = r[2] + INT64_C(1);
        sizes[++sizes[0]] = ways * partitions * line_bytes * sets;
    }
}

extern "C" {
int64_t tesh_cache_sizes[5]; // number of levels, then the bytes of levels 1 to 4; see cache_sizes_read
}

namespace
{
int32_t cache_sizes_read = 0;
int32_t cache_sizes_lock = 0;
[[gnu::section("tesh_fork_words"), gnu::used]] int32_t *const forked_cache_sizes = &cache_sizes_lock;

void update_cache_sizes()
{
    if (__atomic_load_n(&cache_sizes_read, __ATOMIC_ACQUIRE))
        return;
    const int32_t branch = tesh_serv_cbwr_get(1);
    const bool third_level =
        branch >= branch_sse4_2 || (branch == branch_auto && tesh_serv_cpu_detect() >= type_sse4_2);
    tesh_serv_lock(&cache_sizes_lock);
    if (!cache_sizes_read) {
        if (branch == branch_off)
            caches_walk(ask_processor, tesh_cache_sizes);
        else
            fixed_sizes(third_level, tesh_cache_sizes);
        __atomic_store_n(&cache_sizes_read, 1, __ATOMIC_RELEASE);
    }
    tesh_serv_unlock(&cache_sizes_lock);
}
} // namespace

extern "C" {
void tesh_serv_cache_info(int64_t out[5])
{
    update_cache_sizes();
    for (int32_t i = 0; i <= levels_max; ++i)
        out[i] = tesh_cache_sizes[i];
}

int64_t tesh_serv_get_cache_size(int32_t level)
{
    update_cache_sizes();
    const int64_t levels = tesh_cache_sizes[0];
    if (level < 0 || level > levels)
        return -1;
    return tesh_cache_sizes[level == 0 ? levels : level];
}
}
