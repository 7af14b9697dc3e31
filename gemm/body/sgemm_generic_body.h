// SPDX-License-Identifier: BSD-3-Clause
// C := alpha*op(A)*op(B) + beta*C, the generic portable form: any x86-64 processor, 4 lanes. The depth goes in slabs of
// 112, the short one first with beta, the others with 1; within a block of columns B is packed once a slab, A in chunks
// of 640 rows (280 KiB, for the second-level cache). A path brings its routines as a policy of function addresses.
#pragma once
#include "frame/path/path_util.h"
#include "frame/tesh_serv.h"
#include "gemm/body/sgemm_operand.h"
#include "gemm/sgemm_paths.h"

namespace
{
constexpr int64_t generic_least = 8;          // of m, n and k; below, the bufferless product
constexpr int64_t generic_slab = 112;         // depth [elements]
constexpr int64_t generic_rows = 640;         // of A in one chunk
constexpr int64_t generic_columns = 2000;     // of B in one block
constexpr size_t generic_room = 311552;       // [bytes] A panel, spread columns, alignment
constexpr uintptr_t generic_b_place = 303360; // [bytes] from base, before alignment
constexpr uintptr_t generic_work_place = 295424;

struct generic_scratch {
    void *base;
    float *a, *b, *work;
};

inline generic_scratch generic_regions(void *base)
{
    const uintptr_t at = reinterpret_cast<uintptr_t>(base);
    return {base, reinterpret_cast<float *>((at & ~uintptr_t{4095}) + 4096),
            reinterpret_cast<float *>(((at + generic_b_place) & ~uintptr_t{4095}) + 4096),
            reinterpret_cast<float *>(((at + generic_work_place) & ~uintptr_t{127}) + 256)};
}

// One slab of the depth, [l0, l0 + kb), on columns [j0, j0 + jb): whole tiles by the inner routine, the last m mod 8
// rows by the bufferless product.
template <class path>
inline void generic_pass(const sgemm_operand &x, const generic_scratch &s, int64_t j0, int64_t jb, int64_t l0,
                         int64_t kb, float beta, tesh_blas_sgemm_inner_fn *inner)
{
    const int64_t m8 = x.m & ~int64_t{7}, depth = round_up(kb, 4);
    float *c = x.c + j0 * x.ldc;
    (x.b_transposed() ? path::copybt : path::copybn)(&kb, &jb, x.b_at(l0, j0), &x.ldb, s.b);
    for (int64_t i0 = 0; i0 < m8; i0 += generic_rows) {
        const int64_t ib = min_of(generic_rows, m8 - i0);
        (x.a_transposed() ? path::copyat : path::copyan)(&kb, &ib, x.a_at(i0, l0), &x.lda, &x.alpha, s.a);
        inner(&ib, &jb, &depth, s.a, s.b, s.work, &beta, c + i0, &x.ldc);
    }
    if (const int64_t rest = x.m - m8; rest > 0)
        path::pst(x.transa, x.transb, &rest, &jb, &kb, &x.alpha, x.a_at(m8, l0), &x.lda, x.b_at(l0, j0), &x.ldb, &beta,
                  c + m8, &x.ldc);
}

template <class path> inline void generic_blocked(const sgemm_operand &x, const generic_scratch &s)
{
    const int64_t n4 = x.n & ~int64_t{3};
    const int64_t last = x.k % generic_slab == 0 ? generic_slab : x.k % generic_slab;
    const int64_t full = x.k - last;
    for (int64_t j0 = 0; j0 < n4; j0 += generic_columns) {
        const int64_t jb = min_of(generic_columns, n4 - j0);
        generic_pass<path>(x, s, j0, jb, full, last, x.beta,
                           x.beta == 1.0f   ? path::inner_roll
                           : x.beta == 0.0f ? path::inner_z_roll
                                            : path::inner_b_roll);
        for (int64_t l0 = 0; l0 < full; l0 += generic_slab)
            generic_pass<path>(x, s, j0, jb, l0, generic_slab, 1.0f, path::inner);
    }
    const int64_t one = 1;
    for (int64_t j = n4; j < x.n; ++j)
        path::gemv(x.a_transposed() ? "T" : "N", x.a_transposed() ? &x.k : &x.m, x.a_transposed() ? &x.m : &x.k,
                   &x.alpha, x.a, &x.lda, x.b_at(0, j), x.b_transposed() ? &x.ldb : &one, &x.beta, x.c + j * x.ldc,
                   &one, 1);
}

template <class path> inline void generic_product(const sgemm_operand &x)
{
    if (x.alpha == 0.0f) {
        if (x.beta == 0.0f)
            path::zerom(&x.m, &x.n, x.c, &x.ldc);
        else if (x.beta != 1.0f)
            path::scalm(&x.m, &x.n, &x.beta, x.c, &x.ldc);
        return;
    }
    if (x.m >= generic_least && x.n >= generic_least && x.k >= generic_least) {
        const size_t columns = static_cast<size_t>(min_of(x.n, generic_columns));
        void *base = tesh_serv_allocate(columns * generic_slab * sizeof(float) + generic_room, 128);
        if (tesh_serv_check_ptr_and_warn(base, "SGEMM") == 0) {
            generic_blocked<path>(x, generic_regions(base));
            tesh_serv_deallocate(base);
            return;
        }
    }
    path::pst(x.transa, x.transb, &x.m, &x.n, &x.k, &x.alpha, x.a, &x.lda, x.b, &x.ldb, &x.beta, x.c, &x.ldc);
}

// On other makers' processors the model decides: they have forms of their own.
template <class path> inline void portable_product(const sgemm_operand &x)
{
    if (x.m < 1 || x.n < 1)
        return;
    if (tesh_serv_cpu_detect() == 0) {
        tesh_blas_sgemm_fn *form = tesh_serv_cpuisitbarcelona()                         ? path::barcelona
                                   : tesh_serv_cpuisbulldozer() || tesh_serv_cpuiszen() ? path::bulldozer
                                                                                        : nullptr;
        if (form != nullptr)
            return form(x.transa, x.transb, &x.m, &x.n, &x.k, &x.alpha, x.a, &x.lda, x.b, &x.ldb, &x.beta, x.c, &x.ldc);
    }
    generic_product<path>(x);
}
} // namespace
