#!/usr/bin/env bash
# The core library's export surface against the reviewed list (docs/exports.txt),
# on the host build, and on the cross builds when step 10 left them. A list
# marked "# status: provisional" is compared and reported, without failing.
set -euo pipefail
cd "$(dirname "$0")/../.."

check() {
  if grep -q '^# status: provisional' docs/exports.txt; then
    "$@" || echo "check-exports: the reviewed list is provisional; difference reported, not failed"
  else
    "$@"
  fi
}

check timeout 600 scripts/check-exports
for target in arm:arm-linux-gnueabihf mips:mips-linux-gnu; do
  preset=${target%%:*}
  library=build/$preset/core/libOstrelGingaCommonCore.so
  if [ -f "$library" ]; then
    echo "-- $preset"
    check env NM="${target#*:}-nm" scripts/check-exports "$library"
  fi
done
