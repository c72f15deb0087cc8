#!/usr/bin/env bash
# The emulated DVB adapter read by the field's own clients, unmodified, in a
# private mount namespace where the emulator's root is bind-mounted at
# /dev/dvb: dvb-apps' scan and dvbdate, and dvbv5-zap (libdvbv5) tuning and
# recording a service from the channel file of ostrel-scan's scan of the
# adapter. libdvbv5 finds adapters through libudev, which reads
# /sys/class/dvb: a tmpfs over /sys/class holds the entries a kernel adapter
# has (uevent: the device number, DEVNAME and the DVB_* properties), and
# SYSTEMD_DEVICE_VERIFY_SYSFS=0 lets libudev take entries that are not on
# sysfs. The sample played carries every PMT (ostrel-mksample --every-pmt), so
# that no client waits for a time-out. Fails when the mounts cannot be made;
# skipped (77) only when dvbv5-zap is missing (dvb-tools).
# Usage: dvb_clients_check.sh OSTREL-DVB-EMU OSTREL-SCAN OSTREL-MKSAMPLE
set -euo pipefail
if [ -z "${OSTREL_DVB_NS:-}" ]; then
  command -v dvbv5-zap >/dev/null || { echo "dvbv5-zap missing (dvb-tools)"; exit 77; }
  exec env OSTREL_DVB_NS=1 unshare -m --propagation private "$0" "$@"
fi
emu=$1 scan=$2 mksample=$3
work=$(mktemp -d) pid="" made=""
fail() { echo "FAIL: $*"; tail -n 40 "$work"/*.txt 2>/dev/null; exit 1; }
cleanup() {
  [ -n "$pid" ] && kill "$pid" 2>/dev/null && wait "$pid" || true
  umount /dev/dvb 2>/dev/null || true
  [ -n "$made" ] && rmdir /dev/dvb 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

"$mksample" --every-pmt "$work/sample.ts" || fail "ostrel-mksample failed"
# A channel file that cannot be written is named, with exit status 1.
status=0
"$scan" --channels /nonexistent/c.conf "$work/sample.ts" 2>"$work/nowrite.txt" || status=$?
[ "$status" = 1 ] && grep -q "/nonexistent/c.conf" "$work/nowrite.txt" ||
  fail "an unwritable channel file gave status $status"
# The sample carries a TOT only; dvbdate reads a TDT: a second adapter plays one
# (2026-03-01 15:00:00 UTC: MJD 0xEEAC), sixteen packets for the continuity counter.
for cc in $(seq 0 15); do
  printf "\x47\x40\x14\x$(printf %x $((0x10 + cc)))\x00\x70\x70\x05\xee\xac\x15\x00\x00"
  head -c 175 /dev/zero | tr '\0' '\377'
done >"$work/tdt.ts"
mkdir -p "$work/root"
[ -d /dev/dvb ] || { mkdir /dev/dvb && made=1; }
"$emu" --root "$work/root" --adapter "$work/sample.ts" --adapter "$work/tdt.ts" \
  --ready-file "$work/ready" >"$work/emu.txt" 2>&1 &
pid=$!
for _ in $(seq 100); do
  [ -s "$work/ready" ] || ! kill -0 "$pid" 2>/dev/null && break
  sleep 0.1
done
[ -s "$work/ready" ] || fail "the emulator did not mount"
mount --bind "$work/root" /dev/dvb || fail "cannot bind the emulator at /dev/dvb"
mount -t tmpfs ostrel-sysfs /sys/class || fail "cannot mount a tmpfs over /sys/class"
minor=0
for node in frontend demux dvr; do
  dir=/sys/class/dvb/dvb0.${node}0
  mkdir -p "$dir"
  printf 'MAJOR=212\nMINOR=%d\nDEVNAME=dvb/adapter0/%s0\nDVB_ADAPTER_NUM=0\nDVB_DEVICE_TYPE=%s\nDVB_DEVICE_NUM=0\n' \
    $((minor++)) "$node" "$node" >"$dir/uevent"
  ln -s ../../dvb "$dir/subsystem"
done
export SYSTEMD_DEVICE_VERIFY_SYSFS=0

scan -c -a 0 >"$work/scan.txt" 2>&1 || fail "scan failed"
for service in "Ostrel HD" "Ostrel Extra" "Ostrel Dados" "Ostrel 1seg"; do
  grep -q "^$service .*(0x" "$work/scan.txt" || fail "scan did not list $service"
done
dvbdate -a 1 -p -t 5 >"$work/dvbdate.txt" 2>&1 || fail "dvbdate failed"
grep -q "Mar  1 15:00:00 2026" "$work/dvbdate.txt" || fail "dvbdate did not read the time"

channels=$work/dvb_channel.conf
"$scan" --quiet --timeout 20 --dvb /dev/dvb/adapter0 --channels "$channels" >"$work/oscan.txt" 2>&1 ||
  fail "the scan of the emulated adapter gave status $?"
# The service's PIDs as the channel file gives them, and another service's.
pids() { sed -n "/^\[$1\]/,/^\$/s/^\t\(VIDEO\|AUDIO\)_PID = //p" "$channels" | tr '\n' ' '; }
want=$(pids "Ostrel HD") other=$(pids "Ostrel 1seg")
[ -n "$want" ] && [ -n "$other" ] || fail "the channel file lacks Ostrel HD's or Ostrel 1seg's PIDs"
timeout 60 dvbv5-zap -c "$channels" -o "$work/rec.ts" -t 1 "Ostrel HD" >"$work/zap.txt" 2>&1 ||
  fail "dvbv5-zap failed"
grep -qi "using demux 'dvb0.demux0'" "$work/zap.txt" || fail "libdvbv5 did not find the adapter"
python3 - "$work/rec.ts" "$want" "$other" <<'PY' || fail "the recording is wrong"
import sys
data = open(sys.argv[1], "rb").read()
packets = [data[i:i + 188] for i in range(0, len(data) - len(data) % 188, 188)]
assert packets and len(data) % 188 == 0 and all(p[0] == 0x47 for p in packets), "not a TS"
pids = {((p[1] & 0x1F) << 8) | p[2] for p in packets}
want, other = ({int(x) for x in a.split()} for a in sys.argv[2:4])
assert want <= pids, f"missing {sorted(want - pids)} in {sorted(pids)}"
assert not (other & pids), f"another service's {sorted(other & pids)}"
print(f"recorded {len(packets)} packets of PIDs {sorted(pids)}")
PY
umount /dev/dvb
kill -TERM "$pid"
wait "$pid" || fail "the emulator did not end cleanly"
pid=""
echo "scan, dvbdate and dvbv5-zap (from ostrel-scan's channel file) read the emulated adapters"
