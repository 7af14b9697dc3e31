// SPDX-License-Identifier: BSD-3-Clause
// Records of the memory manager and what its files share.
//
//   memory_plain.cpp    tesh_serv_malloc and its siblings: aligned blocks with a header
//   memory_cached.cpp   tesh_serv_allocate, tesh_serv_deallocate: up to five cached blocks a thread
//   memory_book.cpp     the book of threads: slots, registration, freeing walks, sums over all threads
//   memory_locks.cpp    the three ways to hold the book
//   memory_init.cpp     settings and the raw allocators
//   memory_fast.cpp     the internal raw allocator and high-bandwidth memory
//   memory_stat.cpp     bytes and blocks in use, peak
//   memory_exec.cpp     pages for generated code
//
// Order of locks: book, then vector or statistics. Lesser locks are held for a few instructions.
#pragma once
#include <stddef.h>
#if __has_include(<sys/single_threaded.h>)
#include <sys/single_threaded.h>
#endif

#include "frame/service/thread_key.h"

// Hidden also where only declared, so that the library reaches its own data without an indirection.
#pragma GCC visibility push(hidden)
namespace tesh_memory
{
constexpr size_t line_bytes = 64;
constexpr int32_t bank_max = 5;

// A thread's cached blocks and its account. Written by the owner under its hold of the book, or by an exclusive holder.
// in_use alone is cleared by any thread that gives a block back; user is what that thread looks for. Bank i is
// base[i] .. in_use[i]. A bank below bank_count whose base is 0 is legal: its block could not be had, or was given back
// to the system.
struct bank_record {
    uint64_t base[bank_max];     // block from sys_allocate; 0 if empty
    uint64_t user[bank_max];     // aligned address handed out last; 0 if empty
    uint64_t size[bank_max];     // [bytes] size asked for last
    uint64_t capacity[bank_max]; // [bytes] of the block: size plus alignment of the request that made it; 0 if empty
    uint64_t in_use[bank_max];   // 1 while handed out
    int32_t bank_count;          // [count] banks created, 0 .. bank_max
    int32_t block_count;         // [count] plain-layer blocks; negative where others' blocks are freed here
    int64_t block_bytes;         // [bytes] plain-layer, likewise
    int32_t dead;                // 1 once the owner ended with a bank in use
};
static_assert(offsetof(bank_record, bank_count) == 200 && offsetof(bank_record, dead) == 216, "record layout");

// One per thread number, alone on a cache line.
struct alignas(line_bytes) thread_slot {
    // As the caller of the book stated it, 0 while its thread registers: tells which word to release.
    int32_t stated_number;
    bank_record *record; // null until the thread needs one
};
static_assert(sizeof(thread_slot) == 64 && offsetof(thread_slot, record) == 8, "slot layout");

struct alignas(line_bytes) lock_line {
    int32_t word; // 0 free, 1 held
};
static_assert(sizeof(lock_line) == line_bytes, "a lock word has its line to itself");

constexpr int32_t vector_max = 54;        // slot vectors: indices of 63 bits
constexpr int32_t vector0_slots = 1024;   // slots of vector 0; vector v above 0 has 2^(v+9)
constexpr int32_t lock_word_count = 1024; // thread numbers 1 to 1024 have a lock word of their own

struct book {
    int64_t slot_stride;                   // [bytes] of a slot less 8
    int32_t epoch;                         // counts the times that all threads were made to register anew
    int32_t number_count;                  // [count] thread numbers handed out in this epoch
    thread_slot *vectors[vector_max];      // null until a thread of its range registers; pages from sys_alloc
    alignas(line_bytes) int32_t global;    // bit 0: held exclusively; above: shared holders, in steps of 2
    lock_line lock_words[lock_word_count]; // [number - 1]
};
static_assert(offsetof(book, vectors) == 16 && offsetof(book, global) == 448 && offsetof(book, lock_words) == 512,
              "book layout");
extern book mm_book;

// What a thread knows of itself; number 0: not registered.
struct thread_info {
    int32_t epoch;  // the book's epoch when the number was given
    int32_t number; // 1 and above; below 0 within mm_held_alloc and mm_held_free
};

// ---- thread keys (memory_book.cpp) ----
// mm_tid is made first: the C library empties an ending thread's keys in the order of their creation, and the
// destructor of mm_tid reads mm_tepoch.
extern thread_key mm_tid;    // value: the thread number
extern thread_key mm_tepoch; // value: its epoch

inline int32_t mm_thread_number()
{
    if (__builtin_expect(!thread_key_ready(mm_tid), 0))
        return 0;
    return static_cast<int32_t>(reinterpret_cast<intptr_t>(thread_key_value(mm_tid)));
}

// Of a thread that has a number: only then is the key sure to be made.
inline int32_t mm_thread_epoch()
{
    return static_cast<int32_t>(reinterpret_cast<intptr_t>(thread_key_value(mm_tepoch)));
}

// The thread was called back, by a raw allocator, out of an operation that holds the book:
// it must not wait for the book.
inline bool mm_within_held_call()
{
    return mm_thread_number() < 0;
}

inline thread_info mm_thread_info()
{
    const int32_t number = mm_thread_number();
    return {number != 0 ? mm_thread_epoch() : 0, number};
}

// ---- holding the book (memory_locks.cpp) ----
// Number 1 to 1024 holds its own word; every other number holds the global word with others.
void mm_lock_shared(int32_t number);
void mm_unlock_shared(int32_t number);
void mm_lock_exclusive();
void mm_unlock_exclusive();
// For the child of a fork whose parent side held the book exclusively.
void mm_reset_own_words();
void mm_lock_word_wait(int32_t *word);

// True only where the C library knows that this thread is alone: it can become false only by this thread's own doing.
inline bool mm_is_alone()
{
#if __has_include(<sys/single_threaded.h>)
    return __libc_single_threaded;
#else
    return false;
#endif
}

// Takes a thread's own word: plain accesses where no other thread exists, else one compare-and-swap.
inline void mm_lock_own_word(int32_t *word)
{
    int32_t expected = 0;
    if (mm_is_alone() && __atomic_load_n(word, __ATOMIC_RELAXED) == 0)
        __atomic_store_n(word, 1, __ATOMIC_RELAXED);
    else if (__builtin_expect(
                 !__atomic_compare_exchange_n(word, &expected, 1, false, __ATOMIC_ACQUIRE, __ATOMIC_RELAXED), 0))
        mm_lock_word_wait(word);
}

// Raw allocators called with the book held. A program's own may come back into the library from there: it asks for the
// buffers because memory has run out, or it ends the process.
void *mm_held_alloc(void *(*allocator)(size_t size), size_t size);
void mm_held_free(void (*allocator)(void *pointer), void *pointer);

inline bool mm_has_own_word(int32_t number)
{
    return static_cast<uint32_t>(number) - 1u < static_cast<uint32_t>(lock_word_count);
}

// ---- slots (memory_book.cpp) ----
enum account_flags : int32_t {
    account_find = 0,      // no registration, no new record
    account_create = 1,    // register an unknown or stale thread; make the record
    account_exclusive = 2, // hold the book exclusively
    account_no_vector = 4  // do not make a missing vector
};
// The record pointer of the thread's slot with the book held, to be released by mm_release_slot (or
// mm_unlock_exclusive); null, with the book released, if there is no such slot.
// With account_create the record may still be null.
bank_record **mm_account_ptr_by_tid(int32_t number, int32_t epoch, int32_t flags);
// The same with the book held already, in the mode that number and flags tell.
bank_record **mm_find_held(int32_t number, int32_t epoch, int32_t flags);

inline void mm_release_slot(bank_record **record_address)
{
    const auto *slot = reinterpret_cast<const thread_slot *>(reinterpret_cast<const char *>(record_address) -
                                                             offsetof(thread_slot, record));
    const int32_t number = slot->stated_number;
    if (__builtin_expect(mm_has_own_word(number), 1))
        __atomic_store_n(&mm_book.lock_words[number - 1].word, 0, __ATOMIC_RELEASE);
    else
        mm_unlock_shared(number);
}

// The calling thread's slot, registered if need be, by the general way; null within a held call.
bank_record **mm_own_slot_general();

// The calling thread's slot, registered if need be. The usual case, a registered thread with a number up to 1024 and a
// record, is inline: one key read, one atomic on the thread's own line. Epochs only count up from 0, so in epoch 0
// every number is of this epoch, and the thread's own epoch need not be read.
[[gnu::always_inline]] inline bank_record **mm_own_slot()
{
    const int32_t number = mm_thread_number();
    if (__builtin_expect(!mm_has_own_word(number), 0))
        return mm_own_slot_general();
    mm_lock_own_word(&mm_book.lock_words[number - 1].word);
    thread_slot *const vector = __atomic_load_n(&mm_book.vectors[0], __ATOMIC_ACQUIRE);
    const int32_t epoch = mm_book.epoch;
    if (__builtin_expect(vector != nullptr && (epoch == 0 || epoch == mm_thread_epoch()), 1)) {
        thread_slot &slot = vector[number - 1];
        if (__builtin_expect(slot.stated_number == number && slot.record != nullptr, 1))
            return &slot.record;
    }
    return mm_find_held(number, mm_thread_epoch(), account_create);
}

// Frees the banks that are not in use. None stayed in use: bank_count becomes 0, and with bit 0 of mode the record is
// ended and the answer is 1. Otherwise, with mode 2 or more, the record's plain-layer account is closed and the record
// is marked dead. The caller holds the book exclusively, or, for mode 0, its own slot.
int32_t mm_free_all_banks(bank_record **record_address, int32_t mode);

// Clears in_use of the bank, of any thread, whose user is the address. found: the place of its record. The caller holds
// the book. False if there is none.
struct slot_place {
    int32_t epoch; // the book's at the time
    int64_t index; // of the slot
    bool dead;     // the record's owner has ended
};
bool mm_give_back_anywhere(uint64_t user, slot_place *found);
// Ends the dead record at the place if its last block was given back. The caller does not hold the book.
void mm_end_dead_record(const slot_place &place);

// ---- raw allocators and settings (memory_init.cpp, memory_fast.cpp) ----
extern void *(*sys_alloc)(size_t size);
extern void (*sys_free)(void *pointer);
extern void *(*sys_realloc)(void *pointer, size_t size);
extern void *(*sys_allocate)(size_t size);
extern void (*sys_deallocate)(void *pointer);
extern int32_t mm_init_done;    // -1 until the allocators are set, then 1
extern int32_t disable_fast_mm; // 1: the cached layer is off

// The settings of the environment, once.
void mm_read_settings();
void mm_init_once();

// To be called before any of the above is used.
inline void mm_init()
{
    if (__builtin_expect(__atomic_load_n(&mm_init_done, __ATOMIC_ACQUIRE) != 1, 0))
        mm_init_once();
}

extern int32_t mm_fast_memory_initialized; // 1 once high-bandwidth memory can be had
extern int64_t mm_fast_memory_limit;       // [bytes] that may still be taken of it; -1: no limit
inline int64_t mebibytes_to_bytes(size_t mebibytes)
{
    return static_cast<int64_t>(mebibytes << 20);
}
// Looks for the optional allocator of high-bandwidth memory. False if one was found but is too old to be used.
bool mm_bind_fast_memory();
void *mm_internal_malloc(size_t size);
void mm_internal_free(void *pointer);
void *mm_internal_realloc(void *pointer, size_t size);

// ---- statistics (memory_stat.cpp) ----
extern uint8_t enable_global_stat; // 1: changes are counted
void mm_stat_add_always(int64_t bytes, int32_t blocks);
// Adds to the bytes and blocks in use and raises the peak; nothing while statistics are off.
inline void mm_stat_add(int64_t bytes, int32_t blocks)
{
    if (__builtin_expect(__atomic_load_n(&enable_global_stat, __ATOMIC_RELAXED) == 1, 0))
        mm_stat_add_always(bytes, blocks);
}
// The accounts of records that were given up.
void mm_gc_add(int64_t bytes, int32_t blocks);
void mm_gc_read(int64_t *bytes, int32_t *blocks);
// Adds to the calling thread's plain-layer account, if the thread has a record.
void mm_account_add(int64_t bytes, int32_t blocks);

// [bytes] An alignment below 64 or not a power of two means 64.
inline size_t mm_alignment(int32_t alignment)
{
    const bool usable = alignment >= 64 && (alignment & (alignment - 1)) == 0;
    return usable ? static_cast<size_t>(alignment) : 64;
}
} // namespace tesh_memory
#pragma GCC visibility pop
