#!/usr/bin/env bash
# The DVB server's tests and the emulator's check ran in the suite (scripts/test)
# when libfuse3 was there; here they must have been there: a machine without
# libfuse3 would leave them out of the build, and CI must not pass without them.
set -euo pipefail
cd "$(dirname "$0")/../.."
scripts/deps build test dvb
count=$(ctest --test-dir build/default -N -R '^dvb_(server_test|clients_check)$' | sed -n 's/^Total Tests: //p')
[ "$count" = 2 ] || { echo "the DVB tests are not in the suite (found ${count:-0} of 2)"; exit 1; }
# The clients' check skips without dvb-tools: here it must run.
ctest --test-dir build/default -R '^dvb_clients_check$' --output-on-failure | tee /tmp/ostrel-clients-check.txt
! grep -q 'Skipped' /tmp/ostrel-clients-check.txt || { echo "dvb_clients_check was skipped"; exit 1; }
echo "the DVB server's tests and the clients' check of the emulated adapter are in the suite"
