// SPDX-License-Identifier: BSD-3-Clause
// The routines of each path in a table, and what a copy must give, by plain loops.
#pragma once
#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "tests/support/test_paths.h"
#include "trans/trans_paths.h"

namespace trans_test
{
struct members {
    const char *path;
    tesh_trans_simatcopy_fn *simatcopy;
    tesh_trans_somatcopy_fn *somatcopy;
    tesh_trans_somatcopy2_fn *somatcopy2_seq;
    tesh_trans_somatcopy2_body_fn *somatcopy2_n, *somatcopy2_t;
    tesh_trans_unrollcopy_fn *unrollcopy;
    tesh_trans_square_n_fn *square_n;
    tesh_trans_mipt_fn *mipt_n, *mipt_t;
    tesh_trans_square_t_fn *square_t;
    tesh_trans_simatcopy_team_fn *team;
    tesh_trans_square_t_64x64n_fn *square_t_64x64n;
    tesh_trans_ssqtrans_fn *ssqtrans;
    tesh_trans_ssqtrans_fit_64_fn *ssqtrans_fit_64;
    tesh_trans_ssqtrans_team_fn *ssqtrans_team;
    tesh_trans_strans_block_fn *strans_block;
    tesh_trans_sswap_blocks_fn *sswap_blocks;
    uint64_t tile; // [elements] side of a tile kernel's tile
};

// Bits of every element that no copy writes.
constexpr uint32_t canary_bits = 0x7fa5c3e1; // a signalling NaN: arithmetic on it would show

// Storage with a guard page at both ends, from which arrays of any size are cut at either end.
class arena
{
public:
    explicit arena(size_t floats);
    ~arena();
    arena(const arena &) = delete;
    arena &operator=(const arena &) = delete;
    // count elements, all canaries; ends at the guard page less shift elements, or begins behind one plus shift.
    float *cut(size_t count, bool at_end, size_t shift = 0);
    // Canaries stand around the last cut, too, as far as the arena goes: whether all are as they were.
    bool is_whole_around_cut() const;

private:
    static constexpr size_t margin = 64;              // [elements]
    float *data_, *begin_ = nullptr, *end_ = nullptr; // of the arena, of the last cut
    size_t floats_;
    float *outer_begin() const { return size_t(begin_ - data_) < margin ? data_ : begin_ - margin; }
    float *outer_end() const { return size_t(data_ + floats_ - end_) < margin ? data_ + floats_ : end_ + margin; }
};

struct copy_case {
    char ordering, trans;
    uint64_t rows, cols;
    float alpha;
    uint64_t lda, ldb;

