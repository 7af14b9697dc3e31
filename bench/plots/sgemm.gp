# SPDX-License-Identifier: BSD-3-Clause
# gnuplot -e "file=...; pair='NN'; isa='avx512'; output=..." sgemm.gp: square products, GFLOP/s; the top edge is the peak.
set terminal svg size 720,420 font "sans,12" background "white"
set output output
set datafile separator ","
peak = real(system("awk '/^# peak:/ {print $3}' " . file))
set title sprintf("SGEMM, squares, %s, %s", pair, isa)
set xlabel "m = n = k"
set ylabel "GFLOP/s (top edge: measured peak)"
set logscale x 2
set yrange [0:peak]
set key right bottom
set grid
rows = sprintf("< awk -F, '$3 == \"%s\" && $4 == $5 && $5 == $6' %s | sort -t, -k4,4n", pair, file)
plot rows using 4:11 with linespoints lw 2 pt 7 ps 0.5 title "tesh", \
     rows using 4:($11 / $14) with linespoints lw 1 pt 6 ps 0.5 title "OpenBLAS", \
     rows using 4:($11 / $15) with linespoints lw 1 pt 4 ps 0.5 title "BLIS"
