#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# check_exports.sh BUILD_DIR: the symbol table of libtesh.so, the version script and the headers name the same symbols; the
# library needs libc and libm alone, has no executable stack, and runs two constructors at load.
set -euo pipefail
build=$(realpath "${1:?usage: check_exports.sh BUILD_DIR}")
cd "$(dirname "$0")/.."
library=$build/libtesh.so
failures=0
complain() { echo "check_exports: $*" >&2; failures=$((failures + 1)); }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

nm -D --defined-only "$library" | awk '{print $3}' | LC_ALL=C sort -u >"$work/object"
sed -n '/global:/,/local:/p' cmake/libtesh.map | grep -oE '^ +[A-Za-z_][A-Za-z0-9_]*;' | tr -d ' ;' | LC_ALL=C sort >"$work/map"
LC_ALL=C sort -u "$work/map" >"$work/map_once"
cmp -s "$work/map" "$work/map_once" || complain "named twice: $(uniq -d "$work/map" | tr '\n' ' ')"
headers=(frame/tesh*.h frame/entry/*.h frame/service/*.h frame/service/*/*.h vector/*.h gemm/*.h trans/*.h)
# A declaration up to its semicolon: a variable, a pointer to a function or a list of variables; else the name in front of the
# parameters.
cat "${headers[@]}" | grep -v '^#' | tr '\n' ' ' | grep -oP 'TESH_API\b[^;]*' |
    sed -E 's/\(\*([A-Za-z0-9_]+)\).*/ \1/; s/[([].*//; s/, +/\n/g' | sed -E 's/ +$//; s/.*[* ]//' | LC_ALL=C sort -u >"$work/headers"

for name in $(LC_ALL=C comm -13 "$work/map_once" "$work/object"); do complain "exported, not in the version script: $name"; done
for name in $(LC_ALL=C comm -23 "$work/map_once" "$work/object"); do complain "in the version script, not exported: $name"; done
for name in $(LC_ALL=C comm -23 "$work/map_once" "$work/headers"); do complain "exported, in no header: $name"; done
for name in $(LC_ALL=C comm -13 "$work/object" "$work/headers"); do complain "in a header, not exported: $name"; done

dynamic=$(readelf -dW "$library")
needed=$(echo "$dynamic" | grep -oP 'NEEDED.*\[\K[^]]+' | grep -vE '^(libc\.so\.6|libm\.so\.6|ld-linux-x86-64\.so\.2)$' || true)
[ -z "$needed" ] || complain "needs $needed"
grep -qE 'SONAME.*\[libtesh\.so\.2\]' <<<"$dynamic" || complain "the SONAME is not libtesh.so.2"
if grep -q TEXTREL <<<"$dynamic"; then complain "text relocations"; fi
if [ -n "$(readelf -lW "$library" | awk '/GNU_STACK/ && /RWE/')" ]; then complain "executable stack"; fi
# .init_array: the C start files' frame_dummy and the two constructors, 8 bytes each.
array_bytes=$(echo "$dynamic" | awk '/INIT_ARRAYSZ/ {print $3}')
[ "$array_bytes" -eq 24 ] || complain ".init_array holds $((array_bytes / 8)) entries, expected 3"
# What is bound by dynamic symbol is the list in cmake/libtesh.dynamic and the C library's; and all of the list is, or a program
# could not take a handler over, or would keep a copy of a variable that the library does not see.
readelf -rW "$library" | awk '$3 ~ /JUMP_SLO|GLOB_DAT|X86_64_64/ {print $5}' | sed 's/@.*//' | LC_ALL=C sort -u >"$work/bound"
grep -oE '^ +[A-Za-z_][A-Za-z0-9_]*;' cmake/libtesh.dynamic | tr -d ' ;' | LC_ALL=C sort >"$work/dynamic"
LC_ALL=C comm -12 "$work/bound" "$work/object" >"$work/bound_here"
for name in $(LC_ALL=C comm -23 "$work/bound_here" "$work/dynamic"); do complain "bound by dynamic symbol: $name"; done
for name in $(LC_ALL=C comm -13 "$work/bound_here" "$work/dynamic"); do complain "not bound by dynamic symbol: $name"; done
for name in $(nm -D --defined-only "$library" | awk '$2 == "W" {print $3}'); do # the links of the handler chain
    grep -qx "$name" "$work/dynamic" || complain "weak, but not bound by dynamic symbol: $name"
done

# The archive: what is not exported has a prefix that no program uses.
for name in $(nm -g --defined-only "$build/libtesh.a" | awk 'NF == 3 {print $3}' | LC_ALL=C sort -u | LC_ALL=C comm -23 - "$work/object" | grep -v '^tesh_'); do
    complain "visible in the archive: $name"
done

[ "$failures" -eq 0 ] && echo "check_exports: passed ($(wc -l <"$work/object") symbols)"
exit $((failures > 0))
