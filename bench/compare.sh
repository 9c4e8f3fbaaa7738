#!/usr/bin/env bash
# dlplay beside the tools a player engineer would compare it with, in one run,
# against nginx on loopback serving the same files:
#   a. one 1 GiB file: dlplay beside `curl -o /dev/null`;
#   b. a 100-segment HLS playlist (real MPEG-TS, 4 s and about 4 MiB a segment,
#      made here by ffmpeg): dlplay beside `ffmpeg -i URL -c copy -f null -`,
#      both only reading; and, for information, dlplay writing the segments
#      into a fresh cache as it plays;
#   c. the same playlist replayed from dlplay's cache beside `cat` of its cache
#      files, both with a warm page cache;
#   d. the 1 GiB file replayed from dlplay's cache beside `cat` of its cache
#      file, both with a warm page cache.
# Every round runs each pair once, the peer first in even rounds and dlplay
# first in odd ones; each value is a whole process (start-up included for both
# sides), and the table gives per case the median [min, max] of the per-round
# ratios peer/dlplay: above 1 means dlplay was faster. Fails when a target is
# missed. Results: bench/results/compare.md and bench/results/compare.png.
#
#   bench/compare.sh [rounds, default 7]   (as root: installs what it lacks, builds the release preset)
#   BENCH_MIB=64 BENCH_SEGMENTS=5 BENCH_RESULTS=/tmp/x bench/compare.sh 2   checks the script itself
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
source "$root/bench/lib/rounds.sh"
rounds=$(bench_rounds "${1:-}")
results=${BENCH_RESULTS:-$root/bench/results}
big_size=$((${BENCH_MIB:-1024} * 1048576))
segments=${BENCH_SEGMENTS:-100}

bash scripts/deps.sh
build_release dlplay
dlplay=$root/build/release/bin/dlplay

bench_work compare

echo "compare: making a $((big_size / 1048576)) MiB file and a ${segments}-segment HLS rendition"
mkdir -p "$work/www/hls"
head -c "$big_size" /dev/urandom >"$work/www/1g.bin"
# Four-second segments of 8 Mbit/s 1080p MPEG-2 video (about 4 MiB each, as a
# high rendition would have): a 20-second clip encoded once, then repeated
# without re-encoding.
ffmpeg -v error -f lavfi -i "testsrc2=size=1920x1080:rate=25" -t 20 -c:v mpeg2video -b:v 8M -maxrate 8M \
  -bufsize 4M -g 25 -sc_threshold 0 -f mpegts "$work/clip.ts"
ffmpeg -v error -stream_loop $((segments / 5 - 1)) -i "$work/clip.ts" -c copy -f hls -hls_time 4 -hls_list_size 0 \
  -hls_playlist_type vod -hls_segment_filename "$work/www/hls/seg%03d.ts" "$work/www/hls/index.m3u8"
start_loopback_nginx "$work"
big_url=$nginx_url/1g.bin
hls_url=$nginx_url/hls/index.m3u8
writing=(--set downloader_config.enable_segment_writer=true)
# A named cache is written to unless told otherwise: the plays that only read through it say so.
reading=(--set downloader_config.enable_segment_writer=false)

