# SPDX-License-Identifier: BSD-3-Clause
# growth.gnuplot FOLDER: plots the two tables of growth.py in FOLDER.
set terminal svg size 720,420 background "white"
set key top left
set ylabel "seconds"
set yrange [0:*]
set grid
set output ARG1."/growth_size.svg"
set xlabel "size of one source, MiB"
plot ARG1."/growth_size.dat" using ($1/1048576):2 with linespoints title "hdl-comp-pkg", \
     "" using ($1/1048576):3 with linespoints title "copying and sync"
set output ARG1."/growth_count.svg"
set xlabel "sources of 1 KiB"
plot ARG1."/growth_count.dat" using 1:2 with linespoints title "hdl-comp-pkg", \
     "" using 1:3 with linespoints title "copying and sync"
