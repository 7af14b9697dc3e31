// SPDX-License-Identifier: BSD-3-Clause
// The routines under the portable forms, each alone: packing, inner products, register kernels, scaling, block sizes
// and the layout of scratch, of def and cnr_def.
#include "gemm/sgemm_paths.h"
#include "tests/gemm/played_services.h"
#include "tests/support/random.h"
#include "tests/support/test_paths.h"
#include "tests/support/vcpu/fma4.h"

#include <cmath>
#include <cstring>

namespace
{
using tesh_test::guard;
using tesh_test::guarded_array;

struct parts {
    const char *name;
    tesh_blas_sgemm_copya_fn *copyan, *copyat, *copyan_brc, *copyat_brc;
    tesh_blas_sgemm_copyb_fn *copybn, *copybt, *copybn_brc, *copybt_brc;
    tesh_blas_sgemm_scopy_bdz_fn *right4, *right16, *down4, *down16;
    tesh_blas_sgemm_inner_fn *inner, *roll, *z_roll, *b_roll;
    tesh_blas_sgemm_kernel_16x4_fn *zen, *bdz;
    tesh_blas_sgemm_zerom_fn *zerom;
    tesh_blas_sgemm_scalm_fn *scalm, *mscale;
    tesh_blas_sgemm_blk_info_fn *blk_bdz, *blk_brc;
    tesh_blas_sgemm_getbufs_bdz_fn *get_bdz;
    tesh_blas_sgemm_getbufs_brc_fn *get_brc;
    tesh_blas_sgemm_freebufs_fn *free_bdz, *free_brc;
};

constexpr parts all_parts[] = {
    {"def",
     tesh_blas_def_sgemm_copyan,
     tesh_blas_def_sgemm_copyat,
     tesh_blas_def_sgemm_copyan_1_brc,
     tesh_blas_def_sgemm_copyat_1_brc,
     tesh_blas_def_sgemm_copybn,
     tesh_blas_def_sgemm_copybt,
     tesh_blas_def_sgemm_copybn_brc,
     tesh_blas_def_sgemm_copybt_brc,
     tesh_blas_def_sgemm_scopy_right4_bdz,
     tesh_blas_def_sgemm_scopy_right16_bdz,
     tesh_blas_def_sgemm_scopy_down4_bdz,
     tesh_blas_def_sgemm_scopy_down16_bdz,
     tesh_blas_def_sgemm_inner,
     tesh_blas_def_sgemm_inner_roll,
     tesh_blas_def_sgemm_inner_z_roll,
     tesh_blas_def_sgemm_inner_b_roll,
     tesh_blas_def_sgemm_kernel_0_zen,
     tesh_blas_def_sgemm_kernel_0_bdz,
     tesh_blas_def_sgemm_zerom,
     tesh_blas_def_sgemm_scalm,
     tesh_blas_def_sgemm_mscale,
     tesh_blas_def_sgemm_blk_info_bdz,
     tesh_blas_def_sgemm_blk_info_1_brc,
     tesh_blas_def_sgemm_getbufs_bdz,
     tesh_blas_def_sgemm_getbufs_brc,
     tesh_blas_def_sgemm_freebufs_bdz,
     tesh_blas_def_sgemm_freebufs_brc},
    {"cnr_def",
     tesh_blas_cnr_def_sgemm_copyan,
     tesh_blas_cnr_def_sgemm_copyat,
     tesh_blas_cnr_def_sgemm_copyan_1_brc,
     tesh_blas_cnr_def_sgemm_copyat_1_brc,
     tesh_blas_cnr_def_sgemm_copybn,
     tesh_blas_cnr_def_sgemm_copybt,
     tesh_blas_cnr_def_sgemm_copybn_brc,
     tesh_blas_cnr_def_sgemm_copybt_brc,
     tesh_blas_cnr_def_sgemm_scopy_right4_bdz,
     tesh_blas_cnr_def_sgemm_scopy_right16_bdz,
     tesh_blas_cnr_def_sgemm_scopy_down4_bdz,
     tesh_blas_cnr_def_sgemm_scopy_down16_bdz,
     tesh_blas_cnr_def_sgemm_inner,
     tesh_blas_cnr_def_sgemm_inner_roll,
     tesh_blas_cnr_def_sgemm_inner_z_roll,
     tesh_blas_cnr_def_sgemm_inner_b_roll,
     tesh_blas_cnr_def_sgemm_kernel_0_zen,
     tesh_blas_cnr_def_sgemm_kernel_0_bdz,
     tesh_blas_cnr_def_sgemm_zerom,
     tesh_blas_cnr_def_sgemm_scalm,
     tesh_blas_cnr_def_sgemm_mscale,
     tesh_blas_cnr_def_sgemm_blk_info_bdz,
     tesh_blas_cnr_def_sgemm_blk_info_1_brc,
     tesh_blas_cnr_def_sgemm_getbufs_bdz,
     tesh_blas_cnr_def_sgemm_getbufs_brc,
     tesh_blas_cnr_def_sgemm_freebufs_bdz,
     tesh_blas_cnr_def_sgemm_freebufs_brc},
};

// The elements X(c, l), c < count, l < depth: at c + l*ld (down) or l + c*ld.
struct source : guarded_array<float> {
    source(bool down, std::int64_t count, std::int64_t depth, std::int64_t ld, guard side, std::size_t shift)
        : guarded_array<float>(count > 0 && depth > 0 ? static_cast<std::size_t>(down ? (depth - 1) * ld + count
                                                                                      : (count - 1) * ld + depth)
                                                      : 0,
                               side, shift)
    {
        tesh_test::random(static_cast<std::uint64_t>(count * 1000 + depth)).fill(*this);
    }
};

class portable_parts : public testing::TestWithParam<parts>
{
protected:
    const parts &p = GetParam();
    void SetUp() override { played::reset(); }
};

// Panels of a fixed width w, depth filled up to 4 with zeros; filled: the last panel repeats its last row.
void expect_fixed_panels(const guarded_array<float> &source, bool down, std::int64_t count, std::int64_t depth,
                         std::int64_t ld, float scale, std::int64_t w, const guarded_array<float> &panel)
{
    const std::int64_t padded = (depth + 3) / 4 * 4;
    for (std::int64_t t = 0; t < count; t += w) {
        for (std::int64_t l = 0; l < padded; ++l) {
            for (std::int64_t c = 0; c < w; ++c) {
                const std::int64_t from = std::min(t + c, count - 1);
                const float want =
                    l < depth ? scale * source[static_cast<std::size_t>(down ? from + l * ld : l + from * ld)] : 0.0f;
                ASSERT_EQ(panel[static_cast<std::size_t>(t * padded + l * w + c)], want)
                    << "panel " << t / w << " step " << l << " column " << c;
            }
        }
    }
}

TEST_P(portable_parts, generic_panels_hold_scaled_rows_and_zero_depth_tails)
{
    for (const std::int64_t depth : {1, 2, 3, 4, 5, 8, 13, 112}) {
        for (const std::int64_t count : {8, 16, 32, 40, 72}) {
            for (std::size_t shift = 0; shift < 16; shift += 4) {
                for (const guard side : {guard::at_end, guard::at_start}) {
                    for (const bool down : {false, true}) {
                        const std::int64_t ld = (down ? count : depth) + 3;
                        const source x(down, count, depth, ld, side, shift);
                        guarded_array<float> panel(static_cast<std::size_t>(count * ((depth + 3) / 4 * 4)));
                        const float alpha = 0.7f;
                        (down ? p.copyan : p.copyat)(&depth, &count, x.data(), &ld, &alpha, panel.data());
                        expect_fixed_panels(x, down, count, depth, ld, alpha, 8, panel);
                        (down ? p.copybt : p.copybn)(&depth, &count, x.data(), &ld, panel.data());
                        expect_fixed_panels(x, down, count, depth, ld, 1.0f, 4, panel);
                        if (HasFatalFailure())
                            return;
                    }
                }
            }
        }
    }
}

TEST_P(portable_parts, filled_panels_repeat_the_last_row)
{
    for (const std::int64_t depth : {1, 3, 4, 7, 13}) {
        for (std::int64_t count = 1; count <= 41; ++count) {
            for (std::size_t shift = 0; shift < 16; shift += 4) {
                for (const bool down : {false, true}) {
                    const std::int64_t ld = (down ? count : depth) + 1, room = (count + 7) / 8 * 8;
                    const source x(down, count, depth, ld, guard::at_end, shift);
                    guarded_array<float> panel(static_cast<std::size_t>(room * ((depth + 3) / 4 * 4)));
                    const float alpha = -1.5f;
                    (down ? p.copyan_brc : p.copyat_brc)(&depth, &count, x.data(), &ld, &alpha, panel.data());
                    expect_fixed_panels(x, down, count, depth, ld, alpha, 8, panel);
                    (down ? p.copybt_brc : p.copybn_brc)(&depth, &count, x.data(), &ld, panel.data());
                    expect_fixed_panels(x, down, count, depth, ld, 1.0f, 4, panel);
                    if (HasFatalFailure())
                        return;
                }
            }
        }
    }
}

// Panels of the widths w, then the binary ones below; nothing padded.
std::vector<float> binary_panels(const guarded_array<float> &x, bool down, std::int64_t count, std::int64_t depth,
                                 std::int64_t ld, float scale, std::int64_t w)
{
    std::vector<float> panel;
    for (std::int64_t at = 0; at < count;) {
        while (at + w > count)
            w /= 2;
        for (std::int64_t l = 0; l < depth; ++l)
            for (std::int64_t c = at; c < at + w; ++c)
                panel.push_back(scale * x[static_cast<std::size_t>(down ? c + l * ld : l + c * ld)]);
        at += w;
    }
    return panel;
}

TEST_P(portable_parts, narrow_panels_follow_the_wide_ones)
{
    const float nan = std::nanf("");
    for (std::int64_t count = 0; count <= 49; ++count) {
        for (const std::int64_t depth : {0, 1, 3, 4, 6, 19}) {
            for (const float scale : {1.0f, -1.0f, 0.7f, nan}) {
                for (const bool down : {false, true}) {
                    const std::int64_t ld = std::max<std::int64_t>(1, down ? count : depth) + count % 3;
                    const source x(down, count, depth, ld, count % 2 ? guard::at_end : guard::at_start, 4);
                    for (const std::int64_t w : {4, 16}) {
                        const std::vector<float> want = binary_panels(x, down, count, depth, ld, scale, w);
                        guarded_array<float> panel((want.size() + 3) / 4 * 4);
                        (w == 4 ? (down ? p.down4 : p.right4)
                                : (down ? p.down16 : p.right16))(&depth, &count, x.data(), &ld, &scale, panel.data());
                        for (std::size_t i = 0; i < want.size(); ++i)
                            ASSERT_TRUE(std::isnan(want[i]) ? std::isnan(panel[i]) : panel[i] == want[i])
                                << (down ? "down" : "right") << w << " count " << count << " depth " << depth << " at "
                                << i;
                    }
                }
            }
        }
    }
}

TEST_P(portable_parts, a_scale_of_one_copies_bits)
{
    const std::uint32_t signalling = 0x7f800001u;
    guarded_array<float> x(35 * 5);
    for (float &value : x)
        std::memcpy(&value, &signalling, 4);
    const std::int64_t depth = 5, count = 35, ld_down = 35, ld_right = 5;
    const float one = 1.0f;
    guarded_array<float> panel(35 * 5 + 1);
    for (auto &[routine, ld] :
         {std::pair{p.right4, &ld_right}, {p.right16, &ld_right}, {p.down4, &ld_down}, {p.down16, &ld_down}}) {
        routine(&depth, &count, x.data(), ld, &one, panel.data());
        EXPECT_EQ(std::memcmp(panel.data(), x.data(), 35 * 5 * 4), 0);
    }
}

// C of m x n with integers: exact, so that every accumulator and every place is held.
struct tile_test {
    std::int64_t m, n, k, ldc;
    guarded_array<float> a, b, c;
    std::vector<float> c0;
    tile_test(std::int64_t m_, std::int64_t n_, std::int64_t k_, guard side)
        : m(m_), n(n_), k(k_), ldc(m_ + 3), a(static_cast<std::size_t>((m_ * k_ + 3) / 4 * 4)),
          b(static_cast<std::size_t>((n_ * k_ + 3) / 4 * 4)),
          c(static_cast<std::size_t>((n_ - 1) * (m_ + 3) + m_), side, 4)
    {
        tesh_test::random r(static_cast<std::uint64_t>(m_ * 7919 + n_ * 31 + k_));
        r.fill_integers(a);
        r.fill_integers(b);
        r.fill_integers(c);
        c0.assign(c.begin(), c.end());
    }
};

TEST_P(portable_parts, inner_products_by_beta)
{
    for (const std::int64_t m : {8, 16, 24, 40}) {
        for (const std::int64_t n : {4, 8, 12}) {
            for (const std::int64_t k : {0, 4, 8, 12, 16, 20, 108, 112}) {
                for (const int form : {0, 1, 2, 3}) {
                    tile_test x(m, n, k, k % 8 == 0 ? guard::at_end : guard::at_start);
                    guarded_array<float> work(static_cast<std::size_t>(16 * k));
                    const float beta = form == 2 ? 0.0f : form == 3 ? -3.0f : 1.0f;
                    if (form == 2)
                        for (float &value : x.c)
                            value = std::nanf("");
                    (form == 0   ? p.inner
                     : form == 1 ? p.roll
                     : form == 2
                         ? p.z_roll
                         : p.b_roll)(&m, &n, &k, x.a.data(), x.b.data(), work.data(), &beta, x.c.data(), &x.ldc);
                    for (std::int64_t j = 0; j < n; ++j) {
                        for (std::int64_t i = 0; i < m; ++i) {
                            const std::size_t at = static_cast<std::size_t>(i + j * x.ldc);
                            float want = form == 2 ? 0.0f : beta * x.c0[at];
                            for (std::int64_t l = 0; l < k; ++l)
                                want += x.a[static_cast<std::size_t>(i / 8 * 8 * k + l * 8 + i % 8)] *
                                        x.b[static_cast<std::size_t>(j / 4 * 4 * k + l * 4 + j % 4)];
                            ASSERT_EQ(x.c[at], want) << m << ' ' << n << ' ' << k << " form " << form;
                        }
                    }
                }
            }
        }
    }
}

void expect_kernel_16x4(tesh_blas_sgemm_kernel_16x4_fn *kernel, std::int64_t m, std::int64_t n, std::int64_t k)
{
    tile_test x(m, n, k, (m + n + k) % 2 ? guard::at_end : guard::at_start);
    std::vector<double> product(static_cast<std::size_t>(m * n), 0.0);
    const auto panels = [](std::int64_t count, std::int64_t w, std::int64_t depth, std::int64_t i, std::int64_t l) {
        std::int64_t at = 0;
        while (true) {
            while (at + w > count)
                w /= 2;
            if (i < at + w)
                return static_cast<std::size_t>(at * depth + l * w + i - at);
            at += w;
        }
    };
    kernel(&m, &n, &k, x.a.data(), x.b.data(), x.c.data(), &x.ldc);
    for (std::int64_t j = 0; j < n; ++j) {
        for (std::int64_t i = 0; i < x.ldc && (j + 1 < n || i < m); ++i) {
            const std::size_t at = static_cast<std::size_t>(i + j * x.ldc);
            float want = x.c0[at];
            for (std::int64_t l = 0; l < k && i < m; ++l)
                want += x.a[panels(m, 16, k, i, l)] * x.b[panels(n, 4, k, j, l)];
            ASSERT_EQ(x.c[at], want) << m << ' ' << n << ' ' << k << " at " << i << ' ' << j;
        }
    }
}

TEST_P(portable_parts, the_16_x_4_kernel_at_every_size_up_to_the_tile)
{
    if (!tesh_test::machine_has_path("def_zen"))
        GTEST_SKIP() << "no fused multiply-add on this machine";
    for (std::int64_t m = 1; m <= 33; ++m) {
        for (std::int64_t n = 1; n <= 9; ++n) {
            for (std::int64_t k = 0; k <= 20; ++k) {
                expect_kernel_16x4(p.zen, m, n, k);
                if (HasFatalFailure())
                    return;
            }
        }
    }
    expect_kernel_16x4(p.zen, 67, 23, 192);
}

// Four-operand instructions by their emulation, where the processor lacks them.
TEST_P(portable_parts, the_four_operand_kernel_gives_the_same_products)
{
    if (!tesh_test::machine_has_path("def_zen"))
        GTEST_SKIP() << "no 256-bit registers on this machine";
    tesh_test::install_fma4_emulation();
    for (const std::int64_t m : {1, 2, 3, 4, 7, 8, 15, 16, 17, 31, 33}) {
        for (const std::int64_t n : {1, 2, 3, 4, 5, 7}) {
            for (const std::int64_t k : {0, 1, 2, 5}) {
                expect_kernel_16x4(p.bdz, m, n, k);
                if (HasFatalFailure())
                    return;
            }
        }
    }
    // One rounding, not two: random operands give the bits of the three-operand kernel.
    const std::int64_t m = 31, n = 7, k = 9, ld = 31;
    guarded_array<float> a(31 * 9), b(7 * 9), c(31 * 7), d(31 * 7);
    tesh_test::random r(3);
    r.fill(a);
    r.fill(b);
    p.zen(&m, &n, &k, a.data(), b.data(), c.data(), &ld);
    p.bdz(&m, &n, &k, a.data(), b.data(), d.data(), &ld);
    EXPECT_EQ(std::memcmp(c.data(), d.data(), c.size() * sizeof(float)), 0);
}

TEST_P(portable_parts, scaling_at_all_alignments_keeps_gaps)
{
    for (std::int64_t m = 0; m <= 40; ++m) {
        for (std::size_t shift = 0; shift < 16; shift += 4) {
            for (const float beta : {0.0f, 1.0f, -0.5f, std::nanf("")}) {
                for (tesh_blas_sgemm_scalm_fn *scale : {p.scalm, p.mscale}) {
                    const std::int64_t n = 3, ld = m + 2;
                    guarded_array<float> c(m > 0 ? static_cast<std::size_t>(2 * ld + m) : 0, guard::at_end, shift);
                    tesh_test::random(7).fill(c);
                    const std::vector<float> c0(c.begin(), c.end());
                    if (beta == 0.0f)
                        for (float &x : c)
                            x = std::nanf("");
                    scale(&m, &n, &beta, c.data(), &ld);
                    for (std::int64_t i = 0; i < static_cast<std::int64_t>(c.size()); ++i) {
                        const float got = c[static_cast<std::size_t>(i)];
                        if (i % ld >= m)
                            EXPECT_TRUE(beta == 0.0f ? std::isnan(got) : got == c0[static_cast<std::size_t>(i)]);
                        else if (std::isnan(beta))
                            EXPECT_TRUE(std::isnan(got));
                        else
                            EXPECT_EQ(got, beta == 0.0f ? 0.0f : beta * c0[static_cast<std::size_t>(i)]);
                    }
                }
            }
        }
    }
}

TEST_P(portable_parts, clearing_removes_nan_and_keeps_gaps)
{
    guarded_array<float> c(2 * 7 + 5);
    for (float &x : c)
        x = std::nanf("");
    const std::int64_t m = 5, n = 3, ld = 7, none = 0;
    p.zerom(&m, &n, c.data(), &ld);
    for (std::size_t i = 0; i < c.size(); ++i)
        EXPECT_TRUE(i % 7 < 5 ? c[i] == 0.0f : std::isnan(c[i]));
    p.zerom(&none, &n, nullptr, &ld);
    p.zerom(&m, &none, nullptr, &ld);
}

TEST_P(portable_parts, blocks_of_the_16_x_4_form)
{
    struct row {
        std::int64_t m, n, k, mb, nb, kb;
    };
    for (const row &r : {row{12, 4, 2, 16, 4, 128}, row{17, 3, 127, 32, 4, 128}, row{6400, 384, 191, 6400, 384, 191},
                         row{6401, 385, 192, 6400, 384, 192}, row{100, 100, 193, 112, 100, 96},
                         row{100, 100, 383, 112, 100, 191}, row{100, 100, 384, 112, 100, 192},
                         row{100, 100, 5000, 112, 100, 192}, row{INT64_MAX, INT64_MAX, INT64_MAX, 6400, 384, 192}}) {
        std::int64_t um, un, uk, mb, nb, kb;
        p.blk_bdz(&r.m, &r.n, &r.k, &um, &un, &uk, &mb, &nb, &kb);
        EXPECT_EQ((std::array{um, un, uk}), (std::array<std::int64_t, 3>{16, 4, 1}));
        EXPECT_EQ((std::array{mb, nb, kb}), (std::array{r.mb, r.nb, r.kb})) << r.m << ' ' << r.n << ' ' << r.k;
    }
}

TEST_P(portable_parts, blocks_of_the_256_x_256_form)
{
    struct row {
        std::int64_t m, n, k, mb, nb, kb;
    };
    for (const row &r : {row{5, 3, 3, 8, 4, 128}, row{256, 512, 129, 256, 512, 132}, row{257, 513, 255, 256, 512, 256},
                         row{9, 9, 256, 16, 9, 256}, row{9, 9, 260, 16, 9, 132}, row{9, 9, 511, 16, 9, 256},
                         row{9, 9, 512, 16, 9, 256}, row{9, 9, 9999, 16, 9, 256},
                         row{INT64_MAX, INT64_MAX, INT64_MAX, 256, 512, 256}}) {
        std::int64_t um, un, uk, mb, nb, kb;
        p.blk_brc(&r.m, &r.n, &r.k, &um, &un, &uk, &mb, &nb, &kb);
        EXPECT_EQ((std::array{um, un, uk}), (std::array<std::int64_t, 3>{8, 4, 4}));
        EXPECT_EQ((std::array{mb, nb, kb}), (std::array{r.mb, r.nb, r.kb})) << r.m << ' ' << r.n << ' ' << r.k;
    }
}

TEST_P(portable_parts, scratch_of_the_16_x_4_form_is_two_panels_on_pages)
{
    const std::int64_t mb = 112, nb = 100, kb = 128;
    void *base;
    float *a, *b;
    p.get_bdz(&mb, &nb, &kb, &base, &a, &b);
    ASSERT_EQ(played::requests.size(), 1u);
    EXPECT_EQ(played::requests[0].bytes, (112u * 4u + 100u * 8u) * 128u + 16896u);
    EXPECT_EQ(played::requests[0].alignment, 128);
    const std::uintptr_t at = reinterpret_cast<std::uintptr_t>(base), pa = reinterpret_cast<std::uintptr_t>(a),
                         pb = reinterpret_cast<std::uintptr_t>(b);
    EXPECT_EQ(pa % 4096, 0u);
    EXPECT_EQ(pb % 4096, 0u);
    EXPECT_GE(pa, at);
    EXPECT_LE(pa, at + 4096);
    EXPECT_GE(pb, pa + 112 * 128 * 4);
    EXPECT_LE(pb, pa + 112 * 128 * 4 + 4096);
    EXPECT_LE(pb + 100 * 128 * 4, at + played::requests[0].bytes);
    p.free_bdz(base);
    EXPECT_TRUE(played::blocks.empty());
    played::refuse = true;
    p.get_bdz(&mb, &nb, &kb, &base, &a, &b);
    EXPECT_EQ(base, nullptr);
}

TEST_P(portable_parts, scratch_of_the_256_x_256_form_holds_the_panels_asked_for)
{
    const std::int64_t mb = 16, nb = 9, kb = 132;
    const std::size_t a_bytes = 16 * 132 * 4, b_bytes = 9 * 132 * 4, work_bytes = 132 * 64;
    const std::size_t room[2][2] = {{4864, 13568}, {13056, 21760}};
    for (const std::int32_t with_a : {0, 1}) {
        for (const std::int32_t with_b : {0, 1}) {
            played::requests.clear();
            void *base;
            float *a, *work, *b;
            p.get_brc(with_a, with_b, &mb, &nb, &kb, &base, &a, &work, &b);
            const std::size_t bytes =
                (with_a ? a_bytes : 0) + (with_b ? b_bytes : 0) + work_bytes + room[with_a][with_b];
            ASSERT_EQ(played::requests.size(), 1u);
            EXPECT_EQ(played::requests[0].bytes, bytes);
            EXPECT_EQ(a != nullptr, with_a != 0);
            EXPECT_EQ(b != nullptr, with_b != 0);
            const std::uintptr_t at = reinterpret_cast<std::uintptr_t>(base), end = at + bytes;
            const std::uintptr_t pw = reinterpret_cast<std::uintptr_t>(work), pb = reinterpret_cast<std::uintptr_t>(b);
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(a) % 4096, 0u);
            EXPECT_EQ(pw % 128, 0u);
            EXPECT_GE(pw, (with_a ? reinterpret_cast<std::uintptr_t>(a) + a_bytes : at) + 128);
            EXPECT_LE(pw + work_bytes, end);
            if (with_b) {
                EXPECT_EQ(pb % 4096, 640u);
                EXPECT_GE(pb, pw + work_bytes);
                EXPECT_LE(pb + (9 + 3) * 132 * 4, end) << "room for a filled-up last panel";
            }
            p.free_brc(base);
            EXPECT_TRUE(played::blocks.empty());
        }
    }
}

