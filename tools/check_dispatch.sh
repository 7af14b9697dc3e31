#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# check_dispatch.sh BUILD_DIR: a bound dispatcher is one load, one test and one jump.
set -euo pipefail
build=$(realpath "${1:?usage: check_dispatch.sh BUILD_DIR}")
cd "$(dirname "$0")/.."
library=$build/libtesh.so
failures=0
count=0
symbols=$(nm -D --defined-only "$library" | awk '$2 == "T" {print $3}')
for name in $(grep -ohE 'tesh_blas_xs[a-z0-9]+' vector/*.h gemm/*.h | sort -u); do
    grep -qx "$name" <<<"$symbols" || continue
    count=$((count + 1))
    body=$(objdump -d --no-show-raw-insn --disassemble="$name" "$library" | awk -F'\t' 'NF >= 2 {print $2}' | grep -vE '^(endbr64|nop|cs nop|data16)' | head -n 6 | awk '{print $1}' | tr '\n' ' ')
    case "$body" in
        "mov test je jmp "* | "mov lea test cmove jmp "*) ;; # the load, the test with its branch or conditional move, the jump
        *) echo "check_dispatch: $name begins with: $body" >&2; failures=$((failures + 1)) ;;
    esac
done
[ "$count" -gt 0 ] || { echo "check_dispatch: found no dispatcher" >&2; exit 1; }
[ "$failures" -eq 0 ] && echo "check_dispatch: passed ($count dispatchers)"
exit $((failures > 0))
