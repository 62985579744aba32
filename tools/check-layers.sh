#!/usr/bin/env bash
# Fails when a source file includes a header of a folder above its own. The folders are layers,
# lowest first; a file may include headers of its own folder and of the folders before it.
#
#   tools/check-layers.sh [REPOSITORY]
set -euo pipefail
cd "${1:-$(dirname "$0")/..}"

layers=(base message app storage net reader compose groups ui)
declare -A rank
for i in "${!layers[@]}"; do
    rank[${layers[$i]}]=$i
done

status=0
for folder in "${layers[@]}"; do
    [[ -d $folder ]] || continue
    while IFS=: read -r file line text; do
        included=$(sed -E 's/^[[:space:]]*#[[:space:]]*include[[:space:]]*"([a-z]+)\/.*/\1/' <<<"$text")
        [[ -n ${rank[$included]+set} ]] || continue
        if (( rank[$included] > rank[$folder] )); then
            echo "$file:$line: $folder/ must not include $included/ (a layer above it)"
            status=1
        fi
    done < <(grep -nE '^[[:space:]]*#[[:space:]]*include[[:space:]]*"[a-z]+/' \
                 "$folder"/*.h "$folder"/*.cpp 2>/dev/null || true)
done
if (( status == 0 )); then
    echo "layers: every include runs downward (${layers[*]})"
fi
exit "$status"
