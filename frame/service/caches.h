// SPDX-License-Identifier: BSD-3-Clause
// The walk over the caches, apart from the processor that answers.
#pragma once
#include <stdint.h>

// CPUID: answers of a leaf and subleaf in the order EAX, EBX, ECX, EDX.
typedef void (*caches_cpuid_fn)(uint32_t leaf, uint32_t subleaf, uint32_t registers[4]);

// The data and unified caches that leaf 4 lists: their number, then the bytes of levels 1 to 4.
void caches_walk(caches_cpuid_fn cpuid, int64_t sizes[5]);
