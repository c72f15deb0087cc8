#!/usr/bin/env bash
# The scan program end to end on the sample stream: exact channel table, valid
# JSON and trace, exit statuses for unreadable input, and the sample read from
# standard input and as 204-byte packets.
set -euo pipefail
cd "$(dirname "$0")/../.."
cmake --preset default >/dev/null
timeout 600 cmake --build --preset default --target ostrel-scan ostrel-sample
scan=build/default/sim/ostrel-scan
sample=build/default/sim/sample.ts
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

timeout 60 "$scan" --fast --quiet --no-latency "$sample" >"$work/table.txt"
grep -q '^0xE761   TV         Ostrel Extra    Ostrel    0x0130  PMT timed out$' "$work/table.txt"
grep -q '^PMT 0xE761     0x0130  0x02   timed out$' "$work/table.txt"
timeout 60 "$scan" --fast --json --trace "$work/trace.json" "$sample" >"$work/scan.json"
python3 -m json.tool "$work/scan.json" >/dev/null
python3 -m json.tool "$work/trace.json" >/dev/null

status=0; timeout 30 "$scan" --quiet /nonexistent.ts >/dev/null 2>&1 || status=$?
[ "$status" -eq 1 ]
head -c 100000 /dev/urandom | tr '\107' '\000' >"$work/noise.ts"
status=0; timeout 30 "$scan" --quiet --fast "$work/noise.ts" >/dev/null 2>&1 || status=$?
[ "$status" -eq 1 ]

# Standard input, not looped, paced by its PCR.
timeout 60 "$scan" --quiet --no-latency - <"$sample" | grep -q '^PAT            0x0000  0x00   delivered$'
# 204-byte packets: 16 bytes of parity after each packet.
python3 - "$sample" "$work/sample204.ts" <<'PY'
import sys
data = open(sys.argv[1], 'rb').read()
with open(sys.argv[2], 'wb') as out:
    for i in range(0, len(data), 188):
        out.write(data[i:i + 188] + b'\xAA' * 16)
PY
# The same table, but for the first line, which names the file.
timeout 60 "$scan" --fast --quiet --no-latency "$work/sample204.ts" | tail -n +2 >"$work/table204.txt"
tail -n +2 "$work/table.txt" | diff - "$work/table204.txt" \
  || { echo "204-byte packets scan differently"; exit 1; }
echo "scan checks passed"
