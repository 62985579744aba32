#!/usr/bin/env bash
# Builds the libFuzzer targets of tests/fuzz with clang (AddressSanitizer and
# UndefinedBehaviorSanitizer) against the whole toolkit-free core, replays the saved crash
# inputs, then fuzzes each target for a bounded time.
#
#   tools/fuzz.sh SECONDS [TARGET...]     e.g. tools/fuzz.sh 30, tools/fuzz.sh 300 fuzz_url
#
# A target names its seed folders on a line "// Seeds: tests/data/a tests/data/b"; without one
# it is seeded from tests/data/articles. A crash leaves its input in build-fuzz/crashes/; copy it
# into tests/fuzz/regressions/<target>/ so that every later run replays it.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds="${1:-30}"
shift || true
out=build-fuzz
cxx="${FUZZ_CXX:-clang++}"
flags="-O1 -fno-omit-frame-pointer -fsanitize=address,undefined -fno-sanitize-recover=undefined"

if ! command -v "$cxx" >/dev/null; then
    echo "fuzz.sh: $cxx is not installed (apt-get install clang)" >&2
    exit 1
fi

# Every file of tests/fuzz named fuzz_*.cpp is a target of the build's VW_FUZZ option.
cmake -S . -B "$out" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_COMPILER="$cxx" \
    -DVW_GUI=OFF -DVW_TESTS=OFF -DVW_FUZZ=ON \
    -DCMAKE_CXX_FLAGS="$flags -fsanitize=fuzzer-no-link" >/dev/null
mkdir -p "$out/crashes"

if (( $# > 0 )); then
    targets=("$@")
else
    targets=()
    for file in tests/fuzz/fuzz_*.cpp; do
        targets+=("$(basename "$file" .cpp)")
    done
fi

failed=0
for target in "${targets[@]}"; do
    echo "== $target"
    ninja -C "$out" "$target" >"$out/$target.build.log" || { cat "$out/$target.build.log"; exit 1; }
    read -r -a seeds <<<"$(sed -n 's|^// Seeds: ||p' "tests/fuzz/$target.cpp" | head -n 1)"
    (( ${#seeds[@]} > 0 )) || seeds=(tests/data/articles)
    regressions="tests/fuzz/regressions/$target"
    if [[ -d "$regressions" ]] && compgen -G "$regressions/*" >/dev/null; then
        "$out/$target" -runs=0 "$regressions"/* >"$out/$target.replay.log" 2>&1 ||
            { failed=1; tail -n 60 "$out/$target.replay.log"; }
    fi
    corpus="$out/corpus/$target"
    mkdir -p "$corpus"
    log="$out/$target.log"
    if "$out/$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
        -artifact_prefix="$out/crashes/$target-" "$corpus" "${seeds[@]}" >"$log" 2>&1; then
        grep -E '^Done [0-9]+ runs' "$log" || tail -n 1 "$log"
    else
        failed=1
        tail -n 60 "$log"
    fi
done
exit "$failed"
