// SPDX-License-Identifier: BSD-3-Clause
// The end of the library. Services register a callback at their first use; the finalizer frees the cached scratch
// memory and runs the callbacks, last registered first. There is no start to match it.
#include <pthread.h>

#include "frame/tesh_serv.h"

namespace
{
struct cleanup_item {
    tesh_serv_cleanup_fn callback;
    void *argument;
};

// items[0 .. count) are registered. register_lock guards both and is held for a moment only; run_lock is held while
// callbacks run, so that other threads can go on registering meanwhile.
template <int32_t capacity> struct cleanup_list {
    cleanup_item items[capacity];
    int32_t count;
    int32_t register_lock;
    int32_t run_lock;
};

cleanup_list<32> core_list;
cleanup_list<8> thr_list; // threading layer

constexpr int32_t exit_code_list_full = 3;

template <int32_t capacity>
int32_t add_item(cleanup_list<capacity> &list, tesh_serv_cleanup_fn callback, void *argument)
{
    tesh_serv_lock(&list.register_lock);
    const bool full = list.count == capacity;
    if (!full) {
        list.items[list.count] = {callback, argument};
        // Behind the item: the child of a fork may find the list as it is at any point here.
        __atomic_store_n(&list.count, list.count + 1, __ATOMIC_RELEASE);
    }
    tesh_serv_unlock(&list.register_lock);
    if (full)
        tesh_serv_exit(exit_code_list_full);
    return 0;
}

// Takes the last item off; false if there is none.
template <int32_t capacity> bool take_item(cleanup_list<capacity> &list, cleanup_item &item)
{
    tesh_serv_lock(&list.register_lock);
    const bool any = list.count > 0;
    if (any)
        item = list.items[--list.count];
    tesh_serv_unlock(&list.register_lock);
    return any;
}

template <int32_t capacity> void run_items(cleanup_list<capacity> &list)
{
    tesh_serv_lock(&list.run_lock);
    cleanup_item item;
    while (take_item(list, item))
        item.callback(item.argument);
    tesh_serv_unlock(&list.run_lock);
}

int32_t finalize_done = 0;
int32_t finalize_lock = 0;
pthread_t finalize_thread; // valid while finalize_running is 1
int32_t finalize_running = 0;

[[gnu::section("tesh_fork_words"), gnu::used]] int32_t *const forked_core_register = &core_list.register_lock;
[[gnu::section("tesh_fork_words"), gnu::used]] int32_t *const forked_core_run = &core_list.run_lock;
[[gnu::section("tesh_fork_words"), gnu::used]] int32_t *const forked_thr_register = &thr_list.register_lock;
[[gnu::section("tesh_fork_words"), gnu::used]] int32_t *const forked_thr_run = &thr_list.run_lock;
[[gnu::section("tesh_fork_words"), gnu::used]] int32_t *const forked_finalize = &finalize_lock;
} // namespace

extern "C" {
int32_t tesh_serv_core_register_cleanup(tesh_serv_cleanup_fn callback, void *argument)
{
    return add_item(core_list, callback, argument);
}

int32_t tesh_serv_thr_register_cleanup(tesh_serv_cleanup_fn callback, void *argument)
{
    return add_item(thr_list, callback, argument);
}

void tesh_serv_core_cleanup(void)
{
    run_items(core_list);
}

void tesh_serv_thr_cleanup(void)
{
    run_items(thr_list);
}

// A callback that ends the process comes here a second time on the same thread, which holds the lock: that call has
// nothing to do.
[[gnu::destructor]] void tesh_serv_finalize(void)
{
    if (__atomic_load_n(&finalize_done, __ATOMIC_ACQUIRE))
        return;
    if (__atomic_load_n(&finalize_running, __ATOMIC_ACQUIRE) && pthread_equal(finalize_thread, pthread_self()))
        return;
    tesh_serv_lock(&finalize_lock);
    if (!finalize_done) {
        finalize_thread = pthread_self();
        __atomic_store_n(&finalize_running, 1, __ATOMIC_RELEASE);
        tesh_serv_free_buffers();
        tesh_serv_thr_cleanup();
        tesh_serv_core_cleanup();
        __atomic_store_n(&finalize_done, 1, __ATOMIC_RELEASE);
        __atomic_store_n(&finalize_running, 0, __ATOMIC_RELEASE);
    }
    tesh_serv_unlock(&finalize_lock);
}
}
