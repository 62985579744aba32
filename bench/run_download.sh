#!/bin/sh
# Runs the download benchmark: builds it, makes sure the comparison programs are there, and
# leaves the table in bench/results/download.txt. Usage: bench/run_download.sh [sizes...]
set -eu
here=$(cd "$(dirname "$0")/.." && pwd)
build="${BUILD_DIR:-$here/build-bench}"

# The programs compared against; installed here only, never for the tests.
missing=""
command -v slrnpull >/dev/null 2>&1 || missing="$missing slrnpull"
command -v tin >/dev/null 2>&1 || missing="$missing tin"
if [ -n "$missing" ]; then
    DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends $missing
fi

cmake -S "$here" -B "$build" -G Ninja -DVW_GUI=OFF -DVW_BENCH=ON
ninja -C "$build" -j2 bench_download
"$build/bench/bench_download" "$@"
{
    echo
    echo "Machine while it ran: $(nproc) processors, load average $(cut -d' ' -f1-3 /proc/loadavg)."
    echo "Data directory file system: $(stat -f -c %T /tmp)."
} >> "$here/bench/results/download.txt"
cat "$here/bench/results/download.txt"
