#!/usr/bin/env bash
# End to end: nginx on loopback serves a generated HLS playlist; dlplay plays
# it twice with segment writing on. Every segment's SHA-256 must equal the
# origin file's, and the second play must be served entirely at level 0 with no
# segment request reaching nginx.
set -euo pipefail
cd "$(dirname "$0")/../.."
root=$(pwd)
source scripts/lib/nginx.sh
dlplay="$root/build/asan/bin/dlplay"
[[ -x "$dlplay" ]] || { echo "e2e: $dlplay is missing (the ASan build makes it)"; exit 1; }

work=$(mktemp -d)
cleanup() {
  nginx_stop
  rm -rf "$work"
}
trap cleanup EXIT

segments=12
mkdir -p "$work/www/vod" "$work/cache"
{
  echo "#EXTM3U"
  echo "#EXT-X-VERSION:3"
  echo "#EXT-X-TARGETDURATION:4"
  echo "#EXT-X-MEDIA-SEQUENCE:0"
  for i in $(seq 0 $((segments - 1))); do
    head -c $((384 * 1024 + i * 4099)) /dev/urandom > "$work/www/vod/seg$i.ts"
    echo "#EXTINF:4.000,"
    echo "seg$i.ts"
  done
  echo "#EXT-X-ENDLIST"
} > "$work/www/vod/index.m3u8"

nginx_start "$work"
port=$nginx_port

url="http://127.0.0.1:$port/vod/index.m3u8"
play() {
  "$dlplay" --cache "$work/cache" --report json "$url" \
    > "$work/$1.json" 2> "$work/$1.err" || { cat "$work/$1.err"; exit 1; }
}
play first
first_requests=$(grep -c '\.ts ' "$work/logs/access.log" || true)
play second
second_requests=$(( $(grep -c '\.ts ' "$work/logs/access.log" || true) - first_requests ))

python3 - "$work" "$segments" "$second_requests" <<'PY'
import hashlib, json, os, sys
work, segments, second_requests = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
expected = {}
for name in os.listdir(os.path.join(work, "www/vod")):
    if name.endswith(".ts"):
        with open(os.path.join(work, "www/vod", name), "rb") as f:
            expected[name] = hashlib.sha256(f.read()).hexdigest()
failures = []
for play in ("first", "second"):
    with open(os.path.join(work, play + ".json")) as f:
        records = [json.loads(line) for line in f if line.strip()]
    seen = 0
    for record in records:
        name = record["url"].rsplit("/", 1)[-1]
        if not name.endswith(".ts"):
            continue
        seen += 1
        if record["code"] != 0 or record["sha256"] != expected[name]:
            failures.append(f"{play}: {name} code {record['code']} sha256 differs or failed")
        if play == "second" and (record["level"] != 0 or not record["cache_hit"]):
            failures.append(f"second: {name} served at level {record['level']}, not from the cache")
    if seen != segments:
        failures.append(f"{play}: {seen} segments reported, {segments} expected")
if second_requests != 0:
    failures.append(f"second: {second_requests} segment requests reached nginx")
print(f"e2e: {segments} segments, both plays checked against the origin's SHA-256; "
      f"second play: {second_requests} segment requests at the origin")
if failures:
    print("\n".join(failures))
    sys.exit(1)
print(f"{2 * segments} passed, 0 failed")
PY
