#!/usr/bin/env bash
# dlplay beside the tools a player engineer would compare it with, in one run,
# against nginx on loopback serving the same files:
#   a. one 1 GiB file: dlplay beside `curl -o /dev/null`;
#   b. a 100-segment HLS playlist (real MPEG-TS, 4 s and about 4 MiB a segment,
#      made here by ffmpeg): dlplay beside `ffmpeg -i URL -c copy -f null -`,
#      both only reading; and, for information, dlplay writing the segments
#      into a fresh cache as it plays;
#   c. the same playlist replayed from dlplay's cache beside `cat` of its cache
#      files, both with a warm page cache.
# Every round runs each pair once, peer first; the table gives medians of whole
# processes (start-up included for both sides) and the ratio peer/dlplay of
# the medians: above 1 means dlplay was faster. Results: bench/results/compare.md
# and bench/results/compare.png.
#
#   bench/compare.sh [rounds, default 9]   (as root: installs what it lacks, builds the release preset)
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
rounds=${1:-9}
results=$root/bench/results
big_size=1073741824
segments=100

bash scripts/deps.sh
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)" --target dlplay >/dev/null
dlplay=$root/build/release/bin/dlplay

work=$(mktemp -d /tmp/compare-bench.XXXXXX)
source "$root/bench/loopback-nginx.sh"
cleanup() {
  stop_loopback_nginx
  rm -rf "$work"
}
trap cleanup EXIT

echo "compare: making a 1 GiB file and a ${segments}-segment HLS rendition"
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

# Wall seconds of a whole process.
wall_of() {
  local TIMEFORMAT='%R'
  { time "$@" >/dev/null 2>&1 </dev/null; } 2>&1
}

samples=$work/samples.txt
: >"$samples"
echo "compare: $rounds rounds"
for ((round = 0; round < rounds; round++)); do
  echo "curl $(wall_of curl -s -o /dev/null "$big_url")" >>"$samples"
  rm -rf "$work/none"
  echo "dlplay_big $(wall_of "$dlplay" --cache "$work/none" "${reading[@]}" "$big_url")" >>"$samples"
  echo "ffmpeg $(wall_of ffmpeg -v error -i "$hls_url" -c copy -f null -)" >>"$samples"
  rm -rf "$work/none"
  echo "dlplay_hls $(wall_of "$dlplay" --cache "$work/none" "${reading[@]}" "$hls_url")" >>"$samples"
  rm -rf "$work/fresh"
  echo "dlplay_hls_writing $(wall_of "$dlplay" --cache "$work/fresh" "${writing[@]}" "$hls_url")" >>"$samples"
  # The play before wrote 400 MiB and removed the previous round's copy: its
  # write-back would otherwise run under whichever reader comes next.
  sync
  cat "${cache_files[@]}" >/dev/null
  echo "cat $(wall_of cat "${cache_files[@]}")" >>"$samples"
  echo "dlplay_replay $(wall_of "$dlplay" --cache "$work/replay" "${writing[@]}" "$hls_url")" >>"$samples"
done

mkdir -p "$results"
status=0
python3 - "$samples" "$results" "$rounds" "$big_size" "$hls_bytes" "$(date -u +%Y-%m-%dT%H:%MZ)" <<'PY' || status=$?
import statistics, sys
samples_path, results, rounds, big_size, hls_bytes, when = sys.argv[1:]
samples = {}
with open(samples_path) as f:
    for line in f:
        name, seconds = line.split()
        samples.setdefault(name, []).append(float(seconds))
median = {name: statistics.median(values) for name, values in samples.items()}
mib = 1024 * 1024
cases = [
    # case, bytes, peer, peer sample, dlplay sample, target ratio, target text, chart label
    ("1 GiB file over HTTP", int(big_size), "curl -o /dev/null", "curl", "dlplay_big", 0.90, ">= 0.90",
     "1 GiB file, HTTP\\nvs curl"),
    ("100-segment HLS over HTTP", int(hls_bytes), "ffmpeg -c copy -f null", "ffmpeg", "dlplay_hls", 1.0, "> 1",
     "100-segment HLS, HTTP\\nvs ffmpeg"),
    ("the same, dlplay writing the cache", int(hls_bytes), "ffmpeg -c copy -f null", "ffmpeg", "dlplay_hls_writing",
     None, "none", "HLS, HTTP, writing\\nthe cache, vs ffmpeg"),
    ("the playlist replayed from the cache", int(hls_bytes), "cat of the cache files", "cat", "dlplay_replay", 0.50,
     ">= 0.50", "HLS replayed from\\nthe cache, vs cat"),
]
lines = [
    f"# dlplay beside its peers, {when}",
    "",
    f"Loopback nginx; median wall time of {rounds} alternating rounds, each a whole process; ratio = peer's median "
    "time / dlplay's (above 1: dlplay faster). The cache replayed was written by an earlier play of the same run.",
    "",
    "| case | peer | peer s | peer MiB/s | dlplay s | dlplay MiB/s | ratio | target | met |",
    "|---|---|---|---|---|---|---|---|---|",
]
chart = []
missed = 0
for case, size, peer, peer_key, ours_key, target, target_text, label in cases:
    peer_s, ours_s = median[peer_key], median[ours_key]
    ratio = peer_s / ours_s
    if target is None:
        met = None
    else:
        met = ratio >= target if target < 1 else ratio > target
        missed += not met
    lines.append(f"| {case} | {peer} | {peer_s:.3f} | {size / mib / peer_s:.0f} | {ours_s:.3f} | "
                 f"{size / mib / ours_s:.0f} | {ratio:.2f} | {target_text} | {'' if met is None else 'yes' if met else 'NO'} |")
    chart.append((label, size / mib / peer_s, size / mib / ours_s))
lines += ["", "Rounds (seconds): " + "; ".join(f"{k} " + " ".join(f"{v:.3f}" for v in vals)
                                            for k, vals in samples.items())]
with open(f"{results}/compare.md", "w") as f:
    f.write("\n".join(lines) + "\n")
with open(f"{results}/compare.dat", "w") as f:
    f.write("# case\tpeer MiB/s\tdlplay MiB/s\n")
    for label, peer_rate, ours_rate in chart:
        f.write(f"\"{label}\"\t{peer_rate:.1f}\t{ours_rate:.1f}\n")
print("\n".join(lines))
sys.exit(1 if missed else 0)
PY
gnuplot <<GNUPLOT
set terminal png size 1000,560
set output "$results/compare.png"
set title "dlplay beside its peers (MiB/s, log scale, median of $rounds rounds; higher is better)"
set style data histogram
set style histogram clustered gap 1
set style fill solid 0.8 border -1
set boxwidth 0.9
set logscale y
set yrange [100:*]
set xrange [-0.6:3.6]
set bmargin 4
set grid ytics
set key top right
plot "$results/compare.dat" using 2:xtic(1) title "peer", "" using 3 title "dlplay"
GNUPLOT
echo "compare: wrote $results/compare.md and $results/compare.png"
exit "$status"
