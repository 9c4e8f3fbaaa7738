#!/usr/bin/env bash
# Fails when a library source or header includes a folder above its own.
# The layers, lowest first (a folder may include its own layer and the ones
# below it):
#   0 Utils Platform   1 Base Stats   2 Storage Stream Strategy
#   3 Filter Cache     4 Impls        5 Pipe
# Vocabulary headers hold only types and constants that every layer speaks
# (settings access, reporter, sub-codes, level values). Their public paths put
# them in Pipe or Filter, so they count as layer 1 and may themselves include
# nothing above it. A known upward include that is still to be removed is
# listed in scripts/layers.allow ("file -> Folder/Header.h"); a listed include
# that is gone fails too, so the list only shrinks. Impls and Pipe reach the
# cache through its public headers alone.
set -euo pipefail
cd "$(dirname "$0")/.."

declare -A rank=([Utils]=0 [Platform]=0 [Base]=1 [Stats]=1 [Storage]=2 [Stream]=2 [Strategy]=2
                 [Filter]=3 [Cache]=3 [Impls]=4 [Pipe]=5)
declare -A vocabulary=()
for header in Pipe/ConfigReader.h Pipe/IConfigure.h Pipe/IReporter.h Pipe/PlayerState.h Pipe/PulseDataDef.h \
              Pipe/StatsStage.h Filter/SubCode.h Filter/DLDownloadLevel.h; do
  vocabulary[$header]=1
done
allow_file=scripts/layers.allow

header_rank() {
  if [[ -n "${vocabulary[$1]:-}" ]]; then echo 1; else echo "${rank[${1%%/*}]:-}"; fi
}

status=0
seen_allowed=()
while IFS= read -r file; do
  rel=${file#include/downloader/}
  rel=${rel#Source/}
  own=$(header_rank "$rel")
  [[ -n "$own" ]] || continue
  while IFS= read -r header; do
    target=$(header_rank "$header")
    [[ -n "$target" && "$target" -gt "$own" ]] || continue
    entry="$file -> $header"
    if [[ -f "$allow_file" ]] && grep -qxF "$entry" "$allow_file"; then
      seen_allowed+=("$entry")
      continue
    fi
    echo "upward include: $entry" >&2
    status=1
  done < <(sed -nE 's@^[[:space:]]*#[[:space:]]*include[[:space:]]*[<"](downloader/)?([A-Z][A-Za-z]*/[^>"]*)[>"].*@\2@p' "$file")
done < <(find Source include/downloader -type f \( -name '*.h' -o -name '*.cpp' \) | sort)

# Above Filter the cache is reached through its public headers only
# (CacheWriter, IDataStore), never through Storage's internal ones.
if grep -rnE '^[[:space:]]*#[[:space:]]*include[[:space:]]*"Storage/' Source/Impls Source/Pipe >&2; then
  echo "Storage internals included above Filter (use <downloader/Storage/CacheWriter.h>)" >&2
  status=1
fi

if [[ -f "$allow_file" ]]; then
  while IFS= read -r entry; do
    [[ -z "$entry" || "$entry" == \#* ]] && continue
    if ! printf '%s\n' "${seen_allowed[@]}" | grep -qxF "$entry"; then
      echo "listed in $allow_file but no longer included: $entry" >&2
      status=1
    fi
  done <"$allow_file"
fi
[[ $status -eq 0 ]] && echo "layers: no upward include"
exit $status
