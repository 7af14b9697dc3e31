// SPDX-License-Identifier: BSD-3-Clause
// The names of the feature bits. Rows keep their numbers: row 0 and row 32 are empty.
#include "frame/service/general_regs/feature_table.h"

namespace
{
constexpr int32_t bit_none = -1;     // the row has no bit
constexpr int32_t bit_too_high = -3; // the bit lies beyond the two words

bool is_row(int32_t row)
{
    return row >= 0 && row < feature_rows;
}
} // namespace

extern "C" {
int32_t __libtesh_isa_info_initialized = 0;

// clang-format off
const feature_row proc_info_features[feature_rows] = {
    {nullptr, -1, nullptr},
    {"GENERIC_X86", 0, "generic_x86"},
    {"X87", 1, "x87"},
    {"CMOV", 2, "cmov"},
    {"MMX", 3, "mmx"},
    {"FXSAVE", 4, "fxsave"},
    {"SSE", 5, "sse"},
    {"SSE2", 6, "sse2"},
    {"SSE3", 7, "sse3"},
    {"SSSE3", 8, "ssse3"},
    {"SSE4_1", 9, "sse4.1"},
    {"SSE4_2", 10, "sse4"},
    {"MOVBE", 11, "movbe"},
    {"POPCNT", 12, "popcnt"},
    {"PCLMULQDQ", 13, "pclmul"},
    {"AES", 14, "aes"},
    {"AVX", 16, "avx"},
    {"F16C", 15, "f16c"},
    {"RDRND", 17, "rdrnd"},
    {"FMA", 18, "fma"},
    {"BMI", 19, "bmi"},
    {"LZCNT", 20, "lzcnt"},
    {"HLE", 21, "hle"},
    {"RTM", 22, "rtm"},
    {"AVX2", 23, "avx2"},
    {"AVX512F", 27, "avx512f"},
    {"AVX512DQ", 24, "avx512dq"},
    {"PTWRITE", 25, "ptwrite"},
    {"HCXNI", 26, nullptr},
    {"ADX", 28, "adx"},
    {"RDSEED", 29, "rdseed"},
    {"AVX512IFMA52", 30, "avx512ifma"},
    {nullptr, -1, nullptr},
    {"AVX512ER", 32, "avx512er"},
    {"AVX512PF", 33, "avx512pf"},
    {"AVX512CD", 34, "avx512cd"},
    {"SHA", 35, "sha"},
    {"MPX", 36, "mpx"},
    {"AVX512BW", 37, "avx512bw"},
    {"AVX512VL", 38, "avx512vl"},
    {"AVX512VBMI", 39, "avx512vbmi"},
    {"AVX512_4FMAPS", 40, "avx5124fmaps"},
    {"AVX512_4VNNIW", 41, "avx5124vnniw"},
    {"AVX512_VPOPCNTDQ", 42, "avx512vpopcntdq"},
    {"AVX512_BITALG", 43, "avx512bitalg"},
    {"AVX512_VBMI2", 44, "avx512vbmi2"},
    {"GFNI", 45, "gfni"},
    {"VAES", 46, "vaes"},
    {"VPCLMULQDQ", 47, "vpclmulqdq"},
    {"AVX512_VNNI", 48, "avx512vnni"},
    {"CLWB", 49, "clwb"},
    {"RDPID", 50, "rdpid"},
    {"IBT", 51, "ibt"},
    {"SHSTK", 52, "shstk"},
    {"SGX", 53, "sgx"},
    {"WBNOINVD", 54, "wbnoinvd"},
    {"PCONFIG", 55, "pconfig"},
    {"AVX512_VP2INTERSECT", 56, "avx512vp2intersect"},
    {"AVX512_FP16", 60, "avx512_fp16"},
    {"CLDEMOTE", 64, "cldemote"},
    {"MOVDIRI", 65, "movdiri"},
    {"MOVDIR64B", 66, "movdir64b"},
    {"WAITPKG", 67, "waitpkg"},
    {"AVX512_BF16", 68, "avx512_bf16"},
    {"ENQCMD", 69, "enqcmd"},
    {"AVX_VNNI", 70, "avx_vnni"},
    {"AMX-TILE", 71, "amx-tile"},
    {"AMX-INT8", 72, "amx-int8"},
    {"AMX-BF16", 73, "amx-bf16"},
    {"KL", 74, "kl"},
    {"WIDE-KL", 75, "wide-kl"},
    {"HRESET", 76, "hreset"},
    {"UINTR", 77, "uintr"},
    {"PREFETCHI", 78, "prefetchi"},
    {"AVX_VNNI_INT8", 79, "avxvnniint8"},
    {"CMPCCXADD", 80, "cmpccxadd"},
    {"AVX_IFMA", 81, "avxifma"},
    {"AVX_NE_CONVERT", 82, "avxneconvert"},
    {"RAO_INT", 83, "raoint"},
    {"AMX-FP16", 84, "amx-fp16"},
    {"AMX-COMPLEX", 85, "amx-complex"},
    {"SHA512", 86, "sha512"},
    {"SM3", 87, "sm3"},
    {"SM4", 88, "sm4"},
    {"AVX_VNNI_INT16", 89, "avxvnniint16"},
    {"USER_MSR", 90, "usermsr"},
    {"AVX_10_1", 91, "avx10.1"},
    {"AVX_10_2", 92, "avx10.2"},
    {"APXF", 93, "apxf"},
    {"MSRLIST", 94, "msrlist"},
    {"WRMSRNS", 95, "wrmsrns"},
    {"PBNDKB", 96, "pbndkb"},
    {"AMX-FP8", 97, "amx-fp8"},
    {"AMX-TF32", 98, "amx-tf32"},
    {"AMX-TRANSPOSE", 99, "amx-transpose"},
    {"AMX-MOVRS", 100, "amx-movrs"},
    {"AMX-AVX512", 101, "amx-avx512"},
    {"MOVRS", 102, "movrs"},
    {"INVPCID", 103, "invpcid"},
    {"PKU", 104, "pku"},
    {"PREFETCHW", 105, "prefetchw"},
    {"CLFLUSHOPT", 106, "clflushopt"},
    {"LAHFSAHF64", 107, "lahfsahf64"},
    {"SERIALIZE", 108, "serialize"},
    {"TSXLDTRK", 109, "tsxldtrk"},
    {"FSRM", 110, "fsrm"},
    {"ERMSB", 111, "ermsb"},
    {"MWAIT", 112, "mwait"},
    {"MONITORLESS_MWAIT", 113, "monitorless_mwait"},
};
// clang-format on

// The table is complete when the library is built; the flag tells whether anyone has needed it.
void __libtesh_isa_init_once(void)
{
    __atomic_store_n(&__libtesh_isa_info_initialized, 1, __ATOMIC_RELEASE);
}

const char *__libtesh_get_feature_name(int32_t row)
{
    __libtesh_isa_init_once();
    return is_row(row) ? proc_info_features[row].name : nullptr;
}

int32_t __libtesh_get_feature_bitpos(int32_t row)
{
    __libtesh_isa_init_once();
    if (!is_row(row) || proc_info_features[row].bit < 0)
        return bit_none;
    return proc_info_features[row].bit < feature_bits ? proc_info_features[row].bit : bit_too_high;
}

int32_t __libtesh_get_cpu_feature(const uint64_t mask[2], int32_t row)
{
    const int32_t bit = __libtesh_get_feature_bitpos(row);
    return bit < 0 ? bit : static_cast<int32_t>(mask[bit / 64] >> (bit % 64) & 1);
}

int32_t __libtesh_set_cpu_feature(uint64_t mask[2], int32_t row)
{
    const int32_t bit = __libtesh_get_feature_bitpos(row);
    if (bit < 0)
        return bit;
    mask[bit / 64] |= uint64_t{1} << (bit % 64);
    return 0;
}
}
