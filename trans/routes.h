// SPDX-License-Identifier: BSD-3-Clause
// Which routine a call took, for the tests of routing. Empty in a library without TESH_TEST_HOOKS.
#pragma once
#include <stdint.h>

enum trans_route : uint32_t {
    trans_route_somatcopy2_par,
    trans_route_somatcopy2_n,
    trans_route_unrollcopy,
    trans_route_rec_t,
    trans_route_rec_t_1,
    trans_route_one_line,
    trans_route_one_column,
    trans_route_direct,
    trans_route_kernel,
    trans_route_kernel_grouped,
    trans_route_stores_4,
    trans_route_stores_8,
    trans_route_square_n,
    trans_route_mipt_n,
    trans_route_mipt_t,
    trans_route_square_t,
    trans_route_square_t_par,
    trans_route_ssqtrans,
    trans_route_fit_64,
    trans_route_fit_64_large,
};

#if defined(TESH_TEST_HOOKS)
extern "C" uint32_t tesh_trans_routes_taken; // a bit per route since the test last cleared it
namespace
{
inline void trans_took(trans_route route)
{
    tesh_trans_routes_taken |= 1u << route;
}
} // namespace
#else
namespace
{
inline void trans_took(trans_route) {}
} // namespace
#endif
