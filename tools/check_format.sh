#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# check_format.sh [--fix]: clang-format 14 over all C and C++ files.
set -euo pipefail
cd "$(dirname "$0")/.."
format=$(command -v clang-format-14 || command -v clang-format)
mapfile -t files < <(git ls-files '*.h' '*.cpp' '*.c')
if [ "${1:-}" = --fix ]; then
    "$format" -i "${files[@]}"
else
    "$format" --dry-run -Werror "${files[@]}" && echo "check_format: passed"
fi
