# Draws the columns of a table of samples, one below the other:
#   gnuplot -c plot.gp TABLE PICTURE TITLE
table = ARG1
set output ARG2
stats table skip 1 nooutput
columns = STATS_columns
set terminal svg size 900,170*(columns-1)+40 dynamic background "white"
set multiplot layout columns-1,1 title ARG3
set lmargin 16
set rmargin 4
set grid
set format y "%.1s%c"
set key above left Left reverse samplen 1
do for [i=2:columns] {
  # Everything from zero on, so that growth looks as large as it is.
  set yrange [*:*]
  stats table using i skip 1 nooutput
  set yrange [0:1.2*STATS_max]
  if (i == columns) { set xlabel "attach/detach cycles" }
  plot table using 1:i with lines title columnheader(i)
}
unset multiplot
