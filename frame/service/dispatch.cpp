// SPDX-License-Identifier: BSD-3-Clause
// The choice of a family's row by processor type and reproducibility branch.
#include "frame/service/dispatch.h"

#include "frame/tesh_serv.h"

namespace
{
constexpr int32_t message_unsupported_cpu = 1227;
constexpr int32_t branch_off = 1;

int32_t no_target(void)
{
    tesh_serv_print(0, message_unsupported_cpu, 1, tesh_serv_cpu_detect());
    tesh_serv_exit(1);
    return -1;
}

// Rows by processor type; -1 for the types without kernels.
constexpr int32_t row_of_type[8] = {
    dispatch_path_def, dispatch_path_def, -1, dispatch_path_mc3, -1, dispatch_path_avx2, -1, dispatch_path_avx512};
} // namespace

extern "C" {
int32_t dispatch_choose_table_path(void)
{
    const int32_t type = tesh_serv_cpu_detect();
    const int32_t row = type >= 0 && type < 8 ? row_of_type[type] : -1;
    return row >= 0 ? row : no_target();
}

// The baseline has a second member, whose results do not depend on alignment: taken when a branch is in force.
int32_t dispatch_choose_blas_path(void)
{
    const int32_t row = dispatch_choose_table_path();
    return row == dispatch_path_def && tesh_serv_cbwr_get(1) != branch_off ? dispatch_path_cnr_def : row;
}
}
