#!/usr/bin/env bash
# Starts and stops a dlorigin in the background, for test runs that need an
# origin (the wisp suites, natively and under wine).
#
#   dlorigin-ctl.sh start <dlorigin binary> <state dir>   prints the origin's URL;
#                                                          leaves <state dir>/url and pid
#   dlorigin-ctl.sh stop <state dir>
set -euo pipefail

# Stops the origin recorded in <state dir>, if it is still the dlorigin we started.
stop_origin() {
  local dir=$1
  [[ -f "$dir/pid" ]] || return 0
  local pid
  pid=$(cat "$dir/pid")
  if [[ -r "/proc/$pid/cmdline" ]] && tr '\0' ' ' <"/proc/$pid/cmdline" | grep -q dlorigin; then
    kill "$pid" 2>/dev/null || true
  fi
  rm -f "$dir/pid" "$dir/url"
}

case "${1:-}" in
  start)
    binary=$2
    dir=$3
    if [[ ! -x "$binary" ]]; then
      echo "dlorigin-ctl: no dlorigin at $binary (the Windows suites use the asan build's: build that preset first)" >&2
      exit 1
    fi
    mkdir -p "$dir"
    stop_origin "$dir"
    # The lifetime bounds an origin that an interrupted run never stops.
    nohup "$binary" --port 0 --ready-file "$dir/url" --lifetime 3600 >"$dir/log" 2>&1 </dev/null &
    echo $! >"$dir/pid"
    for _ in $(seq 100); do
      if [[ -s "$dir/url" ]]; then
        cat "$dir/url"
        exit 0
      fi
      sleep 0.1
    done
    echo "dlorigin-ctl: dlorigin did not come up" >&2
    cat "$dir/log" >&2
    exit 1
    ;;
  stop)
    stop_origin "$2"
    ;;
  *)
    echo "usage: $0 start <dlorigin binary> <state dir> | stop <state dir>" >&2
    exit 2
    ;;
esac
