// SPDX-License-Identifier: BSD-3-Clause
// The book of threads. A thread takes a number at its first request; the number leads to its slot, and that to its
// record. Slots lie in vectors that are only added while threads run, so a slot never moves: vector 0 has 1024, vector
// v above 0 the indices from 2^(v+9) to 2^(v+10) - 1.
#include <string.h>

#include "frame/service/memory.h"

namespace
{
using namespace tesh_memory;

constexpr uint64_t page_bytes = 4096;
constexpr int vector0_log2 = 10; // of vector0_slots
static_assert(vector0_slots == 1 << vector0_log2, "vector 0");

int32_t mm_vector_lock;
[[gnu::section("tesh_fork_words"), gnu::used]] int32_t *const forked_vector_lock = &mm_vector_lock;
[[gnu::section("tesh_fork_words"), gnu::used]] int32_t *const forked_tid_lock = &mm_tid.lock;
[[gnu::section("tesh_fork_words"), gnu::used]] int32_t *const forked_tepoch_lock = &mm_tepoch.lock;

// The calling thread ends: its idle blocks go back to the system, and its record with them if no block is out.
void mm_cleanup_thread_cbk(void *value)
{
    const auto number = static_cast<int32_t>(reinterpret_cast<intptr_t>(value));
    if (number < 0)
        return; // it ends out of a raw allocator, and never lets the book go
    const auto epoch = thread_key_ready(mm_tepoch) ? reinterpret_cast<intptr_t>(thread_key_value(mm_tepoch)) : 0;
    bank_record **const slot =
        mm_account_ptr_by_tid(number, static_cast<int32_t>(epoch), account_exclusive | account_no_vector);
    if (slot == nullptr)
        return;
    if (*slot != nullptr)
        mm_free_all_banks(slot, 3);
    mm_unlock_exclusive();
}

// The finalizer deletes the keys, but works once. Keys that were made after it go here: the thread library must not
// keep a destructor whose code is unloaded.
[[gnu::destructor]] void delete_keys()
{
    tesh_tls_destroy(&mm_tid);
    tesh_tls_destroy(&mm_tepoch);
}

struct vector_place {
    int32_t vector; // index of the vector
    int64_t first;  // slot index of its first slot
    int64_t count;  // [count] slots
};

vector_place place_of(int64_t index)
{
    if (index < vector0_slots)
        return {0, 0, vector0_slots};
    const int log2 = 63 - __builtin_clzll(static_cast<uint64_t>(index));
    return {log2 - (vector0_log2 - 1), int64_t{1} << log2, int64_t{1} << log2};
}

// Room for the slots, for the page that holds the raw address in its last 8 bytes, and for rounding to a page.
size_t vector_bytes(int64_t slots)
{
    const uint64_t bytes = static_cast<uint64_t>(slots * (mm_book.slot_stride + 8));
    return (bytes + 2 * page_bytes - 1) & ~(page_bytes - 1);
}

void **raw_address_of(thread_slot *vector)
{
    return reinterpret_cast<void **>(vector) - 1;
}

thread_slot *make_vector(int64_t slots)
{
    void *const raw = mm_held_alloc(sys_alloc, vector_bytes(slots));
    if (raw == nullptr)
        return nullptr;
    const uint64_t first_page = reinterpret_cast<uint64_t>(raw) & ~(page_bytes - 1);
    auto *const vector = reinterpret_cast<thread_slot *>(first_page + page_bytes);
    *raw_address_of(vector) = raw;
    memset(static_cast<void *>(vector), 0, static_cast<size_t>(slots) * sizeof(thread_slot));
    return vector;
}

thread_slot *vector_at(int32_t v)
{
    return __atomic_load_n(&mm_book.vectors[v], __ATOMIC_ACQUIRE);
}

// The vector, made if it is missing; null without memory.
thread_slot *ensure_vector(const vector_place &place)
{
    thread_slot *vector = vector_at(place.vector);
    if (vector != nullptr)
        return vector;
    tesh_serv_lock(&mm_vector_lock);
    vector = vector_at(place.vector);
    if (vector == nullptr) {
        vector = make_vector(place.count);
        __atomic_store_n(&mm_book.vectors[place.vector], vector, __ATOMIC_RELEASE);
    }
    tesh_serv_unlock(&mm_vector_lock);
    return vector;
}

bank_record *make_record()
{
    void *const block = mm_held_alloc(sys_alloc, sizeof(bank_record));
    if (block != nullptr)
        memset(block, 0, sizeof(bank_record));
    return static_cast<bank_record *>(block);
}

int32_t number_count_now()
{
    return __atomic_load_n(&mm_book.number_count, __ATOMIC_ACQUIRE);
}

bool set_thread_number(int32_t number)
{
    return thread_key_ready(mm_tid) &&
           pthread_setspecific(mm_tid.key, reinterpret_cast<void *>(static_cast<intptr_t>(number))) == 0;
}

// Gives the calling thread a new number; 0 if the keys cannot hold it.
int32_t register_thread()
{
    const auto epoch = static_cast<intptr_t>(mm_book.epoch);
    if (pthread_setspecific(mm_tepoch.key, reinterpret_cast<void *>(epoch)) != 0)
        return 0;
    const int32_t number = __atomic_add_fetch(&mm_book.number_count, 1, __ATOMIC_ACQ_REL);
    return set_thread_number(number) ? number : 0;
}

void release_held(int32_t number, int32_t flags)
{
    if ((flags & account_exclusive) != 0)
        mm_unlock_exclusive();
    else
        mm_unlock_shared(number);
}

// Calls visit(slot, index) for every slot whose number was handed out and whose vector is there, until it answers true.
template <class Visitor> void walk_slots(Visitor visit)
{
    const int64_t count = number_count_now();
    for (vector_place place = place_of(0); place.first < count; place = place_of(place.first + place.count)) {
        thread_slot *const vector = vector_at(place.vector);
        const int64_t here = count - place.first < place.count ? count - place.first : place.count;
        for (int64_t i = 0; vector != nullptr && i < here; ++i) {
            if (visit(vector[i], place.first + i))
                return;
        }
    }
}

void give_back_vectors()
{
    for (thread_slot *&vector : mm_book.vectors) {
        if (vector != nullptr)
            mm_held_free(sys_free, *raw_address_of(vector));
        vector = nullptr;
    }
}
} // namespace

