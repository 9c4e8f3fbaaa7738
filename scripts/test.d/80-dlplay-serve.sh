#!/usr/bin/env bash
# dlplay serve with real players: ffmpeg-made renditions served by nginx,
# played by ffmpeg through the gateway (TS HLS, fMP4 HLS, an MP4 file): each
# decodes without an error line and lasts what it should; a seek into the MP4
# is a Range request; a second play, by a restarted gateway on the same cache,
# asks nginx for no segment; 16 players at once all decode cleanly; a
# connection the origin (dlorigin) drops in the middle of every segment is
# invisible to the player. Then, when Chromium is installed, a page with
# hls.js plays through the gateway past 10 s with no error (screenshot kept).
set -euo pipefail
cd "$(dirname "$0")/../.."
root=$(pwd)
source scripts/lib/nginx.sh
dlplay="$root/build/asan/bin/dlplay"
dlorigin="$root/build/asan/bin/dlorigin"
for tool in "$dlplay" "$dlorigin"; do
  [[ -x "$tool" ]] || { echo "serve e2e: $tool is missing (the ASan build makes it)"; exit 1; }
done
out_dir="$root/build/test-output/serve"
rm -rf "$out_dir"
mkdir -p "$out_dir"

work=$(mktemp -d)
gateway_pid=""
origin_pid=""
page_pid=""
cleanup() {
  local pid
  for pid in "$gateway_pid" "$origin_pid" "$page_pid"; do
    if [[ -n "$pid" ]]; then kill "$pid" 2>/dev/null || true; fi
  done
  nginx_stop
  rm -rf "$work"
}
trap cleanup EXIT

www="$work/www"
mkdir -p "$www"/{ts,fmp4,many,long,mp4,fault} "$work/cache"

encode() {  # OUT SECONDS SEGMENT_SECONDS [extra options...]
  local out=$1 seconds=$2 segment=$3
  shift 3
  ffmpeg -v error -y -f lavfi -i "testsrc=size=320x180:rate=25" -f lavfi -i "sine=frequency=440:sample_rate=44100" \
    -t "$seconds" -c:v libx264 -preset ultrafast -g $((25 * segment)) -keyint_min $((25 * segment)) \
    -sc_threshold 0 -c:a aac -b:a 64k "$@" "$out"
}
hls() { encode "$1/index.m3u8" "$2" 2 -f hls -hls_time 2 -hls_playlist_type vod "${@:3}"; }
hls "$www/ts" 8 -hls_segment_filename "$www/ts/seg%d.ts"
hls "$www/fmp4" 8 -hls_segment_type fmp4 -hls_fmp4_init_filename init.mp4
hls "$www/many" 8 -hls_segment_filename "$www/many/seg%d.ts"
# The index at the end: a player must seek to read it, even without -ss.
encode "$www/mp4/clip.mp4" 8 2 -f mp4

nginx_start "$work"
base="http://127.0.0.1:$nginx_port"

failures=()
fail() { failures+=("$*"); echo "FAILED: $*"; }

# Waits, with a deadline, until FILE has a line matching PATTERN.
wait_for_line() {  # FILE PATTERN
  local _
  for _ in $(seq 1 300); do
    grep -q "$2" "$1" 2>/dev/null && return 0
    sleep 0.1
  done
  return 1
}

gateway_start() {  # LOG [dlplay options...]
  local log=$1
  shift
  "$dlplay" serve --listen 127.0.0.1:0 --cache "$work/cache" "$@" 2> "$log" &
  gateway_pid=$!
  wait_for_line "$log" "listening on" || { echo "the gateway did not start:"; cat "$log"; exit 1; }
  gateway=$(sed -n 's|.*listening on \(http://[^/]*\)/play.*|\1|p' "$log" | head -1)
}

gateway_stop() {
  kill -TERM "$gateway_pid"
  wait "$gateway_pid" || fail "the gateway exited with $?"
  gateway_pid=""
}

through() {  # URL: the gateway's URL for it
  echo "$gateway/play?url=$(python3 -c 'import sys, urllib.parse; print(urllib.parse.quote(sys.argv[1], safe=""))' "$1")"
}

# Plays URL through the gateway with ffmpeg: no error line, and ffprobe finds SECONDS (within half a second).
check_play() {  # NAME URL SECONDS [ffmpeg input options...]
  local name=$1 url=$2 seconds=$3 errors duration
  shift 3
  errors=$(ffmpeg -nostdin -v error "$@" -i "$(through "$url")" -f null - 2>&1 || echo "ffmpeg failed")
  [[ -z "$errors" ]] || fail "$name: decoding printed: $(head -3 <<<"$errors")"
  duration=$(ffprobe -v error -show_entries format=duration -of csv=p=0 "$(through "$url")")
  python3 -c "import sys; sys.exit(abs(float('$duration') - $seconds) > 0.5)" ||
    fail "$name: lasts ${duration}s, want ${seconds}s"
  echo "serve e2e: $name: decodes, ${duration}s"
}

gateway_start "$out_dir/gateway-first.log"
check_play ts "$base/ts/index.m3u8" 8
check_play fmp4 "$base/fmp4/index.m3u8" 8
check_play mp4 "$base/mp4/clip.mp4" 8
grep -q "GET 206 .* bytes [1-9][0-9]*-.*clip.mp4" "$out_dir/gateway-first.log" || fail "mp4: no read began past byte 0"
seek_from=$(grep -c "GET 206 .*clip.mp4" "$out_dir/gateway-first.log" || true)
seek_errors=$(ffmpeg -nostdin -v error -ss 4 -i "$(through "$base/mp4/clip.mp4")" -f null - 2>&1 || echo "ffmpeg failed")
[[ -z "$seek_errors" ]] || fail "mp4 seek: $seek_errors"
seek_to=$(grep -c "GET 206 .*clip.mp4" "$out_dir/gateway-first.log" || true)
((seek_to > seek_from)) || fail "mp4 seek: no 206 answered for it"
grep -q "Access-Control-Allow-Origin: \*" <(curl -s -D - -o /dev/null "$(through "$base/ts/seg0.ts")") ||
  fail "cors: no Access-Control-Allow-Origin"
