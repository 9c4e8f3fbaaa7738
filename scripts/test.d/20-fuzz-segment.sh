#!/usr/bin/env bash
# Fuzzes the segment file reader for a minute: arbitrary bytes opened as a
# segment file and read in ranges (fuzz/segment, built by the ASan tree). Fails on any sanitizer
# report or broken check.
set -euo pipefail
cd "$(dirname "$0")/../.."

corpus=$(mktemp -d)
trap 'rm -rf "$corpus"' EXIT
cp fuzz/segment/seeds/* "$corpus"/
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
build/asan/bin/fuzz_segment_file -max_total_time=60 -rss_limit_mb=2048 -print_final_stats=1 "$corpus"
