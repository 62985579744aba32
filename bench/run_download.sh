#!/bin/sh
# Runs the download benchmark: builds it, makes sure the comparison programs are there, and
# leaves the tables in bench/results/: download.txt with every run storing on the disk
# (/tmp), download-tmpfs.txt with ours, the bare stream and the file-system row storing in
# memory (/dev/shm), which shows what the program costs apart from the disk.
# Usage: bench/run_download.sh [sizes...]
set -eu
here=$(cd "$(dirname "$0")/.." && pwd)
build="${BUILD_DIR:-$here/build-bench}"
results="$here/bench/results"

# The programs compared against; installed here only, never for the tests.
missing=""
command -v slrnpull >/dev/null 2>&1 || missing="$missing slrnpull"
command -v tin >/dev/null 2>&1 || missing="$missing tin"
if [ -n "$missing" ]; then
    DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends $missing
fi

cmake -S "$here" -B "$build" -G Ninja -DVW_GUI=OFF -DVW_BENCH=ON
ninja -C "$build" -j2 bench_download

machine() {
    echo
    echo "Machine while it ran: $(nproc) processors, load average $(cut -d' ' -f1-3 /proc/loadavg)."
    echo "Data directory file system: $(stat -f -c %T "$1") ($1)."
}

TMPDIR=/tmp "$build/bench/bench_download" --out=download.txt "$@"
machine /tmp >> "$results/download.txt"
TMPDIR=/dev/shm "$build/bench/bench_download" --out=download-tmpfs.txt \
    --only=bare,file,Vellowick "$@"
machine /dev/shm >> "$results/download-tmpfs.txt"
cat "$results/download.txt" "$results/download-tmpfs.txt"
