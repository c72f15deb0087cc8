#!/usr/bin/env bash
# The scan program end to end on the sample stream: exact channel table, fast
# and in real time, once and looping; valid JSON and trace; exit statuses and
# messages for bad options, unreadable input and an interrupt (and the command
# line's table of cases); the demo given a capture; the sample read
# from standard input and as 204-byte packets; and, in real time, FFmpeg's and
# GStreamer's streams against FFprobe (the test suite runs them fast).
set -euo pipefail
cd "$(dirname "$0")/../.."
cmake --preset default >/dev/null
timeout 600 cmake --build --preset default --target ostrel-scan ostrel-sample
scan=build/default/scan/ostrel-scan
sample=build/default/ts/sample.ts
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# The sample never carries one PMT its PAT names: its scans end with status 4.
scan4() {
  local status=0
  timeout 60 "$scan" "$@" || status=$?
  [ "$status" = 4 ] || { echo "ostrel-scan $*: status $status, not 4" >&2; return 1; }
}

scan4 --fast --quiet --no-latency "$sample" >"$work/table.txt"
grep -q '^0xE761   TV         Ostrel Extra    Ostrel    0x0130  PMT not in the stream$' "$work/table.txt"
grep -q '^PMT 0xE761     0x0130  0x02   not in the stream$' "$work/table.txt"
# One round of tables is enough, and the same table comes in real time. (In
# real time the missing PMT's 2 s time-out may end it before a 2 s pass does.)
for mode in "--fast --once" "--once" ""; do
  scan4 $mode --quiet --no-latency "$sample" | sed 's/timed out$/not in the stream/' \
    | diff - "$work/table.txt" \
    || { echo "scan ${mode:-(real time, looping)} differs"; exit 1; }
done
scan4 --fast --json --trace "$work/trace.json" "$sample" >"$work/scan.json"
python3 -m json.tool "$work/scan.json" >/dev/null
python3 -m json.tool "$work/trace.json" >/dev/null

# A stream without TOT ends once it has played through, not at the TOT's
# one-minute time-out.
python3 - "$sample" "$work/notot.ts" <<'PY'
import sys
data = bytearray(open(sys.argv[1], 'rb').read())
for i in range(0, len(data), 188):
    if ((data[i + 1] & 0x1F) << 8 | data[i + 2]) == 0x14:
        data[i + 1:i + 3] = b'\x1f\xff'
open(sys.argv[2], 'wb').write(data)
PY
scan4 --quiet --no-latency "$work/notot.ts" >"$work/notot.txt"
grep -q '^TOT            0x0014  0x73   not in the stream$' "$work/notot.txt"

# Unreadable input: exit 1 with a message, at once.
status=0; timeout 30 "$scan" --quiet /nonexistent.ts >/dev/null 2>"$work/err" || status=$?
[ "$status" -eq 1 ] && grep -q '^ostrel-scan: /nonexistent.ts: No such file' "$work/err"
status=0; timeout 30 "$scan" --quiet / >/dev/null 2>&1 || status=$?
[ "$status" -eq 1 ]
head -c 100000 /dev/urandom | tr '\107' '\000' >"$work/noise.ts"
: >"$work/empty.ts"
for input in noise empty; do
  for mode in --fast --once; do
    status=0; timeout 5 "$scan" --quiet $mode "$work/$input.ts" >/dev/null 2>"$work/err" || status=$?
    [ "$status" -eq 1 ] && grep -q 'no transport-stream packets found' "$work/err" \
      || { echo "$input $mode: exit $status"; exit 1; }
  done
done

# Every option is checked, with a message naming it; a missing value is
# never taken for a file.
check_usage() {
  local want=$1
  shift
  status=0; "$scan" "$@" >/dev/null 2>"$work/err" || status=$?
  [ "$status" -eq 2 ] && grep -q -- "$want" "$work/err" \
    || { echo "ostrel-scan $*: exit $status"; cat "$work/err"; exit 1; }
}
check_usage '--drop needs a share from 0 to 1' --drop 2 "$sample"
check_usage '--bitrate needs' --bitrate 0 "$sample"
check_usage '--timeout needs' --timeout nan "$sample"
check_usage '--rounds needs' --rounds 0 "$sample"
check_usage '--tuner needs a file' --tuner --quiet "$sample"
# Output paths are checked before the scan.
status=0; timeout 5 "$scan" --trace /nonexistent/trace.json "$sample" >/dev/null 2>&1 || status=$?
[ "$status" -eq 1 ]
# SIGINT ends a watch with 130 and reports no change that did not happen.
timeout 30 "$scan" watch --quiet --interval 0.1 "$sample" >"$work/watch.txt" 2>&1 &
pid=$!
sleep 3
kill -INT $pid
status=0; wait $pid || status=$?
[ "$status" -eq 130 ] && ! grep -q changed "$work/watch.txt" || { echo "watch: exit $status"; exit 1; }

