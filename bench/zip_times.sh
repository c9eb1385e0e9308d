#!/usr/bin/env bash
# Times zipping and unzipping generated folders of several sizes with Ziploom and with Info-ZIP
# (deflated, side by side in the same run, best of two) and plots wall seconds against folder
# size into bench/zip_times.png; prints the figures it plotted.
#
# Usage: bench/zip_times.sh [build folder (default build)] [sizes in MB (default 10 25 50 100 200)]
# The build folder needs -DFRAMELOOM_BUILD_BENCH=ON and the ziploom_zip_benchmark target.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
shift || true
sizes=("$@")
if [ ${#sizes[@]} -eq 0 ]; then
  sizes=(10 25 50 100 200)
fi

if ! command -v gnuplot >/dev/null; then
  if [ "$(id -u)" -eq 0 ]; then
    DEBIAN_FRONTEND=noninteractive apt-get install -y gnuplot-nox
  else
    echo "The plot needs gnuplot. Install it with:" >&2
    echo "  sudo apt-get update && sudo apt-get install -y gnuplot-nox" >&2
    exit 1
  fi
fi

data=$(mktemp)
trap 'rm -f "$data"' EXIT
{
  echo "# Wall seconds, best of two, taken on $(date -u +%Y-%m-%d) under the load of the time"
  echo "# MB ziploom-zip info-zip-zip ziploom-unzip info-zip-unzip"
  for megabytes in "${sizes[@]}"; do
    nice "$build/bench/ziploom_zip_benchmark" "$megabytes" 2 --folder-only
  done
} >"$data"

gnuplot <<PLOT
set terminal pngcairo size 900,560 font "sans,11"
set output "bench/zip_times.png"
set title "Zipping and unzipping a mixed folder, deflated (wall time, best of two, shared machine)"
set xlabel "folder size (MB)"
set ylabel "seconds"
set key top left
set grid
plot "$data" using 1:2 with linespoints lw 2 pt 7 title "Frameloom zip", \
     "$data" using 1:3 with linespoints lw 2 pt 5 title "Info-ZIP zip -r -6", \
     "$data" using 1:4 with linespoints lw 2 pt 7 dt 2 title "Frameloom unzip", \
     "$data" using 1:5 with linespoints lw 2 pt 5 dt 2 title "Info-ZIP unzip"
PLOT
cat "$data"
echo "wrote bench/zip_times.png"
