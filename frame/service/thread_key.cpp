// SPDX-License-Identifier: BSD-3-Clause
// Keys of the thread library: made once each, deleted by the cleanup of the library.
#include "frame/service/thread_key.h"

bool thread_key_create(thread_key *record)
{
    if (thread_key_ready(*record))
        return true;
    tesh_serv_lock(&record->lock);
    bool made = thread_key_ready(*record);
    const bool first = !made;
    if (first) {
        pthread_key_t key;
        made = pthread_key_create(&key, record->destructor) == 0;
        if (made) {
            __atomic_store_n(&record->key, key, __ATOMIC_RELAXED);
            __atomic_store_n(&record->flags, record->flags | thread_key_exists, __ATOMIC_RELEASE);
        }
    }
    tesh_serv_unlock(&record->lock);
    if (first && made)
        tesh_serv_core_register_cleanup(tesh_tls_destroy, record);
    return made;
}

extern "C" void tesh_tls_destroy(void *record)
{
    thread_key *const owner = static_cast<thread_key *>(record);
    tesh_serv_lock(&owner->lock);
    if (thread_key_ready(*owner)) {
        __atomic_store_n(&owner->flags, owner->flags & ~thread_key_exists, __ATOMIC_RELEASE);
        pthread_key_delete(owner->key);
    }
    tesh_serv_unlock(&owner->lock);
}
