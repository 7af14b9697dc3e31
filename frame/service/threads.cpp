// SPDX-License-Identifier: BSD-3-Clause
// The thread interface of the sequential form: everything runs on the caller's thread, whatever was asked for.
#include "frame/tesh_serv.h"

extern "C" {
int32_t tesh_serv_get_max_threads(void)
{
    return 1;
}

int32_t tesh_serv_domain_get_max_threads(int32_t)
{
    return 1;
}

void tesh_serv_set_num_threads(int32_t) {}

int32_t tesh_serv_domain_set_num_threads(int32_t, int32_t)
{
    return 1;
}

int32_t tesh_serv_set_num_threads_local(int32_t)
{
    return 1;
}

void tesh_serv_set_dynamic(int32_t) {}

int32_t tesh_serv_get_dynamic(void)
{
    return 1;
}

void tesh_serv_set_num_stripes(int32_t) {}

int32_t tesh_serv_get_num_stripes(void)
{
    return 1;
}

int32_t tesh_serv_get_thread_layer(void)
{
    return 1;
}

int32_t tesh_serv_omp_in_parallel(void)
{
    return 0;
}

void tesh_serv_mpi_safe(void) {}
}
