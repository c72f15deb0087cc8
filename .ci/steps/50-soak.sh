#!/usr/bin/env bash
# The soak program under ThreadSanitizer for 60 s (the build of the tsan
# workflow that ran before this step): requests in every mode from several
# threads, deliveries, time-outs, callbacks calling back in, the follower
# destroyed and re-created, caches evicting. Any race, lost or doubled ending,
# doubled release or growth of the heap fails the step.
set -euo pipefail
cd "$(dirname "$0")/../.."
build=${OSTREL_TSAN_BUILD:-build/tsan}
[ -f "$build/CMakeCache.txt" ] || timeout 300 cmake --preset tsan -B "$build" >/dev/null
timeout 900 cmake --build "$build" --target ostrel-soak
TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
  timeout 300 "$build/tools/soak/ostrel-soak" --seconds "${OSTREL_SOAK_SECONDS:-60}" --quiet
