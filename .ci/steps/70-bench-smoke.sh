#!/usr/bin/env bash
# The benchmarks are never tests: this step only builds them (default preset;
# OSTREL_BENCH_BUILD names another configured build directory) and runs each
# once, briefly, so that none of them rots. Figures come from bench/run.
set -euo pipefail
cd "$(dirname "$0")/../.."
build=${OSTREL_BENCH_BUILD:-build/default}
[ -f "$build/CMakeCache.txt" ] || cmake --preset default -B "$build" >/dev/null
targets=$(cmake --build "$build" --target help | sed -n 's/^\([a-z_]*_bench\|report_heap\): .*/\1/p')
[ -n "$targets" ] || { echo "no benchmark targets in $build"; exit 1; }
# shellcheck disable=SC2086 # one word per target
timeout 600 cmake --build "$build" -j2 --target $targets
bench=$build/bench
log=$(mktemp)
trap 'rm -f "$log"' EXIT

run() {
  if ! timeout 120 "$@" >"$log" 2>&1; then
    cat "$log"
    echo "benchmark failed: $*"
    exit 1
  fi
  if grep -q 'ERROR OCCURRED' "$log"; then
    cat "$log"
    echo "benchmark reported an error: $*"
    exit 1
  fi
}

found=0
for program in "$bench"/*_bench; do
  [ -x "$program" ] || continue
  found=$((found + 1))
  case $(basename "$program") in
    report_bench) run "$program" --quick ;;
    *) run "$program" --benchmark_min_time=0.01 ;;
  esac
  echo "ran $(basename "$program")"
done
run "$bench/report_heap"
[ "$found" -gt 0 ] || { echo "no benchmark was built"; exit 1; }
echo "benchmarks: $found programs ran once"
