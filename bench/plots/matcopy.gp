# SPDX-License-Identifier: BSD-3-Clause
# gnuplot -e "file=...; routine='TESH_Somatcopy'; kind='square'; letter='R'; isa='avx512'; output=..." matcopy.gp: squares
# of one kind and ordering, share of the bandwidth that a plain loop has at the same footprint.
set terminal svg size 720,420 font "sans,12" background "white"
set output output
set datafile separator ","
set title sprintf("%s, %s, %s: share of the bandwidth at the same footprint", routine, kind, isa) noenhanced
set xlabel "n"
set ylabel "share (1: limit)"
set logscale x 2
set yrange [0:1.2]
set key right top
set grid
rows = sprintf("< awk -F, '$1 == \"%s\" && $3 == \"%s\" && $5 == $6' %s | sort -t, -k5,5n", kind, letter, file)
plot 1 with lines dt 2 lc rgb "grey" notitle, \
     rows using 5:12 with linespoints lw 2 pt 7 ps 0.5 title "tesh", \
     rows using 5:($15 / $13) with linespoints pt 6 ps 0.5 title "OpenBLAS", \
     rows using 5:($14 / $13) with linespoints pt 4 ps 0.5 title "plain blocked loop"
