#!/usr/bin/env bash
# Builds and runs every test suite: native under ASan+UBSan, the concurrency
# suites under TSan, and the Windows build under wine. Exits non-zero on the
# first failing run.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)

bash scripts/deps.sh

jobs=$(nproc)
export WINEDEBUG=-all
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1

step() { echo; echo "=== $* ==="; }

step "native ASan+UBSan: build"
cmake --preset asan >/dev/null
cmake --build --preset asan -j "$jobs"
step "native ASan+UBSan: tests"
ctest --preset asan

step "native TSan: build"
cmake --preset tsan >/dev/null
cmake --build --preset tsan -j "$jobs"
step "native TSan: concurrency tests"
ctest --preset tsan

step "Windows (mingw-w64): build"
cmake --preset windows >/dev/null
cmake --build --preset windows -j "$jobs"
step "Windows: tests under wine"
bash scripts/ctest-wine.sh
step "Windows: DLLs import only system DLLs"
bash scripts/check_dll_imports.sh build/windows/bin/downloader.dll build/windows/bin/wisp.dll

for extra in "$root"/scripts/test.d/*.sh; do
  [[ -e "$extra" ]] || continue
  step "$(basename "$extra")"
  bash "$extra"
done

echo
echo "all test runs passed"
