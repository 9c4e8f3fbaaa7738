#!/usr/bin/env bash
# Builds the release preset and runs the storage benchmark in a scratch
# directory on the same disk as the cache would be (default: $TMPDIR or /tmp).
# Prints each run and a table of medians and ratios.
set -euo pipefail
cd "$(dirname "$0")/../.."
rounds=${ROUNDS:-5}
scratch=$(mktemp -d "${1:-${TMPDIR:-/tmp}}/storage-bench.XXXXXX")
trap 'rm -rf "$scratch"' EXIT
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)" --target storage_bench
build/release/bin/storage_bench "$scratch" "$rounds"
