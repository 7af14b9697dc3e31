// SPDX-License-Identifier: BSD-3-Clause
// Scalar functions with the meaning of Fortran's intrinsics. But for cos and sqrt they use nothing of the system's
// mathematics library, so that results do not depend on it.
#include <math.h>

#include "frame/tesh_serv.h"

namespace
{
// Letters of ASCII alone, in every locale.
char upper_case(char c)
{
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

float magnitude_of(float x)
{
    return __builtin_fabsf(x);
}

double magnitude_of(double x)
{
    return __builtin_fabs(x);
}

// A negative zero counts as not negative.
template <class real> real sign_of(real magnitude, real sign)
{
    return sign < 0 ? -magnitude_of(magnitude) : magnitude_of(magnitude);
}

// Repeated squaring; a negative exponent takes the powers of the reciprocal.
template <class real> real power(real base, int64_t exponent)
{
    uint64_t bits = static_cast<uint64_t>(exponent);
    if (exponent < 0) {
        bits = 0 - bits;
        base = real(1) / base;
    }
    real result = 1;
    for (; bits != 0; bits >>= 1) {
        if (bits & 1)
            result *= base;
        if (bits > 1)
            base *= base;
    }
    return result;
}

// From 2^(mantissa bits) on every value is whole. The sign of a zero result is that of x.
float truncated(float x)
{
    return magnitude_of(x) < 0x1p23f ? __builtin_copysignf(static_cast<float>(static_cast<int32_t>(x)), x) : x;
}

double truncated(double x)
{
    return magnitude_of(x) < 0x1p52 ? __builtin_copysign(static_cast<double>(static_cast<int64_t>(x)), x) : x;
}

template <class real> real rounded(real x)
{
    return truncated(x >= 0 ? x + real(0.5) : x - real(0.5));
}

// The conversion of n rounds to nearest. A result below n goes up by one part in 2^(mantissa bits), which is one or two
// units in its last place. largest is the last value below 2^63, so that an answer always converts back to 64 bits.
template <class real> real ceiling(int64_t n, real step_up, real largest)
{
    real value = static_cast<real>(n);
    if (value > largest)
        return largest;
    if (static_cast<int64_t>(value) < n) {
        value = truncated(value < 0 ? value / step_up : value * step_up);
        if (value > largest)
            return largest;
    }
    return value;
}
} // namespace

extern "C" {
int32_t tesh_serv_lsame(const char *a, const char *b, int64_t, int64_t)
{
    if (a == nullptr || b == nullptr)
        return 0;
    return upper_case(*a) == upper_case(*b);
}

float tesh_serv_s_sign(const float *magnitude, const float *sign)
{
    return sign_of(*magnitude, *sign);
}

double tesh_serv_d_sign(const double *magnitude, const double *sign)
{
    return sign_of(*magnitude, *sign);
}

float tesh_serv_s_powi(const float *base, const int64_t *exponent)
{
    return power(*base, *exponent);
}

double tesh_serv_d_powi(const double *base, const int64_t *exponent)
{
    return power(*base, *exponent);
}

float tesh_serv_s_int(const float *x)
{
    return truncated(*x);
}

double tesh_serv_d_int(const double *x)
{
    return truncated(*x);
}

float tesh_serv_s_round(const float *x)
{
    return rounded(*x);
}

double tesh_serv_d_round(const double *x)
{
    return rounded(*x);
}

float tesh_serv_s_cos(const float *x)
{
    return static_cast<float>(cos(static_cast<double>(*x)));
}

// Squares neither overflow nor lose bits: values far from 1 are scaled by a power of two, which is exact.
double tesh_serv_hypot(double x, double y)
{
    const double ax = magnitude_of(x), ay = magnitude_of(y);
    if (__builtin_isinf(ax) || __builtin_isinf(ay))
        return __builtin_inf();
    if (__builtin_isnan(ax) || __builtin_isnan(ay))
        return ax + ay;
    double large = ax > ay ? ax : ay, small = ax > ay ? ay : ax;
    if (small <= large * 0x1p-60) // below half a unit in the last place of the result
        return large;
    double scale_back = 1.0;
    if (large > 0x1p510) {
        large *= 0x1p-600;
        small *= 0x1p-600;
        scale_back = 0x1p600;
    } else if (small < 0x1p-450) {
        large *= 0x1p600;
        small *= 0x1p600;
        scale_back = 0x1p-600;
    }
    return sqrt(large * large + small * small) * scale_back;
}

double tesh_serv_z_abs(const tesh_complex16 *z)
{
    return tesh_serv_hypot(z->re, z->im);
}

float tesh_serv_c_abs(const tesh_complex8 *z)
{
    return static_cast<float>(tesh_serv_hypot(static_cast<double>(z->re), static_cast<double>(z->im)));
}

// The root with a real part that is not negative: of the two forms of each part the one without cancellation.
void tesh_serv_sqrt(double *re_out, double *im_out, double x, double y)
{
    const double h = tesh_serv_hypot(x, y);
    double re = 0.0, im = 0.0;
    if (h != 0.0) {
        if (x > 0.0) {
            re = sqrt((x + h) / 2.0);
            im = y / 2.0 / re;
        } else {
            im = __builtin_copysign(sqrt((h - x) / 2.0), y);
            re = y / 2.0 / im;
        }
    }
    *re_out = re;
    *im_out = im;
}

void tesh_serv_z_sqrt(tesh_complex16 *result, const tesh_complex16 *z)
{
    tesh_serv_sqrt(&result->re, &result->im, z->re, z->im);
}

void tesh_serv_c_sqrt(tesh_complex8 *result, const tesh_complex8 *z)
{
    double re, im;
    tesh_serv_sqrt(&re, &im, static_cast<double>(z->re), static_cast<double>(z->im));
    result->re = static_cast<float>(re);
    result->im = static_cast<float>(im);
}

float tesh_serv_int2f_ceil(int64_t n)
{
    return ceiling(n, 1.0000001f, 9223371487098961920.0f);
}

double tesh_serv_int2d_ceil(int64_t n)
{
    return ceiling(n, 1.0000000000000002, 9223372036854774784.0);
}
}
