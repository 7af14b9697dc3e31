// SPDX-License-Identifier: BSD-3-Clause
// B := alpha*op(A): dispatchers of the out-of-place routines.
#include "frame/service/dispatch.h"
#include "frame/tesh_serv.h"
#include "trans/routes.h"
#include "trans/trans_paths.h"

#if defined(TESH_TEST_HOOKS)
uint32_t tesh_trans_routes_taken = 0;
#endif

namespace
{
// No cnr_def member: a copy is the same on every path.
tesh_trans_somatcopy_fn *const somatcopy_members[dispatch_path_count] = {
    tesh_trans_def_tesh_somatcopy, tesh_trans_def_tesh_somatcopy, tesh_trans_mc3_tesh_somatcopy,
    tesh_trans_avx2_tesh_somatcopy, tesh_trans_avx512_tesh_somatcopy};
tesh_trans_somatcopy2_fn *const somatcopy2_members[dispatch_path_count] = {
    tesh_trans_def_tesh_somatcopy2_seq, tesh_trans_def_tesh_somatcopy2_seq, tesh_trans_mc3_tesh_somatcopy2_seq,
    tesh_trans_avx2_tesh_somatcopy2_seq, tesh_trans_avx512_tesh_somatcopy2_seq};
tesh_trans_somatcopy_fn *somatcopy_address = nullptr;
tesh_trans_somatcopy2_fn *somatcopy2_address = nullptr;
} // namespace

extern "C" {
void tesh_trans_tesh_somatcopy(char ordering, char trans, uint64_t rows, uint64_t cols, float alpha, const float *a,
                               uint64_t lda, float *b, uint64_t ldb)
{
    tesh_serv_verbose_mode(); // the level is settled by the first copy, whoever calls it
    dispatch<somatcopy_address, somatcopy_members, dispatch_choose_table_path>(ordering, trans, rows, cols, alpha, a,
                                                                               lda, b, ldb);
}

void tesh_trans_tesh_somatcopy2_seq(char ordering, char trans, uint64_t rows, uint64_t cols, float alpha,
                                    const float *a, uint64_t lda, uint64_t stridea, float *b, uint64_t ldb,
                                    uint64_t strideb)
{
    dispatch<somatcopy2_address, somatcopy2_members, dispatch_choose_table_path>(ordering, trans, rows, cols, alpha, a,
                                                                                 lda, stridea, b, ldb, strideb);
}

void tesh_trans_tesh_somatcopy2_par(char ordering, char trans, uint64_t rows, uint64_t cols, float alpha,
                                    const float *a, uint64_t lda, uint64_t stridea, float *b, uint64_t ldb,
                                    uint64_t strideb)
{
    trans_took(trans_route_somatcopy2_par);
    tesh_trans_tesh_somatcopy2_seq(ordering, trans, rows, cols, alpha, a, lda, stridea, b, ldb, strideb);
}
}
