#!/usr/bin/env bash
# Line and branch coverage of the toolkit-free core by the core tests, in a build folder of its
# own (build-coverage), printed as gcovr's summary. Usage: tools/coverage.sh [ctest -R pattern]
set -euo pipefail
cd "$(dirname "$0")/.."

if ! command -v gcovr >/dev/null 2>&1; then
    if [[ $(id -u) -eq 0 ]]; then apt-get install -y -qq gcovr; else sudo apt-get install -y -qq gcovr; fi
fi

build=build-coverage
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DVW_GUI=OFF \
    -DCMAKE_CXX_FLAGS="--coverage -fprofile-update=atomic" \
    -DCMAKE_EXE_LINKER_FLAGS="--coverage" >/dev/null
ninja -C "$build"
find "$build" -name '*.gcda' -delete
(cd "$build" && ctest -L core -j "$(nproc)" --timeout 600 ${1:+-R "$1"} >/dev/null) || true

# Only the core's own folders count; exceptions' hidden branches and the test code do not.
gcovr --root . --object-directory "$build" \
    --filter '(app|base|message|net|storage|reader|compose|groups|ui)/' \
    --exclude-throw-branches --exclude-unreachable-branches \
    --print-summary --txt "$build/coverage.txt" | tail -3
