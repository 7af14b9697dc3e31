// SPDX-License-Identifier: BSD-3-Clause
// Process-wide hooks: the progress callback of long factorizations and the destructors of an accelerator runtime. Plain
// stores; whoever sets one does so before the calls that it is meant for.
#include "frame/tesh_serv.h"

namespace
{
constexpr int32_t destructor_slots = 2;

struct {
    tesh_serv_destructor_fn slots[destructor_slots];
    int32_t count;
} global_tesh_sycl_destructors;
} // namespace

extern "C" {
tesh_serv_progress_fn tesh_progress_address = nullptr;

int32_t tesh_serv_default_progress(const int64_t *, const int64_t *, const char *, int64_t)
{
    return 0;
}

int32_t tesh_serv_progress(const int64_t *thread, const int64_t *step, const char *stage_name, int64_t stage_length)
{
    const tesh_serv_progress_fn callback = tesh_progress_address;
    return callback == nullptr ? 0 : callback(thread, step, stage_name, stage_length);
}

tesh_serv_progress_fn tesh_serv_set_progress(tesh_serv_progress_fn callback)
{
    const tesh_serv_progress_fn former = tesh_progress_address;
    tesh_progress_address = callback;
    return former != nullptr ? former : tesh_serv_default_progress;
}

// For the public layer, which does not override a callback of the program.
void tesh_serv_set_progress_interface(tesh_serv_progress_fn callback)
{
    if (tesh_progress_address == nullptr)
        tesh_progress_address = callback;
}

int32_t tesh_serv_core_register_sycl_destructor(tesh_serv_destructor_fn callback)
{
    auto &list = global_tesh_sycl_destructors;
    if (list.count >= destructor_slots || callback == nullptr)
        return 1;
    list.slots[list.count++] = callback;
    return 0;
}

void tesh_serv_call_sycl_destructors(void)
{
    const auto &list = global_tesh_sycl_destructors;
    for (int32_t i = 0; i < list.count; ++i) {
        if (list.slots[i] != nullptr)
            list.slots[i]();
    }
}

void tesh_serv_core_reset_sycl_destructors(void)
{
    global_tesh_sycl_destructors = {};
}
}
