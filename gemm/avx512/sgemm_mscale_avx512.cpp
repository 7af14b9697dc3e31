// SPDX-License-Identifier: BSD-3-Clause
// C := beta*C on the avx512 path: 64 floats of a column at a time, then 32, 16, and the last ones under a mask.
#include "gemm/avx512/sgemm_path_avx512.h"
#include "gemm/body/sgemm_mscale_body.h"

namespace
{
using v = lanes<16>;

struct tail {
    template <class change> [[gnu::always_inline]] static inline void rest(int64_t count, float *c, change f)
    {
        if (count > 0)
            f.part(c, v::first(count));
    }
};
} // namespace

extern "C" {
void tesh_blas_avx512_sgemm_mscale(const int64_t *m, const int64_t *n, const float *beta, float *c, const int64_t *ldc)
{
    mscale<v, tail>(*m, *n, *beta, c, *ldc);
}
void tesh_blas_avx512_sgemm_mscale_wrapper(const blas_matrix_view *c, const float *beta)
{
    mscale<v, tail>(c->rows, c->cols, *beta, static_cast<float *>(c->base), c->ld);
}
}
