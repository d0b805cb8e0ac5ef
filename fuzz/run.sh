#!/usr/bin/env bash
# Runs each target for $1 seconds (default 10) on a copy of its seeds; a failure shows its log.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cp -r "$here/corpus" "$scratch"
for seeds in "$scratch"/corpus/*/; do
    target=$(basename "$seeds")
    "${TAVUTIL_FUZZ_BIN:-$here/../build-fuzz/fuzz}/fuzz_$target" -max_total_time="${1:-10}" \
        -timeout=60 "$seeds" >"$scratch/log" 2>&1 || { tail -n 40 "$scratch/log"; exit 1; }
    echo "$target: $(grep -E '^Done [0-9]+ runs' "$scratch/log")"
done
