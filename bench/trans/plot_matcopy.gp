# SPDX-License-Identifier: BSD-3-Clause
# One kind of cases of bench_somatcopy or bench_simatcopy against the limit of the machine; the plot's top edge is the limit.
#   bench_somatcopy --set square > somatcopy.csv
#   gnuplot -e "csv='somatcopy.csv'; out='somatcopy_square.svg'; kind='square'; letter='R'" bench/trans/plot_matcopy.gp
set terminal svg size 900,540 font "sans,14" background "white"
set output out
set datafile separator ","
set datafile commentschars "#"
set key left bottom
set grid
set logscale x 2
set xlabel "rows"
set ylabel "share of bandwidth at the same footprint"
set yrange [0:1]
set title kind
chosen(value) = strcol(1) eq kind && strcol(3) eq letter ? value : NaN
set datafile missing NaN
plot csv using 5:(chosen(column(12))) with linespoints pt 7 title "tesh", \
     csv using 5:(chosen(column(15) / column(13))) with linespoints pt 5 title "OpenBLAS", \
     csv using 5:(chosen(column(14) / column(13))) with linespoints pt 9 title "plain blocked loop"
