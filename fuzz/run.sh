#!/usr/bin/env bash
# Runs each target for $1 seconds (default 10); a failure leaves its reproducer here.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
bin=${TAVUTIL_FUZZ_BIN:-$here/../build-fuzz/fuzz}
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
for seeds in "$here"/corpus/*/; do
    target=$(basename "$seeds")
    cp -r "$seeds" "$scratch/$target"
    dict=()
    [ -f "$here/$target.dict" ] && dict=(-dict="$here/$target.dict")
    "$bin/fuzz_$target" "${dict[@]}" -max_total_time="${1:-10}" -timeout=60 -report_slow_units=60 "$scratch/$target" >"$scratch/log" 2>&1 ||
        { tail -n 40 "$scratch/log"; exit 1; }
    echo "$target: $(grep -E '^Done [0-9]+ runs' "$scratch/log")"
done
