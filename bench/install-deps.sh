#!/usr/bin/env bash
# Installs what the benchmarks compare against (Debian packages).
set -euo pipefail
apt-get update -qq
apt-get install -y -qq libbenchmark-dev libssl-dev libxxhash-dev libsodium-dev libglib2.0-dev \
  pkg-config python3 >/dev/null
