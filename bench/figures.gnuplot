# gnuplot -c bench/figures.gnuplot ROWS FOLDER: the figures of docs/dev/performance.md from the rows of rows.jq.
rows = ARG1
set datafile separator "\t"
set grid
set tics nomirror

# Cost a signal against its length. Lines: the library; crosses: the bare calls.
set terminal svg size 1140,420 dynamic background rgb "white" font "sans-serif,12"
set output ARG2."/cost-by-length.svg"
set multiplot layout 1,3
set logscale xy
set xrange [0.7:200000]
set xtics (1, 20, 240, 4000, 65535)
set xlabel "bytes of a signal"
set xtics font ",10"
set ylabel "µs a signal"
set format y "%g"
set key top left
points(call, n, column) = sprintf("<awk -F '\t' '{ split($1, part, \"/\") } part[1] == \"%s\" && part[2] == %d { print part[3] FS $%d / 1000 }' %s", call, n, column, rows)
do for [call in "transmit_data receive_data process_take"] {
  set title (call eq "process_take" ? "process, take" : call) noenhanced
  plot for [i=1:3] n = word("8 24 4088", i) + 0 points(call, n, 3) using 1:2 with lines lw 2 lc i title sprintf("N = %d", n), \
       for [i=1:3] points(call, word("8 24 4088", i) + 0, 8) using 1:2 with points pt 2 ps 0.9 lc i title (i == 3 ? "bare calls" : "")
}
unset multiplot

# A query of a unit's state, compared with other ways.
set terminal svg size 720,300 dynamic background rgb "white" font "sans-serif,12"
set output ARG2."/unit-query.svg"
unset logscale
unset key
set title "get_unit_activestate and its rivals" noenhanced
set xlabel "ms a query, log axis"
unset ylabel
set logscale x
set xrange [0.05:200]
set xtics (0.1, 0.3, 1, 3, 10, 30, 100)
set yrange [5.6:-0.6] 
set ytics noenhanced
bars = sprintf("<awk -F '\t' '$1 == \"get_unit_activestate\" { if (!n++) print \"the library\" FS $3; print $2 FS $8 } $2 == \"not held\" { print \"the library, bus reference held\" FS $3 }' %s", rows)
set boxwidth 0.3
set style fill solid 0.6
plot bars using (0.05):0:(0.05):($2 / 1e6):($0 - 0.3):($0 + 0.3):ytic(1) with boxxyerror lc 1, \
     bars using ($2 / 1e6):0:(sprintf("  %.2f ms", $2 / 1e6)) with labels left