# The demo scans the input it is given alone, else the sample.
status=0
scripts/demo --fast --once -q --no-latency "$work/notot.ts" >"$work/demo.txt" || status=$?
[ "$status" = 4 ]
[ "$(grep -c '^Tuner' "$work/demo.txt")" -eq 1 ] && grep -q "^Tuner 0: $work/notot.ts\$" "$work/demo.txt"
scripts/demo --fast --once -q --no-latency | grep -q "^Tuner 0: build/default/ts/sample.ts\$"

# The command line, table-driven: options, usage errors, failed outputs, interrupts.
python3 tests/scan_cli_test.py "$scan" "$sample"

# Standard input, not looped, paced by its PCR.
scan4 --quiet --no-latency - <"$sample" >"$work/stdin.txt"
grep -q '^PAT            0x0000  0x00   delivered$' "$work/stdin.txt"
# 204-byte packets: 16 bytes of parity after each packet.
python3 - "$sample" "$work/sample204.ts" <<'PY'
import sys
data = open(sys.argv[1], 'rb').read()
with open(sys.argv[2], 'wb') as out:
    for i in range(0, len(data), 188):
        out.write(data[i:i + 188] + b'\xAA' * 16)
PY
# The same table, but for the first line, which names the file.
scan4 --fast --quiet --no-latency "$work/sample204.ts" | tail -n +2 >"$work/table204.txt"
tail -n +2 "$work/table.txt" | diff - "$work/table204.txt" \
  || { echo "204-byte packets scan differently"; exit 1; }
# Two inputs, two tuners (ids 0 and 1 in order), each scanned in turn.
scan4 --fast --quiet --no-latency --tuner "$sample" --tuner "$work/sample204.ts" >"$work/two.txt"
grep -q "^Tuner 0: $sample\$" "$work/two.txt" && grep -q "^Tuner 1: $work/sample204.ts\$" "$work/two.txt"
[ "$(grep -c '^0xE778   TV 1seg ' "$work/two.txt")" -eq 2 ]

# Network input: the sample sent over loopback in real time, plain and in RTP.
for rtp in 0 1; do
  port=$((20000 + RANDOM % 20000))
  timeout 30 "$scan" --quiet --no-latency --timeout 15 "udp://127.0.0.1:$port" >"$work/udp.txt" &
  pid=$!
  sleep 0.5
  timeout 20 python3 - "$sample" "$port" "$rtp" <<'PY' &
import socket, struct, sys, time
data, port, rtp = open(sys.argv[1], 'rb').read(), int(sys.argv[2]), sys.argv[3] == '1'
out = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
start, sent, seq = time.monotonic(), 0, 0
for loop in range(6):  # 12 s at most; the scan needs one round and the 2 s PMT time-out
    for at in range(0, len(data), 1316):
        chunk = data[at:at + 1316]
        if rtp:  # version 2, payload type 33 (MP2T)
            chunk = struct.pack('!BBHII', 0x80, 33, seq & 0xFFFF, seq * 90, 0x4F535452) + chunk
        out.sendto(chunk, ('127.0.0.1', port))
        seq, sent = seq + 1, sent + 1316
        time.sleep(max(0, start + sent * 8 / 4e6 - time.monotonic()))
PY
  sender=$!
  status=0; wait $pid || status=$?
  kill $sender 2>/dev/null || true
  wait $sender 2>/dev/null || true
  [ "$status" -eq 4 ] || { echo "udp (rtp $rtp): exit $status"; exit 1; }
  tail -n +2 "$work/udp.txt" | sed 's/timed out$/not in the stream/' | diff - <(tail -n +2 "$work/table.txt") \
    || { echo "udp (rtp $rtp) scans differently"; exit 1; }
done

python3 tests/sim_muxers_test.py "$scan" "$work/muxers" --realtime
echo "scan checks passed"
