// SPDX-License-Identifier: BSD-3-Clause
// The instruction itself: the C function would call the mathematics library for its error number.
#pragma once
#include <immintrin.h>

namespace
{
// The root in double precision, rounded to single precision once.
inline float square_root(double sum)
{
    const __m128d x = _mm_set_sd(sum);
    return _mm_cvtss_f32(_mm_cvtsd_ss(_mm_setzero_ps(), _mm_sqrt_sd(x, x)));
}
} // namespace
