#!/usr/bin/env bash
# A stalled level: the time from its last byte to the first byte of the next
# level, beside "read_timeout" (the wait the stream is told to allow). One
# stall_bench process reads ROUNDS x STALLS resources through one tunnel; the
# fake PCDN engine stalls each after 700001 bytes and the stream goes on over
# HTTP from a dlorigin of its own (see StallBench.cpp). Writes
# bench/results/stall.md and stall.png and fails when the median time is more
# than 20 ms over read_timeout.
#
#   bench/stall/run.sh [rounds, default 7]      (builds the release preset)
#   STALLS=5 READ_TIMEOUT_MS=1000 BENCH_RESULTS=/tmp/x bench/stall/run.sh 2
set -euo pipefail
cd "$(dirname "$0")/../.."
root=$(pwd)
source "$root/bench/lib/rounds.sh"
rounds=$(bench_rounds "${1:-}")
stalls=${STALLS:-5}
read_timeout_ms=${READ_TIMEOUT_MS:-1000}
excess_ms=20
results=${BENCH_RESULTS:-$root/bench/results}
build=$root/build/release
load=$(cut -d' ' -f1-3 /proc/loadavg)

build_release stall_bench dlorigin fake_pcdn_engine

work=$(mktemp -d /tmp/stall-bench.XXXXXX)
cleanup() {
  bash scripts/dlorigin-ctl.sh stop "$work/origin"
  rm -rf "$work"
}
trap cleanup EXIT
origin=$(bash scripts/dlorigin-ctl.sh start "$build/bin/dlorigin" "$work/origin")

"$build/bin/stall_bench" "$origin" "$build/engines/libpcdn_x64.so" "$work/run" --rounds="$rounds" \
  --stalls="$stalls" --read-timeout-ms="$read_timeout_ms" | tee "$work/runs.txt" | grep -v '^sample '
sed -n 's/^sample //p' "$work/runs.txt" >"$work/samples.txt"

# read_timeout is the same in every round, so a bound on the median time is
# a bound on the median excess over it.
limit=$((read_timeout_ms + excess_ms))
cat >"$work/spec.json" <<JSON
{"title": "A stalled level to the next level's first byte", "ours": "downloader", "chart": "ms",
 "note": "One process, one tunnel; each stream reads a $((2 * 1048576 + 4321))-byte resource that the fake PCDN engine stalls after 700001 bytes and goes on over HTTP from dlorigin on loopback. Time: from the read that returned the stalled level's last byte to the read that returned the next level's first byte, $stalls stalls a round (each a row's sample), beside read_timeout = $read_timeout_ms ms. Target: at most read_timeout + $excess_ms ms. read_timeout is a setting, not a program: the order of the sides does not apply. Load average at the start: $load.",
 "cases": [
  {"case": "stall", "label": "last byte of the stalled level to the next level's first", "peer": "read_timeout",
   "unit": "ms", "target": {"on": "ours", "op": "<=", "value": $limit}}
 ]}
JSON
mkdir -p "$results"
report "$work/spec.json" "$work/samples.txt" "$results/stall"
