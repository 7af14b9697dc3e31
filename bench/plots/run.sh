#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# bench/plots/run.sh [ISA ...]: runs the benchmarks behind docs/performance.md on a quiet machine, keeps their CSV in
# build/bench/results, and draws docs/plots/*.svg. ISA: avx512, avx2 (default both); the peers are held to the same.
set -euo pipefail
cd "$(dirname "$0")/../.."
isas=("${@:-avx512}")
[ "$#" -gt 0 ] || isas=(avx512 avx2)
programs=build/bench/bench
results=build/bench/results
mkdir -p "$results" docs/plots

plot() { # SCRIPT OUTPUT NAME=VALUE...
    local script=$1 output=$2
    shift 2
    local words=""
    for pair in "$@"; do words+="${pair%%=*}='${pair#*=}'; "; done
    gnuplot -e "$words output='docs/plots/$output'" "bench/plots/$script"
}

"$programs/bench_peak" >"$results/peak.csv"
for isa in "${isas[@]}"; do
    "$programs/bench_sgemm" --isa "$isa" --case-ms 20 --group tiny --group between --group small --group medium \
        --group large >"$results/sgemm_squares_$isa.csv"
    "$programs/bench_sgemm" --isa "$isa" --case-ms 60 --group beta --group ld --group shallow --group skinny --group dots \
        --group dots-tall --group batch >"$results/sgemm_shapes_$isa.csv"
    "$programs/bench_vector" --isa "$isa" >"$results/vector_$isa.csv"
    "$programs/bench_sgemv" --isa "$isa" >"$results/sgemv_$isa.csv"
    "$programs/bench_somatcopy" --isa "$isa" >"$results/somatcopy_$isa.csv"
    "$programs/bench_simatcopy" --isa "$isa" >"$results/simatcopy_$isa.csv"
    for pair in NN NT TN TT; do
        plot sgemm.gp "sgemm_${pair}_$isa.svg" "file=$results/sgemm_squares_$isa.csv" "pair=$pair" "isa=$isa"
    done
    plot vector.gp "saxpby_$isa.svg" "file=$results/vector_$isa.csv" "family=saxpby" "isa=$isa"
    plot sgemv.gp "sgemv_$isa.svg" "file=$results/sgemv_$isa.csv" "isa=$isa"
    for kind in square scaled padded; do
        plot matcopy.gp "somatcopy_${kind}_$isa.svg" "file=$results/somatcopy_$isa.csv" "isa=$isa" "kind=$kind" \
            "routine=TESH_Somatcopy" "letter=R"
        plot matcopy.gp "simatcopy_${kind}_$isa.svg" "file=$results/simatcopy_$isa.csv" "isa=$isa" "kind=$kind" \
            "routine=TESH_Simatcopy" "letter=C"
    done
    plot matcopy_cases.gp "somatcopy_rectangle_$isa.svg" "file=$results/somatcopy_$isa.csv" "isa=$isa" "kind=rectangle" \
        "routine=TESH_Somatcopy"
    plot matcopy_cases.gp "simatcopy_rectangle_$isa.svg" "file=$results/simatcopy_$isa.csv" "isa=$isa" "kind=rectangle" \
        "routine=TESH_Simatcopy"
    for group in batch beta ld shallow skinny dots dots-tall; do
        plot shapes.gp "sgemm_${group}_$isa.svg" "file=$results/sgemm_shapes_$isa.csv" "group=$group" "isa=$isa"
    done
done
