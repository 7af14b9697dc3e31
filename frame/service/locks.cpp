// SPDX-License-Identifier: BSD-3-Clause
// Spin locks on a 32-bit word: 0 free, 1 held. They guard one-time initialisation and rare book-keeping only; nothing
// holds one during computation. Not fair, not recursive.
#include <immintrin.h>
#include <sched.h>

#include "frame/service/fork_guard.h"
#include "frame/tesh_serv.h"

namespace
{
constexpr int32_t word_free = 0;
constexpr int32_t word_held = 1;
constexpr int tries_without_yield = 5000; // a holder that is running lets go well within these
} // namespace

extern "C" {
int32_t tesh_serv_cmpxchg(int32_t *word, int32_t expected, int32_t desired)
{
    __atomic_compare_exchange_n(word, &expected, desired, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE);
    return expected;
}

// The plain look first keeps the cache line shared while another thread holds the word.
int32_t tesh_serv_trylock(int32_t *word)
{
    if (__atomic_load_n(word, __ATOMIC_RELAXED) != word_free)
        return 0;
    return tesh_serv_cmpxchg(word, word_free, word_held) == word_free;
}

void tesh_serv_lock(int32_t *word)
{
    fork_guard_arm();
    if (tesh_serv_trylock(word))
        return;
    for (int tries = 0;;) {
        if (tries < tries_without_yield) {
            ++tries;
            _mm_pause();
        } else {
            tesh_serv_thread_yield();
        }
        if (tesh_serv_trylock(word))
            return;
    }
}

void tesh_serv_unlock(int32_t *word)
{
    __atomic_store_n(word, word_free, __ATOMIC_RELEASE);
}

void tesh_serv_thread_yield(void)
{
    sched_yield();
}
}
