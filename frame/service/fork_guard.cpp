// SPDX-License-Identifier: BSD-3-Clause
// The handlers of fork, and the list of the locks that they free.
#include "frame/service/fork_guard.h"

#include <pthread.h>

#include "frame/service/memory.h"

int32_t fork_guard_state;

// The linker's names for both ends of the section of entries.
extern "C" {
[[gnu::visibility("hidden")]] extern int32_t *const __start_tesh_fork_words[];
[[gnu::visibility("hidden")]] extern int32_t *const __stop_tesh_fork_words[];
}

namespace
{
// Two threads that come to their first lock together may both register, so the handlers can run more than once a fork:
// the outermost of them does the work.
pthread_t forking_thread; // that holds the book for its fork; 0: none
int32_t nested;           // [count] handlers entered by it

void before_fork()
{
    const pthread_t self = pthread_self();
    if (__atomic_load_n(&forking_thread, __ATOMIC_RELAXED) != self) {
        tesh_memory::mm_lock_exclusive();
        __atomic_store_n(&forking_thread, self, __ATOMIC_RELAXED);
    }
    ++nested;
}

void after_fork_in_parent()
{
    if (--nested > 0)
        return;
    __atomic_store_n(&forking_thread, pthread_t{0}, __ATOMIC_RELAXED);
    tesh_memory::mm_unlock_exclusive();
}

void after_fork_in_child()
{
    if (--nested > 0)
        return;
    __atomic_store_n(&forking_thread, pthread_t{0}, __ATOMIC_RELAXED);
    tesh_memory::mm_reset_own_words();
    for (int32_t *const *entry = __start_tesh_fork_words; entry != __stop_tesh_fork_words; ++entry)
        __atomic_store_n(*entry, 0, __ATOMIC_RELEASE);
}
} // namespace

void fork_guard_register()
{
    // Out of memory: the next lock tries again.
    if (pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child) == 0)
        __atomic_store_n(&fork_guard_state, 1, __ATOMIC_RELEASE);
}
