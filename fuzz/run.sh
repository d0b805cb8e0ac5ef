#!/usr/bin/env bash
# Runs each target for $1 seconds (default 10) on a copy of its seeds, with its dictionary
# when it has one; a failure shows its log.
set -euo pipefail
here=$(dirname "$0")
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cp -r "$here/corpus" "$scratch"
for target in $(ls "$scratch/corpus"); do
    dict=() && [ -f "$here/$target.dict" ] && dict=(-dict="$here/$target.dict")
    "${TAVUTIL_FUZZ_BIN:-$here/../build-fuzz/fuzz}/fuzz_$target" "${dict[@]}" -max_total_time="${1:-10}" \
        -timeout=60 "$scratch/corpus/$target" >"$scratch/log" 2>&1 || { tail -n 40 "$scratch/log"; exit 1; }
    echo "$target: $(grep -E '^Done [0-9]+ runs' "$scratch/log")"
done
