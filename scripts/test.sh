#!/usr/bin/env bash
# Builds and runs every test suite: native under ASan+UBSan, again under TSan,
# and the Windows build under wine. Exits non-zero on the first failing run.
# Each step's wall time is printed when it ends, and all of them at the end.
# The wine suite, which mostly waits on wine, runs beside the TSan build; its
# output is printed, and its status checked, before the next step begins.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)

bash scripts/deps.sh

jobs=$(nproc)
export WINEDEBUG=-all
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1
# A compiler cache makes a second run on the same machine rebuild only what
# changed; paths are taken relative to the clone so that clones share it.
if command -v ccache >/dev/null; then
  export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache
  export CCACHE_BASEDIR=${CCACHE_BASEDIR:-$root} CCACHE_NOHASHDIR=true
fi

timings=()
step_name=""
step_start=0
end_step() {
  [[ -n "$step_name" ]] || return 0
  local seconds=$((SECONDS - step_start))
  echo "--- $step_name: ${seconds}s"
  timings+=("$(printf '%6ds  %s' "$seconds" "$step_name")")
}
step() {
  end_step
  step_name=$*
  step_start=$SECONDS
  echo; echo "=== $* ==="
}

# beside NAME COMMAND...: starts COMMAND as the step NAME and goes on with the
# next; its output goes to a file until `await` prints it. One at a time.
beside_name=""
beside_pid=0
beside_start=0
beside_log=$(mktemp)
trap 'if ((beside_pid)); then kill "$beside_pid" 2>/dev/null || true; fi; rm -f "$beside_log"' EXIT
beside() {
  beside_name=$1
  shift
  beside_start=$SECONDS
  echo; echo "=== $beside_name (beside the next steps) ==="
  "$@" >"$beside_log" 2>&1 &
  beside_pid=$!
}
# await: waits for the step started by `beside`, prints its output and time,
# and fails the run if it failed.
await() {
  end_step
  step_name=""
  local status=0
  wait "$beside_pid" || status=$?
  beside_pid=0
  echo; echo "=== $beside_name (output) ==="
  cat "$beside_log"
  local seconds=$((SECONDS - beside_start))
  echo "--- $beside_name: ${seconds}s, beside other steps"
  timings+=("$(printf '%6ds  %s (beside the steps above)' "$seconds" "$beside_name")")
  if ((status != 0)); then
    echo "$beside_name failed with status $status" >&2
    exit "$status"
  fi
}

step "native ASan+UBSan: build"
cmake --preset asan >/dev/null
cmake --build --preset asan -j "$jobs"

# The Windows suites that talk to an origin use the ASan tree's dlorigin.
step "Windows (mingw-w64): build"
cmake --preset windows >/dev/null
cmake --build --preset windows -j "$jobs"
step "Windows: DLLs import only system DLLs"
bash scripts/check_dll_imports.sh build/windows/bin/downloader.dll build/windows/bin/wisp.dll
beside "Windows: tests under wine" bash scripts/ctest-wine.sh

step "native TSan: build"
cmake --preset tsan >/dev/null
cmake --build --preset tsan -j "$jobs"
await

step "native ASan+UBSan: tests"
ctest --preset asan
step "native TSan: tests"
ctest --preset tsan

for extra in "$root"/scripts/test.d/*.sh; do
  [[ -e "$extra" ]] || continue
  step "$(basename "$extra")"
  bash "$extra"
done

end_step
echo
echo "=== wall time by step (load average now: $(cut -d' ' -f1-3 /proc/loadavg)) ==="
printf '%s\n' "${timings[@]}"
echo "$(printf '%6ds' "$SECONDS")  in all"
echo "all test runs passed"
