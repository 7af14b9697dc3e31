// SPDX-License-Identifier: BSD-3-Clause
// LSAME, TESH_Get_Max_Threads and TESH_Free_Buffers under all their names: each forwards to the service.
#include "frame/tesh_blas.h"
#include "frame/tesh_lapack.h"
#include "frame/tesh_serv.h"

extern "C" {
int32_t LSAME(const char *a, const char *b, int64_t a_length, int64_t b_length)
{
    return tesh_serv_lsame(a, b, a_length, b_length);
}
[[gnu::alias("LSAME")]] decltype(LSAME) lsame;
[[gnu::alias("LSAME")]] decltype(LSAME) lsame_;
[[gnu::alias("LSAME")]] decltype(LSAME) LSAME_64;
[[gnu::alias("LSAME")]] decltype(LSAME) lsame_64;
[[gnu::alias("LSAME")]] decltype(LSAME) lsame_64_;
[[gnu::alias("LSAME")]] decltype(LSAME) tesh_lapack__lsame_;

int32_t TESH_GET_MAX_THREADS(void)
{
    return tesh_serv_get_max_threads();
}
[[gnu::alias("TESH_GET_MAX_THREADS")]] decltype(TESH_GET_MAX_THREADS) TESH_Get_Max_Threads;
[[gnu::alias("TESH_GET_MAX_THREADS")]] decltype(TESH_GET_MAX_THREADS) tesh_get_max_threads;
[[gnu::alias("TESH_GET_MAX_THREADS")]] decltype(TESH_GET_MAX_THREADS) tesh_get_max_threads_;

void TESH_FREE_BUFFERS(void)
{
    tesh_serv_free_buffers();
}
[[gnu::alias("TESH_FREE_BUFFERS")]] decltype(TESH_FREE_BUFFERS) TESH_Free_Buffers;
[[gnu::alias("TESH_FREE_BUFFERS")]] decltype(TESH_FREE_BUFFERS) tesh_free_buffers;
[[gnu::alias("TESH_FREE_BUFFERS")]] decltype(TESH_FREE_BUFFERS) tesh_free_buffers_;
}
