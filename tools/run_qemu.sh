#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# run_qemu.sh BUILD_DIR: runs the test programs of all code paths but the widest on emulated processors that have nothing wider,
# where an instruction beyond the path is an illegal one, and a first call that has to tell which processor this is.
set -euo pipefail
build=$(realpath "${1:?usage: run_qemu.sh BUILD_DIR}")
# Cases that take minutes when emulated, and that differ from others by their sizes alone.
export GTEST_FILTER='-*.squares_with_equal_lines:*.squares_at_power_of_two_lines:*.long_lines*:*.leading_dimensions_around*:*.large_squares:*.shapes_around*'
export TESH_TRUSTED_VENDORS=any GTEST_BRIEF=1
export TESH_TEST_EMULATED=1 # guard pages can be read: the emulator loads masked-off lanes, too
sse4_2=qemu64,+ssse3,+sse4.1,+sse4.2,+popcnt
avx2=$sse4_2,+pclmulqdq,+xsave,+avx,+f16c,+avx2,+fma,+bmi1,+bmi2,+abm,+movbe

run_one() { # PATH PROCESSOR PROGRAM [ARGUMENT]
    local log
    if log=$(TESH_TEST_PATH=$1 qemu-x86_64 -cpu "$2" "${@:3}" 2>&1); then
        return
    fi
    printf 'run_qemu: %s on %s failed\n%s\n' "$(basename "$3")" "$2" "$(tail -n 20 <<<"$log")" >&2
    return 1
}
export -f run_one

jobs=()
for program in "$build"/tests/*_paths; do
    jobs+=("def qemu64 $program" "cnr_def qemu64 $program" "mc3 $sse4_2 $program" "avx2 $avx2 $program")
done
jobs+=("mc3 $sse4_2 $build/tests/gemm_test_xsgemm_mc3")
for processor in qemu64 "$sse4_2" "$avx2"; do
    jobs+=("detected $processor $build/tests/frame_abi_entry")
done
first_call=$build/tests/frame_child_static_first_call
jobs+=("maker qemu64,vendor=GenuineOrvan $first_call 0" "maker $sse4_2,vendor=GenuineOrvan $first_call 3" \
    "maker $avx2,vendor=GenuineOrvan $first_call 5")
printf '%s\n' "${jobs[@]}" | xargs -P "$(nproc)" -L 1 bash -c 'run_one "$@"' run_qemu
echo "run_qemu: passed (${#jobs[@]} runs)"
