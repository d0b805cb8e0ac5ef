#!/usr/bin/env bash
# Runs each target for $1 seconds (default 10) on a copy of its seeds; a failure shows its log.
set -euo pipefail
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cp -r "$(dirname "$0")/corpus" "$scratch"
for target in $(ls "$scratch/corpus"); do
    "${TAVUTIL_FUZZ_BIN:-$(dirname "$0")/../build-fuzz/fuzz}/fuzz_$target" -max_total_time="${1:-10}" \
        -timeout=60 "$scratch/corpus/$target" >"$scratch/log" 2>&1 || { tail -n 40 "$scratch/log"; exit 1; }
    echo "$target: $(grep -E '^Done [0-9]+ runs' "$scratch/log")"
done
