#!/usr/bin/env bash
# The whole road beside its peers, one 1 GiB resource:
#   1. over HTTP from nginx on loopback: road_fetch without segment writing
#      beside `curl -o /dev/null`; road_fetch writing a fresh cache beside
#      `curl -o FILE` (both then store the gigabyte);
#   2. replayed from the disk cache: road_fetch (disk-cache level) beside `cat`
#      of the cache file with a warm page cache.
# Each round runs every pair, the peer first in even rounds and road_fetch
# first in odd ones; writes a table of the medians of the per-round ratios
# (and prints it) and fails when a target is missed.
#
#   bench/road/run.sh [rounds, default 7]        (as root; builds the release preset)
set -euo pipefail
cd "$(dirname "$0")/../.."
root=$(pwd)
source "$root/bench/lib/rounds.sh"
rounds=$(bench_rounds "${1:-}")
build=$root/build/release
size=$((${BENCH_MIB:-1024} * 1048576))

build_release road_fetch
fetch=$build/bin/road_fetch

bench_work road

# The payload: a real file with varied bytes, in the page cache.
mkdir -p "$work/www" "$work/cache"
head -c "$size" /dev/urandom >"$work/www/1g.ts"
start_loopback_nginx "$work"
url=$nginx_url/1g.ts

# Every tool must read the whole resource, from the level it is meant to.
[[ $(curl -sf -o /dev/null -w '%{size_download}' "$url") == "$size" ]] || { echo "curl fetch failed"; exit 1; }
check() {  # cache folder, expected levels
  local result
  result=$("$fetch" "$url" "$1" ${3:-})
  grep -q "bytes=$size .* levels=$2\$" <<<"$result" || { echo "road_fetch: $result (expected levels=$2)"; exit 1; }
}
check "$work/cache" 4
check "$work/cache" 0
cache_file=$(find "$work/cache" -type f -name 'cache.*' | head -n 1)
[[ -n "$cache_file" ]] || { echo "no cache file"; exit 1; }

samples=$work/samples.txt
: >"$samples"
sample() { echo "$1 $2 $3" >>"$samples"; }
curl_plain() { sample plain curl "$(wall_of curl -s -o /dev/null "$url")"; }
road_plain() { sample plain road_fetch "$(wall_of "$fetch" "$url" "$work/none" --no-segment-writer)"; }
curl_store() {
  rm -f "$work/curl.out"
  sample store curl "$(wall_of curl -s -o "$work/curl.out" "$url")"
  rm -f "$work/curl.out"
  sync
}
road_store() {
  rm -rf "$work/fresh"
  sample store road_fetch "$(wall_of "$fetch" "$url" "$work/fresh")"
  sync
}
cat_replay() {
  cat "$cache_file" >/dev/null
  sample replay cat "$(wall_of cat "$cache_file")"
}
road_replay() {
  cat "$cache_file" >/dev/null
  sample replay road_fetch "$(wall_of "$fetch" "$url" "$work/cache")"
}
for ((round = 0; round < rounds; round++)); do
  pair "$round" curl_plain road_plain
  pair "$round" curl_store road_store
  pair "$round" cat_replay road_replay
done
check "$work/fresh" 0

cat >"$work/spec.json" <<JSON
{"title": "The road of one request beside its peers", "ours": "road_fetch", "chart": "MiB/s",
 "note": "One $((size / 1048576)) MiB resource, whole processes.",
 "cases": [
  {"case": "plain", "label": "over HTTP, no segment writing", "peer": "curl", "unit": "seconds", "bytes": $size,
   "target": {"on": "ratio", "op": ">=", "value": 0.9}},
  {"case": "store", "label": "over HTTP, writing the cache (curl -o FILE)", "peer": "curl", "unit": "seconds", "bytes": $size,
   "target": {"on": "ratio", "op": ">=", "value": 0.9}},
  {"case": "replay", "label": "replayed from the disk cache, warm", "peer": "cat", "unit": "seconds", "bytes": $size,
   "target": {"on": "ratio", "op": ">=", "value": 0.9}}
 ]}
JSON
report "$work/spec.json" "$samples" "$build/bench-road"
