// SPDX-License-Identifier: BSD-3-Clause
// C := alpha*op(A)*op(B) + beta*C without scratch: for small shapes, for rest rows, and for when no scratch can be had.
// Columns of C go in pairs, then one. The depth runs in groups of four, whose products are summed among themselves
// before they join the running sum, then one by one. An element sees the same operations in the same order in a vector
// lane, in a masked lane and in a scalar tail, so that it depends on neither its place in C nor on m and n.
//
// A path brings a policy:
//   vec        its register traits
//   masked     tails of rows by masked vectors; otherwise by scalars
//   fused      whether vec::mul_add rounds once
//   peels      a scalar head up to a 16-byte boundary before the vector loops: on C where A is not transposed, on A
//              where it is (there the head shifts which products share a lane)
//   sum_lanes  the lanes of a register, added in a fixed order
#pragma once
#include "gemm/sgemm.h"

namespace
{
struct pst_problem {
    int64_t m, n, k;
    float alpha, beta;
    const float *a;
    int64_t lda;
    const float *b;
    int64_t b_depth, b_column; // strides of op(B) [elements]
    float *c;
    int64_t ldc;
};

// Operands may lie at any byte.
inline float value_at(const float *p)
{
    float x;
    __builtin_memcpy(&x, p, sizeof x);
    return x;
}

// Floats in front of the next 16-byte boundary; none where no float ever lies on one.
inline int64_t head_length(const float *p, int64_t limit)
{
    const uintptr_t address = reinterpret_cast<uintptr_t>(p);
    if (address % sizeof(float) != 0)
        return 0;
    const int64_t head = static_cast<int64_t>((16 - address % 16) % 16 / sizeof(float));
    return head < limit ? head : limit;
}

// Register traits of one float, for tails.
template <bool fused> struct vec_one {
    using reg = float;
    static constexpr int width = 1;
    static inline reg zero() { return 0.0f; }
    static inline reg load(const float *p) { return value_at(p); }
    static inline void store(float *p, reg x) { __builtin_memcpy(p, &x, sizeof x); }
    static inline reg set1(float x) { return x; }
    static inline reg add(reg x, reg y) { return x + y; }
    static inline reg mul(reg x, reg y) { return x * y; }
    static inline reg mul_add(reg x, reg y, reg z)
    {
        if constexpr (fused)
            return __builtin_fmaf(x, y, z);
        else
            return x * y + z;
    }
};

template <class v> struct whole_rows {
    inline typename v::reg load(const float *p) const { return v::load(p); }
    inline void store(float *p, typename v::reg x) const { v::store(p, x); }
    inline typename v::reg factor(float x) const { return v::set1(x); }
};

// Lanes outside the mask are zero in factors too: an infinite one raises no flag there.
template <class v> struct masked_rows {
    typename v::mask mask;
    inline typename v::reg load(const float *p) const { return v::load(p, mask); }
    inline void store(float *p, typename v::reg x) const { v::store(p, x, mask); }
    inline typename v::reg factor(float x) const { return v::keep(v::set1(x), mask); }
};

// ---- A not transposed: column updates, rows i .. i + vecs*width - 1 of columns j .. j + columns - 1 ----
template <class v, int vecs, int columns, class rows>
inline void pst_strip(const pst_problem &x, const rows &access, int64_t i, int64_t j)
{
    typename v::reg acc[columns][vecs];
#pragma GCC unroll 32
    for (int t = 0; t < columns * vecs; ++t)
        acc[t / vecs][t % vecs] = v::zero();
    const float *a = x.a + i;
    const float *b = x.b + j * x.b_column;
    int64_t p = 0;
#pragma GCC unroll 1
    for (; p + 4 <= x.k; p += 4, a += 4 * x.lda, b += 4 * x.b_depth) {
#pragma GCC unroll 2
        for (int q = 0; q < columns; ++q) {
            const float *bq = b + q * x.b_column;
            const typename v::reg b0 = access.factor(value_at(bq)), b1 = access.factor(value_at(bq + x.b_depth));
            const typename v::reg b2 = access.factor(value_at(bq + 2 * x.b_depth)),
                                  b3 = access.factor(value_at(bq + 3 * x.b_depth));
#pragma GCC unroll 4
            for (int w = 0; w < vecs; ++w) {
                const float *aw = a + w * v::width;
                const typename v::reg low = v::mul_add(access.load(aw + x.lda), b1, v::mul(access.load(aw), b0));
                const typename v::reg high =
                    v::mul_add(access.load(aw + 3 * x.lda), b3, v::mul(access.load(aw + 2 * x.lda), b2));
                acc[q][w] = v::add(acc[q][w], v::add(low, high));
            }
        }
    }
#pragma GCC unroll 1
    for (; p < x.k; ++p, a += x.lda, b += x.b_depth) {
#pragma GCC unroll 8
        for (int t = 0; t < columns * vecs; ++t) {
            const typename v::reg bq = access.factor(value_at(b + t / vecs * x.b_column));
            acc[t / vecs][t % vecs] = v::mul_add(access.load(a + t % vecs * v::width), bq, acc[t / vecs][t % vecs]);
        }
    }
    const typename v::reg alpha = access.factor(x.alpha), beta = access.factor(x.beta);
    const bool reads_c = x.beta != 0.0f;
#pragma GCC unroll 8
    for (int t = 0; t < columns * vecs; ++t) {
        float *c = x.c + (j + t / vecs) * x.ldc + i + t % vecs * v::width;
        const typename v::reg sum = acc[t / vecs][t % vecs];
        access.store(c, reads_c ? v::mul_add(alpha, sum, v::mul(beta, access.load(c))) : v::mul(alpha, sum));
    }
}

template <class path, int columns> inline void pst_columns(const pst_problem &x, int64_t j)
{
    using v = typename path::vec;
    using one = vec_one<path::fused>;
    int64_t i = 0;
    if constexpr (path::peels) {
        for (const int64_t head = head_length(x.c + j * x.ldc, x.m); i < head; ++i)
            pst_strip<one, 1, columns>(x, whole_rows<one>{}, i, j);
    }
    for (; i + 4 * v::width <= x.m; i += 4 * v::width)
        pst_strip<v, 4, columns>(x, whole_rows<v>{}, i, j);
    for (; i + v::width <= x.m; i += v::width)
        pst_strip<v, 1, columns>(x, whole_rows<v>{}, i, j);
    if constexpr (path::masked) {
        if (i < x.m)
            pst_strip<v, 1, columns>(x, masked_rows<v>{v::first(x.m - i)}, i, j);
    } else {
        for (; i < x.m; ++i)
            pst_strip<one, 1, columns>(x, whole_rows<one>{}, i, j);
    }
}

// ---- A transposed: dot products of row i with columns j .. j + columns - 1, in step ----
template <class path, bool b_contiguous, int columns> inline void pst_dots(const pst_problem &x, int64_t i, int64_t j)
{
    using v = typename path::vec;
    using one = vec_one<path::fused>;
    constexpr int vecs = 16 / v::width; // registers of a wide round
    const float *a = x.a + i * x.lda;
    const float *b = x.b + j * x.b_column;
    float sum[columns] = {};
    int64_t p = 0;
    if constexpr (path::peels) {
        for (const int64_t head = head_length(a, x.k); p < head; ++p, b += x.b_depth) {
            for (int q = 0; q < columns; ++q)
                sum[q] = one::mul_add(value_at(a + p), value_at(b + q * x.b_column), sum[q]);
        }
    }
    if constexpr (b_contiguous) {
        if (x.k - p >= 16) {
            typename v::reg acc[columns];
            for (int q = 0; q < columns; ++q)
                acc[q] = v::zero();
            for (; x.k - p >= 16; p += 16, b += 16) {
#pragma GCC unroll 2
                for (int q = 0; q < columns; ++q) {
                    const float *bq = b + q * x.b_column;
                    if constexpr (vecs == 1) {
                        acc[q] = v::mul_add(v::load(a + p), v::load(bq), acc[q]);
                    } else {
                        typename v::reg part[vecs / 2];
#pragma GCC unroll 2
                        for (int w = 0; w < vecs; w += 2) {
                            const float *aw = a + p + w * v::width, *bw = bq + w * v::width;
                            part[w / 2] = v::mul_add(v::load(aw + v::width), v::load(bw + v::width),
                                                     v::mul(v::load(aw), v::load(bw)));
                        }
                        acc[q] = v::add(acc[q], vecs == 4 ? v::add(part[0], part[vecs / 2 - 1]) : part[0]);
                    }
                }
            }
            for (int q = 0; q < columns; ++q)
                sum[q] += path::sum_lanes(acc[q]);
        }
    }
#pragma GCC unroll 1
    for (; x.k - p >= 4; p += 4, b += 4 * x.b_depth) {
        const float a0 = value_at(a + p), a1 = value_at(a + p + 1), a2 = value_at(a + p + 2), a3 = value_at(a + p + 3);
#pragma GCC unroll 2
        for (int q = 0; q < columns; ++q) {
            const float *bq = b + q * x.b_column;
            const float low = one::mul_add(a1, value_at(bq + x.b_depth), a0 * value_at(bq));
            const float high = one::mul_add(a3, value_at(bq + 3 * x.b_depth), a2 * value_at(bq + 2 * x.b_depth));
            sum[q] += low + high;
        }
    }
#pragma GCC unroll 1
    for (; p < x.k; ++p, b += x.b_depth) {
#pragma GCC unroll 2
        for (int q = 0; q < columns; ++q)
            sum[q] = one::mul_add(value_at(a + p), value_at(b + q * x.b_column), sum[q]);
    }
    for (int q = 0; q < columns; ++q) {
        float *c = x.c + (j + q) * x.ldc + i;
        one::store(c, x.beta == 0.0f ? x.alpha * sum[q] : one::mul_add(x.alpha, sum[q], x.beta * value_at(c)));
    }
}

template <class path, bool a_transposed, bool b_transposed, int columns>
inline void pst_branch(const pst_problem &x, int64_t j)
{
    if constexpr (a_transposed) {
        for (int64_t i = 0; i < x.m; ++i)
            pst_dots<path, !b_transposed, columns>(x, i, j);
    } else {
        pst_columns<path, columns>(x, j);
    }
}

template <class path, bool a_transposed, bool b_transposed> inline void pst_product(const pst_problem &x)
{
    const int64_t pairs = x.n & ~int64_t{1};
    for (int64_t j = 0; j < pairs; j += 2)
        pst_branch<path, a_transposed, b_transposed, 2>(x, j);
    if (pairs < x.n)
        pst_branch<path, a_transposed, b_transposed, 1>(x, pairs);
}

// No product is wanted: C := beta*C, A and B unread.
template <class path> inline void pst_scale(const pst_problem &x)
{
    if (x.beta == 1.0f)
        return;
    for (int64_t j = 0; j < x.n; ++j) {
        float *c = x.c + j * x.ldc;
        if (x.beta == 0.0f) {
            __builtin_memset(c, 0, static_cast<size_t>(x.m) * sizeof(float));
            continue;
        }
        using v = typename path::vec;
        using one = vec_one<path::fused>;
        int64_t i = 0;
        for (; i + v::width <= x.m; i += v::width)
            v::store(c + i, v::mul(v::set1(x.beta), v::load(c + i)));
        for (; i < x.m; ++i)
            one::store(c + i, x.beta * value_at(c + i));
    }
}

template <class path>
inline void sgemm_pst_body(const char *transa, const char *transb, const int64_t *m, const int64_t *n, const int64_t *k,
                           const float *alpha, const float *a, const int64_t *lda, const float *b, const int64_t *ldb,
                           const float *beta, float *c, const int64_t *ldc)
{
    if (*m < 1 || *n < 1)
        return;
    const bool a_transposed = *transa != 'N' && *transa != 'n', b_transposed = *transb != 'N' && *transb != 'n';
    const pst_problem x = {*m, *n,   *k, value_at(alpha),         value_at(beta),
                           a,  *lda, b,  b_transposed ? *ldb : 1, b_transposed ? 1 : *ldb,
                           c,  *ldc};
    if (x.k < 1 || x.alpha == 0.0f)
        pst_scale<path>(x);
    else if (a_transposed)
        b_transposed ? pst_product<path, true, true>(x) : pst_product<path, true, false>(x);
    else
        b_transposed ? pst_product<path, false, true>(x) : pst_product<path, false, false>(x);
}
} // namespace
