#!/usr/bin/env bash
# The shared library exports its public interface and nothing else: every
# defined dynamic symbol is a C entry point (dl_*, cCacheDownload_*) or lives in
# the public namespaces or is one of the global result records.
set -euo pipefail
library=$1
unexpected=$(nm -D --defined-only "$library" | awk '{print $3}' | c++filt |
  grep -v -E '^(dl_|cCacheDownload_)' |
  grep -v -E '^((typeinfo|typeinfo name|vtable|VTT|non-virtual thunk to|virtual thunk to) (for )?)?(downloader::|protocols::|DL[A-Za-z]+)' || true)
if [[ -n "$unexpected" ]]; then
  echo "unexpected exported symbols:"
  echo "$unexpected" | head -40
  exit 1
fi
count=$(nm -D --defined-only "$library" | wc -l)
echo "exports: $count symbols, all public"
