#!/usr/bin/env bash
# The HTTP executor beside curl: one 1 GiB file from nginx on loopback, read
# through WispDownloadExecutor::Read with packets of 4 KiB, 64 KiB and 1 MiB,
# beside `curl -o /dev/null` in every round (curl first in even rounds, the
# executor first in odd ones). Writes a table of the medians of the per-round
# throughput ratios (and prints it); fails when one is below 0.90.
#
#   bench/executors/run.sh [rounds, default 7]        (as root; builds the release preset)
set -euo pipefail
cd "$(dirname "$0")/../.."
root=$(pwd)
source "$root/bench/lib/rounds.sh"
rounds=$(bench_rounds "${1:-}")
build=$root/build/release
size=$((${BENCH_MIB:-1024} * 1048576))
packets=(4096 65536 1048576)
target=0.90

build_release executor_fetch
fetch=$build/bin/executor_fetch

bench_work executor
mkdir -p "$work/www"
# Sparse: the page cache, not the disk, feeds nginx.
truncate -s "$size" "$work/www/1g.bin"
start_loopback_nginx "$work"
url=$nginx_url/1g.bin

samples=$work/samples.txt
: >"$samples"
# One curl run per round is the peer of every packet size in that round.
curl_round() {
  local seconds packet
  seconds=$(wall_of curl -s -o /dev/null "$url")
  for packet in "${packets[@]}"; do echo "packet_$packet curl $seconds" >>"$samples"; done
}
executor_round() {
  local seconds packet line TIMEFORMAT='%R'
  for packet in "${packets[@]}"; do
    seconds=$({ time "$fetch" "$url" "$packet" >"$work/stdout" 2>/dev/null </dev/null; } 2>&1)
    line=$(cat "$work/stdout")
    [[ $line == "bytes=$size "* ]] || { echo "executor_fetch: $line" >&2; exit 1; }
    echo "packet_$packet executor $seconds" >>"$samples"
  done
}
for ((round = 0; round < rounds; round++)); do
  pair "$round" curl_round executor_round
done

cases=""
for packet in "${packets[@]}"; do
  cases+="${cases:+,}
  {\"case\": \"packet_$packet\", \"label\": \"$packet-byte packets\", \"peer\": \"curl\", \"unit\": \"seconds\",
   \"bytes\": $size, \"target\": {\"on\": \"ratio\", \"op\": \">=\", \"value\": $target}}"
done
cat >"$work/spec.json" <<JSON
{"title": "WispDownloadExecutor::Read beside curl, loopback nginx", "ours": "executor", "chart": "MiB/s",
 "note": "$((size / 1048576)) MiB each round, whole processes; one curl run per round is the peer of every packet size.",
 "cases": [$cases]}
JSON
report "$work/spec.json" "$samples" "$build/bench-executors"
