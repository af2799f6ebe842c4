# Draws how long messages took, ours beside bare ones:
#   gnuplot -c plot.gp CURVES PICTURE
# CURVES has a block of lines for each curve: first the two curves alone and then under each load,
# for one direction after the other.
set output ARG2
curves = ARG1
loads = 6
set terminal svg size 1000,900 dynamic background "white"
set multiplot layout 2,1 title "How much of all messages took longer"
set logscale xy
set grid
set xlabel "microseconds"
set ylabel "share of messages"
set format y "%g"
set yrange [0.0005:1]
set key outside right top
array title[2] = ["from a device to the driver", "from an input to a device"]
do for [way=1:2] {
  set title title[way]
  plot for [load=0:loads-1] curves index (load*2+way-1)*2 using 1:2 with lines lw 2 \
         lc load+1 title columnheader(1), \
       for [load=0:loads-1] curves index (load*2+way-1)*2+1 using 1:2 with lines dt 2 \
         lc load+1 title columnheader(1)
}
unset multiplot
