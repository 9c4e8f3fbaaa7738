#!/usr/bin/env bash
# Runs the storage kill test with many kills (default 500) against a build
# (default the asan preset's).
set -euo pipefail
cd "$(dirname "$0")/../.."
build=${1:-build/asan}
export DL_STORAGE_KILLS=${DL_STORAGE_KILLS:-500}
exec "$build/bin/storage_kill_tests" --gtest_filter='StorageKillTest.*'
