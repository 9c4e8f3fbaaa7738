#!/usr/bin/env bash
# wisp beside curl: downloads of one 1 GiB file from nginx on loopback,
# `curl -o /dev/null` and wisp_fetch in each round, curl first in even rounds
# and wisp_fetch first in odd ones (median of the per-round ratios), then a 256 MiB download
# through wisp with a reader four times slower than the network, watching the
# process's peak memory. Writes a table of ratios (and prints it).
#
#   bench/wisp/run.sh [rounds, default 7]        (as root; builds the release preset)
set -euo pipefail
cd "$(dirname "$0")/../.."
root=$(pwd)
source "$root/bench/lib/rounds.sh"
rounds=$(bench_rounds "${1:-}")
build=$root/build/release
size=$((${BENCH_MIB:-1024} * 1048576))

build_release wisp_fetch
fetch=$build/bin/wisp_fetch

bench_work wisp

# The payload: sparse files, so that the page cache, not the disk, feeds nginx.
mkdir -p "$work/www"
truncate -s "$size" "$work/www/1g.bin"
truncate -s 256M "$work/www/256m.bin"
start_loopback_nginx "$work"
url=$nginx_url

# Both tools must fetch the whole file for their times to mean anything.
[[ $(curl -sf -o /dev/null -w '%{size_download}' "$url/1g.bin") == "$size" ]] || { echo "curl fetch failed"; exit 1; }
grep -q "bytes=$size " <<<"$("$fetch" "$url/1g.bin")" || { echo "wisp_fetch failed"; exit 1; }

samples=$work/samples.txt
: >"$samples"
# Each side's wall and CPU seconds (user+sys) of one round.
measure() {
  local name=$1 wall cpu rss
  shift
  read -r wall cpu rss < <(times_of "$@")
  echo "wall $name $wall" >>"$samples"
  echo "cpu $name $cpu" >>"$samples"
}
curl_round() { measure curl curl -s -o /dev/null "$url/1g.bin"; }
wisp_round() { measure wisp_fetch "$fetch" "$url/1g.bin"; }
for ((round = 0; round < rounds; round++)); do
  pair "$round" curl_round wisp_round
done
wisp_wall=$(awk '$1 == "wall" && $2 == "wisp_fetch" {print $3}' "$samples" | sort -g | awk '{a[NR]=$1} END {print a[int((NR+1)/2)]}')
wisp_rate=$(echo "$size / $wisp_wall" | bc -l)
cat >"$work/spec.json" <<JSON
{"title": "wisp beside curl, loopback nginx", "ours": "wisp_fetch", "chart": "MiB/s",
 "note": "$((size / 1048576)) MiB each round, whole processes.",
 "cases": [
  {"case": "wall", "label": "$((size / 1048576)) MiB over HTTP", "peer": "curl", "unit": "seconds", "bytes": $size,
   "target": {"on": "ratio", "op": ">=", "value": 0.95}},
  {"case": "cpu", "label": "CPU seconds (ratio >= 0.83: wisp <= 1.2x curl)", "peer": "curl", "unit": "CPU s",
   "target": {"on": "ratio", "op": ">=", "value": 0.83}}
 ]}
JSON
ok=1
report "$work/spec.json" "$samples" "$build/bench-wisp" || ok=0

# A reader four times slower than the network, over 256 MiB.
reader_rate=$(echo "$wisp_rate / 4" | bc -l | cut -d. -f1)
slow=$("$fetch" "$url/256m.bin" --reader-rate "$reader_rate")
rss_start=$(sed -E 's/.*rss_start_kib=([0-9]+).*/\1/' <<<"$slow")
rss_peak=$(sed -E 's/.*rss_peak_kib=([0-9]+).*/\1/' <<<"$slow")
slow_bytes=$(sed -E 's/.*bytes=([0-9]+).*/\1/' <<<"$slow")
growth_mib=$(echo "($rss_peak - $rss_start) / 1024" | bc -l)

{
  echo
  echo "Slow reader: 256 MiB through wisp, reader at $((reader_rate / 1048576)) MiB/s (a quarter of wisp's rate):"
  printf 'received %s bytes; RSS %s KiB at start, peak %s KiB: growth %.1f MiB.\n' \
    "$slow_bytes" "$rss_start" "$rss_peak" "$growth_mib"
  echo "Target: growth < 16 MiB."
} | tee -a "$build/bench-wisp.md"

(($(echo "$growth_mib < 16" | bc -l))) || ok=0
[[ $slow_bytes == 268435456 ]] || ok=0
((ok)) && echo "all targets met" || { echo "a target was missed"; exit 1; }
