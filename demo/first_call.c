/* SPDX-License-Identifier: BSD-3-Clause */
#include <stdio.h>
#include <tesh.h>
int main(void)
{
    const float a[] = {1, 3, 2, 4}, b[] = {5, 7, 6, 8}; /* columns of A = (1 2; 3 4) and B = (5 6; 7 8) */
    float c[4];
    cblas_sgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, 2, 2, 2, 1.0f, a, 2, b, 2, 0.0f, c, 2);
    printf("C            A*B = (%g %g; %g %g)\n", c[0], c[2], c[1], c[3]);
    return c[0] == 19 && c[2] == 22 && c[1] == 43 && c[3] == 50 ? 0 : 1;
}
