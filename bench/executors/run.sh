#!/usr/bin/env bash
# The HTTP executor beside curl: one 1 GiB file from nginx on loopback, read
# through WispDownloadExecutor::Read with packets of 4 KiB, 64 KiB and 1 MiB,
# alternating with `curl -o /dev/null` in every round. Writes a table of
# throughput ratios (and prints it); fails when a ratio is below 0.90.
#
#   bench/executors/run.sh [rounds]        (as root; builds the release preset)
set -euo pipefail
cd "$(dirname "$0")/../.."
root=$(pwd)
rounds=${1:-5}
build=$root/build/release
out=$build/bench-executors.md
packets=(4096 65536 1048576)
target=0.90

cmake --preset release >/dev/null
cmake --build --preset release -j2 --target executor_fetch >/dev/null
fetch=$build/bin/executor_fetch

source "$root/bench/loopback-nginx.sh"
work=$(mktemp -d /tmp/executor-bench.XXXXXX)
cleanup() {
  stop_loopback_nginx
  rm -rf "$work"
}
trap cleanup EXIT
mkdir -p "$work/www"
# Sparse: the page cache, not the disk, feeds nginx.
truncate -s 1G "$work/www/1g.bin"
start_loopback_nginx "$work"
url=$nginx_url/1g.bin

# Wall seconds of a whole process (start-up included, for both peers alike);
# its standard output goes to $work/stdout.
wall_of() {
  local TIMEFORMAT='%R'
  { time "$@" >"$work/stdout" 2>/dev/null; } 2>&1
}

declare -a curl_s
declare -A fetch_s fetch_wall
for ((round = 0; round < rounds; round++)); do
  curl_s+=("$(wall_of curl -s -o /dev/null "$url")")
  for packet in "${packets[@]}"; do
    seconds=$(wall_of "$fetch" "$url" "$packet")
    line=$(cat "$work/stdout")
    [[ $line == bytes=1073741824\ * ]] || { echo "executor_fetch: $line" >&2; exit 1; }
    fetch_s[$packet]+="$seconds "
  done
done

median() { printf '%s\n' "$@" | sort -g | awk '{a[NR]=$1} END {print (NR % 2) ? a[(NR+1)/2] : (a[NR/2] + a[NR/2+1]) / 2}'; }
curl_wall=$(median "${curl_s[@]}")
declare -A ratio
for packet in "${packets[@]}"; do
  # shellcheck disable=SC2086
  fetch_wall[$packet]=$(median ${fetch_s[$packet]})
  ratio[$packet]=$(echo "$curl_wall / ${fetch_wall[$packet]}" | bc -l)
done
{
  echo "# WispDownloadExecutor::Read beside curl, loopback nginx, $(date -u +%Y-%m-%dT%H:%MZ)"
  echo
  echo "Median wall time of whole processes, $rounds alternating rounds, 1 GiB each."
  echo
  echo "| reader | seconds | MiB/s | ratio to curl |"
  echo "|---|---|---|---|"
  printf '| curl -o /dev/null | %.3f | %.0f | 1.000 |\n' "$curl_wall" "$(echo "1024 / $curl_wall" | bc -l)"
  for packet in "${packets[@]}"; do
    printf '| executor, %s-byte packets | %.3f | %.0f | %.3f |\n' "$packet" "${fetch_wall[$packet]}" \
      "$(echo "1024 / ${fetch_wall[$packet]}" | bc -l)" "${ratio[$packet]}"
  done
  echo
  echo "Target: every ratio >= $target."
} | tee "$out"
for packet in "${packets[@]}"; do
  if ! (($(echo "${ratio[$packet]} >= $target" | bc -l))); then
    echo "a target was missed"
    exit 1
  fi
done
echo "all targets met"
