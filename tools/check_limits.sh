#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# check_limits.sh: files of at most 600 lines, register-kernel files of at most 300; lines of comment of at most 120
# columns (clang-format leaves those as they are).
set -euo pipefail
cd "$(dirname "$0")/.."
failures=0
while IFS= read -r file; do
    lines=$(wc -l <"$file")
    limit=600
    [[ $file == *kernel* && $file != */body/* && $file != tests/* ]] && limit=300
    [ "$lines" -le "$limit" ] || { echo "check_limits: $file has $lines lines, at most $limit" >&2; failures=$((failures + 1)); }
    wide=$(awk 'length($0) > 120 && /^ *\/\// {print FNR}' "$file")
    [ -z "$wide" ] || { echo "check_limits: $file has wide comments in lines" $wide >&2; failures=$((failures + 1)); }
done < <(git ls-files '*.h' '*.cpp' '*.c')
[ "$failures" -eq 0 ] && echo "check_limits: passed"
exit $((failures > 0))
