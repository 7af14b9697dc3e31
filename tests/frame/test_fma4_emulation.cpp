// SPDX-License-Identifier: BSD-3-Clause
// The emulation of FMA4 that tests of FMA4 kernels stand on: every form, register and memory operands, rounding, and
// the parts of the register that a form clears.
#include <gtest/gtest.h>
#include <immintrin.h>
#include <x86intrin.h>

#include <cfenv>
#include <cmath>
#include <cstring>

#include "tests/support/test_paths.h"
#include "tests/support/vcpu/fma4.h"

namespace
{
class fma4_emulation : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!tesh_test::machine_has_path("avx2"))
            GTEST_SKIP() << "no AVX2 on this machine: its signal frames hold no 256-bit registers";
        tesh_test::install_fma4_emulation();
    }
};

// Products that round differently when they are fused.
const float a8[8] = {1.0000001f, -3.3333333f, 1e-30f, 7.7777777f, 1e20f, -1.5f, 0.1f, 1.2345678f};
const float b8[8] = {1.0000001f, 3.0000002f, 1e-10f, -0.1428571f, 1e20f, 2.5f, 0.1f, -8.7654321f};
const float c8[8] = {-1.0f, 10.0f, 1e-40f, 1.1111111f, -1e38f, 3.75f, -0.01f, 10.8f};
const double a4[4] = {1.0000000000000002, -3.3333333333333335, 0.1, 1e200};
const double b4[4] = {1.0000000000000002, 3.0000000000000004, 0.1, 1e-300};
const double c4[4] = {-1.0, 10.0, -0.01, 1e-100};

__attribute__((target("avx,fma4"))) void all_wide_float(float out[6][8])
{
    const __m256 a = _mm256_loadu_ps(a8), b = _mm256_loadu_ps(b8), c = _mm256_loadu_ps(c8);
    _mm256_storeu_ps(out[0], _mm256_macc_ps(a, b, c));
    _mm256_storeu_ps(out[1], _mm256_msub_ps(a, b, c));
    _mm256_storeu_ps(out[2], _mm256_nmacc_ps(a, b, c));
    _mm256_storeu_ps(out[3], _mm256_nmsub_ps(a, b, c));
    _mm256_storeu_ps(out[4], _mm256_maddsub_ps(a, b, c));
    _mm256_storeu_ps(out[5], _mm256_msubadd_ps(a, b, c));
}

__attribute__((target("avx,fma4"))) void all_wide_double(double out[6][4])
{
    const __m256d a = _mm256_loadu_pd(a4), b = _mm256_loadu_pd(b4), c = _mm256_loadu_pd(c4);
    _mm256_storeu_pd(out[0], _mm256_macc_pd(a, b, c));
    _mm256_storeu_pd(out[1], _mm256_msub_pd(a, b, c));
    _mm256_storeu_pd(out[2], _mm256_nmacc_pd(a, b, c));
    _mm256_storeu_pd(out[3], _mm256_nmsub_pd(a, b, c));
    _mm256_storeu_pd(out[4], _mm256_maddsub_pd(a, b, c));
    _mm256_storeu_pd(out[5], _mm256_msubadd_pd(a, b, c));
}

template <class real> real expected(int form, int i, real a, real b, real c)
{
    const bool odd = i % 2 != 0;
    const bool subtract = form == 1 || form == 3 || (form == 4 && !odd) || (form == 5 && odd);
    return std::fma(form == 2 || form == 3 ? -a : a, b, subtract ? -c : c);
}
} // namespace

TEST_F(fma4_emulation, every_form_in_both_precisions)
{
    float f[6][8];
    double d[6][4];
    all_wide_float(f);
    all_wide_double(d);
    for (int form = 0; form < 6; ++form) {
        for (int i = 0; i < 8; ++i)
            EXPECT_EQ(f[form][i], expected(form, i, a8[i], b8[i], c8[i])) << form << " " << i;
        for (int i = 0; i < 4; ++i)
            EXPECT_EQ(d[form][i], expected(form, i, a4[i], b4[i], c4[i])) << form << " " << i;
    }
}

