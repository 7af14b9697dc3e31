#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# run_qemu.sh BUILD_DIR: runs the test programs of the narrow code paths on emulated processors that have nothing wider, where an
# instruction beyond the path is an illegal one. The avx2 path runs by the public names alone: the emulator touches masked-off
# lanes, which operands at guard pages do not bear.
set -euo pipefail
build=$(realpath "${1:?usage: run_qemu.sh BUILD_DIR}")
# Cases that take minutes when emulated, and that differ from others by their sizes alone.
export GTEST_FILTER='-*.squares_with_equal_lines:*.squares_at_power_of_two_lines:*.long_lines*:*.leading_dimensions_around*:*.large_squares:*.shapes_around*'
export TESH_TRUSTED_VENDORS=any GTEST_BRIEF=1
sse4_2=qemu64,+ssse3,+sse4.1,+sse4.2,+popcnt

run_one() { # PATH PROCESSOR PROGRAM
    local log
    if log=$(TESH_TEST_PATH=$1 qemu-x86_64 -cpu "$2" "$3" 2>&1); then
        return
    fi
    printf 'run_qemu: %s on %s failed\n%s\n' "$(basename "$3")" "$2" "$(tail -n 20 <<<"$log")" >&2
    return 1
}
export -f run_one

jobs=()
for program in "$build"/tests/*_paths; do
    jobs+=("def qemu64 $program" "cnr_def qemu64 $program" "mc3 $sse4_2 $program")
done
jobs+=("mc3 $sse4_2 $build/tests/gemm_test_xsgemm_mc3")
for processor in qemu64 "$sse4_2" max; do
    jobs+=("detected $processor $build/tests/frame_abi_entry")
done
printf '%s\n' "${jobs[@]}" | xargs -P "$(nproc)" -L 1 bash -c 'run_one "$@"' run_qemu
echo "run_qemu: passed (${#jobs[@]} runs)"
