// SPDX-License-Identifier: BSD-3-Clause
// One bad argument for each kind of public name, and the report of missing memory. Nothing here handles them.
#include "frame/tesh.h"

int main()
{
    const int64_t n = -1, one = 1;
    const float x = 0;
    float c = 7;
    SGEMM("N", "N", &n, &one, &one, &x, &x, &one, &x, &one, &x, &c, &one);
    cblas_sgemm(103, 111, 111, 1, 1, 1, x, &x, 1, &x, 1, x, &c, 1);
    TESH_Simatcopy('Q', 'N', 1, 1, x, &c, 1, 1);
    cblas_xerbla_malloc_error("cblas_sgemm");
    return c == 7 ? 0 : 1;
}
