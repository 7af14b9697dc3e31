# SPDX-License-Identifier: BSD-3-Clause
# gnuplot -e "file=...; routine='TESH_Somatcopy'; kind='rectangle'; isa='avx512'; output=..." matcopy_cases.gp: every case of
# a kind in the order of its lines, share of the bandwidth that a plain loop has at the same footprint. Below a case: ordering,
# rows x columns, alpha.
set terminal svg size 720,480 font "sans,12" background "white"
set output output
set datafile separator ","
set title sprintf("%s, %s, %s: share of the bandwidth at the same footprint", routine, kind, isa) noenhanced
set ylabel "share (1: limit)"
set yrange [0:1.2]
set xtics rotate by 90 right font "sans,9"
set key right top
set offsets 0.5, 0.5, 0, 0
set grid ytics
rows = sprintf("< awk -F, '$1 == \"%s\"' %s", kind, file)
label = "sprintf('%s %sx%s %s', strcol(3), strcol(5), strcol(6), strcol(7))"
plot 1 with lines dt 2 lc rgb "grey" notitle, \
     rows using 0:12:xticlabel(@label) with points pt 7 ps 0.6 title "tesh", \
     rows using 0:($15 > 0 ? $15 / $13 : NaN) with points pt 6 ps 0.6 title "OpenBLAS", \
     rows using 0:($14 > 0 ? $14 / $13 : NaN) with points pt 4 ps 0.6 title "plain blocked loop"
