#!/usr/bin/env bash
# The emulated DVB adapter checked by independent clients: dvb-apps' scan and
# dvbdate, unmodified, in a private mount namespace where the emulator's root is
# bind-mounted at /dev/dvb. Fails (never skips) when the mount cannot be made.
# Usage: dvb_emu_check.sh OSTREL-DVB-EMU SAMPLE.ts
set -euo pipefail
if [ -z "${OSTREL_DVB_NS:-}" ]; then
  exec env OSTREL_DVB_NS=1 unshare -m --propagation private "$0" "$@"
fi
emu=$1 sample=$2
work=$(mktemp -d) pid="" made=""
fail() { echo "FAIL: $*"; cat "$work"/*.txt 2>/dev/null; exit 1; }
cleanup() {
  [ -n "$pid" ] && kill "$pid" 2>/dev/null && wait "$pid" || true
  umount /dev/dvb 2>/dev/null || true
  [ -n "$made" ] && rmdir /dev/dvb 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT
# The sample carries a TOT only; dvbdate reads a TDT: a second adapter plays one
# (2026-03-01 15:00:00 UTC: MJD 0xEEAC), sixteen packets for the continuity counter.
for cc in $(seq 0 15); do
  printf "\x47\x40\x14\x$(printf %x $((0x10 + cc)))\x00\x70\x70\x05\xee\xac\x15\x00\x00"
  head -c 175 /dev/zero | tr '\0' '\377'
done >"$work/tdt.ts"
mkdir -p "$work/root"
[ -d /dev/dvb ] || { mkdir /dev/dvb && made=1; }
"$emu" --root "$work/root" --adapter "$sample" --adapter "$work/tdt.ts" \
  --ready-file "$work/ready" >"$work/emu.txt" 2>&1 &
pid=$!
for _ in $(seq 100); do
  [ -s "$work/ready" ] || ! kill -0 "$pid" 2>/dev/null && break
  sleep 0.1
done
[ -s "$work/ready" ] || fail "the emulator did not mount"
mount --bind "$work/root" /dev/dvb || fail "cannot bind the emulator at /dev/dvb"
scan -c -a 0 >"$work/scan.txt" 2>&1 || fail "scan failed"
for service in "Ostrel HD" "Ostrel Dados" "Ostrel 1seg"; do
  grep -q "^$service .*(0x" "$work/scan.txt" || fail "scan did not list $service"
done
dvbdate -a 1 -p -t 5 >"$work/dvbdate.txt" 2>&1 || fail "dvbdate failed"
grep -q "Mar  1 15:00:00 2026" "$work/dvbdate.txt" || fail "dvbdate did not read the time"
umount /dev/dvb
kill -TERM "$pid"
wait "$pid" || fail "the emulator did not end cleanly"
pid=""
echo "scan and dvbdate read the emulated adapters"
