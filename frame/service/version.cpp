// SPDX-License-Identifier: BSD-3-Clause
// The version record, the processor's text in it, and the version as one string.
#include "frame/service/version.h"

#include "frame/tesh_serv.h"

namespace
{
constexpr struct {
    int32_t major, minor, update, patch;
} product_version = {2025, 0, 3, 0};
constexpr const char *product_status = "Product";
constexpr const char *build_date = "20251007";
constexpr const char *platform = "Orvan(R) 64 architecture";
constexpr size_t version_string_bytes = 512;

constexpr const char *text_any = "Orvan(R) Architecture processors";
constexpr const char *text_sse2 = "Orvan(R) Streaming SIMD Extensions 2 (Orvan(R) SSE2) enabled processors";
constexpr const char *text_ssse3 =
    "Orvan(R) Supplemental Streaming SIMD Extensions 3 (Orvan(R) SSSE3) enabled processors";
constexpr const char *text_sse4_2 = "Orvan(R) Streaming SIMD Extensions 4.2 (Orvan(R) SSE4.2) enabled processors";
constexpr const char *text_avx_f16c =
    "Orvan(R) Advanced Vector Extensions (Orvan(R) AVX) with F16C instructions support";
constexpr const char *text_avx = "Orvan(R) Advanced Vector Extensions (Orvan(R) AVX) enabled processors";
constexpr const char *text_avx10_256 =
    "Orvan(R) Advanced Vector Extensions 10 Version 2 (Orvan(R) AVX 10.2) with up to 256-bit vector support enabled "
    "processors";
constexpr const char *text_avx2_vnni = "Orvan(R) Advanced Vector Extensions 2 (Orvan(R) AVX-2) with support of VNNI";
constexpr const char *text_avx2 = "Orvan(R) Advanced Vector Extensions 2 (Orvan(R) AVX2) enabled processors";
constexpr const char *text_avx10_amx =
    "Orvan(R) Advanced Vector Extensions 10 Version 2 (Orvan(R) AVX 10.2) enabled processors with support for Orvan(R) "
    "Advanced Matrix Extensions (Orvan(R) AMX) with INT8, BF16, FP16, E5M2, and E4M3";
constexpr const char *text_avx512_amx_fp16 =
    "Orvan(R) Advanced Vector Extensions 512 (Orvan(R) AVX-512) with support for INT8, BF16, FP16 (limited) "
    "instructions, and Orvan(R) Advanced Matrix Extensions (Orvan(R) AMX) with INT8, BF16, and FP16";
constexpr const char *text_avx512_amx =
    "Orvan(R) Advanced Vector Extensions 512 (Orvan(R) AVX-512) with support for INT8, BF16, FP16 (limited) "
    "instructions, and Orvan(R) Advanced Matrix Extensions (Orvan(R) AMX) with INT8 and BF16";
constexpr const char *text_avx512_fp16 =
    "Orvan(R) Advanced Vector Extensions 512 (Orvan(R) AVX-512) with support for INT8, BF16, and FP16 (limited) "
    "instructions";
constexpr const char *text_avx512_bf16 =
    "Orvan(R) Advanced Vector Extensions 512 (Orvan(R) AVX-512) with support of VNNI and bfloat16";
constexpr const char *text_avx512_vaes =
    "Orvan(R) Advanced Vector Extensions 512 (Orvan(R) AVX-512) with support of VNNI, EVEX-encoded AES and Carry-Less "
    "Multiplication Quadword instructions";
constexpr const char *text_avx512_vnni =
    "Orvan(R) Advanced Vector Extensions 512 (Orvan(R) AVX-512) with support of VNNI";
constexpr const char *text_avx512 = "Orvan(R) Advanced Vector Extensions 512 (Orvan(R) AVX-512) enabled processors";

// For a processor with FP16 in its vector or its matrix instructions.
const char *fp16_text(const version_questions &ask)
{
    if (!ask.can_use_amx())
        return text_avx512_fp16;
    return ask.has_amx_fp16() ? text_avx512_amx_fp16 : text_avx512_amx;
}

const char *avx512_text(const version_questions &ask)
{
    if (ask.avx10_version() >= 2 && ask.has_amx_fp8())
        return text_avx10_amx;
    if (ask.has_amx_fp16() || ask.has_fp16())
        return fp16_text(ask);
    if (ask.is_larch())
        return text_avx512_bf16;
    if (ask.is_hazel())
        return text_avx512_vaes;
    return ask.is_fir() ? text_avx512_vnni : text_avx512;
}

const char *avx2_text(const version_questions &ask)
{
    if (ask.avx10_version() > 1)
        return text_avx10_256;
    return ask.has_avx_vnni() ? text_avx2_vnni : text_avx2;
}

int32_t is_maker()
{
    return tesh_serv_get_cpu()();
}

int32_t can_use_amx()
{
    return tesh_serv_cpuhasamx(nullptr);
}

constexpr version_questions ask_processor = {
    is_maker,
    tesh_serv_get_avx10_version,
    tesh_serv_cpuhasf16c,
    tesh_serv_cpuhasavxvnni,
    tesh_serv_cpuhasfp16,
    can_use_amx,
    tesh_serv_cpuhasamxfp16,
    tesh_serv_cpuhasamxfp8,
    tesh_serv_cpuislarch,
    tesh_serv_cpuishazel,
    tesh_serv_cpuisfir,
};

// The length of the string, which fits.
size_t version_string(char text[version_string_bytes])
{
    TESHGetVerItems(text);
    return tesh_serv_strnlen_s(text, version_string_bytes);
}
} // namespace

