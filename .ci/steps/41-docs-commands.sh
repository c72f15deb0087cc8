#!/usr/bin/env bash
# The documents' scan commands, run: every command of docs/simulator.md and
# README.md that can run offline (capture.ts stands for a copy of the sample),
# and every output they quote compared with what the command prints
# (scripts/check-docs-commands says how the quotes are marked); and every
# docs/ file that a source or a document cites exists.
set -euo pipefail
cd "$(dirname "$0")/../.."
scripts/deps build
cmake --preset default >/dev/null
timeout 600 cmake --build --preset default --target ostrel-scan ostrel-sample
timeout 600 scripts/check-docs-commands README.md docs/simulator.md
# Every document the sources and documents cite exists.
missing=0
while read -r cited; do
  [ -e "$cited" ] || { echo "cited but missing: $cited"; missing=1; }
done < <(grep -rhoE '\bdocs/[A-Za-z0-9_./-]+\.(md|1)\b' --include='*.h' --include='*.cpp' \
  --include='*.md' --include='*.cmake' --include='CMakeLists.txt' \
  core follower cache common platform server sim scan ts dvb tools docs README.md | sort -u)
[ "$missing" -eq 0 ]
