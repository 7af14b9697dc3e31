// SPDX-License-Identifier: BSD-3-Clause
// y := alpha*op(A)*x + beta*y: what the paths share around their kernels: the reading of the arguments, the quick
// returns, and y := beta*y for the paths without masked stores. Included by path files, behind the path's traits.
#pragma once
#include "vector/body/element.h"

namespace
{
// One call, read once. The vectors stand at their first logical elements, so that element i lies at i*inc.
struct sgemv_call {
    bool transposed;    // op(A) = A^T
    int64_t m, n;       // rows and columns of A [elements], positive
    float alpha, beta;  // any value, NaN included
    const float *a;     // column-major; not read for alpha = 0
    int64_t lda;        // [elements]
    const float *x;     // n elements, or m if transposed; not read for alpha = 0
    int64_t incx, incy; // [elements], any sign, or 0: one element stands for all
    float *y;           // y_count elements
    int64_t y_count;    // m, or n if transposed
};

// False if the call has no effect. Only N in either case means A itself.
inline bool sgemv_read(sgemv_call &call, const char *trans, const int64_t *m, const int64_t *n, const float *alpha,
                       const float *a, const int64_t *lda, const float *x, const int64_t *incx, const float *beta,
                       float *y, const int64_t *incy)
{
    call.m = *m;
    call.n = *n;
    call.alpha = *alpha;
    call.beta = *beta;
    if (call.m <= 0 || call.n <= 0 || (call.alpha == 0.0f && call.beta == 1.0f))
        return false;
    call.transposed = *trans != 'N' && *trans != 'n';
    call.y_count = call.transposed ? call.n : call.m;
    call.a = a;
    call.lda = *lda;
    call.incx = *incx;
    call.incy = *incy;
    call.x = x + first_index(call.transposed ? call.m : call.n, call.incx);
    call.y = y + first_index(call.y_count, call.incy);
    return true;
}

// y := 0; y is not read. A short contiguous y is not worth the call of memset.
inline void sgemv_clear_y(const sgemv_call &call)
{
    constexpr int64_t longest_loop = 24; // [elements]
    if (call.incy == 1 && call.y_count > longest_loop) {
        __builtin_memset(call.y, 0, static_cast<uint64_t>(call.y_count) * sizeof(float));
        return;
    }
    for (int64_t i = 0; i < call.y_count; ++i)
        store_one(call.y + i * call.incy, 0.0f);
}

// y := beta*y. Where all elements are one (incy = 0), it is multiplied once for each of them.
template <class v> inline void sgemv_scale_y(const sgemv_call &call)
{
    if (call.beta == 1.0f)
        return;
    if (call.beta == 0.0f) {
        sgemv_clear_y(call);
        return;
    }
    int64_t i = 0;
    if (call.incy == 1) {
        const typename v::reg beta = v::set1(call.beta);
        for (; i + v::width <= call.y_count; i += v::width)
            v::store(call.y + i, v::mul(v::load(call.y + i), beta));
    }
    for (; i < call.y_count; ++i)
        store_one(call.y + i * call.incy, load_one(call.y + i * call.incy) * call.beta);
}
} // namespace