const char *version_processor_text(int32_t type, const version_questions &ask)
{
    if (!ask.is_maker())
        return text_any;
    switch (type) {
    case 0:
        return text_sse2;
    case 2:
        return text_ssse3;
    case 3:
        return text_sse4_2;
    case 4:
        return ask.has_f16c() ? text_avx_f16c : text_avx;
    case 5:
        return avx2_text(ask);
    case 7:
        return avx512_text(ask);
    case 9:
        return text_avx512_vnni;
    case 10:
        return text_avx512_vaes;
    case 12:
        return text_avx512_bf16;
    case 14:
    case 16:
        return fp16_text(ask);
    case 15:
        return text_avx2_vnni;
    case 17:
        return text_avx10_amx;
    default:
        return text_any;
    }
}

extern "C" {
void tesh_serv_get_version(tesh_serv_version *record)
{
    record->major = product_version.major;
    record->minor = product_version.minor;
    record->update = product_version.update;
    record->patch = product_version.patch;
    record->status = product_status;
    record->build = build_date;
    record->processor = version_processor_text(tesh_serv_cpu_detect(), ask_processor);
    record->platform = platform;
}

void TESHGetVerItems(char *buffer)
{
    tesh_serv_sprintf_s(buffer, version_string_bytes,
                        "Orvan(R) Tesh Numeric Library Version %d.%d-%s Build %s for %s applications",
                        product_version.major, product_version.update, product_status, build_date, platform);
}

void tesh_serv_get_version_string(char *buffer, int32_t size)
{
    if (buffer == nullptr)
        return;
    char text[version_string_bytes];
    const size_t length = version_string(text);
    tesh_serv_strcpy(buffer, text, static_cast<int64_t>(length), size);
}

// A size below 1 says that the buffer has room for the whole string.
void tesh_serv_get_version_string_c(char *buffer, int32_t size)
{
    if (buffer == nullptr)
        return;
    char text[version_string_bytes];
    size_t length = version_string(text);
    if (size >= 1 && static_cast<size_t>(size) <= length)
        length = static_cast<size_t>(size) - 1;
    tesh_serv_mem_prim_move(buffer, text, length);
    buffer[length] = '\0';
}
}
