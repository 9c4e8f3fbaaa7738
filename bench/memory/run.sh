#!/usr/bin/env bash
# A slow reader's memory: one stream of a 512 MiB file from nginx on loopback
# read at 20 MiB/s, by dlplay (--reader-rate) beside `curl --limit-rate 20M`.
# The figure is each side's peak RSS growth: its peak RSS reading the big file
# minus its peak RSS reading a 1 MiB file the same way (start-up, libraries
# and the first buffers cancel out). Each round runs both sides, curl first in
# even rounds and dlplay first in odd ones; the table gives the medians with
# min and max, and fails when dlplay's median growth is above 4 MiB.
# Results: bench/results/memory.md and memory.png.
#
#   bench/memory/run.sh [rounds, default 7]        (as root; builds the release preset)
#   BENCH_MIB=8 BENCH_RESULTS=/tmp/x bench/memory/run.sh 2   checks the script itself
set -euo pipefail
cd "$(dirname "$0")/../.."
root=$(pwd)
source "$root/bench/lib/rounds.sh"
rounds=$(bench_rounds "${1:-}")
results=${BENCH_RESULTS:-$root/bench/results}
build=$root/build/release
size=$((${BENCH_MIB:-512} * 1048576))
rate=$((20 * 1048576))

build_release dlplay
dlplay=$build/bin/dlplay

bench_work memory
mkdir -p "$work/www"
# Sparse: the page cache, not the disk, feeds nginx.
truncate -s "$size" "$work/www/big.bin"
truncate -s 1M "$work/www/small.bin"
start_loopback_nginx "$work"
reading=(--set downloader_config.enable_segment_writer=false)

# Before anything is timed: dlplay reads every byte at the origin's level.
"$dlplay" --cache "$work/none" "${reading[@]}" --report json "$nginx_url/small.bin" 2>/dev/null |
  python3 -c 'import json, sys; r = [json.loads(l) for l in sys.stdin if l.strip()]
sys.exit(0 if len(r) == 1 and r[0]["code"] == 0 and r[0]["level"] == 4 and r[0]["bytes"] == 1048576 else 1)' ||
  { echo "memory: dlplay did not read the file from the origin"; exit 1; }

samples=$work/samples.txt
: >"$samples"
peak_kib() {  # command...: the peak RSS of a whole process
  local wall cpu rss
  read -r wall cpu rss < <(times_of "$@")
  echo "$rss"
}
growth() {  # program, command... (the URL's file name is added last)
  local program=$1 small big
  shift
  small=$(peak_kib "$@" "$nginx_url/small.bin")
  big=$(peak_kib "$@" "$nginx_url/big.bin")
  echo "growth $program $(echo "($big - $small) / 1024" | bc -l)" >>"$samples"
}
curl_round() { growth curl curl -s -o /dev/null --limit-rate "$rate"; }
dlplay_round() {
  rm -rf "$work/none"
  growth dlplay "$dlplay" --cache "$work/none" "${reading[@]}" --reader-rate "$rate"
}
echo "memory: $rounds rounds of $((size / 1048576)) MiB at $((rate / 1048576)) MiB/s"
for ((round = 0; round < rounds; round++)); do
  pair "$round" curl_round dlplay_round
done

cat >"$work/spec.json" <<JSON
{"title": "A slow reader's memory", "chart": "MiB",
 "note": "One stream of a $((size / 1048576)) MiB file from nginx on loopback read at $((rate / 1048576)) MiB/s; growth: peak RSS reading it minus peak RSS reading 1 MiB the same way. Ratio: curl's growth / dlplay's (below 1: dlplay grows more).",
 "cases": [
  {"case": "growth", "label": "peak RSS growth beside curl --limit-rate", "peer": "curl", "unit": "MiB", "better": "lower",
   "target": {"on": "ours", "op": "<=", "value": 4.0}}
 ]}
JSON
mkdir -p "$results"
report "$work/spec.json" "$samples" "$results/memory"
