#!/usr/bin/env bash
# Runs every fuzz target of a fuzz build for a bounded time, each on its own
# corpus (fuzz/corpus/<target>, seeded from the factory files).
set -euo pipefail
build=$(cd "${1:?build dir}" && pwd)
seconds=${2:-60}
root=$(cd "$(dirname "$0")/.." && pwd)
status=0
for bin in "$build"/fuzz/*_fuzz; do
  [ -x "$bin" ] || continue
  name=$(basename "$bin")
  corpus="$build/corpus/$name"
  mkdir -p "$corpus"
  cp -n "$root"/factory/*.xml "$corpus"/ 2>/dev/null || true
  if [ -d "$root/fuzz/corpus/$name" ]; then cp -rn "$root/fuzz/corpus/$name"/. "$corpus"/; fi
  echo "fuzz: $name for ${seconds}s"
  work=$(mktemp -d)
  if ! (cd "$work" && "$bin" -max_total_time="$seconds" -max_len=65536 -rss_limit_mb=2048 \
        -print_final_stats=1 "$corpus" >"$work/log" 2>&1); then
    tail -60 "$work/log"
    status=1
  else
    grep -E "stat::number_of_executed_units|Done" "$work/log" | tail -2 || true
  fi
  rm -rf "$work"
done
exit $status
