// SPDX-License-Identifier: BSD-3-Clause
// The cached layer: up to five blocks a thread, kept between calls.
//   hit path   one key read, one atomic on the thread's own cache line, a scan of at most five banks,
//              one store to release
#include "frame/service/memory.h"

using namespace tesh_memory;

namespace
{
constexpr size_t largest_cached_bytes = 134217728; // 128 MiB; above it a request goes to the plain layer

// Which bank serves a request.
struct bank_choice {
    int32_t index; // of the bank, -1: all five are in use
    bool fits;     // its block is large enough as it is
};

// The free bank whose capacity is nearest above need; with none, a new bank; with five banks, the first that is free.
bank_choice choose_bank(const bank_record &record, uint64_t need)
{
    int32_t larger = -1, smaller = -1;
    uint64_t best = UINT64_MAX;
    for (int32_t i = 0; i < record.bank_count; ++i) {
        if (__atomic_load_n(&record.in_use[i], __ATOMIC_ACQUIRE) != 0)
            continue;
        const uint64_t capacity = record.capacity[i];
        if (capacity == need)
            return {i, true};
        if (capacity < need) {
            if (smaller < 0)
                smaller = i;
        } else if (capacity < best) {
            best = capacity;
            larger = i;
        }
    }
    if (larger >= 0)
        return {larger, true};
    return {record.bank_count < bank_max ? record.bank_count : smaller, false};
}

// Gives a bank an address within its block, which must be there.
void *hand_out(bank_record &record, int32_t i, uint64_t size, uint64_t alignment)
{
    const uint64_t user = (record.base[i] + alignment - 1) & ~(alignment - 1);
    record.size[i] = size;
    __atomic_store_n(&record.user[i], user, __ATOMIC_RELAXED);
    __atomic_store_n(&record.in_use[i], uint64_t{1}, __ATOMIC_RELAXED);
    return reinterpret_cast<void *>(user);
}

void clear_bank(bank_record &record, int32_t i)
{
    __atomic_store_n(&record.user[i], uint64_t{0}, __ATOMIC_RELAXED);
    record.base[i] = record.size[i] = record.capacity[i] = 0;
}

// Takes a new block for a bank that is new or has too small a one. Without memory the bank stays in use and empty, and
// the answer is null: the caller has a slower way that needs none.
void *renew_bank(bank_record &record, int32_t i, uint64_t size, uint64_t alignment)
{
    if (i == record.bank_count) {
        ++record.bank_count;
    } else if (record.base[i] != 0) {
        void *const block = reinterpret_cast<void *>(record.base[i]);
        mm_stat_add(-static_cast<int64_t>(record.capacity[i]), -1);
        clear_bank(record, i);
        mm_held_free(sys_deallocate, block);
    }
    record.size[i] = size;
    __atomic_store_n(&record.in_use[i], uint64_t{1}, __ATOMIC_RELAXED);
    const uint64_t need = size + alignment;
    void *const block = mm_held_alloc(sys_allocate, need);
    if (block == nullptr)
        return nullptr;
    record.base[i] = reinterpret_cast<uint64_t>(block);
    record.capacity[i] = need;
    mm_stat_add(static_cast<int64_t>(need), 1);
    return hand_out(record, i, size, alignment);
}

// Off the hit path: no slot or record could be had, or no block fits. slot may be null, else it is held; index is that
// of the bank to be renewed, or -1.
[[gnu::noinline]] void *allocate_miss(bank_record **slot, int32_t index, size_t size, int32_t alignment)
{
    if (slot != nullptr) {
        void *pointer = nullptr;
        if (index >= 0)
            pointer = renew_bank(**slot, index, size, mm_alignment(alignment));
        mm_release_slot(slot);
        if (index >= 0)
            return pointer;
    }
    return tesh_serv_malloc(size, alignment);
}

// The block is in none of the own banks. slot is held.
[[gnu::noinline]] void deallocate_elsewhere(bank_record **slot, void *pointer)
{
    slot_place place;
    const bool found = mm_give_back_anywhere(reinterpret_cast<uint64_t>(pointer), &place);
    mm_release_slot(slot);
    if (!found)
        tesh_serv_free(pointer);
    else if (place.dead)
        mm_end_dead_record(place);
}
} // namespace

extern "C" {
void *tesh_serv_allocate(size_t size, int32_t alignment)
{
    if (size == 0)
        return nullptr;
    mm_init();
    if (disable_fast_mm || size > largest_cached_bytes)
        return tesh_serv_malloc(size, alignment);
    bank_record **const slot = mm_own_slot();
    if (slot == nullptr || *slot == nullptr)
        return allocate_miss(slot, -1, size, alignment);
    const uint64_t align = mm_alignment(alignment);
    const bank_choice choice = choose_bank(**slot, size + align);
    if (!choice.fits)
        return allocate_miss(slot, choice.index, size, alignment);
    void *const pointer = hand_out(**slot, choice.index, size, align);
    mm_release_slot(slot);
    return pointer;
}

void tesh_serv_deallocate(void *pointer)
{
    if (pointer == nullptr)
        return;
    mm_init();
    if (disable_fast_mm) {
        tesh_serv_free(pointer);
        return;
    }
    bank_record **const slot = mm_own_slot();
    if (slot == nullptr)
        return;
    const uint64_t user = reinterpret_cast<uint64_t>(pointer);
    bank_record *const record = *slot;
    for (int32_t i = 0; record != nullptr && i < bank_max; ++i) {
        if (record->user[i] != user)
            continue;
        __atomic_store_n(&record->in_use[i], uint64_t{0}, __ATOMIC_RELEASE);
        mm_release_slot(slot);
        return;
    }
    deallocate_elsewhere(slot, pointer);
}
}
