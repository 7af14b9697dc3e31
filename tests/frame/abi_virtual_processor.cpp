// SPDX-License-Identifier: BSD-3-Clause
// The shared library as it is shipped, in programs that see another processor by the preload library: what it detects,
// and which member of every family runs. By faulting CPUID where the machine has that, otherwise by single steps.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <map>
#include <string>

#include "tests/support/child.h"
#include "tests/support/vcpu/profiles.h"

namespace
{
constexpr const char *table_families = "tesh_simatcopy tesh_somatcopy tesh_somatcopy2_seq ";

using environment = std::map<std::string, std::string>;

tesh_test::child_result run_on(const std::string &profile, environment settings, const char *argument = "families")
{
    settings["LD_PRELOAD"] = TESH_BUILD_DIR "/tests/support/vcpu/libtesh_vcpu.so";
    settings["TESH_VCPU_START"] = "call";
    settings["TESH_VCPU_PROFILE"] = vcpu_text(tesh_test::profile_named(profile));
    return tesh_test::run_program({TESH_BUILD_DIR "/tests/frame_child_virtual_processor", argument}, settings);
}

// path: of the BLAS families; the table families have def in the place of cnr_def.
void expect(const std::string &profile, const environment &settings, int setting, int stored, int fine,
            const std::string &path, bool amx = false)
{
    SCOPED_TRACE(profile + (settings.empty() ? "" : " " + settings.begin()->first + "=" + settings.begin()->second));
    std::string expected = "setting " + std::to_string(setting) + " stored " + std::to_string(stored) + " fine " +
                           std::to_string(fine) + " amx " + (amx ? "1" : "0") + "\n";
    for (const char *family : {"xsgemm", "xsgemmger", "xsgemv", "xsger", "xsaxpby", "xsaxpy", "xscopy", "xsscal",
                               "xsswap", "xsrot", "xsnrm2", "xstrmv", "tesh_simatcopy", "tesh_somatcopy",
                               "tesh_somatcopy2_seq", "cblas_saxpby", "cblas_sgemm"}) {
        const bool of_table = std::string(table_families).find(std::string(family) + " ") != std::string::npos;
        expected += std::string(family) + " " + (of_table && path == "cnr_def" ? "def" : path) + "\n";
    }
    const auto child = run_on(profile, settings);
    EXPECT_EQ(child.out, expected);
    EXPECT_EQ(child.err, "");
    EXPECT_EQ(child.exit_code, 0);
}

class virtual_processor : public testing::Test
{
protected:
    void SetUp() override
    {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
        GTEST_SKIP() << "a sanitizer's own library must be loaded first";
#endif
        static const tesh_test::child_result mode = run_on("avx2", {}, "mode");
        constexpr int no_filter = 126;
        if (mode.exit_code == no_filter)
            GTEST_SKIP() << "this system refuses system-call filters (seccomp), by which arch_prctl is played";
        ASSERT_EQ(mode.exit_code, 0) << mode.err;
        ASSERT_TRUE(mode.out == "CPUID faults" || mode.out == "single steps") << mode.out;
        RecordProperty("mode", mode.out);
    }
};
} // namespace

TEST_F(virtual_processor, baseline_runs_def)
{
    expect("sse3", {}, 1, 0, 0, "def");
    expect("ssse3", {}, 1, 0, 0, "def");
}

TEST_F(virtual_processor, sse4_2_and_avx_without_avx2_run_mc3)
{
    expect("sse4_2", {}, 1, 3, 3, "mc3");
    expect("avx", {}, 1, 3, 3, "mc3");
    expect("no_osxsave", {}, 1, 3, 3, "mc3");
}

TEST_F(virtual_processor, avx2_levels_run_avx2)
{
    expect("avx2", {}, 1, 5, 5, "avx2");
    expect("avx2_vnni", {}, 1, 5, 15, "avx2");
    expect("avx10_2_short", {}, 1, 5, 15, "avx2");
    expect("no_zmm_state", {}, 1, 5, 15, "avx2");
}

