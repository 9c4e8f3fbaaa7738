#!/usr/bin/env bash
# What arrives from the network and from the host, under libFuzzer: response
# heads judged against requests, request URLs and options with redirect
# targets, URLs and settings (fuzz/network, fuzz/settings, built by the ASan
# tree). Each runs DL_FUZZ_SECONDS (default 60) from its checked-in seeds,
# copied, since libFuzzer writes what it finds into its corpus folder. The three
# run side by side (CI has the cores to spare for a minute). Fails on any
# sanitizer report or broken check.
set -euo pipefail
cd "$(dirname "$0")/../.."
seconds=${DL_FUZZ_SECONDS:-60}
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
run() {
  local target=$1 seeds=$2
  mkdir -p "$work/$target"
  cp "$seeds"/* "$work/$target"/
  build/asan/bin/"$target" -max_total_time="$seconds" -rss_limit_mb=2048 -print_final_stats=1 \
    -artifact_prefix="$work/$target-" "$work/$target" >"$work/$target.log" 2>&1
}
report() {  # target, pid: waits for that run and shows its outcome
  local target=$1 status=0
  wait "$2" || status=$?
  echo "--- $target: $seconds s"
  if [[ $status -ne 0 ]]; then
    tail -n 60 "$work/$target.log"
    return "$status"
  fi
  grep -E '^stat::(number_of_executed_units|peak_rss_mb)' "$work/$target.log"
}
run fuzz_response fuzz/network/response-seeds &
response=$!
run fuzz_request fuzz/network/request-seeds &
request=$!
run fuzz_settings fuzz/settings/seeds &
settings=$!
failed=0
report fuzz_response "$response" || failed=1
report fuzz_request "$request" || failed=1
report fuzz_settings "$settings" || failed=1
exit "$failed"
