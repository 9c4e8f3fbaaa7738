#!/usr/bin/env bash
# Soaks the library: TUNNELS x STREAMS streams for DURATION against a dlorigin
# of its own, every request under a random fault, the cache damaged between
# rounds, every byte checked (see SoakHost.cpp).
#
#   bench/soak/run.sh [DURATION] [BUILD] [soak_host options...]
#
# DURATION: seconds, or with a suffix s, m or h (default 2m). BUILD: a build
# tree with soak_host and dlorigin (default build/asan). Under TSan the read
# time-out is longer, since every step is several times slower. Exits with
# soak_host's status.
set -euo pipefail
cd "$(dirname "$0")/../.."

duration=${1:-2m}
build=${2:-build/asan}
shift $(($# > 2 ? 2 : $#))

case "$duration" in
  *h) seconds=$((${duration%h} * 3600)) ;;
  *m) seconds=$((${duration%m} * 60)) ;;
  *s) seconds=${duration%s} ;;
  *) seconds=$duration ;;
esac

for binary in soak_host dlorigin; do
  if [[ ! -x "$build/bin/$binary" ]]; then
    echo "soak: no $build/bin/$binary: build the targets soak_host dlorigin fake_pcdn_engine first" >&2
    exit 2
  fi
done

work=$(mktemp -d)
cleanup() {
  bash scripts/dlorigin-ctl.sh stop "$work/origin"
  rm -rf "$work"
}
trap cleanup EXIT
origin=$(bash scripts/dlorigin-ctl.sh start "$build/bin/dlorigin" "$work/origin")

options=()
engine="$build/engines/libpcdn_x64.so"
[[ -f "$engine" ]] && options+=("--pcdn-engine=$(realpath "$engine")")
# Sanitizer overheads: TSan runs every step several times slower and keeps
# shadow memory beside the heap.
if grep -q 'DL_SANITIZE:STRING=thread' "$build/CMakeCache.txt" 2>/dev/null; then
  options+=(--read-timeout-ms=6000 --rss-limit-mib=3072)
elif grep -q 'DL_SANITIZE:STRING=address' "$build/CMakeCache.txt" 2>/dev/null; then
  options+=(--read-timeout-ms=3000 --rss-limit-mib=2048)
else
  options+=(--read-timeout-ms=2000 --rss-limit-mib=512)
fi

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
export TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1}
echo "soak: $seconds s on $build against $origin"
"$build/bin/soak_host" "$origin" "$work/run" "$seconds" "${options[@]}" "$@"
