#!/usr/bin/env bash
# The request follower's concurrency tests again, many times over and each
# program whole in one process, under ThreadSanitizer (the build of the tsan
# workflow that ran before this step): teardown racing with add, callbacks
# calling back in on the monitor thread, wake-ups of the monitor. Rare
# interleavings show only over many runs.
set -euo pipefail
cd "$(dirname "$0")/../.."
export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1
tests=${OSTREL_TSAN_TESTS:-build/tsan/tests}
log=$(mktemp)
trap 'rm -f "$log"' EXIT

run() {
  if ! timeout 120 "$@" --gtest_brief=1 >"$log" 2>&1; then
    cat "$log"
    echo "failed: $*"
    exit 1
  fi
}

for _ in $(seq 1 25); do
  run "$tests/follower_test"
done
echo "follower concurrency tests: 25 runs clean under ThreadSanitizer"
