# SPDX-License-Identifier: BSD-3-Clause
# gnuplot -e "file=...; family='saxpby'; isa='avx512'; output=..." vector.gp: time of a warm call, peers' by ours.
set terminal svg size 720,420 font "sans,12" background "white"
set output output
set datafile separator ","
set title sprintf("%s, %s: time of the peer over ours, warm operands", family, isa)
set xlabel "n"
set ylabel "times faster than the peer"
set logscale x 10
set yrange [0:*]
set key right top
set grid
rows = sprintf("< awk -F, '$1 == \"%s\" && $3 == \"warm\"' %s", family, file)
plot 1 with lines dt 2 lc rgb "grey" notitle, \
     rows using 4:10 with linespoints pt 6 ps 0.5 title "OpenBLAS", \
     rows using 4:11 with linespoints pt 4 ps 0.5 title "BLIS"