namespace tesh_memory
{
thread_key mm_tid = {0, mm_cleanup_thread_cbk, 0, 0};
thread_key mm_tepoch = {0, nullptr, 0, 0};

bank_record **mm_find_held(int32_t number, int32_t epoch, int32_t flags)
{
    int32_t found = number;
    if (number == 0 || epoch != mm_book.epoch)
        found = (flags & account_create) != 0 ? register_thread() : 0;
    const int64_t index = static_cast<int64_t>(found) - 1;
    thread_slot *vector = nullptr;
    if (index >= 0 && index < number_count_now()) {
        const vector_place place = place_of(index);
        vector = flags < account_no_vector ? ensure_vector(place) : vector_at(place.vector);
        if (vector != nullptr)
            vector += index - place.first;
    }
    if (vector == nullptr) {
        release_held(number, flags);
        return nullptr;
    }
    // The number as stated, not as found: a thread that registers in this very call holds the book by the old one.
    vector->stated_number = number;
    if (vector->record == nullptr && (flags & account_create) != 0)
        __atomic_store_n(&vector->record, make_record(), __ATOMIC_RELEASE);
    return &vector->record;
}

bank_record **mm_account_ptr_by_tid(int32_t number, int32_t epoch, int32_t flags)
{
    // Before the book is held: making a key can end the process, which takes the book.
    if ((flags & account_create) != 0 && !(thread_key_create(&mm_tid) && thread_key_create(&mm_tepoch)))
        return nullptr;
    if ((flags & account_exclusive) != 0)
        mm_lock_exclusive();
    else
        mm_lock_shared(number);
    return mm_find_held(number, epoch, flags);
}

// The thread's number is below 0 meanwhile.
void *mm_held_alloc(void *(*allocator)(size_t size), size_t size)
{
    const int32_t number = mm_thread_number();
    set_thread_number(-1 - number);
    void *const block = allocator(size);
    set_thread_number(number);
    return block;
}

void mm_held_free(void (*allocator)(void *pointer), void *pointer)
{
    const int32_t number = mm_thread_number();
    set_thread_number(-1 - number);
    allocator(pointer);
    set_thread_number(number);
}

bank_record **mm_own_slot_general()
{
    const thread_info self = mm_thread_info();
    if (self.number < 0)
        return nullptr;
    return mm_account_ptr_by_tid(self.number, self.epoch, account_create);
}

int32_t mm_free_all_banks(bank_record **record_address, int32_t mode)
{
    bank_record *const record = *record_address;
    int64_t bytes = 0;
    int32_t blocks = 0;
    bool stayed = false;
    for (int32_t i = 0; i < record->bank_count; ++i) {
        const uint64_t base = record->base[i];
        if (base == 0)
            continue;
        if (__atomic_load_n(&record->in_use[i], __ATOMIC_ACQUIRE) != 0) {
            stayed = true;
            continue;
        }
        bytes += static_cast<int64_t>(record->capacity[i]);
        ++blocks;
        __atomic_store_n(&record->user[i], uint64_t{0}, __ATOMIC_RELAXED);
        record->base[i] = record->size[i] = record->capacity[i] = 0;
        mm_held_free(sys_deallocate, reinterpret_cast<void *>(base));
    }
    mm_stat_add(-bytes, -blocks);
    if (!stayed) {
        record->bank_count = 0;
        if ((mode & 1) == 0)
            return 0;
        mm_gc_add(record->block_bytes, record->block_count);
        __atomic_store_n(record_address, static_cast<bank_record *>(nullptr), __ATOMIC_RELEASE);
        mm_held_free(sys_free, record);
        return 1;
    }
    if (mode >= 2) {
        mm_gc_add(record->block_bytes, record->block_count);
        record->block_bytes = 0;
        record->block_count = 0;
        record->dead = 1;
    }
    return 0;
}

bool mm_give_back_anywhere(uint64_t user, slot_place *found)
{
    bool matched = false;
    walk_slots([&](thread_slot &slot, int64_t index) {
        bank_record *const record = __atomic_load_n(&slot.record, __ATOMIC_ACQUIRE);
        if (record == nullptr)
            return false;
        for (int32_t i = 0; i < bank_max; ++i) {
            if (__atomic_load_n(&record->user[i], __ATOMIC_RELAXED) != user)
                continue;
            // Release: what this thread did with the block comes before what its owner does with it next.
            *found = {mm_book.epoch, index, record->dead == 1};
            __atomic_store_n(&record->in_use[i], uint64_t{0}, __ATOMIC_RELEASE);
            return matched = true;
        }
        return false;
    });
    return matched;
}

// Between the release of the own slot and the exclusive hold another thread may have ended the record, and even the
// whole epoch: so the place is looked up again.
void mm_end_dead_record(const slot_place &place)
{
    mm_lock_exclusive();
    if (place.epoch == mm_book.epoch) {
        const vector_place where = place_of(place.index);
        thread_slot &slot = vector_at(where.vector)[place.index - where.first];
        if (slot.record != nullptr)
            mm_free_all_banks(&slot.record, 1);
    }
    mm_unlock_exclusive();
}
} // namespace tesh_memory

