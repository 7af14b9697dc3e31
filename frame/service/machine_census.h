// SPDX-License-Identifier: BSD-3-Clause
// What the census of the environment and the machine finds. All but the processor counts are kept for those who look;
// the sequential form's own answers do not depend on them.
#pragma once
#include "frame/tesh_types.h"

extern "C" {
// -1 until a setting is found. The slots of the domains stand in the order of their names in thread_settings.cpp.
TESH_API extern int32_t __tesh_num_threads, __tesh_num_stripes, __tesh_dynamic;
TESH_API extern int32_t __tesh_blas_num_threads, __tesh_fft_num_threads, __tesh_vml_num_threads,
    __tesh_pardiso_num_threads, __tesh_lapack_num_threads;
extern int32_t __N_CPU_Packages, __N_Cores_per_Packages, __HT; // -1 until the census
extern int32_t __N_Logical_Cores;                              // 1 until the census
extern uint8_t __threads_env_NOT_readed;                       // 0 before the census, 1 after it

// The thread settings of the environment, into the variables above. Called by the census, under its lock.
void thread_settings_read(void);
}
