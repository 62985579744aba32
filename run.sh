#!/usr/bin/env bash
# Installs what is missing, builds the program and starts it.
set -euo pipefail
cd "$(dirname "$0")"
tools/setup-debian.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
ninja -C build vellowick
exec ./build/vellowick "$@"
