#!/usr/bin/env bash
# Installs what is missing, builds the program and starts it.
#   ./run.sh          with your own settings and messages
#   ./run.sh --demo   on a private demo news server, with everything kept under build/demo/
set -euo pipefail
cd "$(dirname "$0")"
tools/setup-debian.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
if [[ "${1:-}" == "--demo" ]]; then
    ninja -C build vellowick vellowick-demo
    exec ./build/vellowick-demo --root build/demo --program ./build/vellowick
fi
ninja -C build vellowick
exec ./build/vellowick "$@"
