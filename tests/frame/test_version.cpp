// SPDX-License-Identifier: BSD-3-Clause
// The version record, the processor texts and the version strings.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "frame/service/version.h"
#include "frame/tesh_serv.h"
#include "tests/support/child.h"

namespace
{
const std::string version_text =
    "Orvan(R) Tesh Numeric Library Version 2025.3-Product Build 20251007 for Orvan(R) 64 architecture applications";

// A processor that answers as a case asks.
struct processor {
    int32_t maker = 1, avx10 = 0, f16c = 0, avx_vnni = 0, fp16 = 0, amx = 0, amx_fp16 = 0, amx_fp8 = 0, larch = 0,
            hazel = 0, fir = 0;
} imagined;

constexpr version_questions ask_imagined = {
    [] { return imagined.maker; },    [] { return imagined.avx10; },   [] { return imagined.f16c; },
    [] { return imagined.avx_vnni; }, [] { return imagined.fp16; },    [] { return imagined.amx; },
    [] { return imagined.amx_fp16; }, [] { return imagined.amx_fp8; }, [] { return imagined.larch; },
    [] { return imagined.hazel; },    [] { return imagined.fir; },
};

std::string text_for(int32_t type, const processor &p = {})
{
    imagined = p;
    return version_processor_text(type, ask_imagined);
}

processor with(void (*change)(processor &))
{
    processor p;
    change(p);
    return p;
}

const std::string any_text = "Orvan(R) Architecture processors";
const std::string avx512 = "Orvan(R) Advanced Vector Extensions 512 (Orvan(R) AVX-512) ";
const std::string avx512_fp16 = avx512 + "with support for INT8, BF16, and FP16 (limited) instructions";
const std::string avx512_amx = avx512 +
                               "with support for INT8, BF16, FP16 (limited) instructions, and Orvan(R) Advanced "
                               "Matrix Extensions (Orvan(R) AMX) with INT8 and BF16";
const std::string avx512_amx_fp16 = avx512 + "with support for INT8, BF16, FP16 (limited) instructions, and Orvan(R) "
                                             "Advanced Matrix Extensions (Orvan(R) AMX) with INT8, BF16, and FP16";
const std::string avx512_vnni = avx512 + "with support of VNNI";
const std::string avx512_bf16 = avx512 + "with support of VNNI and bfloat16";
const std::string avx512_vaes =
    avx512 + "with support of VNNI, EVEX-encoded AES and Carry-Less Multiplication Quadword instructions";
const std::string avx10_amx =
    "Orvan(R) Advanced Vector Extensions 10 Version 2 (Orvan(R) AVX 10.2) enabled processors with support for Orvan(R) "
    "Advanced Matrix Extensions (Orvan(R) AMX) with INT8, BF16, FP16, E5M2, and E4M3";
const std::string avx2_vnni = "Orvan(R) Advanced Vector Extensions 2 (Orvan(R) AVX-2) with support of VNNI";

TEST(processor_text, of_another_maker_or_an_unknown_type_is_general)
{
    for (int32_t type = 0; type <= 20; ++type)
        EXPECT_EQ(text_for(type, with([](processor &p) { p.maker = 0; })), any_text);
    EXPECT_EQ(text_for(18), any_text);
    EXPECT_EQ(text_for(100), any_text);
}

TEST(processor_text, of_the_lower_types)
{
    EXPECT_EQ(text_for(0), "Orvan(R) Streaming SIMD Extensions 2 (Orvan(R) SSE2) enabled processors");
    EXPECT_EQ(text_for(2), "Orvan(R) Supplemental Streaming SIMD Extensions 3 (Orvan(R) SSSE3) enabled processors");
    EXPECT_EQ(text_for(3), "Orvan(R) Streaming SIMD Extensions 4.2 (Orvan(R) SSE4.2) enabled processors");
    EXPECT_EQ(text_for(4), "Orvan(R) Advanced Vector Extensions (Orvan(R) AVX) enabled processors");
    EXPECT_EQ(text_for(4, with([](processor &p) { p.f16c = 1; })),
              "Orvan(R) Advanced Vector Extensions (Orvan(R) AVX) with F16C instructions support");
}

TEST(processor_text, of_avx2)
{
    EXPECT_EQ(text_for(5), "Orvan(R) Advanced Vector Extensions 2 (Orvan(R) AVX2) enabled processors");
    EXPECT_EQ(text_for(5, with([](processor &p) { p.avx_vnni = 1; })), avx2_vnni);
    EXPECT_EQ(text_for(5, with([](processor &p) { p.avx_vnni = p.avx10 = 1; })), avx2_vnni);
    EXPECT_EQ(text_for(5, with([](processor &p) {
                           p.avx_vnni = 1;
                           p.avx10 = 2;
                       })),
              "Orvan(R) Advanced Vector Extensions 10 Version 2 (Orvan(R) AVX 10.2) with up to 256-bit vector support "
              "enabled processors");
}

TEST(processor_text, of_avx512_by_the_first_test_that_holds)
{
    EXPECT_EQ(text_for(7), avx512 + "enabled processors");
    EXPECT_EQ(text_for(7, with([](processor &p) { p.fir = 1; })), avx512_vnni);
    EXPECT_EQ(text_for(7, with([](processor &p) { p.fir = p.hazel = 1; })), avx512_vaes);
    EXPECT_EQ(text_for(7, with([](processor &p) { p.fir = p.hazel = p.larch = 1; })), avx512_bf16);
    EXPECT_EQ(text_for(7, with([](processor &p) { p.larch = p.fp16 = 1; })), avx512_fp16);
    EXPECT_EQ(text_for(7, with([](processor &p) { p.larch = p.amx_fp16 = 1; })), avx512_fp16);
    EXPECT_EQ(text_for(7, with([](processor &p) { p.larch = p.amx = 1; })), avx512_bf16);
    EXPECT_EQ(text_for(7, with([](processor &p) { p.fp16 = p.amx = 1; })), avx512_amx);
    EXPECT_EQ(text_for(7, with([](processor &p) { p.fp16 = p.amx = p.amx_fp16 = 1; })), avx512_amx_fp16);
    EXPECT_EQ(text_for(7, with([](processor &p) { p.amx = p.amx_fp16 = 1; })), avx512_amx_fp16);
    EXPECT_EQ(text_for(7, with([](processor &p) { p.amx_fp8 = p.avx10 = p.fp16 = p.amx = p.amx_fp16 = 1; })),
              avx512_amx_fp16);
    EXPECT_EQ(text_for(7, with([](processor &p) {
                           p.amx_fp8 = p.fp16 = p.amx = p.amx_fp16 = 1;
                           p.avx10 = 2;
                       })),
              avx10_amx);
    EXPECT_EQ(text_for(7, with([](processor &p) {
                           p.fp16 = 1;
                           p.avx10 = 2;
                       })),
              avx512_fp16);
}

TEST(processor_text, of_the_fine_types)
{
    EXPECT_EQ(text_for(9), avx512_vnni);
    EXPECT_EQ(text_for(10), avx512_vaes);
    EXPECT_EQ(text_for(12), avx512_bf16);
    for (const int32_t type : {14, 16}) {
        EXPECT_EQ(text_for(type), avx512_fp16);
        EXPECT_EQ(text_for(type, with([](processor &p) { p.fp16 = p.amx = 1; })), avx512_amx);
        EXPECT_EQ(text_for(type, with([](processor &p) { p.amx_fp16 = p.amx = 1; })), avx512_amx_fp16);
    }
    EXPECT_EQ(text_for(15), avx2_vnni);
    EXPECT_EQ(text_for(17), avx10_amx);
}

// In children: the first question settles the processor type of the process.
TEST(version_record, holds_numbers_and_texts)
{
    const auto result = tesh_test::run_forked([] {
        tesh_serv_version v;
        tesh_serv_get_version(&v);
        std::printf("%d %d %d %d %s %s %s", v.major, v.minor, v.update, v.patch, v.status, v.build, v.platform);
        return 0;
    });
    EXPECT_EQ(result.out, "2025 0 3 0 Product 20251007 Orvan(R) 64 architecture");
}

TEST(version_record, names_the_processor_only_if_its_maker_is_trusted)
{
    const auto processor_with = [](const char *vendors, const char *limit) {
        return tesh_test::run_forked(
                   [] {
                       tesh_serv_version v;
                       tesh_serv_get_version(&v);
                       std::fputs(v.processor, stdout);
                       return 0;
                   },
                   {{"TESH_TRUSTED_VENDORS", vendors}, {"TESH_ENABLE_INSTRUCTIONS", limit}, {"TESH_CBWR", ""}})
            .out;
    };
    EXPECT_EQ(processor_with("any", "SSE4_2"),
              "Orvan(R) Streaming SIMD Extensions 4.2 (Orvan(R) SSE4.2) enabled processors");
    EXPECT_EQ(processor_with("NobodysMaker", ""), any_text);
}

TEST(version_string, is_exact)
{
    char buffer[512];
    std::memset(buffer, '#', sizeof buffer);
    TESHGetVerItems(buffer);
    EXPECT_EQ(buffer, version_text);
}

TEST(version_string, in_fortran_form_is_padded_or_cut_without_a_terminator)
{
    const int32_t length = static_cast<int32_t>(version_text.size());
    for (const int32_t size : {-1, 0, 1, 30, length - 1, length, length + 1, 200}) {
        std::string buffer(256, '#');
        tesh_serv_get_version_string(buffer.data(), size);
        const size_t n = size < 0 ? 0 : static_cast<size_t>(size);
        std::string expected = version_text + std::string(256, ' ');
        expected = expected.substr(0, n) + std::string(256 - n, '#');
        EXPECT_EQ(buffer, expected) << size;
    }
    tesh_serv_get_version_string(nullptr, 10);
}

TEST(version_string, in_c_form_is_terminated)
{
    const int32_t length = static_cast<int32_t>(version_text.size());
    for (const int32_t size : {1, 2, 30, length - 1, length}) {
        std::string buffer(256, '#');
        tesh_serv_get_version_string_c(buffer.data(), size);
        const size_t n = static_cast<size_t>(size);
        EXPECT_EQ(buffer, version_text.substr(0, n - 1) + '\0' + std::string(256 - n, '#')) << size;
    }
    for (const int32_t size : {length + 1, 200, 0, -1}) {
        std::string buffer(256, '#');
        tesh_serv_get_version_string_c(buffer.data(), size);
        EXPECT_EQ(buffer, version_text + '\0' + std::string(255 - version_text.size(), '#')) << size;
    }
    tesh_serv_get_version_string_c(nullptr, 10);
}
} // namespace
