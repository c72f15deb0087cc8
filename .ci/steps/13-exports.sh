#!/usr/bin/env bash
# The core library's export surface against the reviewed list (docs/exports.txt),
# on the host build, and on the cross builds when step 10 left them.
set -euo pipefail
cd "$(dirname "$0")/../.."
timeout 600 scripts/check-exports
for target in arm:arm-linux-gnueabihf mips:mips-linux-gnu; do
  preset=${target%%:*}
  library=build/$preset/core/libOstrelGingaCommonCore.so
  if [ -f "$library" ]; then
    echo "-- $preset"
    NM=${target#*:}-nm scripts/check-exports "$library"
  fi
done
