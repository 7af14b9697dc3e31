// SPDX-License-Identifier: BSD-3-Clause
// Per-thread values behind keys of the thread library. A key is made at its first use and deleted by the cleanup of the
// library, so that a library that was unloaded leaves none behind.
#pragma once
#include <pthread.h>

#include "frame/tesh_serv.h"

struct thread_key {
    pthread_key_t key;          // valid while bit 0 of flags is set
    void (*destructor)(void *); // run with the value of an ending thread that is not null; null: none
    int32_t lock;               // held while the key is made
    uint32_t flags;             // bit 0: the key exists
};

constexpr uint32_t thread_key_exists = 1;

// Makes the key if it is missing and registers tesh_tls_destroy for it; false if the system has no key left.
bool thread_key_create(thread_key *record);

// False until the key was made, and again after the cleanup.
inline bool thread_key_ready(const thread_key &record)
{
    return (__atomic_load_n(&record.flags, __ATOMIC_ACQUIRE) & thread_key_exists) != 0;
}

// The calling thread's value, null if it has none. The key must exist.
inline void *thread_key_value(const thread_key &record)
{
    return pthread_getspecific(__atomic_load_n(&record.key, __ATOMIC_RELAXED));
}
