// SPDX-License-Identifier: BSD-3-Clause
// A program that brings its own xerbla_, as Fortran programs do: the rest of the library's chain must not run.
#include <cstdio>

#include "frame/tesh.h"

extern "C" void xerbla_(const char *name, const int64_t *code, int32_t length)
{
    std::printf("own handler: %.*s %lld\n", length, name, static_cast<long long>(*code));
}

int main()
{
    const int64_t n = -1, ld = 1;
    const float x = 0;
    float c = 7;
    sgemm_("N", "N", &n, &ld, &ld, &x, &x, &ld, &x, &ld, &x, &c, &ld);
    cblas_sgemm(102, 111, 115, 1, 1, 1, x, &x, 1, &x, 1, x, &c, 1);
    return c == 7 ? 0 : 1;
}
