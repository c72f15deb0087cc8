#!/usr/bin/env bash
# Cross builds for 32-bit ARM hard-float and 32-bit big-endian MIPS, each with
# the whole test suite and the robustness corpus run under qemu-user
# (CMAKE_CROSSCOMPILING_EMULATOR).
# Benchmarks are off there; each target is bounded in time.
set -euo pipefail
cd "$(dirname "$0")/../.."
scripts/deps build test cross

# The ELF header of a built program must show the target's class, byte order
# and machine, so that a misconfigured toolchain cannot pass for a cross build.
check_elf() {
  local file=$1 machine=$2 data=$3
  local header
  header=$(readelf -h "$file")
  grep -q "Class:.*ELF32" <<<"$header" || { echo "$file: not a 32-bit ELF"; exit 1; }
  grep -q "Data:.*$data" <<<"$header" || { echo "$file: not $data"; exit 1; }
  grep -q "Machine:.*$machine" <<<"$header" || { echo "$file: not $machine"; exit 1; }
}

run_target() {
  local preset=$1 machine=$2 data=$3
  echo "---- $preset ----"
  timeout 600 cmake --preset "$preset" >/dev/null
  timeout 900 cmake --build --preset "$preset"
  check_elf "build/$preset/core/libOstrelGingaCommonCore.so" "$machine" "$data"
  timeout 900 ctest --preset "$preset" --no-tests=error
  # The robustness corpus on the simulator, 32-bit (and big-endian): every
  # stream right, the 256-section tables too.
  timeout 900 ctest --test-dir "build/$preset" -R '^corpus_sim$' --output-on-failure
}

run_target arm "ARM" "little endian"
run_target mips "MIPS" "big endian"

# Footprint on the builds just made: the size target is checked, the heap
# figures are printed (docs/footprint.md is written by hand, not in CI).
timeout 300 scripts/footprint --no-write --check-size
