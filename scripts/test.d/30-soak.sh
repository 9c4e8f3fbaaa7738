#!/usr/bin/env bash
# The soak for a short while under ASan, then under TSan: every fault mixed,
# the cache damaged between rounds, every byte checked. DL_SOAK_DURATION sets
# each run's length (default 2m).
set -euo pipefail
cd "$(dirname "$0")/../.."
duration=${DL_SOAK_DURATION:-2m}
for build in build/asan build/tsan; do
  bash bench/soak/run.sh "$duration" "$build"
done
