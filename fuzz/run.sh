#!/usr/bin/env bash
# Runs every fuzz target for a fixed time (seconds, default 10) over a scratch
# copy of its seeds, after `cmake --preset fuzz && cmake --build --preset fuzz`.
# Fails at the first target that fails; its reproducer is left in the
# current directory (crash-*, leak-*, ...).
set -euo pipefail
seconds=${1:-10}
here=$(cd "$(dirname "$0")" && pwd)
bin=${TAVUTIL_FUZZ_BIN:-$here/../build-fuzz/fuzz}
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
for seeds in "$here"/corpus/*/; do
    target=$(basename "$seeds")
    cp -r "$seeds" "$scratch/$target"
    dict=()
    [ -f "$here/$target.dict" ] && dict=(-dict="$here/$target.dict")
    echo "== $target (${seconds}s)"
    if ! "$bin/fuzz_$target" "${dict[@]}" -max_total_time="$seconds" "$scratch/$target" \
        >"$scratch/log" 2>&1; then
        tail -n 40 "$scratch/log"
        exit 1
    fi
    grep -E "^Done [0-9]+ runs" "$scratch/log" || true
done