TEST_F(fma4_emulation, short_forms_clear_what_lies_above)
{
    float out[8];
    __asm__ volatile("vmovups %1, %%ymm9\n\t"
                     "vmovups %2, %%ymm10\n\t"
                     "vmovups %3, %%ymm11\n\t"
                     "vmovups %1, %%ymm12\n\t"
                     "vfmaddps %%xmm11, %%xmm10, %%xmm9, %%xmm12\n\t"
                     "vmovups %%ymm12, %0\n\t"
                     "vzeroupper"
                     : "=m"(out)
                     : "m"(a8), "m"(b8), "m"(c8)
                     : "xmm9", "xmm10", "xmm11", "xmm12");
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(out[i], std::fma(a8[i], b8[i], c8[i]));
    for (int i = 4; i < 8; ++i)
        EXPECT_EQ(out[i], 0.0f);
    __asm__ volatile("vmovups %1, %%ymm9\n\t"
                     "vmovups %2, %%ymm10\n\t"
                     "vmovups %3, %%ymm11\n\t"
                     "vmovups %1, %%ymm12\n\t"
                     "vfnmaddss %%xmm11, %%xmm10, %%xmm9, %%xmm12\n\t"
                     "vmovups %%ymm12, %0\n\t"
                     "vzeroupper"
                     : "=m"(out)
                     : "m"(a8), "m"(b8), "m"(c8)
                     : "xmm9", "xmm10", "xmm11", "xmm12");
    EXPECT_EQ(out[0], std::fma(-a8[0], b8[0], c8[0]));
    for (int i = 1; i < 8; ++i)
        EXPECT_EQ(out[i], 0.0f);
}

TEST_F(fma4_emulation, memory_operands_in_either_place)
{
    float out[8];
    const float *b = b8, *c = c8;
    __asm__ volatile("vmovups %3, %%ymm1\n\t"
                     "vmovups (%2), %%ymm2\n\t"
                     "vfmaddps %%ymm2, (%1), %%ymm1, %%ymm3\n\t"
                     "vmovups %%ymm3, %0\n\t"
                     "vzeroupper"
                     : "=m"(out)
                     : "r"(b), "r"(c), "m"(a8)
                     : "xmm1", "xmm2", "xmm3");
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(out[i], std::fma(a8[i], b8[i], c8[i]));
    const int64_t index = 2;
    __asm__ volatile("vmovups %4, %%ymm1\n\t"
                     "vmovups (%1), %%ymm2\n\t"
                     "vfmsubps -16(%2,%3,8), %%ymm2, %%ymm1, %%ymm3\n\t"
                     "vmovups %%ymm3, %0\n\t"
                     "vzeroupper"
                     : "=m"(out)
                     : "r"(b), "r"(c), "r"(index), "m"(a8)
                     : "xmm1", "xmm2", "xmm3");
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(out[i], std::fma(a8[i], b8[i], -c8[i]));
    __asm__ volatile("vmovups %1, %%ymm1\n\t"
                     "vmovups %2, %%ymm2\n\t"
                     "vfmaddps 1f(%%rip), %%ymm2, %%ymm1, %%ymm3\n\t"
                     "jmp 2f\n"
                     "1: .float 2, 4, 8, 16, 32, 64, 128, 256\n"
                     "2: vmovups %%ymm3, %0\n\t"
                     "vzeroupper"
                     : "=m"(out)
                     : "m"(a8), "m"(b8)
                     : "xmm1", "xmm2", "xmm3");
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(out[i], std::fma(a8[i], b8[i], std::ldexp(1.0f, i + 1)));
}

TEST_F(fma4_emulation, rounds_as_the_program_asked)
{
    for (const int mode : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO, FE_TONEAREST}) {
        std::fesetround(mode);
        float f[6][8];
        all_wide_float(f);
        volatile float a = a8[7], b = b8[7], c = c8[7];
        const volatile float reference = std::fma(a, b, c);
        std::fesetround(FE_TONEAREST);
        EXPECT_EQ(f[0][7], reference) << mode;
    }
}

TEST_F(fma4_emulation, another_illegal_instruction_still_ends_the_program)
{
    EXPECT_EXIT(__builtin_trap(), testing::KilledBySignal(SIGILL), "");
}
