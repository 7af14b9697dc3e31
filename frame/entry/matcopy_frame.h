// SPDX-License-Identifier: BSD-3-Clause
// What the four copy entries share: registration, the clock around check and work, the verbose line. The level is asked
// for at every call.
#pragma once
#include "frame/entry/verbose_frame.h"
#include "frame/tesh_blas.h"

namespace
{
constexpr int32_t verbose_interface_silent = 0; // the interface's number when the level was 0 at the start

// work checks the arguments and copies; print gets the interface's number and the elapsed time [s]. A level that
// another thread raises meanwhile prints a line without a meaningful time.
template <class Work, class Print> inline void matcopy_frame(Work work, Print print)
{
    tesh_set_xerbla_interface(cdecl_xerbla);
    const int32_t *const level = tesh_serv_iface_verbose_mode();
    const bool timed = __atomic_load_n(level, __ATOMIC_RELAXED) != 0;
    const double start = timed ? -tesh_serv_iface_dsecnd() : 0.0;
    work();
    if (__builtin_expect(__atomic_load_n(level, __ATOMIC_RELAXED) != 0, 0))
        print(timed ? verbose_interface_ilp64 : verbose_interface_silent, tesh_serv_iface_dsecnd() + start);
}
} // namespace
