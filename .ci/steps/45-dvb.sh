#!/usr/bin/env bash
# The DVB server's tests and the emulator's check ran in the suite (scripts/test)
# when libfuse3 was there; here they must have been there: a machine without
# libfuse3 would leave them out of the build, and CI must not pass without them.
set -euo pipefail
cd "$(dirname "$0")/../.."
scripts/deps build test dvb
count=$(ctest --test-dir build/default -N -R '^dvb_(server_test|emu_check|zap_check)$' | sed -n 's/^Total Tests: //p')
[ "$count" = 3 ] || { echo "the DVB tests are not in the suite (found ${count:-0} of 3)"; exit 1; }
# dvbv5-zap's check skips without dvb-tools: here it must run.
ctest --test-dir build/default -R '^dvb_zap_check$' --output-on-failure | tee /tmp/ostrel-zap-check.txt
! grep -q 'Skipped' /tmp/ostrel-zap-check.txt || { echo "dvb_zap_check was skipped"; exit 1; }
echo "the DVB server's tests, the emulator's check and dvbv5-zap's check are in the suite"
