#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# check_objects.sh BUILD_DIR: no object holds an instruction that its code path may not use, no path object holds a weak symbol,
# load-time code, or a call to anything but memcpy, memset and the library itself, no register kernel spills,
# and what runs among the caller's live vector registers touches none.
set -euo pipefail
build=${1:?usage: check_objects.sh BUILD_DIR}
root="$build/CMakeFiles/tesh_objects.dir"
optimised=$(sed -n 's/^CMAKE_BUILD_TYPE:STRING=//p' "$build/CMakeCache.txt")
failures=0
complain() { echo "check_objects: $*" >&2; failures=$((failures + 1)); }

# Mnemonics beyond SSE2 that have neither a VEX nor an EVEX form, by the level that brings them.
beyond_sse2='addsubp[sd]|h(add|sub)p[sd]|lddqu|movddup|movs[hl]dup|monitor|mwait|psign[bwd]|pabs[bwd]|palignr|pshufb|pmulhrsw|pmaddubsw|ph(add|sub)(s?w|d)|dpp[sd]|ptest|round[sp][sd]|blendv?p[sd]|pblend(w|vb)|insertps|extractps|pinsr[bdq]|pextr[bdq]|pmov[sz]x[bwd][wdq]|pmulld|pmuldq|pminsb|pmaxsb|pmin(uw|ud|sd)|pmax(uw|ud|sd)|pcmp(eq|gt)q|packusdw|phminposuw|mpsadbw|movntdqa|crc32[bwlq]?|pcmp[ei]str[im]|popcnt'
vex='v[a-z0-9]+|andn|bextr|bls(i|r|msk)|bzhi|mulx|pdep|pext|rorx|s[ah]rx|shlx|k(mov|and|or|xor|not|test|ortest|shift|unpck|add)[a-z]+'
general='lzcnt|tzcnt|movbe|adcx|adox'

while IFS= read -r object; do
    name=${object#"$root"/}
    [ -e "$(dirname "$0")/../${name%.o}" ] || continue # of a source that is gone
    path=$(echo "$name" | grep -oE '/(def|cnr_def|def_zen|def_bdz|mc3|avx2|avx512)/' | tr -d / || true)
    code=$(objdump -d --no-show-raw-insn -M intel "$object" | awk -F'\t' 'NF >= 2 {print $2}')
    case "$path" in
        '' | def | cnr_def)
            bad=$(echo "$code" | grep -E "^($beyond_sse2|$vex|$general)( |$)|[yz]mm[0-9]|tmm[0-9]" | grep -vE '^(verr|verw)' | head -n 3 || true) ;;
        mc3)
            bad=$(echo "$code" | grep -E "^($vex|lzcnt|tzcnt|movbe)( |$)|[yz]mm[0-9]|tmm[0-9]" | grep -vE '^(verr|verw)' | head -n 3 || true) ;;
        def_bdz)
            bad=$(echo "$code" | grep -E 'zmm[0-9]|[xy]mm(1[6-9]|2[0-9]|3[01])|\{k[0-7]\}|tmm[0-9]|^vf(n?m)(add|sub)(132|213|231)|^vp[a-z]+ .*ymm' | head -n 3 || true) ;;
        avx2 | def_zen)
            bad=$(echo "$code" | grep -E 'zmm[0-9]|[xy]mm(1[6-9]|2[0-9]|3[01])|\{k[0-7]\}|[ ,]k[0-7]([ ,]|$)|tmm[0-9]' | head -n 3 || true) ;;
        avx512)
            bad=$(echo "$code" | grep -E 'tmm[0-9]' | head -n 3 || true) ;;
    esac
    [ -z "$bad" ] || complain "$name: instruction beyond the path: $bad"

    # Runs while the caller's vector registers are live: touches none, and calls nothing that may.
    case "$name" in
        *general_regs/*)
            live=$(echo "$code" | grep -E '[xyzt]mm[0-9]|[ ,]k[0-7]([ ,]|$)|st\([0-7]\)' | head -n 3 || true)
            [ -z "$live" ] || complain "$name: vector register: $live"
            calls=$(nm -u "$object" | awk '{print $NF}' | grep -vE '^(__libtesh_.*|processor_.*|trusted_vendor_listed|proc_getenv|proc_info_features|detect_vendor_answer|_GLOBAL_OFFSET_TABLE_)$' | head -n 3 || true)
            [ -z "$calls" ] || complain "$name: calls $calls" ;;
    esac

    if [ -n "$(objdump -h "$object" | grep -E '\.(init|preinit)_array|\.ctors' || true)" ]; then
        case "$name" in
            frame/service/detect.* | frame/service/memory_init.*) ;;
            *) complain "$name: load-time code" ;;
        esac
    fi
    [ -n "$path" ] || continue
    weak=$(nm "$object" | awk '$(NF-1) ~ /^[WVuv]$/ {print $NF}' | head -n 3)
    [ -z "$weak" ] || complain "$name: weak symbol $weak"
    undefined=$(nm -u "$object" | awk '{print $NF}' | grep -vE '^(memcpy|memset|tesh_.*|_GLOBAL_OFFSET_TABLE_|__(asan|ubsan|tsan)_.*)$' | head -n 3 || true)
    [ -z "$undefined" ] || complain "$name: calls $undefined"
    # A spill is a vector load or store relative to the stack pointer (rbp is a register like any other here). The no-copy
    # kernels keep a panel there by design.
    [ "$optimised" = Release ] || continue # without optimisation everything lives on the stack
    case "$name" in
        *sgemm_kernel_0*)
            spill=$(echo "$code" | grep -E '^v?mov(u|a)p[sd] .*\[rsp' | head -n 3 || true)
            [ -z "$spill" ] || complain "$name: spill: $spill" ;;
    esac
done < <(find "$root" -name '*.o')

[ "$failures" -eq 0 ] && echo "check_objects: passed"
exit $((failures > 0))
