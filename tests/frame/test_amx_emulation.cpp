// SPDX-License-Identifier: BSD-3-Clause
// The emulation of matrix tiles that tests of tile kernels stand on: configuration, loads and stores,
// products, refusals.
#include <gtest/gtest.h>
#include <immintrin.h>

#include <cmath>
#include <cstdint>
#include <cstring>

#include "tests/support/guard_pages.h"
#include "tests/support/random.h"
#include "tests/support/vcpu/amx.h"

#define TILES __attribute__((target("amx-tile,amx-bf16,amx-int8"), noinline))

namespace
{
struct alignas(64) tile_config {
    uint8_t palette = 1, start_row = 0, zero[14] = {};
    uint16_t row_bytes[16] = {};
    uint8_t rows[16] = {};
};

// Tiles 0, 1, 2 for C[m x n] += A[m x 4 k bytes] * B[k x n groups of 4 bytes].
tile_config product_config(int m, int n, int k)
{
    tile_config c;
    c.rows[0] = c.rows[1] = static_cast<uint8_t>(m);
    c.rows[2] = static_cast<uint8_t>(k);
    c.row_bytes[0] = c.row_bytes[2] = static_cast<uint16_t>(4 * n);
    c.row_bytes[1] = static_cast<uint16_t>(4 * k);
    return c;
}

TILES void load_config(const tile_config &config)
{
    __asm__ volatile("" ::"r"(&config) : "memory");
    _tile_loadconfig(&config);
}

enum product { bf16, fp16, ss, su, us, uu };

// Loads the three operands, multiplies and stores, all rows 64 bytes apart.
TILES void multiply(product what, void *c, const void *a, const void *b)
{
    __asm__ volatile("" ::"r"(c), "r"(a), "r"(b) : "memory");
    _tile_loadd(0, c, 64);
    _tile_loadd(1, a, 64);
    _tile_stream_loadd(2, b, 64);
    switch (what) {
    case bf16:
        _tile_dpbf16ps(0, 1, 2);
        break;
    case fp16:
        __asm__ volatile(".byte 0xc4, 0xe2, 0x6b, 0x5c, 0xc1"); // tdpfp16ps tmm0, tmm1, tmm2
        break;
    case ss:
        _tile_dpbssd(0, 1, 2);
        break;
    case su:
        _tile_dpbsud(0, 1, 2);
        break;
    case us:
        _tile_dpbusd(0, 1, 2);
        break;
    case uu:
        _tile_dpbuud(0, 1, 2);
        break;
    }
    _tile_stored(0, c, 64);
    __asm__ volatile("" ::: "memory");
}

TILES void release()
{
    _tile_release();
}

float value_of_bf16(uint16_t bits)
{
    const uint32_t wide = static_cast<uint32_t>(bits) << 16;
    float value;
    std::memcpy(&value, &wide, 4);
    return value;
}

class amx_emulation : public testing::Test
{
protected:
    void SetUp() override { tesh_test::install_amx_emulation(); }
};

// Halves that hold small integers, in both formats: their products and sums are exact.
uint16_t bf16_of(int value)
{
    const float f = static_cast<float>(value);
    uint32_t bits;
    std::memcpy(&bits, &f, 4);
    return static_cast<uint16_t>(bits >> 16);
}
uint16_t fp16_of(int value)
{
    const int magnitude = std::abs(value);
    const uint16_t codes[5] = {0, 0x3c00, 0x4000, 0x4200, 0x4400};
    return static_cast<uint16_t>(codes[magnitude] | (value < 0 ? 0x8000 : 0));
}
} // namespace

TEST_F(amx_emulation, half_precision_products_of_every_shape)
{
    tesh_test::random random;
    for (const product what : {bf16, fp16}) {
        for (int m = 1; m <= 16; m += 5) {
            for (int n = 1; n <= 16; n += 3) {
                for (int k = 1; k <= 16; k += 5) {
                    alignas(64) float c[16][16];
                    alignas(64) uint16_t a[16][32], b[16][32];
                    int exact[16][16], av[16][32], bv[16][32];
                    for (int i = 0; i < 16; ++i) {
                        for (int j = 0; j < 32; ++j) {
                            av[i][j] = static_cast<int>(random.small_integer());
                            bv[i][j] = static_cast<int>(random.small_integer());
                            a[i][j] = what == bf16 ? bf16_of(av[i][j]) : fp16_of(av[i][j]);
                            b[i][j] = what == bf16 ? bf16_of(bv[i][j]) : fp16_of(bv[i][j]);
                        }
                        for (int j = 0; j < 16; ++j) {
                            exact[i][j] = static_cast<int>(random.small_integer());
                            c[i][j] = static_cast<float>(exact[i][j]);
                        }
                    }
                    for (int i = 0; i < m; ++i) {
                        for (int j = 0; j < n; ++j) {
                            for (int p = 0; p < 2 * k; ++p)
                                exact[i][j] += av[i][p] * bv[p / 2][2 * j + p % 2];
                        }
                    }
                    load_config(product_config(m, n, k));
                    multiply(what, c, a, b);
                    release();
                    for (int i = 0; i < 16; ++i) {
                        for (int j = 0; j < 16; ++j)
                            ASSERT_EQ(c[i][j], static_cast<float>(exact[i][j])) << what << m << n << k << i << j;
                    }
                }
            }
        }
    }
}

