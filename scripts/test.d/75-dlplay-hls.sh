#!/usr/bin/env bash
# End to end with real media: ffmpeg makes small renditions (testsrc + sine),
# nginx serves them, dlplay plays each and then replays it from the cache:
# MPEG-TS, fragmented MP4, AES-128 (TS and fMP4), a master playlist, a playlist behind a
# redirect, a gzip-encoded playlist, and a live playlist that grows every second
# until it ends. Every play's output must decode without an error line and hold
# a video and an audio stream of the expected duration; the replays must come
# from the cache. Also: the media alone on stdout through a pipe, and a
# SAMPLE-AES playlist refused with nothing written.
set -euo pipefail
cd "$(dirname "$0")/../.."
root=$(pwd)
source scripts/lib/nginx.sh
dlplay="$root/build/asan/bin/dlplay"
[[ -x "$dlplay" ]] || { echo "hls e2e: $dlplay is missing (the ASan build makes it)"; exit 1; }

work=$(mktemp -d)
grower_pid=""
cleanup() {
  if [[ -n "$grower_pid" ]]; then kill "$grower_pid" 2>/dev/null || true; fi
  nginx_stop
  rm -rf "$work"
}
trap cleanup EXIT

www="$work/www"
mkdir -p "$www"/{ts,fmp4,aes,aes-seq,aes-fmp4,master/low,master/high,live,gz,sample} "$work/cache" "$work/out"

