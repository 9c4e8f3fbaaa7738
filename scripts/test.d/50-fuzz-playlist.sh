#!/usr/bin/env bash
# dlplay's playlist parser under libFuzzer for 30 seconds, from the checked-in
# seeds (copied: libFuzzer writes what it finds into its corpus folder).
set -euo pipefail
cd "$(dirname "$0")/../.."
corpus=$(mktemp -d)
trap 'rm -rf "$corpus"' EXIT
cp fuzz/playlist/corpus/* "$corpus"/
build/asan/bin/fuzz_playlist -max_total_time=30 -print_final_stats=0 "$corpus" 2>&1 | tail -n 2
