#!/usr/bin/env bash
# Many streams at once: 8 tunnels x 8 streams in one scale_host process, every
# stream reading its own 64 MiB file from nginx on loopback, beside 64 curl
# processes and beside one `curl --parallel --parallel-max 64` reading the
# same 64 files. Each round runs all three, the peers first in even rounds and
# scale_host first in odd ones. Reports throughput, CPU seconds per GiB (user +
# sys of the whole processes) and peak RSS per stream (the process's peak RSS
# / 64), as medians of the per-round ratios with their min and max; fails when
# a target is missed. Results: bench/results/scale.md and scale.png.
#
#   bench/scale/run.sh [rounds, default 7]        (as root; builds the release preset)
#   BENCH_MIB=4 BENCH_RESULTS=/tmp/x bench/scale/run.sh 2   checks the script itself
set -euo pipefail
cd "$(dirname "$0")/../.."
root=$(pwd)
source "$root/bench/lib/rounds.sh"
rounds=$(bench_rounds "${1:-}")
results=${BENCH_RESULTS:-$root/bench/results}
build=$root/build/release
file_size=$((${BENCH_MIB:-64} * 1048576))
streams=64

build_release scale_host
host=$build/bin/scale_host

bench_work scale
mkdir -p "$work/www"
# Sparse: the page cache, not the disk, feeds nginx.
for ((k = 0; k < streams; k++)); do truncate -s "$file_size" "$work/www/f$k.bin"; done
start_loopback_nginx "$work"
total=$((file_size * streams))

urls=()
parallel_args=()
for ((k = 0; k < streams; k++)); do
  urls+=("$nginx_url/f$k.bin")
  parallel_args+=(-o /dev/null "$nginx_url/f$k.bin")
done
curl_processes() {
  local url
  for url in "${urls[@]}"; do curl -s -o /dev/null "$url" & done
  wait
}
export -f curl_processes

# Before anything is timed: every side reads every byte.
line=$("$host" "$nginx_url" "$work/cache")
[[ $line == "bytes=$total streams=$streams failed=0 "* ]] || { echo "scale_host: $line"; exit 1; }
got=$(curl -s --parallel --parallel-max "$streams" -w '%{size_download}\n' "${parallel_args[@]}" 2>/dev/null | awk '{s += $1} END {printf "%.0f\n", s}')
[[ $got == "$total" ]] || { echo "curl --parallel read $got bytes, $total expected"; exit 1; }

samples=$work/samples.txt
: >"$samples"
gib=1073741824
# One side's round: throughput against both peers, CPU per GiB, RSS per stream.
record() {  # program, cases for its wall, "wall cpu peak_rss_kib"
  local program=$1 cases=$2 wall cpu rss key
  read -r wall cpu rss <<<"$3"
  for key in $cases; do echo "wall_$key $program $wall" >>"$samples"; done
  for key in $cases; do echo "cpu_$key $program $(echo "$cpu * $gib / $total" | bc -l)" >>"$samples"; done
  echo "rss $program $(echo "$rss / 1024 / $streams" | bc -l)" >>"$samples"
}
peers() {
  local wall cpu rss
  read -r wall cpu rss < <(times_of bash -c "$(declare -p urls); curl_processes")
  echo "wall_processes curl-x64 $wall" >>"$samples"
  echo "cpu_processes curl-x64 $(echo "$cpu * $gib / $total" | bc -l)" >>"$samples"
  record curl-parallel parallel "$(times_of curl -s --parallel --parallel-max "$streams" "${parallel_args[@]}")"
}
ours() {
  rm -rf "$work/cache"
  record scale_host "processes parallel" "$(times_of "$host" "$nginx_url" "$work/cache")"
}
echo "scale: $rounds rounds"
for ((round = 0; round < rounds; round++)); do
  pair "$round" peers ours
done

mib=$((file_size / 1048576))
cat >"$work/spec.json" <<JSON
{"title": "$streams streams at once", "ours": "scale_host", "chart": "MiB/s",
 "note": "8 tunnels x 8 streams in one scale_host process, each stream reading its own $mib MiB file from nginx on loopback; curl-x64: $streams curl processes at once; curl-parallel: one curl --parallel --parallel-max $streams. Whole processes, start-up included.",
 "cases": [
  {"case": "wall_processes", "label": "throughput beside $streams curl processes", "peer": "curl-x64", "unit": "seconds",
   "bytes": $total, "target": {"on": "ratio", "op": ">=", "value": 1.0}},
  {"case": "wall_parallel", "label": "throughput beside curl --parallel", "peer": "curl-parallel", "unit": "seconds",
   "bytes": $total},
  {"case": "cpu_processes", "label": "CPU seconds per GiB beside $streams curl processes", "peer": "curl-x64",
   "unit": "CPU s/GiB"},
  {"case": "cpu_parallel", "label": "CPU seconds per GiB beside curl --parallel", "peer": "curl-parallel",
   "unit": "CPU s/GiB"},
  {"case": "rss", "label": "peak RSS per stream", "peer": "curl-parallel", "unit": "MiB",
   "target": {"on": "ours", "op": "<=", "value": 1.0}}
 ]}
JSON
mkdir -p "$results"
report "$work/spec.json" "$samples" "$results/scale"