# Small and quick to encode: 8 s at 320x180, 2-second segments (a key frame every 2 s).
encode() {  # DIR SECONDS SEGMENT_SECONDS SIZE [extra hls options...]
  local dir=$1 seconds=$2 segment=$3 size=$4
  shift 4
  ffmpeg -v error -y -f lavfi -i "testsrc=size=$size:rate=25" -f lavfi -i "sine=frequency=440:sample_rate=44100" \
    -t "$seconds" -c:v libx264 -preset ultrafast -g $((25 * segment)) -keyint_min $((25 * segment)) \
    -sc_threshold 0 -c:a aac -b:a 64k -f hls -hls_time "$segment" -hls_playlist_type vod "$@" "$dir/index.m3u8"
}
encode "$www/ts" 8 2 320x180 -hls_segment_filename "$www/ts/seg%d.ts"
encode "$www/fmp4" 8 2 320x180 -hls_segment_type fmp4 -hls_fmp4_init_filename init.mp4
head -c 16 /dev/urandom > "$www/aes/clip.key"
printf 'clip.key\n%s\n' "$www/aes/clip.key" > "$work/keyinfo"
encode "$www/aes" 8 2 320x180 -hls_key_info_file "$work/keyinfo"
# ffmpeg writes the IV out; these segments use the media sequence number as theirs.
for segment in "$www"/ts/seg*.ts; do
  name=$(basename "$segment")
  sequence=${name//[^0-9]/}
  openssl enc -aes-128-cbc -K "$(od -An -tx1 "$www/aes/clip.key" | tr -d " \n")" -iv "$(printf '%032x' "$sequence")" \
    -in "$segment" -out "$www/aes-seq/$name"
done
sed 's|^#EXTM3U$|#EXTM3U\n#EXT-X-KEY:METHOD=AES-128,URI="/aes/clip.key"|' "$www/ts/index.m3u8" \
  > "$www/aes-seq/index.m3u8"
# ffmpeg does not encrypt fMP4; here the initialisation section is encrypted too, under an IV the key gives.
fmp4_iv=000000000000000000000000000000ab
for file in "$www"/fmp4/init.mp4 "$www"/fmp4/*.m4s; do
  openssl enc -aes-128-cbc -K "$(od -An -tx1 "$www/aes/clip.key" | tr -d " \n")" -iv "$fmp4_iv" \
    -in "$file" -out "$www/aes-fmp4/$(basename "$file")"
done
sed "s|^#EXT-X-MAP|#EXT-X-KEY:METHOD=AES-128,URI=\"/aes/clip.key\",IV=0x$fmp4_iv\n#EXT-X-MAP|" \
  "$www/fmp4/index.m3u8" > "$www/aes-fmp4/index.m3u8"
encode "$www/master/low" 8 2 160x90
encode "$www/master/high" 8 2 320x180
cat > "$www/master/index.m3u8" <<'M3U8'
#EXTM3U
#EXT-X-STREAM-INF:BANDWIDTH=300000,RESOLUTION=160x90
low/index.m3u8
#EXT-X-STREAM-INF:BANDWIDTH=900000,RESOLUTION=320x180
high/index.m3u8
M3U8
# The gzip body names its segments from the root: they live beside the TS rendition.
sed 's|^seg|/ts/seg|' "$www/ts/index.m3u8" | gzip -9 > "$www/gz/index.m3u8"
sed 's|^#EXTM3U$|#EXTM3U\n#EXT-X-KEY:METHOD=SAMPLE-AES,URI="/aes/clip.key"|; s|^seg|/ts/seg|' "$www/ts/index.m3u8" \
  > "$www/sample/index.m3u8"

# 20 one-second segments, published one a second by the grower below.
live_segments=20
mkdir -p "$work/live-source"
encode "$work/live-source" $live_segments 1 320x180 -hls_segment_filename "$work/live-source/seg%d.ts"
cp "$work/live-source/"seg*.ts "$www/live/"

nginx_start "$work" '
    location = /moved/index.m3u8 { return 302 /ts/index.m3u8; }
    location /gz/ { add_header Content-Encoding gzip; }'
base="http://127.0.0.1:$nginx_port"

# Publishes the live playlist with its first COUNT segments; ENDLIST once all are out.
publish_live() {
  local count=$1 i
  {
    echo "#EXTM3U"
    echo "#EXT-X-VERSION:3"
    echo "#EXT-X-TARGETDURATION:1"
    echo "#EXT-X-MEDIA-SEQUENCE:0"
    for ((i = 0; i < count; i++)); do
      echo "#EXTINF:1.000000,"
      echo "seg$i.ts"
    done
    if ((count == live_segments)); then echo "#EXT-X-ENDLIST"; fi
  } > "$www/live/index.tmp"
  chmod a+r "$www/live/index.tmp"
  mv "$www/live/index.tmp" "$www/live/index.m3u8"
}

failures=()
fail() { failures+=("$*"); echo "FAILED: $*"; }

# Checks OUT: decodes with no error line, has video and audio, lasts SECONDS (within half a second).
check_media() {  # NAME OUT SECONDS
  local name=$1 out=$2 seconds=$3 errors streams duration
  errors=$(ffmpeg -v error -i "$out" -f null - 2>&1 || echo "ffmpeg failed")
  [[ -z "$errors" ]] || fail "$name: decoding printed: $(head -3 <<<"$errors")"
  streams=$(ffprobe -v error -show_entries stream=codec_type -of csv=p=0 "$out" | grep . | sort -u | tr '\n' ' ')
  [[ "$streams" == "audio video " ]] || fail "$name: streams '$streams', want audio and video"
  duration=$(ffprobe -v error -show_entries format=duration -of csv=p=0 "$out")
  python3 -c "import sys; sys.exit(abs(float('$duration') - $seconds) > 0.5)" ||
    fail "$name: lasts ${duration}s, want ${seconds}s"
  echo "hls e2e: $name: decodes, audio+video, ${duration}s"
}

# Every request of the replay that is not a playlist came from the cache.
check_cached() {  # NAME REPORT
  python3 - "$1" "$2" <<'PY' || fail "$1: the replay did not come from the cache"
import json, sys
name, path = sys.argv[1], sys.argv[2]
records = [json.loads(line) for line in open(path) if line.strip()]
media = [r for r in records if not r["url"].split("?")[0].endswith(".m3u8")]
missed = [r["url"] for r in media if r["code"] != 0 or not r["cache_hit"]]
if not media or missed:
    print(f"{name}: {len(media)} media requests, not from the cache: {missed[:3]}")
    sys.exit(1)
PY
}

# The seconds of media a play's report lists, each segment lasting SEGMENT_SECONDS; the
# segments must follow each other without a gap and end with the last one published.
reported_seconds() {  # REPORT SEGMENT_SECONDS LAST_SEGMENT
  python3 - "$@" <<'PY'
import json, re, sys
path, seconds, last = sys.argv[1], float(sys.argv[2]), int(sys.argv[3])
played = [int(re.search(r"seg(\d+)\.ts", r["url"]).group(1)) for r in map(json.loads, open(path))
          if re.search(r"seg\d+\.ts", r["url"])]
if not played or played != list(range(played[0], last + 1)):
    sys.exit(f"segments played: {played}")
print(len(played) * seconds)
PY
}

play() {  # NAME URL SECONDS|live [dlplay options...]
  local name=$1 url=$2 seconds=$3 round
  shift 3
  for round in first replay; do
    local out="$work/out/$name-$round"
    # A cache per rendition: each first play goes over HTTP.
    if ! "$dlplay" --cache "$work/cache/$name" --report-file "$out.json" -o "$out.media" "$@" "$url" \
      > "$out.summary" 2> "$out.err"; then
      fail "$name ($round): dlplay failed: $(tail -3 "$out.err")"
      continue
    fi
    local expected=$seconds
    if [[ $seconds == live ]]; then
      # Where a live play starts depends on when it first reads the playlist.
      if ! expected=$(reported_seconds "$out.json" 1 $((live_segments - 1))); then
        fail "$name ($round): $expected"
        continue
      fi
    fi
    check_media "$name ($round)" "$out.media" "$expected"
    if [[ $round == replay ]]; then check_cached "$name" "$out.json"; fi
  done
}

play ts "$base/ts/index.m3u8" 8
play fmp4 "$base/fmp4/index.m3u8" 8
play aes-128 "$base/aes/index.m3u8" 8
play aes-128-sequence-iv "$base/aes-seq/index.m3u8" 8
play aes-128-fmp4 "$base/aes-fmp4/index.m3u8" 8
play master "$base/master/index.m3u8" 8
play redirect "$base/moved/index.m3u8" 8
play gzip "$base/gz/index.m3u8" 8

# Live: the first play starts while two segments are out and must follow the
# playlist to its end; the replay reads the finished playlist from the cache.
publish_live 2
(
  for ((count = 3; count <= live_segments; count++)); do
    sleep 1
    publish_live "$count"
  done
) &
grower_pid=$!
play live "$base/live/index.m3u8" live
wait "$grower_pid" || true
grower_pid=""
live_requests=$(grep -c 'GET /live/index.m3u8' "$work/logs/access.log" || true)
((live_requests > live_segments / 2)) || fail "live: the playlist was read $live_requests times"

# The media alone on stdout: it decodes through a pipe, and equals what -o FILE wrote.
pipe_errors=$("$dlplay" --no-cache -o - "$base/ts/index.m3u8" 2> "$work/out/pipe.err" | tee "$work/out/pipe.media" |
  ffmpeg -v error -i - -f null - 2>&1 || echo "the pipe failed")
[[ -z "$pipe_errors" ]] || fail "pipe: $pipe_errors"
cmp -s "$work/out/pipe.media" "$work/out/ts-first.media" || fail "pipe: stdout differs from the -o file"
grep -q summary "$work/out/pipe.err" || fail "pipe: no summary on stderr"

# SAMPLE-AES cannot be decrypted here: refused, named, nothing written.
if "$dlplay" --no-cache -o "$work/out/sample.media" "$base/sample/index.m3u8" > /dev/null \
  2> "$work/out/sample.err"; then
  fail "sample-aes: dlplay succeeded"
fi
grep -q "SAMPLE-AES" "$work/out/sample.err" || fail "sample-aes: the refusal does not name the method"
[[ ! -s "$work/out/sample.media" ]] || fail "sample-aes: bytes were written"

if ((${#failures[@]} > 0)); then
  printf '%s\n' "${failures[@]}"
  exit 1
fi
echo "hls e2e: 9 renditions played and replayed from the cache, the pipe and the refusal checked"
