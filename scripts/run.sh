#!/usr/bin/env bash
# Installs what the demo needs, builds the libraries and dlplay (release, no
# tests) and runs dlplay's demo: a synthetic HLS rendition played over HTTP from
# a loopback origin, then again from the cache. scripts/test.sh builds and runs
# everything else.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/deps.sh demo
cmake --preset dist >/dev/null
cmake --build --preset dist --target dlplay -j "$(nproc)"
exec build/dist/bin/dlplay "$@"
