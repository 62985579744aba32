#!/usr/bin/env bash
# Builds the libFuzzer targets of tests/fuzz with clang (AddressSanitizer and
# UndefinedBehaviorSanitizer), replays the saved crash inputs, then fuzzes each target for a
# bounded time, seeded from tests/data.
#
#   tools/fuzz.sh SECONDS [TARGET...]     e.g. tools/fuzz.sh 30, tools/fuzz.sh 300 fuzz_url
#
# A crash leaves its input in build-fuzz/crashes/; copy it into
# tests/fuzz/regressions/<target>/ so that every later run replays it.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds="${1:-30}"
shift || true
out=build-fuzz
cxx="${FUZZ_CXX:-clang++}"
jobs="${FUZZ_JOBS:-2}"
flags=(-std=c++20 -g -O1 -I. -fno-omit-frame-pointer
       -fsanitize=address,undefined -fno-sanitize-recover=undefined)

if ! command -v "$cxx" >/dev/null; then
    echo "fuzz.sh: $cxx is not installed (apt-get install clang)" >&2
    exit 1
fi

# The classes under test and what they stand on. Only what a target links is taken from
# the archive.
sources=(
    base/BETIME.cpp base/CRITSECT.cpp base/DISKFILE.cpp base/DISKFILEATTR.cpp
    base/DISKFILEDIR.cpp base/DISKFILEPATH.cpp base/DISKFILEQUERY.cpp base/DISKFILETRASH.cpp
    base/DISKFILEXATTR.cpp base/MSGIDINDEX.cpp base/NODEMONITOR.cpp base/ParseDate.cpp
    base/STR.cpp base/TEXTFILE.cpp base/TextFormat.cpp base/TIMEBASE.cpp base/TIMEX.cpp
    base/URL.cpp net/NETWORKNAMES.cpp
    message/BINTEXT.cpp message/FORMAT.cpp message/HdrBuf.cpp message/HdrBufFile.cpp
    message/HdrBufParts.cpp message/HdrBufText.cpp message/IMsgAddress.cpp
    message/IMsgCharset.cpp message/IMsgMsgid.cpp message/IMsgNews.cpp message/IMsgQuote.cpp
)

mkdir -p "$out/obj" "$out/crashes"
objects=()
pids=()
for source in "${sources[@]}"; do
    object="$out/obj/$(echo "$source" | tr '/' '_').o"
    objects+=("$object")
    if [[ ! -f "$object" || "$source" -nt "$object" || -n "$(find base message net -name '*.h' -newer "$object" -print -quit)" ]]; then
        "$cxx" "${flags[@]}" -fsanitize=fuzzer-no-link -c "$source" -o "$object" &
        pids+=($!)
        if (( ${#pids[@]} >= jobs )); then
            wait "${pids[0]}"
            pids=("${pids[@]:1}")
        fi
    fi
done
for pid in "${pids[@]}"; do
    wait "$pid"
done
rm -f "$out/libfuzzcore.a"
ar rcs "$out/libfuzzcore.a" "${objects[@]}"

if (( $# > 0 )); then
    targets=("$@")
else
    targets=()
    for file in tests/fuzz/fuzz_*.cpp; do
        targets+=("$(basename "$file" .cpp)")
    done
fi

seeds=(tests/data/articles)
failed=0
for target in "${targets[@]}"; do
    echo "== $target"
    "$cxx" "${flags[@]}" -fsanitize=fuzzer "tests/fuzz/$target.cpp" "$out/libfuzzcore.a" \
        -lsqlite3 -lpthread -o "$out/$target"
    regressions="tests/fuzz/regressions/$target"
    if [[ -d "$regressions" ]] && compgen -G "$regressions/*" >/dev/null; then
        "$out/$target" -runs=0 "$regressions"/* || failed=1
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
