#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# check_includes.sh: which room may include a header of which. A new edge is a reviewed change here and in
# docs/architecture.md. Path files include the C integer types, the intrinsics and headers of their room and the path kit.
set -euo pipefail
cd "$(dirname "$0")/.."
failures=0
complain() { echo "check_includes: $*" >&2; failures=$((failures + 1)); }

room_of() {
    case "$1" in
        frame/service/*) echo service ;;
        frame/path/*) echo path ;;
        frame/entry/*) echo entry ;;
        frame/*) echo public ;;
        *) echo "${1%%/*}" ;;
    esac
}
declare -A allowed=(
    [public]="public"
    [service]="public service"
    [path]="path"
    [entry]="public service entry gemm vector trans"
    [vector]="public service path vector"
    [gemm]="public service path gemm vector"
    [trans]="public service path trans"
)

while IFS= read -r file; do
    room=$(room_of "$file")
    on_path=$(echo "$file" | grep -E '/(def|cnr_def|def_zen|def_bdz|mc3|avx2|avx512|body)/|^frame/path/' || true)
    while IFS= read -r header; do
        target=$(room_of "$header")
        [ "$room" = public ] && target=public # public headers stand side by side when installed
        [[ " ${allowed[$room]} " == *" $target "* ]] || complain "$file includes $header"
    done < <(grep -oP '^#include "\K[^"]+' "$file" || true)
    if [ -n "$on_path" ]; then
        while IFS= read -r header; do
            case "$header" in
                stdint.h | immintrin.h | x86intrin.h) ;;
                *) complain "$file includes <$header>" ;;
            esac
        done < <(grep -oP '^#include <\K[^>]+' "$file" || true)
    fi
    grep -q 'SPDX-License-Identifier: BSD-3-Clause' "$file" || complain "$file: no licence line"
done < <(git ls-files 'frame/*.h' 'frame/*.cpp' 'vector/*.h' 'vector/*.cpp' 'gemm/*.h' 'gemm/*.cpp' 'trans/*.h' 'trans/*.cpp')

while IFS= read -r file; do
    grep -q 'SPDX-License-Identifier: BSD-3-Clause' "$file" || complain "$file: no licence line"
done < <(git ls-files '*.sh' '*.cmake' '*CMakeLists.txt' 'tests/*.cpp' 'tests/*.h' 'bench/*.cpp' 'bench/*.h' 'demo/*.cpp' 'demo/*.c')

[ "$failures" -eq 0 ] && echo "check_includes: passed"
exit $((failures > 0))
