#!/usr/bin/env bash
# The tests' size against the code they test (scripts/test-ratio): all of
# tests/ at most 0.40 of the product code, the library's own tests at most its
# size. Printed on every run; above a limit the step fails.
set -euo pipefail
cd "$(dirname "$0")/../.."
python3 scripts/test-ratio
