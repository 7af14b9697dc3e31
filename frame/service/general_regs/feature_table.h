// SPDX-License-Identifier: BSD-3-Clause
// The feature table: name and bit of every feature that the census knows.
#pragma once
#include "frame/tesh_serv.h"

struct feature_row {
    const char *name;       // upper case; null for an empty row
    int32_t bit;            // position in the 128-bit indicator; -1 for none
    const char *lower_name; // as ORVAN_ISA_DISABLE spells it; null: cannot be disabled
};

constexpr int32_t feature_rows = 109, feature_bits = 128;

extern "C" {
extern const feature_row proc_info_features[feature_rows];
TESH_API extern int32_t __libtesh_isa_info_initialized; // 1 once the table has been needed
TESH_API void __libtesh_isa_init_once(void);
}
