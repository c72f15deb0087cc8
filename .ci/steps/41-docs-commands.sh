#!/usr/bin/env bash
# The documents' scan commands, run: every command of docs/simulator.md and
# README.md that can run offline (capture.ts stands for a copy of the sample),
# and every output they quote compared with what the command prints
# (scripts/check-docs-commands says how the quotes are marked).
set -euo pipefail
cd "$(dirname "$0")/../.."
scripts/deps build
cmake --preset default >/dev/null
timeout 600 cmake --build --preset default --target ostrel-scan ostrel-sample
timeout 600 scripts/check-docs-commands README.md docs/simulator.md
