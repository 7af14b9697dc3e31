// SPDX-License-Identifier: BSD-3-Clause
// The Euclidean norm by a running scale and sum of squares: scale^2 * ssq = sum x(i)^2, scale = max |x(i)| so far. All
// in single precision, for the factorizations, which count on this order of roundings.
#include "vector/vector.h"

#include <immintrin.h>

extern "C" float tesh_lapack_snrm20(const int64_t *n, const float *x, const int64_t *incx)
{
    const int64_t count = *n;
    if (count < 1)
        return 0.0f;
    const int64_t step = *incx;
    if (step < 1)
        return 0.0f;
    if (count == 1)
        return __builtin_fabsf(x[0]);
    float scale = 0.0f, ssq = 1.0f;
    for (int64_t i = 0; i < count; ++i) {
        const float value = __builtin_fabsf(x[i * step]);
        if (value == 0.0f)
            continue;
        if (scale < value) {
            const float ratio = scale / value;
            ssq = 1.0f + ssq * (ratio * ratio);
            scale = value;
        } else {
            const float ratio = value / scale;
            ssq += ratio * ratio;
        }
    }
    return scale * _mm_cvtss_f32(_mm_sqrt_ss(_mm_set_ss(ssq)));
}
