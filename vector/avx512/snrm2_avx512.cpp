// SPDX-License-Identifier: BSD-3-Clause
// sqrt(sum x(i)^2) on the avx512 path.
#include "vector/body/snrm2_line_body.h"
#include "vector/vector_paths.h"

namespace
{
struct squares_avx512 {
    using reg = __m512d;
    static constexpr int width = 8;
    // GCC 12 takes the undefined pass-through operand of the plain intrinsic for a variable not set; with all lanes
    // enabled this one is the same instruction.
    static reg widened(__m256 x) { return _mm512_maskz_cvtps_pd(0xff, x); }
    static reg zero() { return _mm512_setzero_pd(); }
    static reg square(reg x, reg acc) { return _mm512_fmadd_pd(x, x, acc); }
    static reg squares(const float *p, reg acc) { return square(widened(_mm256_loadu_ps(p)), acc); }
    static reg squares_4(const float *p, reg acc)
    {
        return square(widened(_mm256_zextps128_ps256(_mm_loadu_ps(p))), acc);
    }
    static reg squares_2(const float *p, reg acc)
    {
        const __m128i two = _mm_loadl_epi64(reinterpret_cast<const __m128i *>(p));
        return square(widened(_mm256_zextps128_ps256(_mm_castsi128_ps(two))), acc);
    }
    static reg add(reg x, reg y) { return _mm512_add_pd(x, y); }
    static double sum(reg x)
    {
        const __m256d four =
            _mm256_add_pd(__builtin_shufflevector(x, x, 0, 1, 2, 3), __builtin_shufflevector(x, x, 4, 5, 6, 7));
        const __m128d two = _mm_add_pd(_mm256_castpd256_pd128(four), _mm256_extractf128_pd(four, 1));
        return _mm_cvtsd_f64(_mm_add_sd(two, _mm_unpackhi_pd(two, two)));
    }
};
} // namespace

extern "C" float tesh_blas_avx512_xsnrm2(const int64_t *n, const float *x, const int64_t *incx)
{
    return snrm2_line_body<squares_avx512>(n, x, incx);
}
