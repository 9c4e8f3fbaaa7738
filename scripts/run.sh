#!/usr/bin/env bash
# Builds the library and its tools (release) and runs dlplay's demo: a synthetic
# HLS rendition played over HTTP from a loopback origin, then again from the cache.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/deps.sh
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)"

dlplay=build/release/bin/dlplay
if [[ -x "$dlplay" ]]; then
  exec "$dlplay" "$@"
fi
echo "run: the library and its tools are built under build/release; dlplay and its demo are not there yet."
