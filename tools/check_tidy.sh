#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# check_tidy.sh BUILD_DIR: clang-tidy over the library's sources, with the compile commands of a clang build.
set -euo pipefail
build=$(realpath "${1:?usage: check_tidy.sh BUILD_DIR}")
cd "$(dirname "$0")/.."
tidy=$(command -v clang-tidy-14 || command -v clang-tidy)
git ls-files 'frame/*.cpp' 'vector/*.cpp' 'gemm/*.cpp' 'trans/*.cpp' |
    xargs -P "$(nproc)" -n 4 "$tidy" -p "$build" --quiet 2> >(grep -vE 'warnings? generated|Suppressed|Use -header-filter|^$' >&2)
echo "check_tidy: passed"