extern "C" {
void tesh_serv_free_buffers(void)
{
    tesh_serv_call_sycl_destructors();
    mm_init();
    if (mm_within_held_call())
        return;
    mm_lock_exclusive();
    bool all_freed = true;
    walk_slots([&](thread_slot &slot, int64_t) {
        if (slot.record != nullptr && (slot.record->dead == 1 || mm_free_all_banks(&slot.record, 1) == 0))
            all_freed = false;
        return false;
    });
    if (all_freed) {
        give_back_vectors();
        ++mm_book.epoch;
        __atomic_store_n(&mm_book.number_count, 0, __ATOMIC_RELEASE);
    }
    mm_unlock_exclusive();
}

void tesh_serv_thread_free_buffers(void)
{
    const thread_info self = mm_thread_info();
    if (self.number <= 0)
        return;
    bank_record **const slot = mm_account_ptr_by_tid(self.number, self.epoch, account_find);
    if (slot == nullptr)
        return;
    if (*slot != nullptr)
        mm_free_all_banks(slot, 0);
    mm_release_slot(slot);
}

int64_t tesh_serv_mem_stat(int32_t *count)
{
    if (count == nullptr)
        return 0;
    *count = 0;
    if (mm_within_held_call())
        return 0;
    int64_t bytes;
    int32_t blocks;
    mm_lock_exclusive();
    mm_gc_read(&bytes, &blocks);
    walk_slots([&](thread_slot &slot, int64_t) {
        const bank_record *const record = slot.record;
        if (record == nullptr)
            return false;
        bytes += record->block_bytes;
        blocks += record->block_count;
        for (int32_t i = 0; i < record->bank_count; ++i) {
            bytes += static_cast<int64_t>(record->capacity[i]);
            blocks += record->base[i] != 0;
        }
        return false;
    });
    mm_unlock_exclusive();
    *count = blocks;
    return bytes;
}
}