# Before anything is timed: every tool reads everything, and dlplay's bytes are
# the origin's, from the level each case is meant to use.
check_plays() {
  "$dlplay" --cache "$work/none" "${reading[@]}" --report json "$big_url" 2>/dev/null >"$work/big.json"
  "$dlplay" --cache "$work/bigcache" "${writing[@]}" "$big_url" >/dev/null 2>&1
  "$dlplay" --cache "$work/bigcache" "${writing[@]}" --report json "$big_url" 2>/dev/null >"$work/bigcache.json"
  "$dlplay" --cache "$work/replay" "${writing[@]}" --report json "$hls_url" 2>/dev/null >"$work/http.json"
  "$dlplay" --cache "$work/replay" "${writing[@]}" --report json "$hls_url" 2>/dev/null >"$work/cache.json"
  ffmpeg -v error -i "$hls_url" -c copy -f null - </dev/null
  python3 - "$work" "$segments" <<'PY'
import hashlib, json, os, sys
work, segments = sys.argv[1], int(sys.argv[2])
def digest(path):
    h = hashlib.sha256()
    with open(path, "rb") as f:
        for block in iter(lambda: f.read(1 << 20), b""):
            h.update(block)
    return h.hexdigest()
def records(name):
    with open(os.path.join(work, name)) as f:
        return [json.loads(line) for line in f if line.strip()]
failures = []
big = records("big.json")
if len(big) != 1 or big[0]["code"] != 0 or big[0]["level"] != 4 or big[0]["sha256"] != digest(f"{work}/www/1g.bin"):
    failures.append(f"1 GiB file: {big}")
cached = records("bigcache.json")
if len(cached) != 1 or cached[0]["code"] != 0 or cached[0]["level"] != 0 or cached[0]["sha256"] != big[0]["sha256"]:
    failures.append(f"1 GiB file from the cache: {cached}")
for name, level in (("http.json", 4), ("cache.json", 0)):
    played = [r for r in records(name) if r["url"].endswith(".ts")]
    if len(played) != segments:
        failures.append(f"{name}: {len(played)} segments played, {segments} expected")
    for r in played:
        origin = os.path.join(work, "www/hls", r["url"].rsplit("/", 1)[-1])
        if r["code"] != 0 or r["level"] != level or r["sha256"] != digest(origin):
            failures.append(f"{name}: {r['url']} code {r['code']} level {r['level']}, bytes differ or failed")
if failures:
    print("compare: a play is wrong, nothing timed:\n" + "\n".join(failures[:10]))
    sys.exit(1)
PY
}
check_plays
mapfile -t cache_files < <(find "$work/replay" -type f -name 'cache.*')
((${#cache_files[@]} == segments)) || { echo "compare: ${#cache_files[@]} cache files, $segments expected"; exit 1; }
hls_bytes=$(cat "$work"/www/hls/*.ts | wc -c)
mapfile -t big_cache_file < <(find "$work/bigcache" -type f -name 'cache.*')
((${#big_cache_file[@]} == 1)) || { echo "compare: ${#big_cache_file[@]} cache files for the 1 GiB file"; exit 1; }

samples=$work/samples.txt
: >"$samples"
sample() { echo "$1 $2 $3" >>"$samples"; }
echo "compare: $rounds rounds"
curl_big() {
  local wall cpu rss
  read -r wall cpu rss < <(times_of curl -s -o /dev/null "$big_url")
  sample big_wall curl "$wall"
  sample big_cpu curl "$cpu"
}
dlplay_big() {
  local wall cpu rss
  rm -rf "$work/none"
  read -r wall cpu rss < <(times_of "$dlplay" --cache "$work/none" "${reading[@]}" "$big_url")
  sample big_wall dlplay "$wall"
  sample big_cpu dlplay "$cpu"
}
ffmpeg_hls() { sample hls ffmpeg "$(wall_of ffmpeg -v error -i "$hls_url" -c copy -f null -)"; }
dlplay_hls() {
  rm -rf "$work/none"
  sample hls dlplay "$(wall_of "$dlplay" --cache "$work/none" "${reading[@]}" "$hls_url")"
}
ffmpeg_hls_writing() { sample hls_writing ffmpeg "$(wall_of ffmpeg -v error -i "$hls_url" -c copy -f null -)"; }
dlplay_hls_writing() {
  rm -rf "$work/fresh"
  sample hls_writing dlplay "$(wall_of "$dlplay" --cache "$work/fresh" "${writing[@]}" "$hls_url")"
  # The play wrote the whole rendition: its write-back would otherwise run
  # under whichever reader comes next.
  sync
}
# A replay, both sides with the cache files in the page cache.
cat_of_cache() {  # case, cache files...
  local case=$1
  shift
  cat "$@" >/dev/null
  sample "$case" cat "$(wall_of cat "$@")"
}
dlplay_from_cache() {  # case, cache folder, URL, cache files...
  local case=$1 cache=$2 url=$3
  shift 3
  cat "$@" >/dev/null
  sample "$case" dlplay "$(wall_of "$dlplay" --cache "$cache" "${writing[@]}" "$url")"
}
cat_replay() { cat_of_cache replay "${cache_files[@]}"; }
dlplay_replay() { dlplay_from_cache replay "$work/replay" "$hls_url" "${cache_files[@]}"; }
cat_big_replay() { cat_of_cache big_replay "${big_cache_file[@]}"; }
dlplay_big_replay() { dlplay_from_cache big_replay "$work/bigcache" "$big_url" "${big_cache_file[@]}"; }
for ((round = 0; round < rounds; round++)); do
  pair "$round" curl_big dlplay_big
  pair "$round" ffmpeg_hls dlplay_hls
  pair "$round" ffmpeg_hls_writing dlplay_hls_writing
  pair "$round" cat_replay dlplay_replay
  pair "$round" cat_big_replay dlplay_big_replay
done

cat >"$work/spec.json" <<JSON
{"title": "dlplay beside its peers", "chart": "MiB/s",
 "note": "Loopback nginx; each value is a whole process, start-up included for both sides. The cache replayed was written by an earlier play of the same run; dlplay writing the cache is for information.",
 "cases": [
  {"case": "big_wall", "label": "$((big_size / 1048576)) MiB file over HTTP", "peer": "curl", "unit": "seconds", "bytes": $big_size,
   "target": {"on": "ratio", "op": ">=", "value": 1.05}},
  {"case": "big_cpu", "label": "the same, CPU seconds (ratio >= 1.11: dlplay <= 0.9x curl)", "peer": "curl", "unit": "CPU s",
   "target": {"on": "ratio", "op": ">=", "value": 1.11}},
  {"case": "hls", "label": "$segments-segment HLS over HTTP", "peer": "ffmpeg", "unit": "seconds", "bytes": $hls_bytes,
   "target": {"on": "ratio", "op": ">=", "value": 1.5}},
  {"case": "hls_writing", "label": "the same, dlplay writing the cache", "peer": "ffmpeg", "unit": "seconds", "bytes": $hls_bytes},
  {"case": "replay", "label": "the playlist replayed from the cache", "peer": "cat", "unit": "seconds", "bytes": $hls_bytes,
   "target": {"on": "ratio", "op": ">=", "value": 0.9}},
  {"case": "big_replay", "label": "the $((big_size / 1048576)) MiB file replayed from the cache", "peer": "cat", "unit": "seconds",
   "bytes": $big_size, "target": {"on": "ratio", "op": ">=", "value": 0.9}}
 ]}
JSON
mkdir -p "$results"
status=0
report "$work/spec.json" "$samples" "$results/compare" || status=$?
echo "compare: wrote $results/compare.md and $results/compare.png"
exit "$status"