TEST_F(amx_emulation, byte_products_with_and_without_signs)
{
    tesh_test::random random;
    for (const product what : {ss, su, us, uu}) {
        alignas(64) int32_t c[16][16] = {};
        alignas(64) uint8_t a[16][64], b[16][64];
        for (auto *array : {&a, &b}) {
            for (auto &row : *array) {
                for (uint8_t &byte : row)
                    byte = static_cast<uint8_t>(random.next());
            }
        }
        load_config(product_config(16, 16, 16));
        multiply(what, c, a, b);
        release();
        for (int i = 0; i < 16; ++i) {
            for (int j = 0; j < 16; ++j) {
                int32_t exact = 0;
                for (int p = 0; p < 64; ++p) {
                    const uint8_t x = a[i][p], y = b[p / 4][4 * j + p % 4];
                    exact += (what == ss || what == su ? static_cast<int8_t>(x) : x) *
                             (what == ss || what == us ? static_cast<int8_t>(y) : y);
                }
                ASSERT_EQ(c[i][j], exact) << what << i << j;
            }
        }
    }
}

TEST_F(amx_emulation, even_and_odd_sums_are_kept_apart_and_subnormals_are_zeros)
{
    alignas(64) float c[16][16] = {{1.0f}};
    alignas(64) uint16_t a[16][32] = {{0x4380, 0x3f80, 0x0001}};   // 256, 1, the least subnormal
    alignas(64) uint16_t b[16][32] = {{0x4b80, 0xcb80}, {0x7f00}}; // 2^24, -2^24; 2^127
    ASSERT_EQ(value_of_bf16(a[0][0]), 256.0f);
    ASSERT_EQ(value_of_bf16(b[0][0]), 16777216.0f);
    load_config(product_config(1, 1, 2));
    multiply(bf16, c, a, b);
    release();
    EXPECT_EQ(c[0][0], 255.0f * 16777216.0f + 1.0f);
}

TEST_F(amx_emulation, loads_and_stores_touch_the_tiles_bytes_only)
{
    tesh_test::guarded_array<uint8_t> at_end(2 * 100 + 20); // 3 rows of 20 bytes, 100 apart
    tile_config config;
    config.rows[3] = 3;
    config.row_bytes[3] = 20;
    for (std::size_t i = 0; i < at_end.size(); ++i)
        at_end[i] = static_cast<uint8_t>(i);
    [](const tile_config &c, uint8_t *memory) TILES {
        load_config(c);
        _tile_loadd(3, memory, 100);
        std::memset(memory, 0xee, 220);
        __asm__ volatile("" ::: "memory");
        _tile_stored(3, memory, 100);
        _tile_release();
    }(config, at_end.data());
    for (std::size_t i = 0; i < at_end.size(); ++i)
        EXPECT_EQ(at_end[i], i % 100 < 20 ? static_cast<uint8_t>(i) : 0xee) << i;
}

TEST_F(amx_emulation, zeroes_releases_and_tells_the_configuration)
{
    alignas(64) tile_config told;
    alignas(64) float c[16][16];
    for (auto &row : c) {
        for (float &x : row)
            x = 7.0f;
    }
    [](tile_config *out, float *memory) TILES {
        load_config(product_config(2, 2, 2));
        _tile_storeconfig(out);
        _tile_loadd(0, memory, 64);
        _tile_zero(0);
        _tile_stored(0, memory, 64);
        __asm__ volatile("" ::: "memory");
    }(&told, c[0]);
    const tile_config set = product_config(2, 2, 2);
    EXPECT_EQ(std::memcmp(&told, &set, sizeof set), 0);
    EXPECT_EQ(c[1][1], 0.0f);
    EXPECT_EQ(c[1][2], 7.0f);
    [](tile_config *out) TILES {
        _tile_release();
        _tile_storeconfig(out);
    }(&told);
    EXPECT_EQ(told.palette, 0);
    EXPECT_EQ(told.rows[0], 0);
}

TEST_F(amx_emulation, refuses_what_the_processor_refuses)
{
    const auto with = [](void (*change)(tile_config *)) {
        tile_config config = product_config(2, 2, 2);
        change(&config);
        load_config(config);
    };
    EXPECT_EXIT(with([](tile_config *c) { c->palette = 2; }), testing::KilledBySignal(SIGSEGV), "");
    EXPECT_EXIT(with([](tile_config *c) { c->rows[0] = 17; }), testing::KilledBySignal(SIGSEGV), "");
    EXPECT_EXIT(with([](tile_config *c) { c->row_bytes[0] = 65; }), testing::KilledBySignal(SIGSEGV), "");
    EXPECT_EXIT(with([](tile_config *c) { c->rows[5] = 1; }), testing::KilledBySignal(SIGSEGV), "");
    EXPECT_EXIT(with([](tile_config *c) { c->zero[3] = 1; }), testing::KilledBySignal(SIGSEGV), "");
    alignas(64) static float c[16][16];
    alignas(64) static uint16_t a[16][32];
    EXPECT_EXIT(multiply(bf16, c, a, a), testing::KilledBySignal(SIGILL), "") << "nothing is configured";
    EXPECT_EXIT(
        {
            tile_config config = product_config(2, 2, 2);
            config.rows[2] = 3;
            load_config(config);
            multiply(bf16, c, a, a);
        },
        testing::KilledBySignal(SIGILL), "");
    EXPECT_EXIT(
        []() TILES {
            load_config(product_config(2, 2, 2));
            __asm__ volatile(".byte 0xc4, 0xe2, 0x72, 0x5c, 0xc1"); // tdpbf16ps tmm0, tmm1, tmm1
        }(),
        testing::KilledBySignal(SIGILL), "")
        << "two operands alike";
}
