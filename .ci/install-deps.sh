#!/usr/bin/env bash
# The Debian packages CI needs beyond the machine image: gcovr for the
# coverage report, Doxygen for the reference, xxd for the tool's check, and
# clang's runtime archives (libFuzzer, sanitizers) for the fuzz targets, and
# what the package test and the consumers use (dpkg-shlibdeps, pkg-config).
set -euo pipefail
missing=()
for package in gcovr doxygen xxd libclang-rt-14-dev dpkg-dev pkg-config; do
  dpkg -s "$package" >/dev/null 2>&1 || missing+=("$package")
done
if [ ${#missing[@]} -gt 0 ]; then
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
