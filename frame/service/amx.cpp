// SPDX-License-Identifier: BSD-3-Clause
// Matrix tiles: whether the processor has them and the system lets this process use them. The system hands out the tile
// data state on request only; without its permission the first tile instruction faults.
#include "frame/service/processor.h"

namespace
{
constexpr int64_t arch_get_xcomp_perm = 0x1022, arch_req_xcomp_perm = 0x1023;
constexpr uint64_t tile_data = 18; // number of the state component

tesh_serv_amx_record amx_record;
int32_t amx_answer = -1;
int32_t amx_lock = 0;
[[gnu::section("tesh_fork_words"), gnu::used]] int32_t *const forked_amx = &amx_lock; // frame/service/fork_guard.h

int32_t bit_of(uint32_t word, int bit)
{
    return static_cast<int32_t>(word >> bit & 1);
}

bool permitted(uint64_t *components)
{
    *components = 0;
    return processor_arch_prctl(arch_get_xcomp_perm, reinterpret_cast<uint64_t>(components)) == 0;
}

bool ask_permission(void)
{
    uint64_t components;
    if (!permitted(&components))
        return false;
    if ((components >> tile_data & 1) != 0)
        return true;
    return processor_arch_prctl(arch_req_xcomp_perm, tile_data) == 0 && permitted(&components) &&
           (components >> tile_data & 1) != 0;
}

bool find_amx(int32_t fine, tesh_serv_amx_record *record)
{
    if (fine != 14 && fine != 16 && fine != 17)
        return false;
    cpuid_answer leaf7, leaf7_1, palettes, palette1, tmul, tmul_1;
    processor_cpuid_listed(7, 0, &leaf7);
    processor_cpuid_listed(7, 1, &leaf7_1);
    processor_cpuid_listed(0x1e, 1, &tmul_1);
    record->amx_tile = bit_of(leaf7.edx, 24);
    record->amx_int8 = bit_of(leaf7.edx, 25);
    record->amx_bf16 = bit_of(leaf7.edx, 22);
    record->amx_fp16 = bit_of(leaf7_1.eax, 21);
    record->amx_fp8 = bit_of(tmul_1.eax, 4);
    const int32_t products = record->amx_int8 | record->amx_bf16 | record->amx_fp16 | record->amx_fp8;
    if (!record->amx_tile || !products || !ask_permission())
        return false;
    processor_cpuid_listed(0x1d, 0, &palettes);
    processor_cpuid_listed(0x1d, 1, &palette1);
    processor_cpuid_listed(0x1e, 0, &tmul);
    record->max_palette = static_cast<int32_t>(palettes.eax);
    record->total_tile_bytes = static_cast<int32_t>(palette1.eax & 0xffff);
    record->bytes_per_tile = static_cast<int32_t>(palette1.eax >> 16);
    record->bytes_per_row = static_cast<int32_t>(palette1.ebx & 0xffff);
    record->max_names = static_cast<int32_t>(palette1.ebx >> 16);
    record->max_rows = static_cast<int32_t>(palette1.ecx & 0xffff);
    record->tmul_maxk = static_cast<int32_t>(tmul.ebx & 0xff);
    record->tmul_maxn = static_cast<int32_t>(tmul.ebx >> 8 & 0xffff);
    return true;
}
} // namespace

extern "C" int32_t tesh_serv_cpuhasamx(tesh_serv_amx_record *record)
{
    if (__atomic_load_n(&amx_answer, __ATOMIC_ACQUIRE) == -1) {
        const int32_t fine = tesh_serv_get_cpu_type(1); // can end the process, so not with the lock held
        tesh_serv_lock(&amx_lock);
        if (__atomic_load_n(&amx_answer, __ATOMIC_RELAXED) == -1) {
            const bool found = find_amx(fine, &amx_record);
            if (!found)
                amx_record = tesh_serv_amx_record();
            __atomic_store_n(&amx_answer, static_cast<int32_t>(found), __ATOMIC_RELEASE);
        }
        tesh_serv_unlock(&amx_lock);
    }
    if (record != nullptr)
        *record = amx_record;
    return __atomic_load_n(&amx_answer, __ATOMIC_RELAXED);
}
