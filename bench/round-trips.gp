# The picture of docs/performance.md. Needs the variables `data` and `out`; scripts/bench sets them.
set terminal svg size 1000,760 font "sans-serif,13" background "white"
set output out
set datafile separator "\t"
set datafile missing "–"
set style data histograms
set style histogram clustered gap 1.5
set style fill solid
set boxwidth 0.9
set border 3
set tics nomirror scale 0.3
set bmargin 3.5
set grid ytics linetype 1 linecolor rgb "#dddddd"
set yrange [0:*]
set xrange [-0.7:5.7]
set ylabel "microseconds"
set key outside right top Left reverse samplen 1
label(scenario) = word(scenario, 1)."\n".word(scenario, 2)
array color[8] = ["#bbbbbb", "#9ecae1", "#4292c6", "#cb181d", "#fb6a4a", "#74c476", "#238b45", "#54278f"]
set multiplot layout 2,1
do for [placement = 0:1] {
    set title "Round trip of one command, median; ".(placement == 0 ? "all on one core" \
        : "where the scheduler places the processes")
    plot for [i = 2:9] data index placement using i:xticlabels(label(strcol(1))) title columnheader(i) \
        linecolor rgb color[i - 1]
}
unset multiplot
