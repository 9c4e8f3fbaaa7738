#!/usr/bin/env bash
# Runs the storage kill test with many kills (default 1000) against a build
# (default the asan preset's): every chunk whose bit is set after each kill
# must hold the source's bytes. Ends with the test's tally line.
set -euo pipefail
cd "$(dirname "$0")/../.."
build=${1:-build/asan}
export DL_STORAGE_KILLS=${DL_STORAGE_KILLS:-1000}
exec "$build/bin/storage_kill_tests" --gtest_filter='StorageKillTest.*'
