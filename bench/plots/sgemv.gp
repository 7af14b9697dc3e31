# SPDX-License-Identifier: BSD-3-Clause
# gnuplot -e "file=...; isa='avx512'; output=..." sgemv.gp: square matrices, share of the machine's load bandwidth.
set terminal svg size 720,420 font "sans,12" background "white"
set output output
set datafile separator ","
set title sprintf("SGEMV, square, %s: share of the measured load bandwidth", isa)
set xlabel "m = n"
set ylabel "share (1: limit)"
set logscale x 2
set yrange [0:1.2]
set key right bottom
set grid
rows(trans) = sprintf("< awk -F, '$3 == \"%s\" && $7 == \"tesh\" && $4 == $5' %s", trans, file)
plot 1 with lines dt 2 lc rgb "grey" notitle, \
     rows("N") using 4:14 with linespoints pt 7 ps 0.5 title "N", \
     rows("T") using 4:14 with linespoints pt 5 ps 0.5 title "T"
