// SPDX-License-Identifier: BSD-3-Clause
// The error-handler chain. Each link calls the next by dynamic symbol (cmake/libtesh.dynamic), so that a program which
// defines one of the names takes the rest over; that is how a user's Fortran xerbla_ is honoured. The links are weak,
// so that a program linked with the archive can replace them, too.
#include "frame/service/xerbla_slot.h"
#include "frame/tesh_blas.h"

namespace
{
constexpr size_t name_bound = 4096;                // longest name that is measured [bytes]
constexpr int64_t code_insufficient_memory = 1000; // the default report's code for missing workspace
} // namespace

extern "C" {
[[gnu::weak]] void XERBLA(const char *name, const int64_t *code, int32_t name_length)
{
    default_report(name, code, name_length);
}

[[gnu::weak]] void XERBLA_(const char *name, const int64_t *code, int32_t name_length)
{
    XERBLA(name, code, name_length);
}

[[gnu::weak]] void xerbla_(const char *name, const int64_t *code, int32_t name_length)
{
    XERBLA_(name, code, name_length);
}

[[gnu::weak]] void xerbla(const char *name, const int64_t *code, int32_t name_length)
{
    xerbla_(name, code, name_length);
}

[[gnu::weak]] void cdecl_xerbla(const char *name, const int64_t *code, int32_t name_length)
{
    xerbla(name, code, name_length);
}

[[gnu::weak]] void cblas_xerbla(const char *name, int64_t parameter)
{
    tesh_set_xerbla_interface(cdecl_xerbla);
    tesh_serv_iface_xerbla(name, &parameter, static_cast<int32_t>(tesh_serv_strnlen_s(name, name_bound)));
}

void cblas_xerbla_malloc_error(const char *name)
{
    const int64_t code = code_insufficient_memory;
    tesh_set_xerbla_interface(cdecl_xerbla);
    tesh_serv_iface_xerbla(name, &code, static_cast<int32_t>(tesh_serv_strnlen_s(name, name_bound)));
}
}
