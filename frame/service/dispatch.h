// SPDX-License-Identifier: BSD-3-Clause
// Binding of kernel families to code paths. A family has a static address, null at load, and a table of its members;
// its dispatcher is one load, one test and one jump once it is bound. Included by baseline files only.
#pragma once
#include "frame/tesh_types.h"

// Rows of a family's table. The BLAS kind uses all; the table kind (matrix copy, LAPACK support) has no cnr_def member.
enum dispatch_path : int32_t {
    dispatch_path_def,
    dispatch_path_cnr_def,
    dispatch_path_mc3,
    dispatch_path_avx2,
    dispatch_path_avx512,
    dispatch_path_count
};

extern "C" {
// The row for this processor; detects at first use. Without a row: message 1227, the process ends with code 1, and
// where an exit hook returned, -1.
int32_t dispatch_choose_blas_path(void);
int32_t dispatch_choose_table_path(void);
}

namespace
{
// The choice falls once. The store needs no lock: all threads store the same address.
template <auto &address, const auto &members, auto choose, class... Args>
[[gnu::noinline, gnu::cold]] auto dispatch_bind(Args... args)
{
    const int32_t row = choose();
    if (row < 0)
        return decltype(members[0](args...))();
    const auto member = members[row];
    __atomic_store_n(&address, member, __ATOMIC_RELAXED);
    return member(args...);
}

// address: the family's static, null until bound. members: its table, one row per dispatch_path. The one call at the
// end keeps arguments on the stack in their places: with a second call in sight compilers load and store them all.
template <auto &address, const auto &members, auto choose = dispatch_choose_blas_path, class... Args>
[[gnu::always_inline]] inline auto dispatch(Args... args)
{
    auto member = __atomic_load_n(&address, __ATOMIC_RELAXED);
    if (__builtin_expect(member == nullptr, 0))
        member = dispatch_bind<address, members, choose, Args...>;
    return member(args...);
}
} // namespace
