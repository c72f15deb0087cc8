#!/usr/bin/env bash
# The robustness corpus: 51 hard streams made at test time, each scanned on the
# simulator (played once and looping) and on an emulated DVB adapter (the
# same), against its truth (tests/corpus_check.py, docs/robustness-corpus.md).
# Minutes, so not in the presets' test runs: here, on the default build.
set -euo pipefail
cd "$(dirname "$0")/../.."
scripts/deps build test dvb
timeout 600 cmake --build build/default -j2 --target ostrel-corpus ostrel-scan ostrel-dvb-emu \
  ostrel-peer-dvbpsi >/dev/null
count=$(ctest --test-dir build/default -N -L corpus | sed -n 's/^Total Tests: //p')
[ "$count" = 2 ] || { echo "the corpus tests are not in the build (found ${count:-0} of 2)"; exit 1; }
timeout 600 ctest --test-dir build/default -R '^corpus_sim$' --output-on-failure
# On the emulated adapter (about five minutes), required as the simulator's.
timeout 1200 ctest --test-dir build/default -R '^corpus_dvb$' --output-on-failure
# The real broadcast captures beside the checkout (../shared/streams/real, or
# OSTREL_REAL_STREAMS), read alike by ostrel-scan and libdvbpsi.
real=${OSTREL_REAL_STREAMS:-$PWD/../shared/streams/real}
if ls "$real"/*.ts >/dev/null 2>&1; then
  python3 tools/corpus/peers.py --bin build/default --agree "$real"
else
  echo "no real captures at $real: ostrel-scan against libdvbpsi on them not run"
fi
