#!/usr/bin/env bash
# The whole road beside its peers, one 1 GiB resource:
#   1. over HTTP from nginx on loopback: road_fetch without segment writing
#      beside `curl -o /dev/null`; road_fetch writing a fresh cache beside
#      `curl -o FILE` (both then store the gigabyte);
#   2. replayed from the disk cache: road_fetch (disk-cache level) beside `cat`
#      of the cache file with a warm page cache.
# Median of alternating rounds; writes a table of ratios (and prints it).
#
#   bench/road/run.sh [rounds]        (as root; builds the release preset)
set -euo pipefail
cd "$(dirname "$0")/../.."
root=$(pwd)
rounds=${1:-5}
build=$root/build/release
out=$build/bench-road.md
size=1073741824

cmake --preset release >/dev/null
cmake --build --preset release -j2 --target road_fetch >/dev/null
fetch=$build/bin/road_fetch

work=$(mktemp -d /tmp/road-bench.XXXXXX)
source "$root/bench/loopback-nginx.sh"
cleanup() {
  stop_loopback_nginx
  rm -rf "$work"
}
trap cleanup EXIT

# The payload: a real file with varied bytes, in the page cache.
mkdir -p "$work/www" "$work/cache"
head -c "$size" /dev/urandom >"$work/www/1g.ts"
start_loopback_nginx "$work"
url=$nginx_url/1g.ts

# Runs a command; prints its wall seconds.
measure() {
  local TIMEFORMAT='%R'
  { time "$@" >/dev/null 2>&1; } 2>&1
}
median() { printf '%s\n' "$@" | sort -g | awk '{a[NR]=$1} END {print (NR % 2) ? a[(NR+1)/2] : (a[NR/2] + a[NR/2+1]) / 2}'; }

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

declare -a curl_s curl_file_s road_s plain_s cat_s replay_s
for ((round = 0; round < rounds; round++)); do
  curl_s+=("$(measure curl -s -o /dev/null "$url")")
  plain_s+=("$(measure "$fetch" "$url" "$work/none" --no-segment-writer)")
  rm -f "$work/curl.out"
  curl_file_s+=("$(measure curl -s -o "$work/curl.out" "$url")")
  rm -f "$work/curl.out"
  rm -rf "$work/fresh"
  road_s+=("$(measure "$fetch" "$url" "$work/fresh")")
  cat "$cache_file" >/dev/null
  cat_s+=("$(measure cat "$cache_file")")
  replay_s+=("$(measure "$fetch" "$url" "$work/cache")")
done
check "$work/fresh" 0

curl_wall=$(median "${curl_s[@]}")
curl_file_wall=$(median "${curl_file_s[@]}")
road_wall=$(median "${road_s[@]}")
plain_wall=$(median "${plain_s[@]}")
cat_wall=$(median "${cat_s[@]}")
replay_wall=$(median "${replay_s[@]}")
http_ratio=$(echo "$curl_file_wall / $road_wall" | bc -l)
plain_ratio=$(echo "$curl_wall / $plain_wall" | bc -l)
replay_ratio=$(echo "$cat_wall / $replay_wall" | bc -l)
rate() { echo "1024 / $1" | bc -l; }

{
  echo "# The road of one request beside its peers, $(date -u +%Y-%m-%dT%H:%MZ)"
  echo
  echo "One 1 GiB resource; median wall time of $rounds alternating rounds, each a whole process."
  echo
  echo "| run | seconds | MiB/s | ratio to its peer |"
  echo "|---|---|---|---|"
  printf '| curl -o /dev/null (HTTP peer) | %.3f | %.0f | |\n' "$curl_wall" "$(rate "$curl_wall")"
  printf '| road over HTTP, no segment writing | %.3f | %.0f | %.3f |\n' "$plain_wall" "$(rate "$plain_wall")" \
    "$plain_ratio"
  printf '| curl -o FILE (HTTP and store peer) | %.3f | %.0f | |\n' "$curl_file_wall" "$(rate "$curl_file_wall")"
  printf '| road over HTTP, writing the cache | %.3f | %.0f | %.3f |\n' "$road_wall" "$(rate "$road_wall")" "$http_ratio"
  printf '| cat of the cache file, warm (cache peer) | %.3f | %.0f | |\n' "$cat_wall" "$(rate "$cat_wall")"
  printf '| road replayed from the disk cache | %.3f | %.0f | %.3f |\n' "$replay_wall" "$(rate "$replay_wall")" \
    "$replay_ratio"
  echo
  echo "Targets: HTTP >= 0.90 of curl (reading, and reading while storing); replay >= 0.50 of cat."
} | tee "$out"

ok=1
(($(echo "$plain_ratio >= 0.90" | bc -l))) || ok=0
(($(echo "$http_ratio >= 0.90" | bc -l))) || ok=0
(($(echo "$replay_ratio >= 0.50" | bc -l))) || ok=0
((ok)) && echo "all targets met" || { echo "a target was missed"; exit 1; }
