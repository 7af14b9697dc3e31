// SPDX-License-Identifier: BSD-3-Clause
// sqrt(sum x(i)^2) on the avx2 path.
#include "vector/body/snrm2_line_body.h"
#include "vector/vector_paths.h"

namespace
{
struct squares_avx2 {
    using reg = __m256d;
    static constexpr int width = 4;
    static reg zero() { return _mm256_setzero_pd(); }
    static reg square(reg x, reg acc) { return _mm256_fmadd_pd(x, x, acc); }
    static reg squares(const float *p, reg acc) { return square(_mm256_cvtps_pd(_mm_loadu_ps(p)), acc); }
    static reg squares_4(const float *p, reg acc) { return squares(p, acc); }
    static reg squares_2(const float *p, reg acc)
    {
        const __m128i two = _mm_loadl_epi64(reinterpret_cast<const __m128i *>(p));
        return square(_mm256_cvtps_pd(_mm_castsi128_ps(two)), acc);
    }
    static reg add(reg x, reg y) { return _mm256_add_pd(x, y); }
    static double sum(reg x)
    {
        const __m128d two = _mm_add_pd(_mm256_castpd256_pd128(x), _mm256_extractf128_pd(x, 1));
        return _mm_cvtsd_f64(_mm_add_sd(two, _mm_unpackhi_pd(two, two)));
    }
};
} // namespace

extern "C" float tesh_blas_avx2_xsnrm2(const int64_t *n, const float *x, const int64_t *incx)
{
    return snrm2_line_body<squares_avx2>(n, x, incx);
}