// Wrapped around, these would be small requests.
TEST_P(portable_parts, scratch_whose_size_does_not_fit_64_bits_is_not_asked_for)
{
    const std::int64_t two_to_30 = INT64_C(1) << 30, two_to_32 = INT64_C(1) << 32, two_to_61 = INT64_C(1) << 61;
    const std::int64_t sizes[][2] = {{two_to_30, two_to_32}, {two_to_32, two_to_32}, {two_to_61, 128},
                                     {two_to_61, two_to_61}, {INT64_MAX, 1},         {INT64_MAX, INT64_MAX}};
    for (const auto &[width, depth] : sizes) {
        void *base = &played::requests;
        float *a, *work, *b;
        p.get_bdz(&width, &width, &depth, &base, &a, &b);
        EXPECT_EQ(base, nullptr) << width << ' ' << depth;
        for (const std::int32_t with_a : {0, 1}) {
            base = &played::requests;
            p.get_brc(with_a, 1 - with_a, &width, &width, &depth, &base, &a, &work, &b);
            EXPECT_EQ(base, nullptr) << width << ' ' << depth;
        }
    }
    EXPECT_TRUE(played::requests.empty());
}

INSTANTIATE_TEST_SUITE_P(paths, portable_parts, testing::ValuesIn(all_parts),
                         [](const auto &x) { return std::string(x.param.name); });
} // namespace
