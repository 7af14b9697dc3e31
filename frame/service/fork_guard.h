// SPDX-License-Identifier: BSD-3-Clause
// A fork copies the lock words of threads that the child does not have. Handlers of the C library's fork make the child
// whole: the forking thread first takes the memory book exclusively, so that no record, vector or slot is copied half
// written; in the child it then frees the book and every lesser lock. What the lesser locks guard can be repeated (a
// first use) or is a sum of counts, so a holder that vanished in the middle of it leaves nothing that a new holder
// would trip over.
//
// The handlers are registered at the first lock taken, not at load: a program that never uses a service pays nothing,
// and before that no lock can be held. (What no registration at first use can cover is a fork that is already on its
// way when another thread takes the library's very first lock.) Unloading the library takes them away. A fork out of a
// raw allocator that the library has called (i_malloc and its siblings) is not possible: the thread may hold the book.
#pragma once
#include <stdint.h>

extern int32_t fork_guard_state; // 1 once the handlers are registered
void fork_guard_register();

// Called by every lock operation that may be a first use.
inline void fork_guard_arm()
{
    if (__builtin_expect(__atomic_load_n(&fork_guard_state, __ATOMIC_RELAXED) == 0, 0))
        fork_guard_register();
}

// A lesser lock makes itself known by an entry in the section tesh_fork_words:
//   [[gnu::section("tesh_fork_words"), gnu::used]] static int32_t *const forked_lock = &lock;