    bool transposes() const { return std::strchr("TtCc", trans) != nullptr; }
    uint64_t outer() const { return ordering == 'C' || ordering == 'c' ? cols : rows; }
    uint64_t inner() const { return ordering == 'C' || ordering == 'c' ? rows : cols; }
    uint64_t least_lda() const { return inner(); }
    uint64_t least_ldb() const { return transposes() ? outer() : inner(); }
    size_t source_size() const { return extent(outer(), inner(), lda); }
    size_t target_size() const { return transposes() ? extent(inner(), outer(), ldb) : extent(outer(), inner(), ldb); }
    std::string name() const;

private:
    static size_t extent(uint64_t lines, uint64_t length, uint64_t ld)
    {
        return lines == 0 || length == 0 ? 0 : (lines - 1) * ld + length;
    }
};

inline constexpr members table[] = {
    {"def", tesh_trans_def_tesh_simatcopy, tesh_trans_def_tesh_somatcopy, tesh_trans_def_tesh_somatcopy2_seq,
     tesh_trans_def_tesh_somatcopy2_n, tesh_trans_def_tesh_somatcopy2_t, tesh_trans_def_tesh_unrollcopy,
     tesh_trans_def_tesh_simatcopy_square_n, tesh_trans_def_tesh_simatcopy_mipt_n, tesh_trans_def_tesh_simatcopy_mipt_t,
     tesh_trans_def_tesh_simatcopy_square_t, tesh_trans_def_tesh_simatcopy_square_t_team,
     tesh_trans_def_tesh_simatcopy_square_t_64x64n, tesh_trans_def_ssqtrans, tesh_trans_def_ssqtrans_fit_64,
     tesh_trans_def_ssqtrans_team, tesh_trans_def_def_strans_block_8x8, tesh_trans_def_def_sswap_blocks_8x8, 8},
    {"mc3", tesh_trans_mc3_tesh_simatcopy, tesh_trans_mc3_tesh_somatcopy, tesh_trans_mc3_tesh_somatcopy2_seq,
     tesh_trans_mc3_tesh_somatcopy2_n, tesh_trans_mc3_tesh_somatcopy2_t, tesh_trans_mc3_tesh_unrollcopy,
     tesh_trans_mc3_tesh_simatcopy_square_n, tesh_trans_mc3_tesh_simatcopy_mipt_n, tesh_trans_mc3_tesh_simatcopy_mipt_t,
     tesh_trans_mc3_tesh_simatcopy_square_t, tesh_trans_mc3_tesh_simatcopy_square_t_team,
     tesh_trans_mc3_tesh_simatcopy_square_t_64x64n, tesh_trans_mc3_ssqtrans, tesh_trans_mc3_ssqtrans_fit_64,
     tesh_trans_mc3_ssqtrans_team, tesh_trans_mc3_def_strans_block_8x8, tesh_trans_mc3_def_sswap_blocks_8x8, 8},
    {"avx2", tesh_trans_avx2_tesh_simatcopy, tesh_trans_avx2_tesh_somatcopy, tesh_trans_avx2_tesh_somatcopy2_seq,
     tesh_trans_avx2_tesh_somatcopy2_n, tesh_trans_avx2_tesh_somatcopy2_t, tesh_trans_avx2_tesh_unrollcopy,
     tesh_trans_avx2_tesh_simatcopy_square_n, tesh_trans_avx2_tesh_simatcopy_mipt_n,
     tesh_trans_avx2_tesh_simatcopy_mipt_t, tesh_trans_avx2_tesh_simatcopy_square_t,
     tesh_trans_avx2_tesh_simatcopy_square_t_team, tesh_trans_avx2_tesh_simatcopy_square_t_64x64n,
     tesh_trans_avx2_ssqtrans, tesh_trans_avx2_ssqtrans_fit_64, tesh_trans_avx2_ssqtrans_team,
     tesh_trans_avx2_avx_strans_block_16x16, tesh_trans_avx2_avx_sswap_blocks_16x16, 16},
    {"avx512", tesh_trans_avx512_tesh_simatcopy, tesh_trans_avx512_tesh_somatcopy,
     tesh_trans_avx512_tesh_somatcopy2_seq, tesh_trans_avx512_tesh_somatcopy2_n, tesh_trans_avx512_tesh_somatcopy2_t,
     tesh_trans_avx512_tesh_unrollcopy, tesh_trans_avx512_tesh_simatcopy_square_n,
     tesh_trans_avx512_tesh_simatcopy_mipt_n, tesh_trans_avx512_tesh_simatcopy_mipt_t,
     tesh_trans_avx512_tesh_simatcopy_square_t, tesh_trans_avx512_tesh_simatcopy_square_t_team,
     tesh_trans_avx512_tesh_simatcopy_square_t_64x64n, tesh_trans_avx512_ssqtrans, tesh_trans_avx512_ssqtrans_fit_64,
     tesh_trans_avx512_ssqtrans_team, tesh_trans_avx512_avx_strans_block_16x16,
     tesh_trans_avx512_avx_sswap_blocks_16x16, 16},
};

inline const members &members_of(const std::string &path)
{
    for (const members &m : table)
        if (path == m.path)
            return m;
    std::printf("no path %s\n", path.c_str());
    std::abort();
}

// Of the paths that tests/support chooses.
inline std::vector<const members *> members_to_run()
{
    std::vector<const members *> run;
    for (const std::string &path : tesh_test::paths_to_run())
        run.push_back(
            &members_of(path == "cnr_def" ? "def" : path)); // a copy has no cnr_def member: def takes its place
    return run;
}

inline arena::arena(size_t floats) : floats_((floats + 1023) / 1024 * 1024)
{
    const size_t bytes = floats_ * sizeof(float), page = 4096;
    char *map = static_cast<char *>(
        mmap(nullptr, bytes + 2 * page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
    if (map == MAP_FAILED || mprotect(map + page, bytes, PROT_READ | PROT_WRITE) != 0) {
        std::perror("arena");
        std::abort();
    }
    data_ = reinterpret_cast<float *>(map + page);
}

inline arena::~arena()
{
    munmap(reinterpret_cast<char *>(data_) - 4096, floats_ * sizeof(float) + 8192);
}

inline float *arena::cut(size_t count, bool at_end, size_t shift)
{
    if (count + shift > floats_) {
        std::printf("arena of %zu floats: asked for %zu\n", floats_, count + shift);
        std::abort();
    }
    begin_ = at_end ? data_ + floats_ - shift - count : data_ + shift;
    end_ = begin_ + count;
    for (float *p = outer_begin(); p != outer_end(); ++p)
        std::memcpy(p, &canary_bits, sizeof canary_bits);
    return begin_;
}

inline bool arena::is_whole_around_cut() const
{
    const auto written = [](const float &x) { return std::memcmp(&x, &canary_bits, sizeof canary_bits) != 0; };
    return std::none_of(outer_begin(), begin_, written) && std::none_of(end_, outer_end(), written);
}

inline std::string copy_case::name() const
{
    char text[160];
    std::snprintf(text, sizeof text, "%c %c %llu x %llu alpha %g lda %llu ldb %llu", ordering, trans,
                  static_cast<unsigned long long>(rows), static_cast<unsigned long long>(cols),
                  static_cast<double>(alpha), static_cast<unsigned long long>(lda),
                  static_cast<unsigned long long>(ldb));
    return text;
}

// Gives every source element a value of its own.
inline void fill_source(const copy_case &c, float *a)
{
    uint32_t value = 0;
    for (uint64_t i = 0; i < c.outer(); ++i)
        for (uint64_t j = 0; j < c.inner(); ++j)
            a[i * c.lda + j] = 1.0f + static_cast<float>(value++ % 8388608u) * 0x1p-22f; // distinct up to 2^23
}

// target := alpha*op(source), element by element; alpha = 1 moves bits where moves_ones.
inline void reference_copy(const copy_case &c, const float *source, float *target, bool moves_ones)
{
    for (uint64_t i = 0; i < c.outer(); ++i)
        for (uint64_t j = 0; j < c.inner(); ++j) {
            float *to = target + (c.transposes() ? j * c.ldb + i : i * c.ldb + j);
            if (c.alpha == 1.0f && moves_ones)
                std::memcpy(to, source + i * c.lda + j, sizeof *to);
            else
                *to = c.alpha * source[i * c.lda + j];
        }
}

// The first element that differs in its bits, or count; two NaN agree where nan_payloads is false.
inline size_t first_difference(const float *x, const float *y, size_t count, bool nan_payloads = true)
{
    if (count == 0 || std::memcmp(x, y, count * sizeof *x) == 0)
        return count;
    for (size_t k = 0; k < count; ++k)
        if (std::memcmp(x + k, y + k, sizeof *x) != 0 && (nan_payloads || x[k] == x[k] || y[k] == y[k]))
            return k;
    return count;
}
} // namespace trans_test