[[ $(curl -s -o /dev/null -w '%{http_code}' "$(through "$base/ts/none.ts")") == 404 ]] || fail "a missing file is not 404"
head_length=$(curl -s -I "$(through "$base/ts/seg0.ts")" | tr -d '\r' | sed -n 's/^Content-Length: //p')
[[ "$head_length" == "$(stat -c %s "$www/ts/seg0.ts")" ]] || fail "HEAD: Content-Length '$head_length'"
[[ $(curl -s -o /dev/null -w '%{http_code}' -X OPTIONS -H "Origin: http://elsewhere" \
  -H "Access-Control-Request-Method: GET" -H "Access-Control-Request-Headers: range" \
  "$(through "$base/ts/seg0.ts")") == 204 ]] || fail "cors: the preflight is not answered"

# The same plays again by a new gateway on the same cache: nginx sees playlists only.
gateway_stop
: > "$work/logs/access.log"
gateway_start "$out_dir/gateway-replay.log"
check_play "ts (replay)" "$base/ts/index.m3u8" 8
check_play "fmp4 (replay)" "$base/fmp4/index.m3u8" 8
segment_requests=$(grep -E '\.(ts|m4s|mp4) ' "$work/logs/access.log" || true)
[[ -z "$segment_requests" ]] || fail "replay: nginx served segments: $(head -3 <<<"$segment_requests")"
grep -q "cache_hit=yes" "$out_dir/gateway-replay.log" || fail "replay: no request was a cache hit"

# 16 players at once, on a rendition nobody has played yet.
pids=()
for i in $(seq 1 16); do
  ffmpeg -nostdin -v error -i "$(through "$base/many/index.m3u8")" -f null - > "$work/many-$i.err" 2>&1 &
  pids+=($!)
done
for i in $(seq 1 16); do
  wait "${pids[$((i - 1))]}" || fail "player $i of 16: ffmpeg failed"
  [[ ! -s "$work/many-$i.err" ]] || fail "player $i of 16: $(head -3 "$work/many-$i.err")"
done
echo "serve e2e: 16 players at once"

# Every segment's connection dropped in its middle by dlorigin: the gateway's stream continues elsewhere.
"$dlorigin" --root "$www" --ready-file "$work/origin.url" 2> "$work/origin.log" &
origin_pid=$!
wait_for_line "$work/origin.url" "http" || fail "dlorigin did not start"
origin=$(cat "$work/origin.url")
sed "s|^seg\(.*\)|$origin/files/ts/seg\1?drop_after=60000\&tag=fault|" "$www/ts/index.m3u8" > "$www/fault/index.m3u8"
check_play "origin fault" "$base/fault/index.m3u8" 8
fault_requests=$(curl -s "$origin/stats?tag=fault" | sed -n 's/requests=\([0-9]*\).*/\1/p')
segments=$(grep -c '^seg' "$www/ts/index.m3u8")
((fault_requests > segments)) || fail "origin fault: $fault_requests requests for $segments segments, no drop was met"
gateway_stop

# A real browser, where one is installed: hls.js from npm on a page of this
# test's own (another origin than the gateway's) plays past 10 s.
if command -v chromium > /dev/null && command -v npm > /dev/null; then
  hls "$www/long" 16 -hls_segment_filename "$www/long/seg%d.ts"
  chmod -R a+rX "$www"
  npm install --prefix "$work/npm" --no-audit --no-fund --silent hls.js playwright-core > "$out_dir/npm.log" 2>&1 ||
    fail "browser: npm could not install hls.js and playwright-core: $(tail -3 "$out_dir/npm.log")"
  mkdir -p "$work/page"
  cp scripts/lib/browser/hlsjs-page.html "$work/page/index.html"
  cp "$work/npm/node_modules/hls.js/dist/hls.min.js" "$work/page/"
  page_port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
  python3 -m http.server --bind 127.0.0.1 --directory "$work/page" "$page_port" > "$work/page.log" 2>&1 &
  page_pid=$!
  for _ in $(seq 1 100); do curl -s -o /dev/null "http://127.0.0.1:$page_port/" && break; sleep 0.1; done
  gateway_start "$out_dir/gateway-browser.log" --no-cache
  source_url=$(python3 -c 'import sys, urllib.parse; print(urllib.parse.quote(sys.argv[1], safe=""))' \
    "$(through "$base/long/index.m3u8")")
  if node scripts/lib/browser/hlsjs-play.js "$work/npm" "http://127.0.0.1:$page_port/index.html?src=$source_url" \
    "$work/profile" "$out_dir/browser.png" 10 120 > "$out_dir/browser.log" 2>&1; then
    echo "serve e2e: $(grep '^browser:' "$out_dir/browser.log" | tail -1)"
  else
    fail "browser: hls.js did not play past 10 s through the gateway: $(tail -3 "$out_dir/browser.log")"
  fi
  gateway_stop
else
  echo "serve e2e: no chromium or npm here, the browser play is left out"
fi

if ((${#failures[@]} > 0)); then
  printf '%s\n' "${failures[@]}"
  exit 1
fi
echo "serve e2e: TS, fMP4 and MP4 played through the gateway, the seek, the cache replay, 16 players and the origin fault checked"
