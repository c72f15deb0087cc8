#!/usr/bin/env bash
# API documentation of the public headers with Doxygen; any warning fails.
set -euo pipefail
cd "$(dirname "$0")/../.."
scripts/deps build docs
build=build/docs-check
timeout 300 cmake --preset default -B "$build" -DOSTREL_BUILD_TESTS=OFF -DOSTREL_BUILD_BENCH=OFF \
  -DOSTREL_BUILD_SIM=OFF -DOSTREL_BUILD_EXAMPLES=OFF -DOSTREL_BUILD_DOCS=ON >/dev/null
cmake --build "$build" --target help | grep -q '^docs:' ||
  { echo "no docs target: is doxygen installed?"; exit 1; }
timeout 300 cmake --build "$build" --target docs
test -s "$build/docs/html/classOstrel_1_1OstrelGingaCommonCore.html"
echo "API documentation: $build/docs/html/index.html"
