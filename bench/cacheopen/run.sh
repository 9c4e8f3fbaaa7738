#!/usr/bin/env bash
# Opening a cached segment and reading its first 64 KiB through a tunnel,
# beside open + pread of the same file, in one process with a warm page cache.
# Prints each round, then the table of medians of the per-round ratios
# (bench/results/cacheopen.md and .png) and fails when ours takes more than
# three times pread's.
#
#   bench/cacheopen/run.sh [rounds, default 7]
set -euo pipefail
cd "$(dirname "$0")/../.."
root=$(pwd)
source "$root/bench/lib/rounds.sh"
rounds=$(bench_rounds "${1:-}")
build=$root/build/release
results=${BENCH_RESULTS:-$root/bench/results}
mkdir -p "$results"
build_release cache_open_bench

bench_work cacheopen
"$build/bin/cache_open_bench" "$work/cache" "$rounds" | tee "$work/runs.txt" | grep -v '^sample '
# Microseconds: the table's three figures and the chart's axis read better.
sed -n 's/^sample //p' "$work/runs.txt" | awk '{printf "%s %s %.3f\n", $1, $2, $3 * 1e6}' >"$work/samples.txt"

cat >"$work/spec.json" <<JSON
{"title": "Opening a cached segment beside open + pread", "ours": "ours", "chart": "us",
 "note": "One 4 MiB resource in the disk cache: a stream's Open, Reads until 64 KiB are in hand, Close; beside open, pread of 64 KiB, close of its cache file. Median of 200 of each per round.",
 "cases": [
  {"case": "open64k", "label": "open + first 64 KiB", "peer": "pread", "unit": "us",
   "target": {"on": "ratio", "op": ">=", "value": 0.3333}}
 ]}
JSON
report "$work/spec.json" "$work/samples.txt" "$results/cacheopen"
