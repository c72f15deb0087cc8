#!/usr/bin/env bash
# The table library's parsers under libFuzzer (clang 14), about 30 s each, and
# the text decoder for 10 s, seeded with the golden sections. A crash fails
# the step.
set -euo pipefail
cd "$(dirname "$0")/../.."
scripts/deps build test fuzz
timeout 600 fuzz/run 30 pat pmt nit sdt tot
timeout 120 fuzz/run 10 text
