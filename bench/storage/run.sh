#!/usr/bin/env bash
# Builds the release preset and runs the storage benchmark in a scratch
# directory on the same disk as the cache would be (default: $TMPDIR or /tmp).
# Prints each run, then the table of medians of the per-round ratios
# (build/release/bench-storage.md and .png).
#
#   bench/storage/run.sh [directory]       ROUNDS (default 7) sets the rounds
set -euo pipefail
cd "$(dirname "$0")/../.."
root=$(pwd)
source "$root/bench/lib/rounds.sh"
rounds=$(bench_rounds "${ROUNDS:-}")
build=$root/build/release
scratch=$(mktemp -d "${1:-${TMPDIR:-/tmp}}/storage-bench.XXXXXX")
trap 'rm -rf "$scratch"' EXIT
build_release storage_bench
"$build/bin/storage_bench" "$scratch" "$rounds" | tee "$scratch/runs.txt" | grep -v '^sample '
sed -n 's/^sample //p' "$scratch/runs.txt" >"$scratch/samples.txt"

size=1073741824
case_of() {  # key, label, peer, unit
  local bytes=""
  [[ $4 == seconds ]] && bytes=", \"bytes\": $size"
  echo "{\"case\": \"$1\", \"label\": \"$2\", \"peer\": \"$3\", \"unit\": \"$4\"$bytes}"
}
cat >"$scratch/spec.json" <<JSON
{"title": "Storage beside its physical limits", "ours": "downloader", "chart": "MiB/s",
 "note": "1 GiB in 64 KiB pieces. paced: the producer at most 8 MiB ahead of the storage thread; layout: the same bytes written chunk by chunk at a segment file's slots; cat's times are scaled to the payload (it also reads the slots' checksums).",
 "cases": [
  $(case_of paced_wall "dispatch + writer, paced" pwrite seconds),
  $(case_of unpaced_wall "dispatch + writer, unpaced" pwrite seconds),
  $(case_of layout_wall "dispatch + writer, paced, beside the layout's limit" pwritev-at-slots seconds),
  $(case_of read_wall "segment reader, warm cache" cat seconds),
  $(case_of paced_cpu "dispatch + writer, paced" pwrite "CPU s"),
  $(case_of unpaced_cpu "dispatch + writer, unpaced" pwrite "CPU s"),
  $(case_of layout_cpu "dispatch + writer, beside the layout's limit" pwritev-at-slots "CPU s"),
  $(case_of read_cpu "segment reader, warm cache" cat "CPU s")
 ]}
JSON
report "$scratch/spec.json" "$scratch/samples.txt" "$build/bench-storage"
