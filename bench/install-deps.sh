#!/usr/bin/env bash
# Installs what the benchmarks compare against (Debian packages).
set -euo pipefail
apt-get update -qq
apt-get install -y -qq libbenchmark-dev libssl-dev libxxhash-dev >/dev/null
