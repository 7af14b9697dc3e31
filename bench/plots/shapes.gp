# SPDX-License-Identifier: BSD-3-Clause
# gnuplot -e "file=...; group='skinny'; isa='avx512'; output=..." shapes.gp: every case of a group of products in the
# order of its lines, GFLOP/s; the top edge is the peak. Below a case: letters, m x n x k, beta, leading dimensions.
set terminal svg size 960,520 font "sans,11" background "white"
set output output
set datafile separator ","
peak = real(system("awk '/^# peak:/ {print $3}' " . file))
set title sprintf("SGEMM, %s, %s", group, isa)
set ylabel "GFLOP/s (top edge: measured peak)"
set yrange [0:peak]
set xtics rotate by 90 right font "sans,8"
set key outside top horizontal
set offsets 0.5, 0.5, 0, 0
set grid ytics
rows = sprintf("< awk -F, '$1 == \"%s\"' %s", group, file)
label = "sprintf('%s %sx%sx%s %s %s', strcol(3), strcol(4), strcol(5), strcol(6), strcol(7), strcol(8))"
plot rows using 0:11:xticlabel(@label) with points pt 7 ps 0.5 title "tesh", \
     rows using 0:($11 / $14) with points pt 6 ps 0.5 title "OpenBLAS", \
     rows using 0:($11 / $15) with points pt 4 ps 0.5 title "BLIS"
