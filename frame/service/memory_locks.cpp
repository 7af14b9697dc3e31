// SPDX-License-Identifier: BSD-3-Clause
// The three ways to hold the book of threads.
//   own word   thread numbers 1 to 1024: one compare-and-swap on a cache line that no other thread touches
//   shared     all others: a count of holders above bit 0 of the global word
//   exclusive  the global word from 0 to 1, which waits for all shared holders, then every own word
// A holder of an own word or of a share never waits for another, so the exclusive holder always gets through.
#include <immintrin.h>

#include "frame/service/memory.h"

namespace
{
using tesh_memory::mm_book;

constexpr int32_t exclusive_bit = 1;
constexpr int32_t shared_step = 2;

// [count] pauses, some microseconds, in which a running holder lets go; then a preempted one is given the processor.
constexpr int32_t spins_without_yield = 128;

void pause_or_yield(int32_t *spins)
{
    if (*spins < spins_without_yield) {
        ++*spins;
        _mm_pause();
    } else {
        tesh_serv_thread_yield();
    }
}

bool try_word(int32_t *word)
{
    int32_t expected = 0;
    return __atomic_load_n(word, __ATOMIC_RELAXED) == 0 &&
           __atomic_compare_exchange_n(word, &expected, 1, false, __ATOMIC_ACQUIRE, __ATOMIC_RELAXED);
}

// The global word is one entry of the list that the child of a fork frees; the own words are too many for it.
[[gnu::section("tesh_fork_words"), gnu::used]] int32_t *const forked_global = &mm_book.global;
} // namespace

namespace tesh_memory
{
book mm_book = {static_cast<int64_t>(sizeof(thread_slot)) - 8, 0, 0, {}, 0, {}};

void mm_lock_word_wait(int32_t *word)
{
    for (int32_t spins = 0; !try_word(word);)
        pause_or_yield(&spins);
}

void mm_lock_shared(int32_t number)
{
    if (mm_has_own_word(number)) {
        mm_lock_word_wait(&mm_book.lock_words[number - 1].word);
        return;
    }
    __atomic_fetch_add(&mm_book.global, shared_step, __ATOMIC_ACQUIRE);
    for (int32_t spins = 0; (__atomic_load_n(&mm_book.global, __ATOMIC_ACQUIRE) & exclusive_bit) != 0;)
        pause_or_yield(&spins);
}

void mm_unlock_shared(int32_t number)
{
    if (mm_has_own_word(number))
        __atomic_store_n(&mm_book.lock_words[number - 1].word, 0, __ATOMIC_RELEASE);
    else
        __atomic_fetch_add(&mm_book.global, -shared_step, __ATOMIC_RELEASE);
}

void mm_lock_exclusive()
{
    for (int32_t spins = 0; !try_word(&mm_book.global);)
        pause_or_yield(&spins);
    for (int32_t i = 0; i < lock_word_count; i += 2) {
        mm_lock_word_wait(&mm_book.lock_words[i].word);
        mm_lock_word_wait(&mm_book.lock_words[i + 1].word);
    }
}

void mm_unlock_exclusive()
{
    for (int32_t i = 0; i < lock_word_count; ++i)
        __atomic_store_n(&mm_book.lock_words[i].word, 0, __ATOMIC_RELEASE);
    __atomic_fetch_add(&mm_book.global, -exclusive_bit, __ATOMIC_RELEASE);
}

void mm_reset_own_words()
{
    for (int32_t i = 0; i < lock_word_count; ++i)
        __atomic_store_n(&mm_book.lock_words[i].word, 0, __ATOMIC_RELEASE);
}
} // namespace tesh_memory
