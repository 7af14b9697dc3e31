// SPDX-License-Identifier: BSD-3-Clause
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
void before_fork()
{
    tesh_memory::mm_lock_exclusive();
}

void after_fork_in_parent()
{
    tesh_memory::mm_unlock_exclusive();
}

void after_fork_in_child()
{
    tesh_memory::mm_reset_own_words();
    for (int32_t *const *entry = __start_tesh_fork_words; entry != __stop_tesh_fork_words; ++entry)
        __atomic_store_n(*entry, 0, __ATOMIC_RELEASE);
}
} // namespace

void fork_guard_register()
{
    int32_t expected = 0;
    if (!__atomic_compare_exchange_n(&fork_guard_state, &expected, 1, false, __ATOMIC_RELAXED, __ATOMIC_RELAXED))
        return;
    if (pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child) != 0)
        __atomic_store_n(&fork_guard_state, 0, __ATOMIC_RELAXED); // out of memory: the next lock tries again
}