TEST_F(virtual_processor, avx512_levels_run_avx512)
{
    expect("avx512", {}, 1, 7, 7, "avx512");
    expect("avx512_e1", {}, 1, 7, 9, "avx512");
    expect("avx512_e2", {}, 1, 7, 10, "avx512");
    expect("avx512_e3", {}, 1, 7, 12, "avx512");
    expect("avx512_e4", {}, 1, 7, 14, "avx512");
    expect("avx512_e5", {}, 1, 7, 16, "avx512", true);
    expect("avx10_2", {}, 1, 7, 16, "avx512", true);
}

TEST_F(virtual_processor, other_makers_run_def_and_with_any_branch_cnr_def)
{
    for (const char *profile : {"other_maker", "amd_zen", "amd_bulldozer", "amd_barcelona"})
        expect(profile, {}, 1, 0, 0, "def");
    expect("other_maker", {{"TESH_CBWR", "AUTO"}}, 2, 0, 0, "cnr_def");
    expect("other_maker", {{"TESH_CBWR", "COMPATIBLE"}}, 3, 0, 0, "cnr_def");
    expect("other_maker", {{"TESH_CBWR", "AVX512"}}, 2, 0, 0, "cnr_def");
}

TEST_F(virtual_processor, trusted_makers_run_what_they_have)
{
    expect("other_maker", {{"TESH_TRUSTED_VENDORS", "AnotherMaker"}}, 1, 7, 16, "avx512", true);
    expect("amd_zen", {{"TESH_TRUSTED_VENDORS", "any"}}, 1, 5, 5, "avx2");
    expect("amd_zen", {{"TESH_TRUSTED_VENDORS", "AnotherMaker"}}, 1, 0, 0, "def");
}

TEST_F(virtual_processor, limits_and_branches_choose_the_path)
{
    expect("avx512_e5", {{"TESH_ENABLE_INSTRUCTIONS", "AVX2"}}, 1, 5, 5, "avx2");
    expect("avx512_e5", {{"TESH_ENABLE_INSTRUCTIONS", "AVX512_E3"}}, 1, 7, 12, "avx512");
    expect("avx512_e5", {{"TESH_ENABLE_INSTRUCTIONS", "SSE4_2"}}, 1, 3, 3, "mc3");
    expect("avx512_e5", {{"TESH_CBWR", "AVX2"}}, 10, 5, 16, "avx2", true);
    expect("avx512_e5", {{"TESH_CBWR", "SSE4_2"}}, 8, 3, 16, "mc3", true);
    expect("avx512_e5", {{"TESH_CBWR", "COMPATIBLE"}}, 3, 0, 16, "cnr_def", true);
    expect("avx512_e5", {{"ORVAN_ISA_DISABLE", "avx512f"}}, 1, 5, 15, "avx2");
    expect("avx512_e5", {{"ORVAN_ISA_DISABLE", ",,avx2,"}}, 1, 3, 3, "mc3");
}

TEST_F(virtual_processor, an_avx10_type_has_no_kernels)
{
    const auto child = run_on("avx10_2", {{"TESH_ENABLE_INSTRUCTIONS", "AVX10"}});
    EXPECT_EQ(child.out, "setting 1 stored 17 fine 17 amx 1\nOrvan Tesh ERROR: CPU 17 is not supported.\n");
    EXPECT_EQ(child.exit_code, 1);
}

TEST_F(virtual_processor, tiles_work_once_they_are_asked_for)
{
    EXPECT_EQ(run_on("avx512_e5", {}, "tiles").out, "tiles");
    EXPECT_EQ(run_on("avx512_e5", {}, "tiles-unasked").signal, SIGILL);
    EXPECT_EQ(run_on("avx512_e4", {}, "tiles").exit_code, 5) << "a system without the state";
    EXPECT_EQ(run_on("avx512_e4", {}, "tiles-unasked").signal, SIGILL);
}

TEST_F(virtual_processor, below_the_minimum_is_fatal)
{
    const auto child = run_on("none", {});
    EXPECT_EQ(child.out,
              "Orvan Tesh FATAL ERROR: This system does not meet the minimum requirements for use of the Orvan(R) Tesh "
              "Numeric Library.\nThe processor must support the Orvan(R) Streaming SIMD 3 Extensions (Orvan(R) SSE3) "
              "instructions.\n");
    EXPECT_EQ(child.err, "");
    EXPECT_EQ(child.exit_code, 1);
}
