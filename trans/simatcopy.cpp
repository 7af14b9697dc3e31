// SPDX-License-Identifier: BSD-3-Clause
// AB := alpha*op(AB): dispatcher of the in-place routine.
#include "frame/service/dispatch.h"
#include "frame/tesh_serv.h"
#include "trans/routes.h"
#include "trans/trans_paths.h"

namespace
{
// No cnr_def member: a copy is the same on every path.
tesh_trans_simatcopy_fn *const simatcopy_members[dispatch_path_count] = {
    tesh_trans_def_tesh_simatcopy, tesh_trans_def_tesh_simatcopy, tesh_trans_mc3_tesh_simatcopy,
    tesh_trans_avx2_tesh_simatcopy, tesh_trans_avx512_tesh_simatcopy};
tesh_trans_simatcopy_fn *simatcopy_address = nullptr;
} // namespace

extern "C" {
void tesh_trans_tesh_simatcopy(char ordering, char trans, uint64_t rows, uint64_t cols, float alpha, float *ab,
                               uint64_t lda, uint64_t ldb)
{
    tesh_serv_verbose_mode(); // the level is settled by the first copy, whoever calls it
    dispatch<simatcopy_address, simatcopy_members, dispatch_choose_table_path>(ordering, trans, rows, cols, alpha, ab,
                                                                               lda, ldb);
}

int32_t tesh_trans_tesh_simatcopy_square_t_par(uint64_t, float *, uint64_t, tesh_trans_simatcopy_team_fn *)
{
    trans_took(trans_route_square_t_par);
    return 0;
}
}
