// SPDX-License-Identifier: BSD-3-Clause
// The services as the public names reach them: each forwards with its arguments unchanged.
#include "frame/tesh_serv.h"

extern "C" void tesh_set_xerbla_interface(tesh_serv_xerbla_fn handler)
{
    tesh_serv_set_xerbla_interface(handler);
}

extern "C" void tesh_serv_iface_xerbla(const char *name, const int64_t *code, int32_t length)
{
    tesh_serv_xerbla(name, code, length);
}

extern "C" int32_t *tesh_serv_iface_verbose_mode(void)
{
    return tesh_serv_verbose_mode();
}

extern "C" void tesh_serv_iface_print_verbose_info(int32_t interface, const char *record, double seconds)
{
    tesh_serv_print_verbose_info(interface, record, seconds);
}

extern "C" double tesh_serv_iface_dsecnd(void)
{
    return tesh_serv_dsecnd();
}

extern "C" void *tesh_serv_iface_malloc(size_t size, int32_t alignment)
{
    return tesh_serv_malloc(size, alignment);
}

extern "C" void tesh_serv_iface_free(void *pointer)
{
    tesh_serv_free(pointer);
}
