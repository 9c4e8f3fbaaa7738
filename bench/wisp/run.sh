#!/usr/bin/env bash
# wisp beside curl: downloads of one 1 GiB file from nginx on loopback,
# alternating `curl -o /dev/null` and wisp_fetch, then a 256 MiB download
# through wisp with a reader four times slower than the network, watching the
# process's peak memory. Writes a table of ratios (and prints it).
#
#   bench/wisp/run.sh [rounds]        (as root; builds the release preset)
set -euo pipefail
cd "$(dirname "$0")/../.."
root=$(pwd)
rounds=${1:-5}
build=$root/build/release
out=$build/bench-wisp.md

cmake --preset release >/dev/null
cmake --build --preset release -j2 --target wisp_fetch >/dev/null
fetch=$build/bin/wisp_fetch

work=$(mktemp -d /tmp/wisp-bench.XXXXXX)
nginx_pid=""
cleanup() {
  if [[ -n "$nginx_pid" ]]; then kill "$nginx_pid" 2>/dev/null || true; fi
  rm -rf "$work"
}
trap cleanup EXIT

# The payload: sparse files, so that the page cache, not the disk, feeds nginx.
mkdir -p "$work/www" "$work/logs" "$work/tmp"
truncate -s 1G "$work/www/1g.bin"
truncate -s 256M "$work/www/256m.bin"

port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
cat >"$work/nginx.conf" <<CONF
daemon off;
user root;
worker_processes 1;
pid $work/nginx.pid;
error_log $work/logs/error.log;
events { worker_connections 64; }
http {
  access_log off;
  sendfile on;
  tcp_nopush on;
  default_type application/octet-stream;
  client_body_temp_path $work/tmp/body;
  proxy_temp_path $work/tmp/proxy;
  fastcgi_temp_path $work/tmp/fastcgi;
  uwsgi_temp_path $work/tmp/uwsgi;
  scgi_temp_path $work/tmp/scgi;
  server {
    listen 127.0.0.1:$port;
    root $work/www;
  }
}
CONF
nginx -c "$work/nginx.conf" -p "$work" &
nginx_pid=$!
url=http://127.0.0.1:$port
for _ in $(seq 50); do
  curl -s -o /dev/null "$url/256m.bin" -r 0-0 && break
  sleep 0.1
done

# Runs a command; prints "wall_seconds cpu_seconds" (user+sys of the command).
measure() {
  local TIMEFORMAT='%R %U %S'
  local times
  times=$({ time "$@" >/dev/null 2>&1; } 2>&1)
  awk '{print $1, $2 + $3}' <<<"$times"
}

# Both tools must fetch the whole file for their times to mean anything.
[[ $(curl -sf -o /dev/null -w '%{size_download}' "$url/1g.bin") == 1073741824 ]] || { echo "curl fetch failed"; exit 1; }
grep -q 'bytes=1073741824 ' <<<"$("$fetch" "$url/1g.bin")" || { echo "wisp_fetch failed"; exit 1; }

declare -a curl_s curl_cpu wisp_s wisp_cpu
for ((round = 0; round < rounds; round++)); do
  read -r wall cpu < <(measure curl -s -o /dev/null "$url/1g.bin")
  curl_s+=("$wall")
  curl_cpu+=("$cpu")
  read -r wall cpu < <(measure "$fetch" "$url/1g.bin")
  wisp_s+=("$wall")
  wisp_cpu+=("$cpu")
done

median() { printf '%s\n' "$@" | sort -g | awk '{a[NR]=$1} END {print (NR % 2) ? a[(NR+1)/2] : (a[NR/2] + a[NR/2+1]) / 2}'; }
curl_wall=$(median "${curl_s[@]}")
wisp_wall=$(median "${wisp_s[@]}")
curl_cpu_m=$(median "${curl_cpu[@]}")
wisp_cpu_m=$(median "${wisp_cpu[@]}")
gib=1
throughput_ratio=$(echo "$curl_wall / $wisp_wall" | bc -l)
cpu_ratio=$(echo "$wisp_cpu_m / $curl_cpu_m" | bc -l)
wisp_rate=$(echo "1073741824 / $wisp_wall" | bc -l)

# A reader four times slower than the network, over 256 MiB.
reader_rate=$(echo "$wisp_rate / 4" | bc -l | cut -d. -f1)
slow=$("$fetch" "$url/256m.bin" --reader-rate "$reader_rate")
rss_start=$(sed -E 's/.*rss_start_kib=([0-9]+).*/\1/' <<<"$slow")
rss_peak=$(sed -E 's/.*rss_peak_kib=([0-9]+).*/\1/' <<<"$slow")
slow_bytes=$(sed -E 's/.*bytes=([0-9]+).*/\1/' <<<"$slow")
growth_mib=$(echo "($rss_peak - $rss_start) / 1024" | bc -l)

{
  echo "# wisp beside curl, loopback nginx, $(date -u +%Y-%m-%dT%H:%MZ)"
  echo
  echo "Median of $rounds alternating rounds, 1 GiB each."
  echo
  echo "| | curl | wisp | wisp / curl |"
  echo "|---|---|---|---|"
  printf '| wall seconds | %.3f | %.3f | |\n' "$curl_wall" "$wisp_wall"
  printf '| throughput MiB/s | %.0f | %.0f | %.3f |\n' "$(echo "1024 / $curl_wall" | bc -l)" \
    "$(echo "1024 / $wisp_wall" | bc -l)" "$throughput_ratio"
  printf '| CPU seconds per GiB | %.3f | %.3f | %.3f |\n' "$(echo "$curl_cpu_m / $gib" | bc -l)" \
    "$(echo "$wisp_cpu_m / $gib" | bc -l)" "$cpu_ratio"
  echo
  echo "Slow reader: 256 MiB through wisp, reader at $((reader_rate / 1048576)) MiB/s (a quarter of wisp's rate):"
  printf 'received %s bytes; RSS %s KiB at start, peak %s KiB: growth %.1f MiB.\n' \
    "$slow_bytes" "$rss_start" "$rss_peak" "$growth_mib"
  echo
  echo "Targets: throughput ratio >= 0.95, CPU ratio <= 1.2, growth < 16 MiB."
} | tee "$out"

ok=1
(($(echo "$throughput_ratio >= 0.95" | bc -l))) || ok=0
(($(echo "$cpu_ratio <= 1.2" | bc -l))) || ok=0
(($(echo "$growth_mib < 16" | bc -l))) || ok=0
[[ $slow_bytes == 268435456 ]] || ok=0
((ok)) && echo "all targets met" || { echo "a target was missed"; exit 1; }
