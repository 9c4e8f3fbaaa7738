#!/usr/bin/env bash
# No library folder includes a folder above its own (scripts/check_layers.sh).
set -euo pipefail
cd "$(dirname "$0")/../.."
bash scripts/check_layers.sh
