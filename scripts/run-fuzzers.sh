#!/usr/bin/env bash
# Runs every fuzz target of a fuzz build for a bounded time, each on its own
# corpus (kept in <build>/corpus/<target>, seeded from the factory files, the
# committed seeds in fuzz/corpus/<target> and, when FUZZ_SEED_DIRS names
# directories, the files the tests wrote there). Prints one line per target
# with its executions, executions per second and whether it crashed, then the
# totals. FUZZ_RUNS=N also stops each target after N executions (SECONDS
# stays the limit).
# Usage: run-fuzzers.sh BUILD_DIR [SECONDS] [TARGET...]
set -euo pipefail
build=$(cd "${1:?build dir}" && pwd)
seconds=${2:-60}
shift $(( $# >= 2 ? 2 : $# ))
root=$(cd "$(dirname "$0")/.." && pwd)
status=0
shm=/tmp
if [ -w /dev/shm ] && [ -x /dev/shm ]; then shm=/dev/shm; fi
total_execs=0
total_crashes=0
report=()
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for bin in "$build"/fuzz/*_fuzz; do [ -x "$bin" ] && targets+=("$(basename "$bin")"); done
fi
for name in "${targets[@]}"; do
  bin="$build/fuzz/$name"
  [ -x "$bin" ] || continue
  corpus="$build/corpus/$name"
  mkdir -p "$corpus"
  cp -n "$root"/factory/*.xml "$root"/factory/*.properties "$corpus"/ 2>/dev/null || true
  if [ -d "$root/fuzz/corpus/$name" ]; then cp -rn "$root/fuzz/corpus/$name"/. "$corpus"/; fi
  for seeds in ${FUZZ_SEED_DIRS:-}; do
    find "$seeds" -maxdepth 3 -type f \( -name '*.xml' -o -name '*.properties' -o -name '*.pem' -o -name '*.key' \) \
      -size -64k -exec cp -n {} "$corpus"/ \; 2>/dev/null || true
  done
  echo "fuzz: $name for ${seconds}s"
  # The harness makes its working directory inside this one (see
  # fuzz/fuzz_workdir.h), so a run that crashed leaves nothing behind.
  work=$(mktemp -d -p "$shm")
  crashed=0
  if ! (cd "$work" && OXCFG_FUZZ_WORK_ROOT="$work" "$bin" -max_total_time="$seconds" \
        ${FUZZ_RUNS:+-runs="$FUZZ_RUNS"} -max_len=65536 -rss_limit_mb=2048 -print_final_stats=1 "$corpus" \
        >"$work/log" 2>&1); then
    tail -60 "$work/log"
    status=1
    crashed=1
    # Keep the inputs that crashed it for reproduction.
    mkdir -p "$build/crashes/$name"
    cp "$work"/crash-* "$work"/leak-* "$work"/timeout-* "$work"/oom-* "$build/crashes/$name"/ 2>/dev/null || true
    echo "fuzz: crashing inputs kept in $build/crashes/$name"
  fi
  execs=$(grep -Eo 'stat::number_of_executed_units: *[0-9]+' "$work/log" | grep -Eo '[0-9]+$' | tail -1 || true)
  execs=${execs:-0}
  rate=$(grep -Eo 'stat::average_exec_per_sec: *[0-9]+' "$work/log" | grep -Eo '[0-9]+$' | tail -1 || true)
  rate=${rate:-0}
  total_execs=$((total_execs + execs))
  total_crashes=$((total_crashes + crashed))
  report+=("$(printf 'fuzz-summary: %-26s executions=%-12s exec/s=%-8s crashes=%s' "$name" "$execs" "$rate" \
    "$crashed")")
  rm -rf "$work"
done
printf '%s\n' "${report[@]}"
echo "fuzz-summary: total executions=$total_execs crashes=$total_crashes"
exit $status
