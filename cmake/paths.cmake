# SPDX-License-Identifier: BSD-3-Clause
# The compiler flags of every code path: one line a path, and nowhere else. A file gets them by lying in a folder of the
# path's name. A path may use what the processor test of the path checks for, and no more:
#   mc3     SSE4.2
#   avx2    AVX2, FMA, BMI1/BMI2, LZCNT, PCLMULQDQ
#   avx512  avx2 and AVX-512 F, BW, DQ, VL
#   def_zen and def_bdz hold kernels of the def path that stand behind a model predicate of their own.
set(tesh_path_flags_def "")
set(tesh_path_flags_cnr_def "")
set(tesh_path_flags_def_zen "-mavx2;-mfma")
set(tesh_path_flags_def_bdz "-mavx;-mfma4")
set(tesh_path_flags_mc3 "-msse4.2")
set(tesh_path_flags_avx2 "-mavx2;-mfma;-mbmi;-mbmi2;-mlzcnt")
set(tesh_path_flags_avx512 "-mavx2;-mfma;-mbmi;-mbmi2;-mlzcnt;-mavx512f;-mavx512bw;-mavx512dq;-mavx512vl")
set(tesh_paths def cnr_def def_zen def_bdz mc3 avx2 avx512)
