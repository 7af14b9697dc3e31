// SPDX-License-Identifier: BSD-3-Clause
// The processor text of the version, apart from the processor that it names.
#pragma once
#include <stdint.h>

// What the processor text depends on beyond the type. Questions, not answers: some cost a system call and are asked for
// a few types only.
struct version_questions {
    int32_t (*is_maker)(); // in the light of the reproducibility branch
    int32_t (*avx10_version)();
    int32_t (*has_f16c)();
    int32_t (*has_avx_vnni)();
    int32_t (*has_fp16)();
    int32_t (*can_use_amx)();
    int32_t (*has_amx_fp16)();
    int32_t (*has_amx_fp8)();
    int32_t (*is_larch)();
    int32_t (*is_hazel)();
    int32_t (*is_fir)();
};

// The text for a processor type, stored or fine.
const char *version_processor_text(int32_t type, const version_questions &ask);
