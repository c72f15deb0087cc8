#!/usr/bin/env bash
# The core's request and injection road and the simulator's transport-stream
# demux under libFuzzer (clang 14, AddressSanitizer + UndefinedBehaviorSanitizer),
# 45 s each, seeded with the golden sections and the sample stream. A crash,
# a leak or a broken count fails the step.
set -euo pipefail
cd "$(dirname "$0")/../.."
scripts/deps build test fuzz
timeout 900 fuzz/run 45 inject_data ts_demux
