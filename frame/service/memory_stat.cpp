// SPDX-License-Identifier: BSD-3-Clause
// Bytes and blocks in use, their peak, and the accounts of records that were given up.
#include "frame/service/memory.h"

namespace
{
int32_t mem_stat_lock;
int64_t current_bytes;  // [bytes] counted while statistics were on
int32_t current_blocks; // [count] likewise
int64_t peak_bytes;     // [bytes] highest current_bytes since statistics were turned on or the peak was read

int32_t stats_gc_lock;
int64_t gc_bytes;  // [bytes] plain-layer, of threads whose record was given up
int32_t gc_blocks; // [count] likewise

[[gnu::section("tesh_fork_words"), gnu::used]] int32_t *const forked_mem_stat_lock = &mem_stat_lock;
[[gnu::section("tesh_fork_words"), gnu::used]] int32_t *const forked_stats_gc_lock = &stats_gc_lock;

enum peak_mode : int32_t { peak_restart = -1, peak_stop = 0, peak_start = 1, peak_read = 2 };
constexpr int64_t no_answer = -1;
} // namespace

namespace tesh_memory
{
uint8_t enable_global_stat;

void mm_stat_add_always(int64_t bytes, int32_t blocks)
{
    tesh_serv_lock(&mem_stat_lock);
    current_bytes += bytes;
    current_blocks += blocks;
    if (current_bytes > peak_bytes)
        peak_bytes = current_bytes;
    tesh_serv_unlock(&mem_stat_lock);
}

void mm_gc_add(int64_t bytes, int32_t blocks)
{
    tesh_serv_lock(&stats_gc_lock);
    gc_bytes += bytes;
    gc_blocks += blocks;
    tesh_serv_unlock(&stats_gc_lock);
}

void mm_gc_read(int64_t *bytes, int32_t *blocks)
{
    tesh_serv_lock(&stats_gc_lock);
    *bytes = gc_bytes;
    *blocks = gc_blocks;
    tesh_serv_unlock(&stats_gc_lock);
}

void mm_account_add(int64_t bytes, int32_t blocks)
{
    bank_record **const slot = mm_own_slot();
    if (slot == nullptr)
        return;
    if (bank_record *const record = *slot) {
        record->block_bytes += bytes;
        record->block_count += blocks;
    }
    mm_release_slot(slot);
}
} // namespace tesh_memory

using namespace tesh_memory;

extern "C" int64_t tesh_serv_peak_mem_usage(int32_t mode)
{
    int64_t peak = no_answer;
    if (mode < peak_restart || mode > peak_read)
        return peak;
    tesh_serv_lock(&mem_stat_lock);
    const bool on = enable_global_stat == 1;
    if (mode == peak_stop || mode == peak_start) {
        __atomic_store_n(&enable_global_stat, static_cast<uint8_t>(mode), __ATOMIC_RELAXED);
        peak = 0;
        if (mode == peak_start)
            peak_bytes = 0;
    } else if (on) {
        peak = peak_bytes;
        if (mode == peak_restart)
            peak_bytes = current_bytes;
    }
    tesh_serv_unlock(&mem_stat_lock);
    return peak;
}
