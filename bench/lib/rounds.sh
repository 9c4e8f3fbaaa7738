# Sourced by the side-by-side benchmarks: round order, timing and the report.
#
#   build_release TARGET...      builds them in the release preset
#   bench_work NAME               sets work (a scratch folder) and, at exit,
#                                 stops nginx and removes it (bench/loopback-nginx.sh)
#   bench_rounds ARG              prints the round count (ARG, default 7)
#   peer_first ROUND              true when the peer runs first in ROUND (even rounds)
#   pair ROUND PEER_FN OURS_FN    runs both functions in that round's order
#   wall_of CMD...                wall seconds of a whole process
#   times_of CMD...               "wall cpu peak_rss_kib" of a whole process (/usr/bin/time)
#   report SPEC SAMPLES PREFIX    table, chart and target check (bench/lib/sidebyside.py)
#
# A smaller payload for checking a script on a busy machine: BENCH_MIB (MiB of
# the biggest file) where a script reads it; BENCH_RESULTS moves the output
# away from bench/results.

bench_lib=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
default_rounds=7

build_release() {
  cmake --preset release >/dev/null
  nice -n 5 cmake --build --preset release -j2 --target "$@" >/dev/null
}

source "$bench_lib/../loopback-nginx.sh"
bench_work() {
  work=$(mktemp -d "/tmp/$1-bench.XXXXXX")
  trap 'stop_loopback_nginx; rm -rf "$work"' EXIT
}

bench_rounds() {
  local rounds=${1:-$default_rounds}
  ((rounds >= default_rounds)) || echo "only $rounds rounds: a check of the script, not a figure" >&2
  echo "$rounds"
}

peer_first() { (($1 % 2 == 0)); }

pair() {
  if peer_first "$1"; then
    "$2"
    "$3"
  else
    "$3"
    "$2"
  fi
}

wall_of() {
  local TIMEFORMAT='%R'
  { time "$@" >/dev/null 2>&1 </dev/null; } 2>&1
}

# Bash's clock for wall and CPU (milliseconds, where /usr/bin/time gives
# hundredths); /usr/bin/time only for the peak RSS, the same small cost on both
# sides.
times_of() {
  local rss_file times TIMEFORMAT='%R %U %S'
  rss_file=$(mktemp)
  times=$({ time /usr/bin/time -f '%M' -o "$rss_file" "$@" >/dev/null 2>&1 </dev/null; } 2>&1)
  awk -v rss="$(cat "$rss_file")" '{print $1, $2 + $3, rss}' <<<"$times"
  rm -f "$rss_file"
}

report() {
  python3 "$bench_lib/sidebyside.py" "$@"
}
