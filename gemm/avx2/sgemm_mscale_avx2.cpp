// SPDX-License-Identifier: BSD-3-Clause
// C := beta*C on the avx2 path: 32 floats of a column at a time, then 16, 8, and the last ones one by one.
#include "gemm/avx2/sgemm_path_avx2.h"
#include "gemm/body/sgemm_mscale_body.h"

namespace
{
using v = lanes<8>;

struct tail {
    template <class change> [[gnu::always_inline]] static inline void rest(int64_t count, float *c, change f)
    {
        for (int64_t i = 0; i < count; ++i)
            f.template one<lanes<1>>(c + i);
    }
};
} // namespace

extern "C" {
void tesh_blas_avx2_sgemm_mscale(const int64_t *m, const int64_t *n, const float *beta, float *c, const int64_t *ldc)
{
    mscale<v, tail>(*m, *n, *beta, c, *ldc);
}
void tesh_blas_avx2_sgemm_mscale_wrapper(const blas_matrix_view *c, const float *beta)
{
    mscale<v, tail>(c->rows, c->cols, *beta, static_cast<float *>(c->base), c->ld);
}
}
