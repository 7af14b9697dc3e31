// SPDX-License-Identifier: BSD-3-Clause
// What the two copy benchmarks share: the cases, the plain blocked loop, the peer, the checked result, the CSV line.
#pragma once
#include <sys/mman.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench/peak/peak.h"
#include "bench/support/bench.h"
#include "bench/support/peers.h"
#include "trans/trans_paths.h"

namespace tesh_bench
{
struct matcopy_case {
    const char *kind; // square, padded, rectangle, ...
    char ordering, trans;
    std::int64_t rows, cols;
    float alpha;
    std::int64_t pad_a, pad_b; // [elements] beyond the least leading dimensions

    bool transposes() const { return trans == 'T'; }
    std::int64_t outer() const { return ordering == 'C' ? cols : rows; }
    std::int64_t inner() const { return ordering == 'C' ? rows : cols; }
    std::int64_t lda() const { return inner() + pad_a; }
    std::int64_t ldb() const { return (transposes() ? outer() : inner()) + pad_b; }
    std::size_t source_size() const { return static_cast<std::size_t>(outer() * lda()); }
    std::size_t target_size() const { return static_cast<std::size_t>((transposes() ? inner() : outer()) * ldb()); }
    // [bytes] of the elements alone, read and written
    double moved() const { return 8.0 * static_cast<double>(rows) * static_cast<double>(cols); }
};

using somatcopy_peer = void(const char *, const char *, const std::int64_t *, const std::int64_t *, const float *,
                            const float *, const std::int64_t *, float *, const std::int64_t *);
using simatcopy_peer = void(const char *, const char *, const std::int64_t *, const std::int64_t *, const float *,
                            float *, const std::int64_t *, const std::int64_t *);

// Pages of their own, so that the offset from the page decides the alignment; huge pages where the system grants them.
class pages
{
public:
    explicit pages(std::size_t floats, std::size_t offset = 0) : bytes_((floats + offset) * 4 + 4096)
    {
        map_ = mmap(nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (map_ == MAP_FAILED) {
            std::perror("mmap");
            std::exit(1);
        }
        data_ = static_cast<float *>(map_) + offset;
        for (std::size_t k = 0; k < floats; ++k)
            data_[k] = static_cast<float>(k % 8388593);
    }
    ~pages() { munmap(map_, bytes_); }
    pages(const pages &) = delete;
    pages &operator=(const pages &) = delete;
    float *data() const { return data_; }

private:
    std::size_t bytes_;
    void *map_;
    float *data_;
};

// The loop that a user would write: blocks of 32 x 32, compiled with the compiler's defaults.
inline void plain_blocked_copy(const matcopy_case &c, const float *a, float *b)
{
    constexpr std::int64_t side = 32;
    const std::int64_t lda = c.lda(), ldb = c.ldb(), outer = c.outer(), inner = c.inner();
    const std::int64_t step_line = c.transposes() ? 1 : ldb, step = c.transposes() ? ldb : 1;
    for (std::int64_t i0 = 0; i0 < outer; i0 += side)
        for (std::int64_t j0 = 0; j0 < inner; j0 += side)
            for (std::int64_t i = i0; i < i0 + side && i < outer; ++i)
                for (std::int64_t j = j0; j < j0 + side && j < inner; ++j)
                    b[i * step_line + j * step] = c.alpha * a[i * lda + j];
}

inline void plain_blocked_square(const matcopy_case &c, float *a)
{
    constexpr std::int64_t side = 32;
    const std::int64_t n = c.rows, lda = c.lda();
    for (std::int64_t i0 = 0; i0 < n; i0 += side)
        for (std::int64_t j0 = 0; j0 <= i0; j0 += side)
            for (std::int64_t i = i0; i < i0 + side && i < n; ++i)
                for (std::int64_t j = j0; j < j0 + side && j <= i; ++j) {
                    const float x = c.alpha * a[i * lda + j], y = c.alpha * a[j * lda + i];
                    a[i * lda + j] = y;
                    a[j * lda + i] = x;
                }
}

// Ends the program if b is not alpha*op(a).
inline void expect_copied(const matcopy_case &c, const float *a, const float *b, const char *who)
{
    for (std::int64_t i = 0; i < c.outer(); ++i)
        for (std::int64_t j = 0; j < c.inner(); ++j) {
            const float got = c.transposes() ? b[j * c.ldb() + i] : b[i * c.ldb() + j];
            if (got != c.alpha * a[i * c.lda() + j]) {
                std::printf("%s: wrong at line %lld column %lld\n", who, static_cast<long long>(i),
                            static_cast<long long>(j));
                std::exit(1);
            }
        }
}

// OpenBLAS's routine; null without it.
template <class Routine> Routine *openblas_routine(const std::vector<peer> &peers, const char *name)
{
    for (const peer &p : peers)
        if (p.name == "openblas")
            return p.fortran<Routine>(name);
    return nullptr;
}

inline const char *matcopy_header()
{
    return "kind,path,ordering,trans,rows,cols,alpha,lda,ldb,offset,GB/s,share_of_limit,limit_GB/s,blocked_GB/s,"
           "openblas_GB/s,times_openblas";
}

// The columns of the header up to ldb.
inline csv &begin_line(csv &out, const matcopy_case &c, const std::string &isa)
{
    return out.text(c.kind)
        .text(isa)
        .text(std::string(1, c.ordering))
        .text(std::string(1, c.trans))
        .count(c.rows)
        .count(c.cols)
        .number(static_cast<double>(c.alpha))
        .count(c.lda())
        .count(c.ldb());
}
} // namespace tesh_bench
