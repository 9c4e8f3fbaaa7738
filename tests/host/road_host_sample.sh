#!/usr/bin/env bash
# Runs the README's host program twice against the run's dlorigin with one
# cache folder: the first run must read over HTTP (level 4), the second from
# the disk cache (level 0), both the same bytes.
set -euo pipefail
sample=$1
origin=$(head -n 1 "$DLORIGIN_URL_FILE")
url="$origin/syn/host-sample-$$-$RANDOM.ts?size=5000000"
cache=$(mktemp -d)
trap 'rm -rf "$cache"' EXIT
first=$("$sample" "$url" "$cache")
second=$("$sample" "$url" "$cache")
echo "first:  $first"
echo "second: $second"
[[ "$first" == "5000000 bytes, fnv1a "*", levels 4" ]]
[[ "$second" == "5000000 bytes, fnv1a "*", levels 0" ]]
[[ "${first% levels 4}" == "${second% levels 0}" ]]
